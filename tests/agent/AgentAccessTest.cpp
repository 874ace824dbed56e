// The agent's gate, piece by piece, without a server: the users file and
// its errors by line, password hashes, authorization of each request kind
// against roles and prefixes, the login throttle on a clock the test
// drives, stream limits, the plaintext rule, audit lines, request decoding,
// and both command lines.
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AuditLog.h"
#include "Authorization.h"
#include "ClientOptions.h"
#include "ListenPolicy.h"
#include "LoginThrottle.h"
#include "MessageCodec.h"
#include "NetAddress.h"
#include "PasswordHash.h"
#include "ServerOptions.h"
#include "StreamLimits.h"
#include "TestPaths.h"
#include "Users.h"

namespace {

using namespace VekGnmi::Server;
using VekGnmiTest::P;
using ::testing::HasSubstr;
using ::testing::Not;

// `openssl passwd -6 -salt saltsalt 'correct horse'`
const std::string OPENSSL_SHA512 =
    "$6$saltsalt$hRM5XZ86KXEw9UOmjigeVqFgULtFB2sgpC9lXQDfMib3Zgw7mEiUvBJI2EplzfAqxL5Vvwp2scFtv/uamSo5z0";
// yescrypt of 'correct horse' with the salt "abcdefghijklmnopqrstu."
const std::string YESCRYPT = "$y$j9T$abcdefghijklmnopqrstu.$pk06PwnbQa631foWNYhw6N.E9wx6lICleH/SnT.xzi0";

std::string parseError(const std::string& text) {
  UserTable table;
  std::string error;
  EXPECT_FALSE(parseUsers(text, table, error)) << text;
  return error;
}

// ---------------------------------------------------------------- users file

TEST(UsersFile, ReadsUsersRolesAndPrefixes) {
  const std::string text = "# operators\n"
                           "\n"
                           "noc:" + OPENSSL_SHA512 + ":read   # the NOC's collectors\n"
                           "ops:" + YESCRYPT + ":write:/devices/dev1/system, /devices/dev1/interfaces[name=a,b#c]\n"
                           "probe:!:read:/devices/dev1/interfaces[name=*]/counters\n";
  UserTable table;
  std::string error;
  ASSERT_TRUE(parseUsers(text, table, error)) << error;
  ASSERT_EQ(table.users().size(), 3u);
  const User* noc = table.find("noc");
  ASSERT_NE(noc, nullptr);
  EXPECT_EQ(noc->hash, OPENSSL_SHA512);
  EXPECT_EQ(noc->role, Role::Read);
  EXPECT_TRUE(noc->prefixes.empty());
  const User* ops = table.find("ops");
  ASSERT_NE(ops, nullptr);
  EXPECT_EQ(ops->role, Role::Write);
  ASSERT_EQ(ops->prefixes.size(), 2u);
  EXPECT_EQ(VekGnmi::pathString(ops->prefixes[0]), "/devices/dev1/system");
  EXPECT_EQ(ops->prefixes[1].elem(2).key().at("name"), "a,b#c");
  const User* probe = table.find("probe");
  ASSERT_NE(probe, nullptr);
  EXPECT_EQ(probe->hash, "") << "'!': no password login";
  EXPECT_EQ(table.find("nobody"), nullptr);
  EXPECT_TRUE(PasswordHash::valid(table.dummyHash(), error)) << error;
  EXPECT_EQ(table.dummyHash().substr(0, 12), "$6$saltsalt$") << "the first user's setting";
  EXPECT_NE(table.dummyHash(), OPENSSL_SHA512);
}

TEST(UsersFile, NamesTheLineAtFault) {
  const std::string h = OPENSSL_SHA512;
  EXPECT_EQ(parseError("alice"), "line 1: expected NAME:HASH:ROLE[:PREFIX,PREFIX...]");
  EXPECT_EQ(parseError("alice:" + h), "line 1: expected NAME:HASH:ROLE[:PREFIX,PREFIX...]");
  EXPECT_EQ(parseError("# c\n\n:" + h + ":read"), "line 3: an empty user name");
  EXPECT_EQ(parseError("al ice:" + h + ":read"), "line 1: user name 'al ice' has a blank");
  EXPECT_THAT(parseError("bob:" + h + ":read\nalice:correct horse:read"),
              HasSubstr("line 2: the hash of 'alice' is not a salted hash of an accepted method"));
  EXPECT_THAT(parseError("alice:$1$saltsalt$Jf2cEY7vwM2ndx8J6lFc9/:read"),
              HasSubstr("line 1: the hash of 'alice' is not a salted hash"));
  EXPECT_EQ(parseError("alice:$6$rounds=5000$salt:read"),
            "line 1: the hash of 'alice' is a malformed hash (its checksum has the wrong length)");
  EXPECT_EQ(parseError("alice:" + h + ":admin"), "line 1: role 'admin' of 'alice' is neither read nor write");
  EXPECT_EQ(parseError("alice:" + h + ":read\nalice:" + h + ":write"), "line 2: user 'alice' appears twice");
  EXPECT_EQ(parseError("alice:" + h + ":read:/a//b"),
            "line 1: prefix '/a//b' of 'alice': empty element name at position 3");
  EXPECT_EQ(parseError("alice:" + h + ":read:/a,,/b"), "line 1: an empty prefix in the list of 'alice'");
  EXPECT_EQ(parseError("alice:" + h + ":read:"), "line 1: an empty prefix in the list of 'alice'");
  EXPECT_EQ(parseError("alice:" + h + ":read:/a/.../b"),
            "line 1: prefix '/a/.../b' of 'alice': '...' cannot appear in a prefix");
  EXPECT_EQ(parseError("# nobody yet\n"), "the users file names no user, so nobody could connect");
}

TEST(UsersFile, AMissingFileIsNamed) {
  UserTable table;
  std::string error;
  EXPECT_FALSE(loadUsersFile("/nonexistent/users", table, error));
  EXPECT_EQ(error, "/nonexistent/users: cannot be read");
}

// ----------------------------------------------------------- password hashes

TEST(PasswordHash, MakesSha512CryptHashesThatVerify) {
  std::string hash;
  std::string error;
  ASSERT_TRUE(PasswordHash::make("s3cret", hash, error)) << error;
  EXPECT_EQ(hash.rfind("$6$rounds=65536$", 0), 0u) << hash;
  EXPECT_TRUE(PasswordHash::valid(hash, error)) << error;
  EXPECT_TRUE(PasswordHash::verify("s3cret", hash));
  EXPECT_FALSE(PasswordHash::verify("s3cret ", hash));
  std::string again;
  ASSERT_TRUE(PasswordHash::make("s3cret", again, error));
  EXPECT_NE(hash, again) << "a fresh salt each time";
}

TEST(PasswordHash, VerifiesOpensslAndYescryptHashes) {
  EXPECT_TRUE(PasswordHash::verify("correct horse", OPENSSL_SHA512));
  EXPECT_TRUE(PasswordHash::verify("correct horse", YESCRYPT));
  EXPECT_FALSE(PasswordHash::verify("correct horse!", YESCRYPT));
  EXPECT_FALSE(PasswordHash::verify(std::string("correct horse\0x", 15), OPENSSL_SHA512))
      << "a NUL never truncates a password into a match";
  EXPECT_FALSE(PasswordHash::verify("correct horse", "not a hash"));
}

TEST(PasswordHash, TheDummyCostsTheSameAndMatchesNothing) {
  const std::string dummy = PasswordHash::dummyLike(YESCRYPT);
  EXPECT_EQ(dummy.substr(0, 29), YESCRYPT.substr(0, 29)) << "method, cost and salt of the model";
  EXPECT_NE(dummy, YESCRYPT);
  EXPECT_FALSE(PasswordHash::verify("correct horse", dummy));
  EXPECT_EQ(PasswordHash::dummyLike("").rfind("$6$rounds=65536$", 0), 0u);
}

// -------------------------------------------------------------- authorization

Grant grant(Role role, std::vector<std::string> prefixes = {}) {
  Grant g{"alice", role, {}};
  for (const std::string& p : prefixes) g.prefixes.push_back(P(p));
  return g;
}

gnmi::GetRequest getOf(std::vector<std::string> paths, const std::string& prefix = "") {
  gnmi::GetRequest r;
  if (!prefix.empty()) *r.mutable_prefix() = P(prefix);
  for (const std::string& p : paths) *r.add_path() = P(p);
  return r;
}

bool allowed(const Grant& g, const std::string& path) { return authorizeGet(g, getOf({path})).ok(); }

TEST(Authorization, RolesAllowWhatTheySay) {
  gnmi::SetRequest set;
  *set.add_update()->mutable_path() = P("/devices/dev1/system/hostname");
  const grpc::Status refused = authorizeSet(grant(Role::Read), set);
  EXPECT_EQ(refused.error_code(), grpc::StatusCode::PERMISSION_DENIED);
  EXPECT_EQ(refused.error_message(), "user 'alice' may not Set (role read)");
  EXPECT_EQ(authorizeSet(grant(Role::Read), gnmi::SetRequest()).error_code(), grpc::StatusCode::PERMISSION_DENIED)
      << "not even an empty Set";
  EXPECT_TRUE(authorizeSet(grant(Role::Write), set).ok());
  EXPECT_TRUE(authorizeGet(grant(Role::Read), getOf({"/"})).ok());
  EXPECT_TRUE(authorizeCapabilities(grant(Role::Read)).ok());
  gnmi::SubscribeRequest sub;
  *sub.mutable_subscribe()->add_subscription()->mutable_path() = P("/");
  EXPECT_TRUE(authorizeSubscribe(grant(Role::Read), sub).ok());
}

TEST(Authorization, PrefixesMatchWholeElements) {
  const Grant g = grant(Role::Read, {"/devices/dev1/system/state"});
  EXPECT_TRUE(allowed(g, "/devices/dev1/system/state"));
  EXPECT_TRUE(allowed(g, "/devices/dev1/system/state/cpu"));
  EXPECT_FALSE(allowed(g, "/devices/dev1/system/statefoo"));
  EXPECT_FALSE(allowed(g, "/devices/dev1/system")) << "above the prefix asks for more";
  EXPECT_FALSE(allowed(g, "/"));
  EXPECT_FALSE(allowed(g, "/devices/dev1/*/state"));
  EXPECT_FALSE(allowed(g, "/devices/dev1/.../state"));
  const grpc::Status refused = authorizeGet(g, getOf({"/devices/dev1/system/state", "/devices/dev1/system/motd"}));
  EXPECT_EQ(refused.error_code(), grpc::StatusCode::PERMISSION_DENIED);
  EXPECT_EQ(refused.error_message(), "/devices/dev1/system/motd is outside the paths user 'alice' may reach");
}

TEST(Authorization, KeysAndWildcardsMustStayWithinThePrefix) {
  const Grant one = grant(Role::Read, {"/d/interfaces[name=eth0]"});
  EXPECT_TRUE(allowed(one, "/d/interfaces[name=eth0]/mtu"));
  EXPECT_FALSE(allowed(one, "/d/interfaces[name=eth1]/mtu"));
  EXPECT_FALSE(allowed(one, "/d/interfaces[name=*]/mtu")) << "a wildcard reaches every member";
  EXPECT_FALSE(allowed(one, "/d/interfaces/mtu")) << "no key names every member";
  const Grant any = grant(Role::Read, {"/d/interfaces[name=*]/counters", "/d/*/config"});
  EXPECT_TRUE(allowed(any, "/d/interfaces[name=eth3]/counters/inPkts"));
  EXPECT_TRUE(allowed(any, "/d/interfaces[name=*]/counters"));
  EXPECT_TRUE(allowed(any, "/d/interfaces/counters")) << "no key is every member, as [name=*] is";
  EXPECT_FALSE(allowed(any, "/d/interfaces[name=eth3]/mtu"));
  EXPECT_TRUE(allowed(any, "/d/routes/config/x"));
  EXPECT_FALSE(allowed(any, "/d/.../config"));
  const Grant two = grant(Role::Read, {"/d/routes[vrf=red]"});
  EXPECT_TRUE(allowed(two, "/d/routes[prefix=10.0.0.0/8][vrf=red]")) << "keys the prefix does not name are free";
  EXPECT_FALSE(allowed(two, "/d/routes[prefix=10.0.0.0/8]"));
}

TEST(Authorization, TheRequestPrefixIsJoinedWithEachPath) {
  const Grant g = grant(Role::Read, {"/devices/dev1/interfaces[name=eth0]"});
  EXPECT_TRUE(authorizeGet(g, getOf({"mtu", "counters/inPkts"}, "/devices/dev1/interfaces[name=eth0]")).ok());
  EXPECT_FALSE(authorizeGet(g, getOf({"interfaces[name=eth1]/mtu"}, "/devices/dev1")).ok());
  EXPECT_TRUE(authorizeGet(g, getOf({}, "/devices/dev1/interfaces[name=eth0]")).ok()) << "the prefix alone";
  EXPECT_FALSE(authorizeGet(g, getOf({}, "/devices/dev1")).ok());
  // Legacy `element` names (a deprecated field: written here on purpose)
  // are paths too.
  gnmi::GetRequest legacy;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  legacy.mutable_prefix()->add_element("devices");
  gnmi::Path* p = legacy.add_path();
  p->add_element("dev1");
  p->add_element("system");
#pragma GCC diagnostic pop
  EXPECT_FALSE(authorizeGet(g, legacy).ok());
  // Origins: "" and "openconfig" name this model; another names nothing in it.
  gnmi::GetRequest origin = getOf({"/devices/dev1/interfaces[name=eth0]/mtu"});
  origin.mutable_path(0)->set_origin("openconfig");
  EXPECT_TRUE(authorizeGet(g, origin).ok());
  origin.mutable_path(0)->set_origin("cli");
  EXPECT_FALSE(authorizeGet(g, origin).ok());
  EXPECT_TRUE(authorizeGet(grant(Role::Read), origin).ok()) << "without prefixes the agent decides";
}

TEST(Authorization, OneSetOperationOutsideRefusesTheWholeSet) {
  const Grant g = grant(Role::Write, {"/devices/dev1/system"});
  auto setWith = [](const char* kind) {
    gnmi::SetRequest r;
    *r.mutable_prefix() = P("/devices/dev1");
    *r.add_update()->mutable_path() = P("system/hostname");
    const gnmi::Path outside = P("interfaces[name=eth0]/mtu");
    if (std::string(kind) == "delete") *r.add_delete_() = outside;
    if (std::string(kind) == "replace") *r.add_replace()->mutable_path() = outside;
    if (std::string(kind) == "update") *r.add_update()->mutable_path() = outside;
    if (std::string(kind) == "union_replace") *r.add_union_replace()->mutable_path() = outside;
    return r;
  };
  for (const char* kind : {"delete", "replace", "update", "union_replace"}) {
    const grpc::Status status = authorizeSet(g, setWith(kind));
    EXPECT_EQ(status.error_code(), grpc::StatusCode::PERMISSION_DENIED) << kind;
    EXPECT_EQ(status.error_message(),
              "/devices/dev1/interfaces[name=eth0]/mtu is outside the paths user 'alice' may reach")
        << kind;
  }
  gnmi::SetRequest inside;
  *inside.add_replace()->mutable_path() = P("/devices/dev1/system/motd");
  EXPECT_TRUE(authorizeSet(g, inside).ok());
}

TEST(Authorization, SubscriptionsAreCheckedAndPollsPass) {
  const Grant g = grant(Role::Read, {"/devices/dev1/system"});
  gnmi::SubscribeRequest r;
  *r.mutable_subscribe()->mutable_prefix() = P("/devices/dev1");
  *r.mutable_subscribe()->add_subscription()->mutable_path() = P("system/hostname");
  EXPECT_TRUE(authorizeSubscribe(g, r).ok());
  *r.mutable_subscribe()->add_subscription()->mutable_path() = P("interfaces[name=*]/counters");
  EXPECT_EQ(authorizeSubscribe(g, r).error_message(),
            "/devices/dev1/interfaces[name=*]/counters is outside the paths user 'alice' may reach");
  gnmi::SubscribeRequest poll;
  poll.mutable_poll();
  EXPECT_TRUE(authorizeSubscribe(g, poll).ok());
  Grant anonymous = grant(Role::Read, {"/x"});
  anonymous.user.clear();
  EXPECT_EQ(authorizeSubscribe(anonymous, r).error_message(),
            "/devices/dev1/system/hostname is outside the paths this client may reach");
}

TEST(Authorization, PathsPerRequestAreCounted) {
  EXPECT_EQ(pathCount(getOf({"/a", "/b"})), 2u);
  gnmi::SetRequest set;
  set.add_delete_();
  set.add_replace();
  set.add_update();
  set.add_union_replace();
  EXPECT_EQ(pathCount(set), 4u);
  gnmi::SubscribeRequest sub;
  sub.mutable_subscribe()->add_subscription();
  EXPECT_EQ(pathCount(sub), 1u);
  EXPECT_TRUE(checkPathLimit(4, 4).ok());
  EXPECT_TRUE(checkPathLimit(4000, 0).ok()) << "0: no limit";
  const grpc::Status over = checkPathLimit(5, 4);
  EXPECT_EQ(over.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(over.error_message(), "the request has 5 paths; this target takes at most 4 (--max-paths)");
}

// ------------------------------------------------------------- login throttle

TEST(LoginThrottle, RepeatedFailuresWaitLongerUpToASecond) {
  LoginThrottle throttle;
  const auto t0 = LoginThrottle::Clock::time_point() + std::chrono::hours(1);
  std::vector<int64_t> delays;
  for (int i = 0; i < 8; ++i) delays.push_back(throttle.failed("ipv4:10.0.0.1", t0 + std::chrono::seconds(i)).count());
  EXPECT_THAT(delays, ::testing::ElementsAre(0, 100, 200, 400, 800, 1000, 1000, 1000));
  EXPECT_EQ(throttle.failed("ipv4:10.0.0.2", t0).count(), 0) << "peers are apart";
  throttle.succeeded("ipv4:10.0.0.1");
  EXPECT_EQ(throttle.failed("ipv4:10.0.0.1", t0 + std::chrono::seconds(9)).count(), 0) << "a success forgets";
  EXPECT_EQ(throttle.failed("ipv4:10.0.0.1", t0 + std::chrono::seconds(10)).count(), 100);
  EXPECT_EQ(throttle.failed("ipv4:10.0.0.1", t0 + std::chrono::seconds(80)).count(), 0) << "a quiet minute forgets";
  LoginThrottle lenient(std::chrono::milliseconds(0));
  lenient.failed("p", t0);
  EXPECT_EQ(lenient.failed("p", t0).count(), 0);
}

TEST(LoginThrottle, ThePeerTableStaysBounded) {
  LoginThrottle throttle;
  const auto t0 = LoginThrottle::Clock::time_point() + std::chrono::hours(1);
  for (size_t i = 0; i < LoginThrottle::MAX_PEERS + 10; ++i) {
    throttle.failed("ipv4:10.0." + std::to_string(i), t0 + std::chrono::milliseconds(i));
  }
  EXPECT_LE(throttle.peers(), LoginThrottle::MAX_PEERS);
  EXPECT_EQ(LoginThrottle::peerAddress("ipv4:10.1.2.3:55012"), "ipv4:10.1.2.3");
  EXPECT_EQ(LoginThrottle::peerAddress("ipv6:[::1]:55012"), "ipv6:[::1]");
  EXPECT_EQ(LoginThrottle::peerAddress("ipv6:%5B::1%5D:55012"), "ipv6:%5B::1%5D");
  EXPECT_EQ(LoginThrottle::peerAddress("unix:/run/x"), "unix:/run/x");
}

// -------------------------------------------------------------- stream limits

TEST(StreamLimits, TotalAndPerUser) {
  StreamLimits limits(3, 2);
  EXPECT_TRUE(limits.admit("alice").ok());
  EXPECT_TRUE(limits.admit("alice").ok());
  const grpc::Status third = limits.admit("alice");
  EXPECT_EQ(third.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(third.error_message(),
            "user 'alice' has 2 Subscribe streams open, the limit per user (--max-streams-per-user)");
  EXPECT_TRUE(limits.admit("").ok()) << "anonymous counts towards the total only";
  EXPECT_EQ(limits.admit("bob").error_message(),
            "this target has 3 Subscribe streams open, its limit (--max-streams)");
  limits.release("alice");
  EXPECT_TRUE(limits.admit("bob").ok());
  EXPECT_EQ(limits.open(), 3u);
  EXPECT_EQ(limits.openFor("alice"), 1u);
}

// ---------------------------------------------------------- plaintext policy

TEST(ListenPolicy, PlaintextOnlyOnLoopbackOrWhenAsked) {
  for (const char* local : {"127.0.0.1:57400", "127.9.9.9:1", "localhost:57400", "[::1]:57400",
                            "[::ffff:127.0.0.1]:5", "unix:/run/vekgnmid.sock", "dns:///localhost:57400"}) {
    EXPECT_TRUE(VekGnmi::isLoopbackAddress(local)) << local;
    EXPECT_EQ(listenRefusal(local, false, false), "") << local;
  }
  for (const char* remote : {"0.0.0.0:57400", "[::]:57400", "10.0.0.1:57400", "router.example:57400",
                             "[2001:db8::1]:57400", "128.0.0.1:1"}) {
    EXPECT_FALSE(VekGnmi::isLoopbackAddress(remote)) << remote;
    EXPECT_EQ(listenRefusal(remote, true, false), "") << remote;
    EXPECT_EQ(listenRefusal(remote, false, true), "") << remote;
  }
  EXPECT_EQ(listenRefusal("0.0.0.0:57400", false, false),
            "refusing plaintext gRPC on 0.0.0.0:57400, which is not a loopback address: give --tls-cert and "
            "--tls-key, or --insecure to serve plaintext anyway");
  EXPECT_EQ(listenRefusal("127.0.0.1:1", true, true),
            "--insecure and --tls-cert exclude each other: serve TLS or plaintext, not both");
}

// ----------------------------------------------------------------- audit lines

TEST(AuditLog, OneJsonLinePerSetWithPathsAndOutcome) {
  gnmi::SetRequest r;
  *r.mutable_prefix() = P("/devices/dev1");
  *r.add_delete_() = P("system/motd");
  gnmi::Update* u = r.add_update();
  *u->mutable_path() = P("interfaces[name=eth0]/description");
  u->mutable_val()->set_string_val("value never logged");
  *r.add_replace()->mutable_path() = P("system/hostname");
  AuditEntry entry{std::chrono::system_clock::time_point(std::chrono::milliseconds(1700000000123)),
                   "ops",
                   true,
                   "ipv4:127.0.0.1:5000",
                   &r,
                   grpc::Status(grpc::StatusCode::NOT_FOUND, "line\nbreak")};
  EXPECT_EQ(auditLine(entry),
            R"({"authenticated":true,"code":"NOT_FOUND","message":"line\nbreak","ops":[)"
            R"({"op":"delete","path":"/devices/dev1/system/motd"},)"
            R"({"op":"replace","path":"/devices/dev1/system/hostname"},)"
            R"({"op":"update","path":"/devices/dev1/interfaces[name=eth0]/description"}],)"
            R"("peer":"ipv4:127.0.0.1:5000","time":"2023-11-14T22:13:20.123Z","user":"ops"})");
  entry.request = nullptr;
  entry.authenticated = false;
  EXPECT_THAT(auditLine(entry), HasSubstr(R"("ops":null)"));
  std::vector<std::string> lines;
  AuditLog log([&](std::string_view line) { lines.emplace_back(line); });
  log.record(entry);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], auditLine(entry) + "\n");
  std::string error;
  EXPECT_FALSE(AuditLog::fileWriter("/nonexistent/audit.log", error));
  EXPECT_EQ(error, "--audit-log /nonexistent/audit.log: No such file or directory");
}

TEST(AuditLog, HugePathsAndUserNamesAreKeptShortWithTheirLength) {
  gnmi::SetRequest r;
  *r.add_delete_()->add_elem()->mutable_name() = std::string(4 << 20, 'x');
  AuditEntry entry{std::chrono::system_clock::time_point(), std::string(1 << 20, 'u'), false, "ipv4:127.0.0.1:5000",
                   &r, grpc::Status(grpc::StatusCode::UNAUTHENTICATED, "wrong")};
  const std::string line = auditLine(entry);
  EXPECT_LT(line.size(), 4096u);
  EXPECT_THAT(line, HasSubstr("(4194305 bytes)"));
  EXPECT_THAT(line, HasSubstr("(1048576 bytes)"));
}

// ----------------------------------------------------------- request decoding

grpc::ByteBuffer bytes(const std::string& data) {
  grpc::Slice slice(data);
  return grpc::ByteBuffer(&slice, 1);
}

TEST(MessageCodec, UndecodableRequestsAreInvalidArgumentsWithTheReason) {
  gnmi::GetRequest get;
  grpc::Status status = MessageCodec::decode(bytes("\xff\xff\xff\xff"), get, "GetRequest");
  EXPECT_EQ(status.error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(status.error_message(), "the GetRequest cannot be decoded: it is not a protobuf message (malformed or "
                                    "cut short)");
  gnmi::GetRequest valid;
  *valid.add_path() = P("/devices/dev1/interfaces[name=eth0]/mtu");
  const std::string whole = valid.SerializeAsString();
  EXPECT_EQ(MessageCodec::decode(bytes(whole.substr(0, whole.size() - 3)), get, "GetRequest").error_message(),
            "the GetRequest cannot be decoded: it is not a protobuf message (malformed or cut short)");
  // PathElem.name = "\xc3\x28" (not UTF-8), built by hand.
  gnmi::GetRequest bad;
  bad.add_path()->add_elem()->set_name("x");
  std::string wire = bad.SerializeAsString();
  wire.replace(wire.find('x'), 1, "\xc3");
  status = MessageCodec::decode(bytes(wire), get, "GetRequest");
  EXPECT_EQ(status.error_message(),
            "the GetRequest cannot be decoded: a string field is not valid UTF-8 (use bytes or base64 for binary "
            "data)");
  // Values nested deeper than protobuf reads: TypedValue.leaflist_val.element ...
  gnmi::SetRequest deep;
  gnmi::TypedValue* v = deep.add_update()->mutable_val();
  for (int i = 0; i < 120; ++i) v = v->mutable_leaflist_val()->add_element();
  v->set_int_val(1);
  gnmi::SetRequest decoded;
  status = MessageCodec::decode(bytes(deep.SerializeAsString()), decoded, "SetRequest");
  EXPECT_EQ(status.error_message(), "the SetRequest cannot be decoded: it nests deeper than 100 levels");
  ASSERT_TRUE(MessageCodec::decode(bytes(whole), get, "GetRequest").ok());
  EXPECT_EQ(get.SerializeAsString(), whole);
}

TEST(MessageCodec, EncodesOnceIntoGrpcBytes) {
  gnmi::SubscribeResponse response;
  response.mutable_update()->add_update()->mutable_val()->set_string_val(std::string(20000, 'x'));
  grpc::ByteBuffer out;
  ASSERT_TRUE(MessageCodec::encode(response, out));
  EXPECT_EQ(out.Length(), response.ByteSizeLong());
  gnmi::SubscribeResponse back;
  ASSERT_TRUE(MessageCodec::decode(out, back, "SubscribeResponse").ok());
  EXPECT_EQ(back.update().update(0).val().string_val().size(), 20000u);
}

// ------------------------------------------------------------- command lines

std::optional<int> serverParse(std::vector<std::string> args, ServerOptions& o, std::string* errors = nullptr) {
  std::ostringstream help;
  std::ostringstream err;
  std::optional<int> code = parseServerOptions(args, o, help, err);
  if (errors) *errors = err.str();
  return code;
}

TEST(ServerOptions, DefaultsAndEveryFlag) {
  ServerOptions o;
  EXPECT_EQ(serverParse({}, o), std::nullopt);
  EXPECT_EQ(o.address, "127.0.0.1:57400");
  EXPECT_EQ(o.agent.interfaces, 16u);
  EXPECT_EQ(o.agent.sendTimeout, std::chrono::seconds(30));
  EXPECT_EQ(o.service.maxStreams, 256u);
  EXPECT_EQ(o.service.maxStreamsPerUser, 32u);
  EXPECT_EQ(o.service.maxPaths, 1000u);
  EXPECT_EQ(o.service.maxRequestBytes, 16u << 20);
  EXPECT_EQ(o.auditLog, "-");
  EXPECT_EQ(o.shutdownTimeout, std::chrono::seconds(5));
  ServerOptions all;
  EXPECT_EQ(serverParse({"--address", "0.0.0.0:1", "--interfaces", "42000", "--churn", "2.5", "--send-timeout",
                         "0.5", "--min-sample-interval=0.01", "--tls-cert", "c.pem", "--tls-key", "k.pem",
                         "--tls-ca", "ca.pem", "--users", "users", "--audit-log", "audit.log", "--max-streams", "9",
                         "--max-streams-per-user", "3", "--max-paths", "7", "--max-request-size", "64KiB",
                         "--shutdown-timeout", "1.5"},
                        all),
            std::nullopt);
  EXPECT_EQ(all.address, "0.0.0.0:1");
  EXPECT_EQ(all.agent.interfaces, 42000u);
  EXPECT_EQ(all.agent.churnRate, 2.5);
  EXPECT_EQ(all.agent.sendTimeout, std::chrono::milliseconds(500));
  EXPECT_EQ(all.agent.limits.minSampleInterval, std::chrono::milliseconds(10));
  EXPECT_EQ(all.service.tls.cert, "c.pem");
  EXPECT_EQ(all.service.tls.key, "k.pem");
  EXPECT_EQ(all.service.tls.ca, "ca.pem");
  EXPECT_EQ(all.service.usersFile, "users");
  EXPECT_EQ(all.auditLog, "audit.log");
  EXPECT_EQ(all.service.maxStreams, 9u);
  EXPECT_EQ(all.service.maxStreamsPerUser, 3u);
  EXPECT_EQ(all.service.maxPaths, 7u);
  EXPECT_EQ(all.service.maxRequestBytes, 65536u);
  EXPECT_EQ(all.shutdownTimeout, std::chrono::milliseconds(1500));
}

TEST(ServerOptions, UsageErrorsAndHelp) {
  ServerOptions o;
  std::string errors;
  EXPECT_EQ(serverParse({"--tls-cert", "c.pem"}, o, &errors), 2);
  EXPECT_EQ(errors, "vekgnmid: --tls-cert requires --tls-key (see --help)\n");
  EXPECT_EQ(serverParse({"--tls-ca", "ca.pem"}, o, &errors), 2);
  EXPECT_EQ(serverParse({"--insecure", "--tls-cert", "c", "--tls-key", "k"}, o, &errors), 2);
  EXPECT_THAT(errors, HasSubstr("excludes"));
  EXPECT_EQ(serverParse({"--send-timeout", "0"}, o, &errors), 2);
  EXPECT_EQ(serverParse({"--interfaces", "many"}, o, &errors), 2);
  EXPECT_EQ(serverParse({"--frobnicate"}, o, &errors), 2);
  EXPECT_EQ(errors, "vekgnmid: The following argument was not expected: --frobnicate (see --help)\n");
  std::ostringstream help;
  std::ostringstream err;
  EXPECT_EQ(parseServerOptions({"--help"}, o, help, err), 0);
  for (const char* flag : {"--address HOST:PORT", "--tls-cert FILE", "--tls-ca FILE", "--insecure", "--users FILE",
                           "--hash-password", "--audit-log FILE", "--max-streams N", "--max-streams-per-user N",
                           "--max-paths N", "--max-request-size BYTES", "--shutdown-timeout SECONDS",
                           "--send-timeout SECONDS", "--min-sample-interval SECONDS", "--churn RATE"}) {
    EXPECT_THAT(help.str(), HasSubstr(flag));
  }
}

using VekGnmi::Client::Options;
using VekGnmi::Client::UsageError;

Options clientParse(std::vector<std::string> args) {
  Options o;
  std::ostringstream help;
  EXPECT_EQ(VekGnmi::Client::parseClientOptions(args, o, help), std::nullopt);
  return o;
}

std::string clientError(std::vector<std::string> args) {
  Options o;
  std::ostringstream help;
  try {
    VekGnmi::Client::parseClientOptions(args, o, help);
  } catch (const UsageError& e) {
    return e.message;
  }
  ADD_FAILURE() << "no usage error";
  return {};
}

TEST(ClientOptions, TransportFollowsTheAddressAndTheFlags) {
  EXPECT_FALSE(clientParse({"capabilities"}).connection.tls()) << "127.0.0.1:57400 by default: plaintext";
  EXPECT_TRUE(clientParse({"-a", "router:57400", "capabilities"}).connection.tls());
  EXPECT_FALSE(clientParse({"-a", "router:57400", "--insecure", "capabilities"}).connection.tls());
  EXPECT_TRUE(clientParse({"--tls-ca", "ca.pem", "capabilities"}).connection.tls());
  EXPECT_TRUE(clientParse({"--skip-verify", "capabilities"}).connection.tls());
  const Options o = clientParse({"get", "--tls-cert", "c.pem", "--tls-key", "k.pem", "--tls-server-name", "r1",
                                 "--username", "ops", "--path", "/a", "--path", "/b"});
  EXPECT_EQ(o.command, "get");
  EXPECT_EQ(o.connection.tlsCert, "c.pem");
  EXPECT_EQ(o.connection.tlsServerName, "r1");
  EXPECT_EQ(o.connection.username, "ops");
  EXPECT_FALSE(o.connection.passwordGiven);
  EXPECT_EQ(o.paths.size(), 2u);
  EXPECT_EQ(clientError({"--insecure", "--tls-ca", "ca.pem", "capabilities"}),
            "--insecure (plaintext) excludes --tls-ca, --tls-cert, --tls-key, --tls-server-name and --skip-verify");
  EXPECT_EQ(clientError({"--tls-cert", "c.pem", "capabilities"}), "--tls-cert and --tls-key go together");
}

TEST(ClientOptions, ThePasswordComesFromTheEnvironmentAndIsNeverEchoed) {
  ::setenv("VEKGNMI_PASSWORD", "from-the-environment", 1);
  Options o = clientParse({"--username", "ops", "capabilities"});
  ::unsetenv("VEKGNMI_PASSWORD");
  EXPECT_EQ(o.connection.password, "from-the-environment");
  EXPECT_TRUE(o.connection.passwordGiven);
  o = clientParse({"--password", "hunter2", "capabilities"});
  EXPECT_EQ(o.connection.password, "hunter2");
  EXPECT_THAT(clientError({"--password", "hunter2", "--frobnicate", "capabilities"}), Not(HasSubstr("hunter2")));
  std::ostringstream help;
  Options ignored;
  EXPECT_EQ(VekGnmi::Client::parseClientOptions({"--help"}, ignored, help), 0);
  EXPECT_THAT(help.str(), HasSubstr("--tls-server-name NAME"));
  EXPECT_THAT(help.str(), HasSubstr("VEKGNMI_PASSWORD"));
}

}  // namespace
