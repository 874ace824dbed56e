// The YANG model on the IETF modules installed by Debian (ietf-interfaces,
// ietf-ip, iana-if-type, NMDA and classic revisions): loading modules,
// loading instance data, publishing it exactly as libyang prints it, and
// refusing what is not valid.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libyang/libyang.h>

#include "YangTestSupport.h"

namespace {

using namespace YangTest;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::StartsWith;

const std::vector<std::string> BOTH_DIRS = {NMDA_DIR, CLASSIC_DIR};
const std::vector<std::string> NMDA_MODULES = {"ietf-interfaces", "ietf-ip", "iana-if-type"};
const std::vector<std::string> CLASSIC_MODULES = {"ietf-interfaces@2014-05-08", "ietf-ip@2014-06-16", "iana-if-type"};

// NMDA ietf-interfaces: config and state in one tree, IPv4 and IPv6
// addresses through the ietf-ip augment, values in non-canonical forms.
const char* NMDA_DATA = R"({
  "ietf-interfaces:interfaces": {
    "interface": [
      {
        "name": "eth0",
        "description": "uplink",
        "type": "iana-if-type:ethernetCsmacd",
        "enabled": true,
        "link-up-down-trap-enable": "enabled",
        "admin-status": "up",
        "oper-status": "up",
        "last-change": "2024-03-01T10:00:00Z",
        "if-index": 2,
        "phys-address": "00:1A:2B:3c:4d:5e",
        "lower-layer-if": ["lo"],
        "speed": "10000000000",
        "statistics": {
          "discontinuity-time": "2024-01-01T00:00:00+00:00",
          "in-octets": "123456789012",
          "in-unicast-pkts": "7",
          "in-errors": 0,
          "out-octets": "456"
        },
        "ietf-ip:ipv4": {
          "enabled": true,
          "forwarding": false,
          "mtu": 1500,
          "address": [
            {"ip": "10.0.0.1", "prefix-length": 24, "origin": "static"},
            {"ip": "192.168.1.1", "netmask": "255.255.255.0"}
          ],
          "neighbor": [{"ip": "10.0.0.2", "link-layer-address": "00:11:22:33:44:55", "origin": "dynamic"}]
        },
        "ietf-ip:ipv6": {
          "mtu": 1500,
          "address": [{"ip": "2001:DB8:0::0:1", "prefix-length": 64, "origin": "static", "status": "preferred"}],
          "dup-addr-detect-transmits": 2,
          "autoconf": {"create-global-addresses": false}
        }
      },
      {
        "name": "lo",
        "type": "iana-if-type:softwareLoopback",
        "admin-status": "up",
        "oper-status": "up",
        "if-index": 1,
        "statistics": {"discontinuity-time": "2024-01-01T00:00:00Z"}
      }
    ]
  }
})";

// Classic ietf-interfaces: configuration in /interfaces, state in
// /interfaces-state.
const char* CLASSIC_DATA = R"({
  "ietf-interfaces:interfaces": {
    "interface": [{
      "name": "eth0",
      "type": "iana-if-type:ethernetCsmacd",
      "ietf-ip:ipv4": {"address": [{"ip": "10.0.0.1", "prefix-length": 24}]},
      "ietf-ip:ipv6": {"address": [{"ip": "2001:db8:0:0:0:0:0:1", "prefix-length": 64}]}
    }]
  },
  "ietf-interfaces:interfaces-state": {
    "interface": [{
      "name": "eth0",
      "type": "iana-if-type:ethernetCsmacd",
      "admin-status": "up",
      "oper-status": "lower-layer-down",
      "if-index": 1,
      "phys-address": "00:11:22:33:44:55",
      "speed": "1000000000",
      "statistics": {"discontinuity-time": "2024-01-01T00:00:00Z", "in-octets": "42"},
      "ietf-ip:ipv4": {"address": [{"ip": "10.0.0.1", "prefix-length": 24, "origin": "static"}]}
    }]
  }
})";

using YangIetf = YangFixture;

// ---------------------------------------------------------------------------
// Modules

TEST_F(YangIetf, ANameTakesTheNewestRevisionInAnySearchFolder) {
  auto schema = YangSchema::load({BOTH_DIRS, NMDA_MODULES, {}});
  ASSERT_TRUE(schema.ok()) << schema.error();
  ASSERT_EQ(schema.value()->named().size(), 3u);
  EXPECT_STREQ(schema.value()->named()[0]->revision, "2018-02-20");
  EXPECT_STREQ(schema.value()->named()[1]->revision, "2018-02-22");
}

TEST_F(YangIetf, ARevisionTakesThatRevision) {
  auto schema = YangSchema::load({BOTH_DIRS, CLASSIC_MODULES, {}});
  ASSERT_TRUE(schema.ok()) << schema.error();
  EXPECT_STREQ(schema.value()->named()[0]->revision, "2014-05-08");
  EXPECT_STREQ(schema.value()->named()[1]->revision, "2014-06-16");
}

TEST_F(YangIetf, AnAugmentedModuleIsImplementedAndEveryFeatureIsOn) {
  auto schema = YangSchema::load({BOTH_DIRS, {"ietf-ip", "iana-if-type"}, {}});
  ASSERT_TRUE(schema.ok()) << schema.error();
  const lys_module* interfaces = ly_ctx_get_module_implemented(schema.value()->context(), "ietf-interfaces");
  ASSERT_TRUE(interfaces);
  EXPECT_EQ(lys_feature_value(interfaces, "if-mib"), LY_SUCCESS);
  const lys_module* ip = schema.value()->named()[0];
  EXPECT_EQ(lys_feature_value(ip, "ipv4-non-contiguous-netmasks"), LY_SUCCESS);
}

TEST_F(YangIetf, FeaturesCanBeNarrowedPerModule) {
  auto schema = YangSchema::load({BOTH_DIRS, NMDA_MODULES, {"ietf-interfaces:arbitrary-names"}});
  ASSERT_TRUE(schema.ok()) << schema.error();
  const lys_module* interfaces = schema.value()->named()[0];
  EXPECT_EQ(lys_feature_value(interfaces, "arbitrary-names"), LY_SUCCESS);
  EXPECT_EQ(lys_feature_value(interfaces, "if-mib"), LY_ENOT);
}

TEST_F(YangIetf, DataUsingAFeatureThatIsOffIsRefused) {
  auto m = model(BOTH_DIRS, NMDA_MODULES, {"ietf-interfaces:"});
  ASSERT_TRUE(m);
  auto tree = YangDataTree::parseJson(*m, NMDA_DATA);
  ASSERT_FALSE(tree.ok());
  EXPECT_THAT(tree.error(), HasSubstr("Node \"link-up-down-trap-enable\" not found as a child of \"interface\" node."));
}

TEST_F(YangIetf, AMissingModuleIsAClearError) {
  auto schema = YangSchema::load({BOTH_DIRS, {"ietf-nosuch"}, {}});
  ASSERT_FALSE(schema.ok());
  EXPECT_EQ(schema.error(),
            "cannot load YANG module ietf-nosuch: Data model \"ietf-nosuch\" not found in local searchdirs.; "
            "Loading \"ietf-nosuch\" module failed.");
}

TEST_F(YangIetf, AMissingRevisionIsAClearError) {
  auto schema = YangSchema::load({BOTH_DIRS, {"ietf-interfaces@2010-01-01"}, {}});
  ASSERT_FALSE(schema.ok());
  EXPECT_THAT(schema.error(), StartsWith("cannot load YANG module ietf-interfaces@2010-01-01: "));
  EXPECT_THAT(schema.error(), HasSubstr("not found"));
}

TEST_F(YangIetf, BadArgumentsAreClearErrors) {
  EXPECT_EQ(YangSchema::load({{"/nonexistent/yang"}, NMDA_MODULES, {}}).error(),
            "YANG search folder /nonexistent/yang is not a folder");
  EXPECT_EQ(YangSchema::load({BOTH_DIRS, {"ietf-interfaces@"}, {}}).error(),
            "module \"ietf-interfaces@\" is not NAME or NAME@REVISION");
  EXPECT_EQ(YangSchema::load({BOTH_DIRS, NMDA_MODULES, {"if-mib"}}).error(),
            "feature list \"if-mib\" is not MODULE:F1,F2");
  EXPECT_EQ(YangSchema::load({BOTH_DIRS, NMDA_MODULES, {"ietf-system:ntp"}}).error(),
            "features given for ietf-system, which is not loaded by name");
  auto unknown = YangSchema::load({BOTH_DIRS, NMDA_MODULES, {"ietf-interfaces:warp-drive"}});
  ASSERT_FALSE(unknown.ok());
  EXPECT_THAT(unknown.error(), HasSubstr("warp-drive"));
}

// ---------------------------------------------------------------------------
// Data, published exactly

// Loads `data` into a model of `modules`: what the library publishes of it,
// and the runtime tree's print, are libyang's print of the data.
class YangIetfExact : public YangFixture {
 protected:
  void expectPublishedAsLibyangPrintsIt(const std::vector<std::string>& modules, const char* data) {
    auto m = model(BOTH_DIRS, modules);
    ASSERT_TRUE(m);
    const nlohmann::json expected = load(*m, data);
    ASSERT_TRUE(root_);
    EXPECT_EQ(sortedLists(published(*m)), sortedLists(expected));
    EXPECT_EQ(sortedLists(YangJson::treeJson(*m, *root_)), sortedLists(expected));
  }
};

TEST_F(YangIetfExact, NmdaInterfacesArePublishedExactlyAsLibyangPrintsThem) {
  expectPublishedAsLibyangPrintsIt(NMDA_MODULES, NMDA_DATA);
}

TEST_F(YangIetfExact, ClassicInterfacesAndTheirStateArePublishedExactlyAsLibyangPrintsThem) {
  expectPublishedAsLibyangPrintsIt(CLASSIC_MODULES, CLASSIC_DATA);
}

TEST_F(YangIetf, PublishedPathsAreYangDataPathsWithCanonicalValuesInKeysToo) {
  auto m = model(BOTH_DIRS, NMDA_MODULES);
  ASSERT_TRUE(m);
  load(*m, NMDA_DATA);
  published(*m);
  const std::string eth0 = "/interfaces/interface[name=eth0]";
  EXPECT_THAT(leaves_, IsSupersetOf({
                           eth0 + "/type = string_val: \"iana-if-type:ethernetCsmacd\"",
                           eth0 + "/oper-status = string_val: \"up\"",
                           eth0 + "/if-index = int_val: 2",
                           eth0 + "/speed = uint_val: 10000000000",
                           eth0 + "/last-change = string_val: \"2024-03-01T10:00:00+00:00\"",
                           eth0 + "/statistics/in-octets = uint_val: 123456789012",
                           eth0 + "/ipv4/address[ip=10.0.0.1]/prefix-length = uint_val: 24",
                           eth0 + "/ipv4/address[ip=192.168.1.1]/netmask = string_val: \"255.255.255.0\"",
                           eth0 + "/ipv6/address[ip=2001:db8::1]/ip = string_val: \"2001:db8::1\"",
                           eth0 + "/ipv6/autoconf/create-global-addresses = bool_val: false",
                       }));
  // Defaults (enabled, ipv4/enabled of lo, ...) and unset leaves are not
  // published: lo has exactly what the data gives it.
  std::vector<std::string> lo;
  for (const std::string& leaf : leaves_) {
    if (leaf.starts_with("/interfaces/interface[name=lo]")) lo.push_back(leaf);
  }
  EXPECT_EQ(lo, (std::vector<std::string>{
                    "/interfaces/interface[name=lo]/name = string_val: \"lo\"",
                    "/interfaces/interface[name=lo]/type = string_val: \"iana-if-type:softwareLoopback\"",
                    "/interfaces/interface[name=lo]/admin-status = string_val: \"up\"",
                    "/interfaces/interface[name=lo]/oper-status = string_val: \"up\"",
                    "/interfaces/interface[name=lo]/if-index = int_val: 1",
                    "/interfaces/interface[name=lo]/statistics/discontinuity-time = string_val: "
                    "\"2024-01-01T00:00:00+00:00\"",
                }));
}

TEST_F(YangIetf, TheExampleOfTheModelsHeaderPublishesWhatItSays) {
  auto m = model(BOTH_DIRS, CLASSIC_MODULES);
  ASSERT_TRUE(m);
  load(*m, R"({"ietf-interfaces:interfaces": {"interface": [{"name": "eth0", "type":
     "iana-if-type:ethernetCsmacd", "ietf-ip:ipv4": {"address": [{"ip":
     "10.0.0.1", "prefix-length": 24}]}}]}})");
  ASSERT_TRUE(root_);
  published(*m);
  EXPECT_EQ(leaves_, (std::vector<std::string>{
                         "/interfaces/interface[name=eth0]/name = string_val: \"eth0\"",
                         "/interfaces/interface[name=eth0]/type = string_val: \"iana-if-type:ethernetCsmacd\"",
                         "/interfaces/interface[name=eth0]/ipv4/address[ip=10.0.0.1]/ip = string_val: \"10.0.0.1\"",
                         "/interfaces/interface[name=eth0]/ipv4/address[ip=10.0.0.1]/prefix-length = uint_val: 24",
                     }));
  const Vek::Ptr<Vek::Entity> eth0 = root_->child("interfaces")->entity("interface", Vek::genericIfOf("eth0"));
  ASSERT_TRUE(eth0);
  EXPECT_TRUE(eth0->entity("ipv4"));
  EXPECT_FALSE(eth0->entity("ipv6"));
  EXPECT_TRUE(root_->child("interfaces-state"));
  EXPECT_FALSE(eth0->type()->attr("enabled").genericIfExist(eth0));
  EXPECT_EQ(m->leaf(eth0->type()->attr("ipv4")->type()->attr("address")->type()->attr("prefix-length").base())
                ->valueType,
            Vek::builtinType<unsigned char>());
}

TEST_F(YangIetf, ARootWithoutDataHoldsTheTopLevelContainersAndPublishesNothing) {
  auto m = model(BOTH_DIRS, CLASSIC_MODULES);
  ASSERT_TRUE(m);
  root_ = YangData::emptyRoot(*m);
  EXPECT_TRUE(root_->child("interfaces"));
  EXPECT_TRUE(root_->child("interfaces-state"));
  EXPECT_EQ(published(*m), nlohmann::json::object());
  EXPECT_TRUE(leaves_.empty());
}

TEST_F(YangIetf, AFileIsLoadedWithItsNameInErrors) {
  auto m = model(BOTH_DIRS, NMDA_MODULES);
  ASSERT_TRUE(m);
  const std::string dir = writeModules({{"device.json", NMDA_DATA}, {"broken.json", R"({"ietf-interfaces:interfaces": )"}});
  auto loaded = YangData::loadFile(*m, dir + "/device.json");
  ASSERT_TRUE(loaded.ok()) << loaded.error();
  EXPECT_EQ(loaded.value().root->child("interfaces")->memberCount("interface"), 2u);
  auto broken = YangData::loadFile(*m, dir + "/broken.json");
  ASSERT_FALSE(broken.ok());
  // A document cut short is not taken for an empty one.
  EXPECT_THAT(broken.error(), StartsWith(dir + "/broken.json: the data is not JSON: "));
  EXPECT_THAT(broken.error(), HasSubstr("unexpected end of input"));
  auto missing = YangData::loadFile(*m, dir + "/missing.json");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error(), dir + "/missing.json: cannot read the file: No such file or directory");
}

// ---------------------------------------------------------------------------
// Invalid data: libyang's message and the path at fault

TEST_F(YangIetf, AValueOutOfItsRangeIsRefusedWithThePathAtFault) {
  auto m = model(BOTH_DIRS, NMDA_MODULES);
  ASSERT_TRUE(m);
  auto tree = YangDataTree::parseJson(*m, R"({"ietf-interfaces:interfaces": {"interface": [{
      "name": "eth0", "type": "iana-if-type:ethernetCsmacd", "admin-status": "up", "oper-status": "up",
      "if-index": 1, "statistics": {"discontinuity-time": "2024-01-01T00:00:00Z"},
      "ietf-ip:ipv4": {"address": [{"ip": "10.0.0.1", "prefix-length": 33}]}}]}})");
  ASSERT_FALSE(tree.ok());
  EXPECT_THAT(tree.error(), HasSubstr("Unsatisfied range - value \"33\" is out of the allowed range."));
  EXPECT_THAT(tree.error(), HasSubstr("/ietf-interfaces:interfaces/interface[name='eth0']/ietf-ip:ipv4/"
                                      "address[ip='10.0.0.1']/prefix-length"));
}

TEST_F(YangIetf, AnUnknownMemberIsRefused) {
  auto m = model(BOTH_DIRS, NMDA_MODULES);
  ASSERT_TRUE(m);
  auto tree = YangDataTree::parseJson(*m, R"({"ietf-interfaces:interfaces": {"bogus": 1}})");
  ASSERT_FALSE(tree.ok());
  EXPECT_THAT(tree.error(), HasSubstr("\"bogus\""));
}

TEST_F(YangIetf, AMissingMandatoryNodeIsRefused) {
  auto m = model(BOTH_DIRS, NMDA_MODULES);
  ASSERT_TRUE(m);
  auto tree = YangDataTree::parseJson(*m, R"({"ietf-interfaces:interfaces": {"interface": [{"name": "eth0"}]}})");
  ASSERT_FALSE(tree.ok());
  EXPECT_THAT(tree.error(), HasSubstr("Mandatory node \"type\" instance does not exist."));
  EXPECT_THAT(tree.error(), HasSubstr("(Schema location \"/ietf-interfaces:interfaces/interface/type\".)"));
}

TEST_F(YangIetf, AnIdentityOfTheWrongBaseIsRefused) {
  auto m = model(BOTH_DIRS, NMDA_MODULES);
  ASSERT_TRUE(m);
  auto tree = YangDataTree::parseJson(*m, R"({"ietf-interfaces:interfaces": {"interface": [{
      "name": "eth0", "type": "iana-if-type:nosuchType"}]}})");
  ASSERT_FALSE(tree.ok());
  EXPECT_THAT(tree.error(), HasSubstr("nosuchType"));
}

TEST_F(YangIetf, ABrokenLeafrefIsRefused) {
  auto m = model(BOTH_DIRS, NMDA_MODULES);
  ASSERT_TRUE(m);
  auto tree = YangDataTree::parseJson(*m, R"({"ietf-interfaces:interfaces": {"interface": [{
      "name": "eth0", "type": "iana-if-type:ethernetCsmacd", "admin-status": "up", "oper-status": "up",
      "if-index": 1, "statistics": {"discontinuity-time": "2024-01-01T00:00:00Z"}, "lower-layer-if": ["eth9"]}]}})");
  ASSERT_FALSE(tree.ok());
  EXPECT_THAT(tree.error(), HasSubstr("eth9"));
}

}  // namespace
