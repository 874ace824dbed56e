// The YANG model builder on small modules of its own: how each YANG
// construct becomes runtime types, what the library publishes for data of
// them (exactly libyang's RFC 7951 print), and the leaf values' forms.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libyang/libyang.h>

#include "YangTestSupport.h"
#include "YangValue.h"

namespace {

using namespace YangTest;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;

const char* HARD = R"(module yt-hard {
  yang-version 1.1;
  namespace "urn:yt:hard";
  prefix h;

  identity transport;
  identity tcp { base transport; }

  typedef percent { type uint8 { range "0..100"; } }
  typedef small-percent { type percent { range "0..10"; } }
  typedef speed {
    type union {
      type enumeration { enum slow; enum fast { value 7; } }
      type enumeration { enum auto; }
    }
  }

  grouping endpoint {
    leaf host { type string; }
    leaf port { type uint16; }
  }

  container top {
    leaf name { type string; }
    leaf ratio { type decimal64 { fraction-digits 3; } }
    leaf load { type small-percent; }
    leaf speed { type speed; }
    leaf flags { type bits { bit up { position 0; } bit running { position 2; } bit lower-down { position 5; } } }
    leaf marker { type empty; }
    leaf blob { type binary; }
    leaf big { type int64; }
    leaf ubig { type uint64; }
    leaf tiny { type int8; }
    leaf small { type int16; }
    leaf med { type int32; }
    leaf byte { type uint8; }
    leaf usmall { type uint16; }
    leaf umed { type uint32; }
    leaf on { type boolean; default true; }
    leaf mode { type enumeration { enum "10Mb half.duplex" { value -3; } enum full; } default full; }
    leaf proto { type identityref { base transport; } }
    leaf-list tags { type string; ordered-by user; }
    leaf-list levels { type int32; }
    container server { uses endpoint; }
    container debug { presence "debugging enabled"; leaf level { type uint8; } }
    choice transport {
      case tcp-case { leaf tcp-port { type uint16; } }
      case udp-case { container udp { leaf udp-port { type uint16; } } }
    }
    list link {
      key "node port";
      leaf port { type uint16; }
      leaf node { type string; }
      leaf cost { type uint32; }
    }
    list peer {
      key "id";
      leaf id { type string; }
      uses endpoint;
    }
    list sample {
      config false;
      leaf value { type int32; }
    }
  }
})";

const char* AUG = R"(module yt-aug {
  yang-version 1.1;
  namespace "urn:yt:aug";
  prefix a;
  import yt-hard { prefix h; }

  identity udp { base h:transport; }

  augment "/h:top" {
    leaf name { type string; }
    leaf peer-ref { type leafref { path "/h:top/h:peer/h:id"; } }
    leaf port-ref { type leafref { path "/h:top/h:link/h:port"; } }
    container extra { leaf note { type string; } }
  }
  container other {
    config false;
    leaf x { type int8; }
  }
})";

// Every construct of yt-hard and yt-aug, with values in non-canonical
// forms where they have one.
const char* DATA = R"({
  "yt-hard:top": {
    "name": "core",
    "ratio": "2.500",
    "load": 7,
    "speed": "fast",
    "flags": "running up",
    "marker": [null],
    "blob": "AAEC/w==",
    "big": "-9223372036854775808",
    "ubig": "18446744073709551615",
    "tiny": -128,
    "small": -300,
    "med": 70000,
    "byte": 255,
    "usmall": 65535,
    "umed": 4000000000,
    "on": false,
    "mode": "10Mb half.duplex",
    "proto": "yt-aug:udp",
    "tags": ["b", "a", "c"],
    "levels": [3, 1, 2],
    "server": {"host": "h1", "port": 80},
    "debug": {"level": 2},
    "tcp-port": 22,
    "link": [{"node": "n1", "port": 2, "cost": 5}, {"node": "n1", "port": 1}, {"node": "a0", "port": 9}],
    "peer": [{"id": "p__1", "host": "x"}, {"id": "p2"}],
    "sample": [{"value": 5}, {"value": 5}, {"value": -1}],
    "yt-aug:name": "aug-name",
    "yt-aug:peer-ref": "p2",
    "yt-aug:port-ref": 9,
    "yt-aug:extra": {"note": "n"}
  },
  "yt-aug:other": {"x": 1}
})";

class YangModelMapping : public YangFixture {
 protected:
  void SetUp() override {
    YangFixture::SetUp();
    model_ = model({dir()}, {"yt-hard", "yt-aug"});
    ASSERT_TRUE(model_);
  }
  static const std::string& dir() {
    static const std::string d = writeModules({{"yt-hard.yang", HARD}, {"yt-aug.yang", AUG}});
    return d;
  }
  const YangNode& top() const { return *model_->topLevel().front(); }
  Vek::VekAttr topAttr(const char* name) const { return top().type->attr(name); }
  const YangLeaf& topLeaf(const char* name) const { return *model_->leaf(topAttr(name).base()); }

  std::shared_ptr<YangModel> model_;
};

// ---------------------------------------------------------------------------
// Types

TEST_F(YangModelMapping, TopLevelContainersOfEveryImplementedModuleArePublishedAtTheirNames) {
  ASSERT_EQ(model_->topLevel().size(), 2u);
  EXPECT_EQ(model_->topLevel()[0]->element, "top");
  EXPECT_EQ(model_->topLevel()[0]->type->name(), "/yt-hard:top");
  EXPECT_EQ(model_->topLevel()[1]->element, "other");
  EXPECT_TRUE(model_->topLevel()[1]->state);
}

TEST_F(YangModelMapping, EntitiesHaveNoNameLeafSoALeafMayBeCalledName) {
  EXPECT_EQ(top().type->attr(Vek::AttributeId(1))->name(), "@name");
  EXPECT_TRUE(topLeaf("name").node);
  EXPECT_STREQ(topLeaf("name").module(), "yt-hard");
}

TEST_F(YangModelMapping, SameNamedChildrenOfAnotherModuleAreQualified) {
  EXPECT_STREQ(topLeaf("yt-aug:name").module(), "yt-aug");
  EXPECT_EQ(model_->child(top().node, "name"), topLeaf("name").node);
  EXPECT_EQ(model_->child(top().node, "yt-aug:name"), topLeaf("yt-aug:name").node);
  // Every child is also found by its module-qualified name, as requests may
  // spell it.
  EXPECT_EQ(model_->child(top().node, "yt-hard:name"), topLeaf("name").node);
  EXPECT_EQ(model_->child(nullptr, "yt-hard:top"), top().node);
  EXPECT_EQ(model_->child(top().node, "yt-aug:ratio"), nullptr);
}

TEST_F(YangModelMapping, AugmentedNodesAreAttributesOfTheAugmentedEntity) {
  EXPECT_TRUE(topAttr("peer-ref"));
  const YangNode* extra = model_->node(topAttr("extra").base());
  ASSERT_TRUE(extra);
  EXPECT_STREQ(extra->module(), "yt-aug");
  EXPECT_EQ(YangModel::jsonName(extra->node, top().node->module), "yt-aug:extra");
}

TEST_F(YangModelMapping, ChoicesAndCasesAreTransparent) {
  EXPECT_FALSE(topAttr("transport"));
  EXPECT_FALSE(topAttr("tcp-case"));
  EXPECT_TRUE(topAttr("tcp-port"));
  EXPECT_TRUE(model_->node(topAttr("udp").base()));
}

TEST_F(YangModelMapping, GroupingsAreExpandedWhereTheyAreUsed) {
  const YangNode* server = model_->node(topAttr("server").base());
  ASSERT_TRUE(server);
  EXPECT_TRUE(server->type->attr("host"));
  EXPECT_EQ(model_->leaf(server->type->attr("port").base())->valueType, Vek::builtinType<unsigned short>());
}

TEST_F(YangModelMapping, EachLeafTypeHasItsRuntimeType) {
  using Vek::builtinType;
  const std::map<std::string, Vek::VekType> builtins = {
      {"tiny", builtinType<signed char>()},      {"small", builtinType<short>()},
      {"med", builtinType<int>()},               {"big", builtinType<long long>()},
      {"byte", builtinType<unsigned char>()},    {"usmall", builtinType<unsigned short>()},
      {"umed", builtinType<unsigned>()},         {"ubig", builtinType<unsigned long long>()},
      {"on", builtinType<bool>()},               {"name", builtinType<Vek::String>()},
      {"proto", builtinType<Vek::String>()},     {"speed", builtinType<Vek::String>()},
      {"flags", builtinType<Vek::String>()},     {"load", builtinType<unsigned char>()},
      {"peer-ref", builtinType<Vek::String>()},  {"port-ref", builtinType<unsigned short>()},
  };
  for (const auto& [leaf, type] : builtins) EXPECT_EQ(topLeaf(leaf.c_str()).valueType, type) << leaf;
  const std::map<std::string, std::string> ofTheModel = {
      {"ratio", "decimal64(3)"}, {"marker", "empty"}, {"blob", "binary"}, {"mode", "/yt-hard:top/mode#enumeration"}};
  for (const auto& [leaf, type] : ofTheModel) {
    EXPECT_EQ(&topLeaf(leaf.c_str()).valueType->module(), &model_->vekModule()) << leaf;
    EXPECT_EQ(topLeaf(leaf.c_str()).valueType->name(), type) << leaf;
  }
  const Vek::VekType mode = topLeaf("mode").valueType;
  EXPECT_EQ(mode->enumerator("10Mb half.duplex")->enumValue(), -3);
  EXPECT_EQ(mode->enumerator("full")->enumValue(), -2);  // one above the highest before it
}

TEST_F(YangModelMapping, LeavesAndKeysAreOptionalAndLeafListsAreOptionalArrays) {
  EXPECT_TRUE(topAttr("name")->isOptional());
  EXPECT_EQ(topAttr("name")->storage(), Vek::AttrStorage::Ref);
  EXPECT_TRUE(topAttr("tags")->isArray());
  EXPECT_TRUE(topAttr("tags")->isOptional());
  const YangNode* peer = model_->node(topAttr("peer").base());
  ASSERT_TRUE(peer);
  EXPECT_TRUE(peer->type->attr("id")->isOptional());
  EXPECT_TRUE(model_->leaf(peer->type->attr("id").base())->key);
}

TEST_F(YangModelMapping, AListWithOneKeyIsKeyedByTheKeyLeafsTypeAndNamesIt) {
  const Vek::VekAttr peer = topAttr("peer");
  EXPECT_TRUE(peer->isCollection());
  EXPECT_TRUE(peer->isInstantiating());
  EXPECT_EQ(peer->indexType(), Vek::builtinType<Vek::String>());
  EXPECT_EQ(peer->keyAttrName(), "id");
}

TEST_F(YangModelMapping, AListWithSeveralKeysIsKeyedByAValueOfItsKeysInKeyOrder) {
  const YangNode* link = model_->node(topAttr("link").base());
  ASSERT_TRUE(link);
  ASSERT_EQ(link->keys.size(), 2u);
  EXPECT_EQ(link->keys[0]->element, "node");
  EXPECT_EQ(link->keys[1]->element, "port");
  const Vek::VekType key = topAttr("link")->indexType();
  EXPECT_EQ(key->name(), "/yt-hard:top/link#key");
  ASSERT_EQ(key->attrCount(), 2u);
  EXPECT_EQ(key->attrAt(0)->name(), "node");
  EXPECT_EQ(key->attrAt(1)->name(), "port");
}

TEST_F(YangModelMapping, AKeylessListIsKeyedByPositionUnderAKeyThatIsNeverALeaf) {
  const Vek::VekAttr sample = topAttr("sample");
  EXPECT_EQ(sample->indexType(), Vek::builtinType<unsigned>());
  EXPECT_EQ(sample->keyAttrName(), YangModel::POSITION_KEY);
  EXPECT_TRUE(sample->type()->attr(YangModel::POSITION_KEY)->isOptional());
  EXPECT_TRUE(model_->node(sample.base())->keyless);
}

TEST_F(YangModelMapping, ConfigFalseIsState) {
  EXPECT_TRUE(model_->isState(*topAttr("sample")));
  EXPECT_TRUE(model_->isState(*model_->node(topAttr("sample").base())->type->attr("value")));
  EXPECT_FALSE(model_->isState(*topAttr("name")));
}

TEST_F(YangModelMapping, AModuleWithATopLevelListIsRefused) {
  const std::string d = writeModules({{"yt-toplist.yang", R"(module yt-toplist {
    namespace "urn:yt:toplist"; prefix t;
    list item { key "k"; leaf k { type string; } }
  })"}});
  auto schema = YangSchema::load({{d}, {"yt-toplist"}, {}});
  ASSERT_TRUE(schema.ok()) << schema.error();
  auto built = YangModel::build(schema.value());
  ASSERT_FALSE(built.ok());
  EXPECT_EQ(built.error(),
            "top-level list item of module yt-toplist is not supported: only containers are published at the top");
}

// ---------------------------------------------------------------------------
// Data: built as it is, published exactly

TEST_F(YangModelMapping, ThePublishedLeavesAreExactlyLibyangsPrintOfTheData) {
  const nlohmann::json expected = load(*model_, DATA);
  ASSERT_TRUE(root_);
  EXPECT_EQ(sortedLists(published(*model_)), sortedLists(expected));
}

TEST_F(YangModelMapping, TheRuntimeTreePrintsAsLibyangPrintsTheData) {
  const nlohmann::json expected = load(*model_, DATA);
  ASSERT_TRUE(root_);
  EXPECT_EQ(sortedLists(YangJson::treeJson(*model_, *root_)), sortedLists(expected));
}

TEST_F(YangModelMapping, ValuesArePublishedInCanonicalFormAndByTheirNativeKinds) {
  load(*model_, DATA);
  published(*model_);
  EXPECT_THAT(leaves_, IsSupersetOf({
                           "/top/name = string_val: \"core\"",
                           "/top/ratio = string_val: \"2.5\"",
                           "/top/load = uint_val: 7",
                           "/top/speed = string_val: \"fast\"",
                           "/top/flags = string_val: \"up running\"",
                           "/top/marker = string_val: \"\"",
                           "/top/blob = string_val: \"AAEC/w==\"",
                           "/top/big = int_val: -9223372036854775808",
                           "/top/ubig = uint_val: 18446744073709551615",
                           "/top/on = bool_val: false",
                           "/top/mode = string_val: \"10Mb half.duplex\"",
                           "/top/proto = string_val: \"yt-aug:udp\"",
                           "/top/tags = [string_val: \"b\", string_val: \"a\", string_val: \"c\"]",
                           "/top/yt-aug:name = string_val: \"aug-name\"",
                           "/top/port-ref = uint_val: 9",
                           "/top/extra/note = string_val: \"n\"",
                       }));
}

TEST_F(YangModelMapping, ListEntriesArePublishedWithEveryKeyInTheirPath) {
  load(*model_, DATA);
  published(*model_);
  EXPECT_THAT(leaves_, IsSupersetOf({
                           "/top/link[node=n1][port=2]/node = string_val: \"n1\"",
                           "/top/link[node=n1][port=2]/port = uint_val: 2",
                           "/top/link[node=n1][port=2]/cost = uint_val: 5",
                           "/top/link[node=a0][port=9]/port = uint_val: 9",
                           "/top/peer[id=p2]/id = string_val: \"p2\"",
                           "/top/sample[@index=1]/value = int_val: 5",
                           "/top/sample[@index=2]/value = int_val: -1",
                       }));
  // The library escapes "__" in key texts; the key leaf holds the value.
  EXPECT_THAT(leaves_, Contains("/top/peer[id=p\\__1]/id = string_val: \"p__1\""));
}

TEST_F(YangModelMapping, UnsetLeavesAndSchemaDefaultsAreNotPublished) {
  load(*model_, R"({"yt-hard:top": {"server": {"host": "h"}}})");
  published(*model_);
  // "on" and "mode" have defaults, "debug" is an absent presence container,
  // the other containers are empty.
  EXPECT_EQ(leaves_, std::vector<std::string>{"/top/server/host = string_val: \"h\""});
}

TEST_F(YangModelMapping, AnEmptyPresenceContainerIsInTheRuntimeTreeButPublishesNoLeaf) {
  const nlohmann::json expected = load(*model_, R"({"yt-hard:top": {"debug": {}}})");
  EXPECT_EQ(expected, nlohmann::json::parse(R"({"yt-hard:top": {"debug": {}}})"));
  EXPECT_EQ(YangJson::treeJson(*model_, *root_), expected);
  EXPECT_EQ(published(*model_), nlohmann::json::object());
}

TEST_F(YangModelMapping, UnsettingALeafStreamsADeleteOfItsPath) {
  load(*model_, DATA);
  published(*model_);
  router_.clear();
  const Vek::Ptr<Vek::Entity> top = root_->child("top");
  topAttr("name").genericIfSet(top, nullptr, nullptr);
  EXPECT_EQ(router_.leaves(), std::vector<std::string>{"delete /top/name"});
  const nlohmann::json after = YangJson::treeJson(*model_, *root_)["yt-hard:top"];
  EXPECT_FALSE(after.contains("name"));
  EXPECT_TRUE(after.contains("yt-aug:name"));
}

// ---------------------------------------------------------------------------
// Values

TEST_F(YangModelMapping, Decimal64KeepsItsExactValue) {
  const YangLeaf& ratio = topLeaf("ratio");
  auto value = YangValue::runtimeValue(ratio, "-9223372036854775.808");
  ASSERT_TRUE(value.ok()) << value.error();
  EXPECT_EQ(value.value()->value<long long>("value"), std::numeric_limits<long long>::min());
  EXPECT_EQ(YangValue::canonicalText(ratio, *value.value()), "-9223372036854775.808");
  EXPECT_EQ(YangValue::canonicalText(ratio, *YangValue::runtimeValue(ratio, "0.1").value()), "0.1");
  EXPECT_EQ(YangValue::canonicalText(ratio, *YangValue::runtimeValue(ratio, "3.0").value()), "3.0");
  EXPECT_FALSE(YangValue::runtimeValue(ratio, "0.0001").ok());
  EXPECT_FALSE(YangValue::runtimeValue(ratio, "9223372036854775.808").ok());
}

TEST_F(YangModelMapping, ValuesAreCheckedAndCanonicalizedByLibyang) {
  EXPECT_EQ(YangValue::canonicalize(topLeaf("ratio"), "2.50").value(), "2.5");
  EXPECT_EQ(YangValue::canonicalize(topLeaf("flags"), "lower-down up").value(), "up lower-down");
  EXPECT_EQ(YangValue::canonicalize(topLeaf("proto"), "yt-aug:udp").value(), "yt-aug:udp");
  auto tooMany = YangValue::canonicalize(topLeaf("ratio"), "2.5001");
  ASSERT_FALSE(tooMany.ok());
  EXPECT_THAT(tooMany.error(), HasSubstr("exceeds defined number (3) of fraction digits"));
  // The range of the derived typedef applies.
  auto outOfRange = YangValue::canonicalize(topLeaf("load"), "11");
  ASSERT_FALSE(outOfRange.ok());
  EXPECT_THAT(outOfRange.error(), HasSubstr("Unsatisfied range - value \"11\" is out of the allowed range"));
  EXPECT_FALSE(YangValue::canonicalize(topLeaf("speed"), "medium").ok());
  EXPECT_FALSE(YangValue::canonicalize(topLeaf("proto"), "yt-hard:nosuch").ok());
}

TEST_F(YangModelMapping, UnionValuesTakeTheirMembersJsonForm) {
  const std::string d = writeModules({{"yt-union.yang", R"(module yt-union {
    namespace "urn:yt:union"; prefix u;
    container c {
      leaf u { type union { type int32; type enumeration { enum unlimited; } type decimal64 { fraction-digits 1; } } }
    }
  })"}});
  auto m = model({d}, {"yt-union"});
  ASSERT_TRUE(m);
  const YangLeaf& u = *m->leaf(m->topLevel().front()->type->attr("u").base());
  EXPECT_EQ(YangValue::json(u, "-5"), nlohmann::json(-5));
  EXPECT_EQ(YangValue::json(u, "unlimited"), nlohmann::json("unlimited"));
  EXPECT_EQ(YangValue::json(u, "0.5"), nlohmann::json("0.5"));
  EXPECT_EQ(LY_TYPE_INT32, YangValue::realType(u, "-5")->basetype);
}

TEST_F(YangModelMapping, JsonOfEachKindIsRfc7951s) {
  EXPECT_EQ(YangValue::json(topLeaf("big"), "-5"), nlohmann::json("-5"));
  EXPECT_EQ(YangValue::json(topLeaf("umed"), "4000000000"), nlohmann::json(4000000000U));
  EXPECT_EQ(YangValue::json(topLeaf("tiny"), "-128"), nlohmann::json(-128));
  EXPECT_EQ(YangValue::json(topLeaf("on"), "false"), nlohmann::json(false));
  EXPECT_EQ(YangValue::json(topLeaf("marker"), ""), nlohmann::json::parse("[null]"));
  EXPECT_EQ(YangValue::json(topLeaf("ratio"), "2.5"), nlohmann::json("2.5"));
}

}  // namespace
