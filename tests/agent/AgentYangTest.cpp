// vekgnmid serving YANG models over a real gRPC channel: the IETF modules
// Debian installs (ietf-interfaces, ietf-ip, iana-if-type from libyuma-base)
// with the data file tests/golden/YangInterfaces.json, and a small module of
// every leaf type. What is published is checked against libyang's own print
// of the data (RFC 7951), the oracle; Sets are checked by what Get and
// ON_CHANGE subscribers see afterwards. Runs in UTC (libyang prints dates in
// the process's time zone).
#include <cstdlib>
#include <filesystem>
#include <set>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "AgentFixture.h"
#include "Golden.h"
#include "SortedLists.h"
#include "SubscribeClient.h"
#include "YangData.h"
#include "YangJson.h"
#include "YangModel.h"
#include "YangSchema.h"
#include "YangSource.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;
using ::testing::HasSubstr;
using YangTest::sortedLists;

const std::vector<std::string> IETF_DIRS = {"/usr/share/yuma/nmda-modules/ietf", "/usr/share/yuma/modules/ietf"};
const std::vector<std::string> IETF_MODULES = {"ietf-interfaces", "ietf-ip", "iana-if-type"};
const std::string DATA = OSTREL_GOLDEN_DIR "/YangInterfaces.json";

// A module with a leaf of every type, and a list of two keys.
const char* TYPES_MODULE = R"(module yt-types {
  yang-version 1.1;
  namespace "urn:yt-types";
  prefix yt;
  identity kind;
  identity fast { base kind; }
  identity slow { base kind; }
  container t {
    leaf i8 { type int8 { range "-10..10"; } }
    leaf i64 { type int64; }
    leaf u64 { type uint64; }
    leaf dec { type decimal64 { fraction-digits 2; range "-100..100"; } }
    leaf bin { type binary; }
    leaf flag { type empty; }
    leaf on { type boolean; }
    leaf mode { type enumeration { enum auto; enum manual; } }
    leaf kind { type identityref { base kind; } }
    leaf opts { type bits { bit a; bit b; bit c; } }
    leaf either { type union { type uint8; type string; } }
    leaf word { type string { length "1..8"; pattern "[a-z]+"; } }
    leaf-list tags { type string; ordered-by user; }
    list entry {
      key "k1 k2";
      leaf k1 { type string; }
      leaf k2 { type uint8; }
      leaf v { type string; }
    }
    list byKind {
      key kind;
      leaf kind { type identityref { base kind; } }
      leaf v { type string; }
    }
  }
}
)";

std::shared_ptr<VekGnmi::Server::ModelSource> source(const std::vector<std::string>& dirs,
                                                     const std::vector<std::string>& modules, const std::string& data) {
  auto made = VekGnmi::Server::makeYangSource({dirs, modules, {}}, data);
  EXPECT_TRUE(made.ok()) << made.error();
  return made ? made.value() : nullptr;
}

AgentOptions ietfOptions() {
  AgentOptions options;
  options.source = source(IETF_DIRS, IETF_MODULES, DATA);
  return options;
}

std::string typesDir() {
  const std::filesystem::path dir =
      std::filesystem::path(::testing::TempDir()) / ("yt-types-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "yt-types.yang") << TYPES_MODULE;
  return dir.string();
}

gnmi::Update jsonIetf(const std::string& path, const std::string& value) {
  gnmi::Update u;
  *u.mutable_path() = P(path);
  u.mutable_val()->set_json_ietf_val(value);
  return u;
}

class AgentYang : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }

  explicit AgentYang(AgentOptions options = ietfOptions())
      : fixture_(std::move(options), VekGnmi::Server::makeLibraryBridge),
        oracleSchema_(VekGnmi::Yang::YangSchema::load({IETF_DIRS, IETF_MODULES, {}}).value()),
        oracleModel_(VekGnmi::Yang::YangModel::build(oracleSchema_).value()) {}

  // libyang's own RFC 7951 print of the data file.
  nlohmann::json oracle() const {
    auto tree = VekGnmi::Yang::YangDataTree::parseFile(*oracleModel_, DATA);
    EXPECT_TRUE(tree.ok()) << tree.error();
    return tree ? sortedLists(tree.value().json()) : nullptr;
  }

  // JSON_IETF leaves assembled into one RFC 7951 document.
  nlohmann::json assembled(const std::vector<gnmi::Notification>& notifications) const {
    VekGnmi::Yang::PublishedJson out(*oracleModel_);
    for (const gnmi::Notification& n : notifications) {
      for (const gnmi::Update& u : n.update()) {
        std::string error;
        gnmi::Path path = n.prefix();
        for (const gnmi::PathElem& e : u.path().elem()) *path.add_elem() = e;
        EXPECT_TRUE(u.val().has_json_ietf_val()) << u.ShortDebugString();
        EXPECT_TRUE(out.add(path, nlohmann::json::parse(u.val().json_ietf_val()), error)) << error;
      }
    }
    return sortedLists(out.json());
  }

  grpc::Status get(const std::string& path, gnmi::GetResponse& response, gnmi::Encoding encoding = gnmi::JSON_IETF) {
    gnmi::GetRequest r;
    *r.add_path() = P(path);
    r.set_encoding(encoding);
    grpc::ClientContext context;
    withDeadline(context);
    return fixture_.stub().Get(&context, r, &response);
  }
  // The document a Get of /interfaces in JSON_IETF answers.
  nlohmann::json interfaces() {
    gnmi::GetResponse response;
    EXPECT_TRUE(get("/interfaces", response).ok());
    return assembled({response.notification().begin(), response.notification().end()});
  }
  // The configuration under `path`, as "path=value" lines in JSON_IETF.
  std::vector<std::string> config(const std::string& path) {
    gnmi::GetRequest r;
    *r.add_path() = P(path);
    r.set_type(gnmi::GetRequest::CONFIG);
    r.set_encoding(gnmi::JSON_IETF);
    grpc::ClientContext context;
    withDeadline(context);
    gnmi::GetResponse response;
    EXPECT_TRUE(fixture_.stub().Get(&context, r, &response).ok());
    return flat({response.notification().begin(), response.notification().end()});
  }
  // The JSON_IETF value of one leaf; null when there is none.
  nlohmann::json leaf(const std::string& path) {
    gnmi::GetResponse response;
    if (!get(path, response).ok() || response.notification_size() != 1 ||
        response.notification(0).update_size() != 1) {
      return nullptr;
    }
    return nlohmann::json::parse(response.notification(0).update(0).val().json_ietf_val());
  }
  grpc::Status set(const gnmi::SetRequest& request) {
    grpc::ClientContext context;
    withDeadline(context);
    gnmi::SetResponse response;
    return fixture_.stub().Set(&context, request, &response);
  }

  AgentFixture fixture_;
  std::shared_ptr<VekGnmi::Yang::YangSchema> oracleSchema_;
  std::shared_ptr<VekGnmi::Yang::YangModel> oracleModel_;
};

TEST_F(AgentYang, CapabilitiesListTheModulesWithTheirRevisions) {
  grpc::ClientContext context;
  withDeadline(context);
  gnmi::CapabilityResponse response;
  ASSERT_TRUE(fixture_.stub().Capabilities(&context, gnmi::CapabilityRequest(), &response).ok());
  std::map<std::string, std::string> revisions;
  for (const gnmi::ModelData& m : response.supported_models()) revisions[m.name()] = m.version();
  EXPECT_EQ(revisions["ietf-interfaces"], "2018-02-20");
  EXPECT_EQ(revisions["ietf-ip"], "2018-02-22");
  EXPECT_EQ(revisions["iana-if-type"], "2014-05-08");
  EXPECT_EQ(response.supported_models(0).organization(), "IETF NETMOD (Network Modeling) Working Group");
}

TEST_F(AgentYang, AGetOfTheInterfacesIsWhatLibyangPrintsOfTheData) {
  EXPECT_EQ(interfaces(), oracle());
  // Module-qualified names, and a key value given without its module.
  gnmi::GetResponse response;
  ASSERT_TRUE(get("/ietf-interfaces:interfaces/interface[name=eth0]/ietf-ip:ipv4/address[ip=10.0.0.1]/prefix-length",
                  response)
                  .ok());
  ASSERT_EQ(response.notification(0).update_size(), 1);
  EXPECT_EQ(response.notification(0).update(0).val().json_ietf_val(), "24");
  EXPECT_EQ(leaf("/interfaces/interface[name=eth0]/statistics/in-octets"), "123456789012") << "a string: 64 bits";
  // A key value in another form than the canonical one names the same entry.
  EXPECT_EQ(leaf("/interfaces/interface[name=eth0]/ipv6/address[ip=2001:DB8:0:0::1]/prefix-length"), 64);
}

TEST_F(AgentYang, ASubscribeOnceSyncMergedIsWhatLibyangPrintsOfTheData) {
  Stream once(fixture_.stub(), subscription(gnmi::SubscriptionList::ONCE, {"/interfaces"}, gnmi::JSON_IETF));
  const std::vector<gnmi::Notification> got = once.untilSync();
  EXPECT_TRUE(once.rw->Finish().ok());
  EXPECT_EQ(assembled(got), oracle());
}

TEST_F(AgentYang, AFullSyncInJsonIetfIsTheGoldenFile) {
  Stream once(fixture_.stub(), subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::JSON_IETF));
  std::string rendered;
  for (const std::string& line : flat(once.untilSync())) rendered += line + "\n";
  EXPECT_TRUE(once.rw->Finish().ok());
  OstrelTest::expectGolden("YangInterfacesSync.txt", rendered);
}

TEST_F(AgentYang, EncodingsFollowTheYangTypes) {
  gnmi::GetResponse response;
  ASSERT_TRUE(get("/interfaces/interface[name=eth0]/statistics/in-octets", response, gnmi::JSON).ok());
  EXPECT_EQ(response.notification(0).update(0).val().json_val(), "123456789012") << "a number in JSON";
  ASSERT_TRUE(get("/interfaces/interface[name=eth0]/type", response, gnmi::PROTO).ok());
  EXPECT_EQ(response.notification(0).update(0).val().string_val(), "iana-if-type:ethernetCsmacd");
  ASSERT_TRUE(get("/interfaces/interface[name=eth0]/higher-layer-if", response, gnmi::JSON_IETF).ok());
  EXPECT_EQ(response.notification(0).update(0).val().json_ietf_val(), R"(["vlan10"])");
  // config false is state.
  EXPECT_EQ(config("/interfaces/interface[name=lo]"),
            (std::vector<std::string>{R"(/interfaces/interface[name=lo]/name=ietf:"lo")",
                                      R"(/interfaces/interface[name=lo]/type=ietf:"iana-if-type:softwareLoopback")"}));
}

TEST_F(AgentYang, MakingAndDeletingAnInterfaceAndAnAddressStreamUpdatesAndDeletes) {
  Stream stream(fixture_.stub(), subscription(gnmi::SubscriptionList::STREAM, {"/interfaces"}, gnmi::JSON_IETF,
                                              gnmi::ON_CHANGE));
  stream.untilSync();
  const auto next = [&] { return flat({stream.next()}); };
  const std::string eth9 = "/interfaces/interface[name=eth9]";
  gnmi::SetRequest make;
  *make.add_update() = jsonIetf(eth9 + "/type", R"("iana-if-type:ethernetCsmacd")");
  ASSERT_TRUE(set(make).ok());
  std::vector<std::string> seen;
  while (seen.size() < 2) {
    for (const std::string& line : next()) seen.push_back(line);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{eth9 + R"(/name=ietf:"eth9")",
                                            eth9 + R"(/type=ietf:"iana-if-type:ethernetCsmacd")"}));
  gnmi::SetRequest address;
  *address.add_update() = jsonIetf(eth9 + "/ietf-ip:ipv4/address[ip=10.9.9.9]/prefix-length", "24");
  ASSERT_TRUE(set(address).ok());
  seen.clear();
  while (seen.size() < 2) {
    for (const std::string& line : next()) seen.push_back(line);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{eth9 + R"(/ipv4/address[ip=10.9.9.9]/ip=ietf:"10.9.9.9")",
                                            eth9 + "/ipv4/address[ip=10.9.9.9]/prefix-length=ietf:24"}));
  gnmi::SetRequest removeAddress;
  *removeAddress.add_delete_() = P(eth9 + "/ipv4/address[ip=10.9.9.9]");
  ASSERT_TRUE(set(removeAddress).ok());
  EXPECT_EQ(next(), std::vector<std::string>{"delete " + eth9 + "/ipv4/address[ip=10.9.9.9]"});
  gnmi::SetRequest removeInterface;
  *removeInterface.add_delete_() = P(eth9);
  ASSERT_TRUE(set(removeInterface).ok());
  EXPECT_EQ(next(), std::vector<std::string>{"delete " + eth9});
  EXPECT_EQ(interfaces(), oracle());
  stream.context.TryCancel();
}

TEST_F(AgentYang, ReplaceMakesAnInterfaceExactlyItsValue) {
  const std::string eth0 = "/interfaces/interface[name=eth0]";
  gnmi::SetRequest r;
  *r.add_replace() = jsonIetf(eth0, R"({"name": "eth0", "type": "iana-if-type:ethernetCsmacd",
                                       "ietf-ip:ipv4": {"address": [{"ip": "10.5.5.5", "prefix-length": 16}]}})");
  ASSERT_TRUE(set(r).ok());
  EXPECT_EQ(config(eth0),
            (std::vector<std::string>{eth0 + R"(/name=ietf:"eth0")", eth0 + R"(/type=ietf:"iana-if-type:ethernetCsmacd")",
                                      eth0 + R"(/ipv4/address[ip=10.5.5.5]/ip=ietf:"10.5.5.5")",
                                      eth0 + "/ipv4/address[ip=10.5.5.5]/prefix-length=ietf:16"}));
  EXPECT_EQ(leaf(eth0 + "/oper-status"), "up") << "state stays";
}

TEST_F(AgentYang, RefusedSetsChangeNothing) {
  const nlohmann::json before = interfaces();
  const std::string eth0 = "/interfaces/interface[name=eth0]";
  struct Case {
    gnmi::Update update;
    grpc::StatusCode code;
    std::string message;
  };
  gnmi::Update missingKey = jsonIetf(eth0 + "/ietf-ip:ipv4/address", R"([{"prefix-length": 24}])");
  gnmi::Update wrongKey = jsonIetf("/interfaces/interface[namex=eth0]/description", R"("x")");
  const std::vector<Case> cases = {
      {jsonIetf(eth0 + "/ipv4/address[ip=10.0.0.1]/prefix-length", "40"), grpc::StatusCode::INVALID_ARGUMENT,
       "out of the allowed range"},
      {jsonIetf(eth0 + "/ipv4/mtu", "20"), grpc::StatusCode::INVALID_ARGUMENT, "out of the allowed range"},
      {jsonIetf(eth0 + "/ipv4/address[ip=10.0.0.999]/prefix-length", "24"), grpc::StatusCode::INVALID_ARGUMENT,
       "'10.0.0.999' is no value of the key ip of address"},
      {jsonIetf(eth0 + "/link-up-down-trap-enable", R"("sometimes")"), grpc::StatusCode::INVALID_ARGUMENT,
       "Invalid enumeration value \"sometimes\""},
      {jsonIetf(eth0 + "/type", R"("iana-if-type:nosuch")"), grpc::StatusCode::INVALID_ARGUMENT,
       "Invalid identityref"},
      {jsonIetf(eth0 + "/type", R"("ietf-interfaces:interface-type")"), grpc::StatusCode::INVALID_ARGUMENT,
       "Invalid identityref"},
      {wrongKey, grpc::StatusCode::INVALID_ARGUMENT, "'interface' under /interfaces is keyed by [name], not [namex=eth0]"},
      {missingKey, grpc::StatusCode::INVALID_ARGUMENT, "lacks its keys (ip)"},
      {jsonIetf(eth0 + "/oper-status", R"("down")"), grpc::StatusCode::INVALID_ARGUMENT,
       "is state; clients cannot set it"},
      {jsonIetf(eth0 + "/name", R"("eth7")"), grpc::StatusCode::INVALID_ARGUMENT, "is a key of its list"},
      {jsonIetf(eth0 + "/nosuch", R"("x")"), grpc::StatusCode::NOT_FOUND, "no element 'nosuch'"},
  };
  for (const Case& c : cases) {
    gnmi::SetRequest r;
    // Something valid before the refused operation: it must not stay.
    *r.add_update() = jsonIetf(eth0 + "/description", R"("changed")");
    *r.add_delete_() = P("/interfaces/interface[name=vlan10]");
    *r.add_update() = c.update;
    const grpc::Status status = set(r);
    EXPECT_EQ(status.error_code(), c.code) << c.update.ShortDebugString() << ": " << status.error_message();
    EXPECT_THAT(status.error_message(), HasSubstr(c.message)) << c.update.ShortDebugString();
  }
  EXPECT_EQ(interfaces(), before);
}

TEST_F(AgentYang, TheChangeSimulatorAdvancesStateCountersAndFlapsStatusesOnly) {
  const auto leaves = [&] {
    gnmi::GetResponse response;
    EXPECT_TRUE(get("/interfaces", response).ok());
    std::map<std::string, std::string> out;
    for (const std::string& line : flat({response.notification().begin(), response.notification().end()})) {
      const size_t at = line.find("=ietf:");
      out[line.substr(0, at)] = line.substr(at + 6);
    }
    return out;
  };
  const std::map<std::string, std::string> before = leaves();
  const size_t made = fixture_.agent().loop().call([&] {
    auto churn = fixture_.agent().source().changeSimulator(1000.0, 3);
    size_t n = 0;
    for (int i = 0; i < 20; ++i) n += churn->advance(0.01);
    return n;
  });
  EXPECT_EQ(made, 200u);
  const std::map<std::string, std::string> after = leaves();
  ASSERT_EQ(after.size(), before.size()) << "nothing is added or removed";
  // Counters and gauges of the data (no if-index: it has a range), the
  // operational and administrative statuses, an address's status and origin.
  const std::set<std::string> churned = {"admin-status", "oper-status", "speed",  "in-octets", "in-unicast-pkts",
                                         "in-errors",    "out-octets",  "status", "origin"};
  std::set<std::string> changed;
  for (const auto& [path, value] : before) {
    if (after.at(path) == value) continue;
    const std::string leafName = path.substr(path.rfind('/') + 1);
    changed.insert(leafName);
    EXPECT_TRUE(churned.count(leafName)) << path << ": " << value << " -> " << after.at(path);
  }
  EXPECT_TRUE(changed.count("in-octets") || changed.count("out-octets"));
  EXPECT_TRUE(changed.count("oper-status") || changed.count("admin-status") || changed.count("status") ||
              changed.count("origin"));
}

// The module of every leaf type, served with no data.
class AgentYangTypes : public AgentYang {
 protected:
  AgentYangTypes() : AgentYang(typesOptions()) {}
  static AgentOptions typesOptions() {
    AgentOptions options;
    options.source = source({typesDir()}, {"yt-types"}, "");
    return options;
  }
};

TEST_F(AgentYangTypes, EveryLeafTypeRoundTripsThroughSetAndGet) {
  // RFC 7951 values in, the canonical RFC 7951 value out.
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"i8", "-7", "-7"},
      {"i64", R"("-9007199254740993")", R"("-9007199254740993")"},
      {"u64", R"("18446744073709551615")", R"("18446744073709551615")"},
      {"dec", R"("12.5")", R"("12.5")"},
      {"bin", R"("AAEC")", R"("AAEC")"},
      {"flag", "[null]", "[null]"},
      {"on", "true", "true"},
      {"mode", R"("manual")", R"("manual")"},
      {"kind", R"("fast")", R"("yt-types:fast")"},
      {"opts", R"("c a")", R"("a c")"},
      {"either", "17", "17"},
      {"either", R"("x17")", R"("x17")"},
      {"word", R"("abc")", R"("abc")"},
      {"tags", R"(["z", "a"])", R"(["z","a"])"},
  };
  for (const auto& [name, in, out] : cases) {
    gnmi::SetRequest r;
    *r.add_update() = jsonIetf("/t/" + name, in);
    ASSERT_TRUE(set(r).ok()) << name << " = " << in;
    EXPECT_EQ(leaf("/t/" + name).dump(), nlohmann::json::parse(out).dump()) << name;
  }
  // A list of two keys, made by an update below an entry.
  gnmi::SetRequest entry;
  *entry.add_update() = jsonIetf("/yt-types:t/entry[k1=a][k2=7]/v", R"("seven")");
  ASSERT_TRUE(set(entry).ok());
  EXPECT_EQ(leaf("/t/entry[k1=a][k2=7]/v"), "seven");
  EXPECT_EQ(leaf("/t/entry[k1=a][k2=7]/k2"), 7);
  gnmi::SetRequest oneKey;
  *oneKey.add_update() = jsonIetf("/t/entry[k1=a]/v", R"("x")");
  EXPECT_EQ(set(oneKey).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  // An identityref key, with or without its module.
  gnmi::SetRequest byKind;
  *byKind.add_update() = jsonIetf("/t/byKind[kind=fast]/v", R"("quick")");
  ASSERT_TRUE(set(byKind).ok());
  EXPECT_EQ(leaf("/t/byKind[kind=yt-types:fast]/v"), "quick");
  EXPECT_EQ(leaf("/t/byKind[kind=fast]/kind"), "yt-types:fast");
  // Restrictions.
  for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
           {"i8", "11"}, {"dec", R"("1.234")"}, {"dec", R"("100.01")"}, {"word", R"("ABC")"},
           {"word", R"("abcdefghi")"}, {"mode", R"("other")"}, {"kind", R"("kind")"}, {"opts", R"("d")"}}) {
    gnmi::SetRequest r;
    *r.add_update() = jsonIetf("/t/" + name, value);
    EXPECT_EQ(set(r).error_code(), grpc::StatusCode::INVALID_ARGUMENT) << name << " = " << value;
  }
  // PROTO: decimal64 as a double, empty as true, binary as bytes, 64-bit
  // integers as integers; and typed values set the same way.
  gnmi::GetResponse response;
  ASSERT_TRUE(get("/t", response, gnmi::PROTO).ok());
  std::map<std::string, gnmi::TypedValue> proto;
  for (const gnmi::Update& u : response.notification(0).update()) proto[u.path().elem(1).name()] = u.val();
  EXPECT_EQ(proto["dec"].double_val(), 12.5);
  EXPECT_TRUE(proto["flag"].bool_val());
  EXPECT_EQ(proto["bin"].bytes_val(), std::string("\x00\x01\x02", 3));
  EXPECT_EQ(proto["i64"].int_val(), -9007199254740993LL);
  EXPECT_EQ(proto["either"].string_val(), "x17");
  // The same in a sync: a shared message that PROTO changes is copied.
  Stream once(fixture_.stub(), subscription(gnmi::SubscriptionList::ONCE, {"/t/dec"}, gnmi::PROTO));
  const std::vector<gnmi::Notification> synced = once.untilSync();
  ASSERT_EQ(synced.size(), 1u);
  EXPECT_EQ(synced[0].update(0).val().double_val(), 12.5);
  EXPECT_TRUE(once.rw->Finish().ok());
  gnmi::SetRequest typed;
  gnmi::Update* u = typed.add_update();
  *u->mutable_path() = P("/t/dec");
  u->mutable_val()->set_double_val(-3.25);
  u = typed.add_update();
  *u->mutable_path() = P("/t/bin");
  u->mutable_val()->set_bytes_val(std::string("\xff", 1));
  u = typed.add_update();
  *u->mutable_path() = P("/t/tags");
  u->mutable_val()->mutable_leaflist_val()->add_element()->set_string_val("only");
  ASSERT_TRUE(set(typed).ok());
  EXPECT_EQ(leaf("/t/dec"), "-3.25");
  EXPECT_EQ(leaf("/t/bin"), "/w==");
  EXPECT_EQ(leaf("/t/tags"), nlohmann::json::array({"only"}));
  // A deleted leaf is no longer published.
  gnmi::SetRequest remove;
  *remove.add_delete_() = P("/t/word");
  ASSERT_TRUE(set(remove).ok());
  EXPECT_EQ(leaf("/t/word"), nullptr);
}

}  // namespace
