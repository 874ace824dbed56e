// vekgnmid's gate over real gRPC channels, with certificates made when the
// test runs: TLS and mutual TLS and what a client sees when they fail, the
// reload of certificates under an open stream, authentication and roles for
// every RPC, the login throttle, limits, the audit log (and no password in
// any log), undecodable requests from a raw client, the status a subscriber
// that stopped reading finally gets, the start rules, the client's TLS and
// credential options, and the shutdown watchdog.
#include <arpa/inet.h>
#include <crypt.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <grpcpp/generic/generic_stub.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <Zolt/Zolt.h>

#include "ClientCommands.h"
#include "GnmiService.h"
#include "ShutdownWatchdog.h"
#include "SubscribeClient.h"
#include "TestCertificates.h"
#include "TestPaths.h"

namespace {

using namespace VekGnmiTest;
using namespace VekGnmi::Server;
using ::testing::HasSubstr;
using ::testing::Not;

// Every trace of the agent's handles while it lives, and a way to wait for
// one without sleeping.
class Traces {
 public:
  static constexpr std::initializer_list<const char*> ALL = {
      "Agent",        "AgentAuth",        "AgentDispatcher",  "AgentLibrary",
      "AgentSet",     "AgentSubscription", "OstrelVekGnmiSet", "OstrelGifGnmiNotifiee"};

  explicit Traces(std::initializer_list<const char*> handles = ALL) {
    for (const char* name : handles) {
      Zolt::Debuggable& handle = Zolt::Platform::getDebugHandler(name);
      saved_.emplace_back(&handle, handle.levelMask());
      handle.levelMaskIs(0xffffffff);
    }
    previous_ = Zolt::traceSinkIs([this](const Zolt::TraceRecord& record) {
      std::lock_guard lock(mutex_);
      lines_.push_back(std::string(record.component) + " " + std::string(record.message));
      wake_.notify_all();
    });
  }
  ~Traces() {
    Zolt::traceSinkIs(std::move(previous_));
    for (auto& [handle, mask] : saved_) handle->levelMaskIs(mask);
  }

  std::vector<std::string> lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  // Waits until `count` lines hold `text`; false after `timeout`.
  bool waitFor(const std::string& text, size_t count = 1, std::chrono::seconds timeout = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    return wake_.wait_for(lock, timeout, [&] {
      return static_cast<size_t>(std::count_if(lines_.begin(), lines_.end(), [&](const std::string& line) {
               return line.find(text) != std::string::npos;
             })) >= count;
    });
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  std::vector<std::string> lines_;
  std::vector<std::pair<Zolt::Debuggable*, uint32_t>> saved_;
  Zolt::TraceSink previous_;
};

// A SHA-512-crypt hash of few rounds: as real as the agent's, quicker to
// verify under the sanitizers.
std::string quickHash(const std::string& password) {
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  EXPECT_NE(crypt_gensalt_rn("$6$", 1000, nullptr, 0, setting, sizeof setting), nullptr);
  crypt_data data{};
  return crypt_r(password.c_str(), setting, &data);
}

const char* const INSIDE = "/devices/dev1/system/hostname";
const char* const OUTSIDE = "/devices/dev1/interfaces[name=eth1]/mtu";
const char* const ABSENT = "/devices/dev1/nosuch";

std::shared_ptr<const UserTable> testUsers() {
  const std::string text = "reader:" + quickHash("reader-pw") + ":read\n" +
                           "writer:" + quickHash("writer-pw") + ":write\n" +
                           "limited:" + quickHash("limited-pw") +
                           ":write:/devices/dev1/system,/devices/dev1/interfaces[name=eth0]\n" +
                           "observer:" + quickHash("observer-pw") + ":read:/devices/dev1/system\n" +
                           "alice:!:read\n";
  auto table = std::make_shared<UserTable>();
  std::string error;
  EXPECT_TRUE(parseUsers(text, *table, error)) << error;
  return table;
}

// The throwaway PKI of one test: a CA, a server certificate for localhost
// and 127.0.0.1, a client certificate for "alice", an expired one, and a
// CA nobody trusts with certificates of its own.
struct Pki {
  TestCa ca{"vekgnmid test CA"};
  TestCa rogue{"unknown CA"};
  PemPair server = ca.issue("localhost", TestCa::Kind::Server);
  PemPair alice = ca.issue("alice", TestCa::Kind::Client);
  PemPair expiredAlice = ca.issue("alice", TestCa::Kind::Client, -7200, -3600);
  PemPair rogueAlice = rogue.issue("alice", TestCa::Kind::Client);
  PemPair rogueServer = rogue.issue("localhost", TestCa::Kind::Server);
  TempDir dir;

  TlsFiles files(bool mutual) const {
    return {dir.write("server.pem", server.cert), dir.write("server.key", server.key),
            mutual ? dir.write("ca.pem", ca.certPem()) : std::string()};
  }
};

AgentOptions smallDevice(std::chrono::milliseconds sendTimeout = std::chrono::seconds(30), size_t interfaces = 4) {
  AgentOptions o;
  o.interfaces = interfaces;
  o.sendTimeout = sendTimeout;
  return o;
}

// vekgnmid in process on a loopback port with the given gate options; Set
// audit lines are collected.
class SecureAgent {
 public:
  explicit SecureAgent(ServiceOptions service, AgentOptions agent = smallDevice()) {
    service.audit = [this](std::string_view line) {
      std::lock_guard lock(mutex_);
      audit_.emplace_back(line);
    };
    server_ = std::make_unique<AgentServer>(std::move(agent), makeLibraryBridge, std::move(service));
    std::string error;
    EXPECT_TRUE(server_->start("127.0.0.1:0", error)) << error;
    address_ = "127.0.0.1:" + std::to_string(server_->port());
  }

  AgentServer& server() { return *server_; }
  const std::string& address() const { return address_; }
  std::vector<std::string> audit() {
    std::lock_guard lock(mutex_);
    return audit_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> audit_;
  std::unique_ptr<AgentServer> server_;
  std::string address_;
};

ServiceOptions withUsers(ServiceOptions o = {}) {
  o.users = testUsers();
  o.maxLoginDelay = std::chrono::milliseconds(0);
  return o;
}

std::shared_ptr<grpc::Channel> plaintext(const std::string& address) {
  return grpc::CreateChannel(address, grpc::InsecureChannelCredentials());
}

std::shared_ptr<grpc::Channel> tls(const std::string& address, const std::string& caPem,
                                   const PemPair* client = nullptr) {
  grpc::SslCredentialsOptions o;
  o.pem_root_certs = caPem;
  if (client) {
    o.pem_cert_chain = client->cert;
    o.pem_private_key = client->key;
  }
  return grpc::CreateChannel(address, grpc::SslCredentials(o));
}

struct Login {
  std::string user;
  std::string password;
};

// The metadata of `login`; none for an empty login (an empty user name with
// a password is sent as it is).
void prepare(grpc::ClientContext& context, const Login& login) {
  withDeadline(context);
  if (!login.user.empty() || !login.password.empty()) {
    context.AddMetadata("username", login.user);
    context.AddMetadata("password", login.password);
  }
}

grpc::Status capabilities(const std::shared_ptr<grpc::Channel>& channel, const Login& login = {}) {
  grpc::ClientContext context;
  prepare(context, login);
  gnmi::CapabilityResponse response;
  return gnmi::gNMI::NewStub(channel)->Capabilities(&context, gnmi::CapabilityRequest(), &response);
}

grpc::Status get(gnmi::gNMI::Stub& stub, const Login& login, const std::string& path) {
  grpc::ClientContext context;
  prepare(context, login);
  gnmi::GetRequest request;
  *request.add_path() = P(path);
  gnmi::GetResponse response;
  return stub.Get(&context, request, &response);
}

gnmi::SetRequest setOf(const std::string& path, const std::string& json) {
  gnmi::SetRequest request;
  gnmi::Update* u = request.add_update();
  *u->mutable_path() = P(path);
  u->mutable_val()->set_json_val(json);
  return request;
}

grpc::Status set(gnmi::gNMI::Stub& stub, const Login& login, const gnmi::SetRequest& request) {
  grpc::ClientContext context;
  prepare(context, login);
  gnmi::SetResponse response;
  return stub.Set(&context, request, &response);
}

grpc::Status set(gnmi::gNMI::Stub& stub, const Login& login, const std::string& path) {
  return set(stub, login, setOf(path, path == INSIDE ? "\"core7\"" : "1500"));
}

// A ONCE subscription: its status and how many responses came before it.
std::pair<grpc::Status, int> subscribeOnce(gnmi::gNMI::Stub& stub, const Login& login, const std::string& path) {
  grpc::ClientContext context;
  prepare(context, login);
  auto stream = stub.Subscribe(&context);
  stream->Write(subscription(gnmi::SubscriptionList::ONCE, {path}));
  gnmi::SubscribeResponse response;
  int responses = 0;
  while (stream->Read(&response)) ++responses;
  return {stream->Finish(), responses};
}

void expectStatus(const grpc::Status& status, grpc::StatusCode code, const std::string& what) {
  EXPECT_EQ(status.error_code(), code) << what << ": " << status.error_message();
}

// ---------------------------------------------------------------- transport

TEST(AgentTls, TlsAndMutualTlsServeTheirClients) {
  Pki pki;
  ServiceOptions one;
  one.tls = pki.files(false);
  SecureAgent server(one);
  EXPECT_TRUE(capabilities(tls(server.address(), pki.ca.certPem())).ok());

  ServiceOptions mutual;
  mutual.tls = pki.files(true);
  SecureAgent mutualServer(mutual);
  EXPECT_TRUE(capabilities(tls(mutualServer.address(), pki.ca.certPem(), &pki.alice)).ok());
}

TEST(AgentTls, FailedHandshakesAreUnavailableToTheClient) {
  Pki pki;
  ServiceOptions one;
  one.tls = pki.files(false);
  SecureAgent server(one);
  const grpc::Status unknownCa = capabilities(tls(server.address(), pki.rogue.certPem()));
  expectStatus(unknownCa, grpc::StatusCode::UNAVAILABLE, "a server certificate from an unknown CA");
  const grpc::Status plain = capabilities(plaintext(server.address()));
  expectStatus(plain, grpc::StatusCode::UNAVAILABLE, "a plaintext client on a TLS port");

  ServiceOptions mutual;
  mutual.tls = pki.files(true);
  SecureAgent mutualServer(mutual);
  expectStatus(capabilities(tls(mutualServer.address(), pki.ca.certPem())), grpc::StatusCode::UNAVAILABLE,
               "no client certificate");
  expectStatus(capabilities(tls(mutualServer.address(), pki.ca.certPem(), &pki.expiredAlice)),
               grpc::StatusCode::UNAVAILABLE, "an expired client certificate");
  expectStatus(capabilities(tls(mutualServer.address(), pki.ca.certPem(), &pki.rogueAlice)),
               grpc::StatusCode::UNAVAILABLE, "a client certificate from an unknown CA");
  EXPECT_TRUE(capabilities(tls(mutualServer.address(), pki.ca.certPem(), &pki.alice)).ok()) << "still serving";
}

// Whether a raw OpenSSL client that offers at most `maxVersion` completes a
// TLS handshake with the server on `port`.
bool handshakes(int port, int maxVersion) {
  SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());
  SSL_CTX_set_security_level(ctx, 0);
  SSL_CTX_set_min_proto_version(ctx, TLS1_VERSION);
  SSL_CTX_set_max_proto_version(ctx, maxVersion);
  SSL_CTX_set_verify(ctx, SSL_VERIFY_NONE, nullptr);
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bool ok = false;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
    SSL* ssl = SSL_new(ctx);
    SSL_set_fd(ssl, fd);
    static const unsigned char ALPN[] = {2, 'h', '2'};
    SSL_set_alpn_protos(ssl, ALPN, sizeof ALPN);
    ok = SSL_connect(ssl) == 1;
    SSL_free(ssl);
  }
  ::close(fd);
  SSL_CTX_free(ctx);
  return ok;
}

TEST(AgentTls, NothingBelowTls12) {
  Pki pki;
  ServiceOptions one;
  one.tls = pki.files(false);
  SecureAgent server(one);
  EXPECT_TRUE(handshakes(server.server().port(), TLS1_2_VERSION));
  EXPECT_FALSE(handshakes(server.server().port(), TLS1_1_VERSION));
}

TEST(AgentTls, ReloadSwapsTheCertificateWithoutDroppingOpenStreams) {
  Pki pki;
  ServiceOptions one;
  one.tls = pki.files(false);
  SecureAgent server(one);
  auto oldChannel = tls(server.address(), pki.ca.certPem());
  auto oldStub = gnmi::gNMI::NewStub(oldChannel);
  Stream stream(*oldStub,
                subscription(gnmi::SubscriptionList::STREAM, {"/devices/dev1/interfaces[name=eth0]/mtu"}, gnmi::JSON,
                             gnmi::ON_CHANGE));
  EXPECT_EQ(flat(stream.untilSync()).size(), 1u);

  // A broken key is refused and the old certificate stays.
  pki.dir.write("server.key", "not a key");
  std::string report;
  EXPECT_FALSE(server.server().reload(report));
  EXPECT_THAT(report, HasSubstr("TLS files kept as they were: --tls-key"));
  EXPECT_THAT(report, HasSubstr("no unencrypted PEM private key"));

  // A certificate of another CA: new handshakes use it once gRPC's watcher
  // has read it (within a second).
  TestCa next("next CA");
  const PemPair renewed = next.issue("localhost", TestCa::Kind::Server);
  pki.dir.write("server.pem", renewed.cert);
  pki.dir.write("server.key", renewed.key);
  ASSERT_TRUE(server.server().reload(report)) << report;
  EXPECT_EQ(report, "TLS certificate and key reloaded");
  {
    // One call that waits for the channel to become ready: gRPC retries the
    // handshake (every 100 ms here) until the renewed certificate is served.
    grpc::ChannelArguments args;
    args.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 100);
    args.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 100);
    args.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 100);
    grpc::SslCredentialsOptions trustNext;
    trustNext.pem_root_certs = next.certPem();
    auto channel = grpc::CreateCustomChannel(server.address(), grpc::SslCredentials(trustNext), args);
    grpc::ClientContext context;
    withDeadline(context);
    context.set_wait_for_ready(true);
    gnmi::CapabilityResponse response;
    const grpc::Status renewedServed =
        gnmi::gNMI::NewStub(channel)->Capabilities(&context, gnmi::CapabilityRequest(), &response);
    EXPECT_TRUE(renewedServed.ok()) << renewedServed.error_message();
  }
  expectStatus(capabilities(tls(server.address(), pki.ca.certPem())), grpc::StatusCode::UNAVAILABLE,
               "a new connection trusting only the old CA");

  // The stream opened before goes on, and so does its connection.
  EXPECT_TRUE(set(*oldStub, {}, setOf("/devices/dev1/interfaces[name=eth0]/mtu", "1600")).ok());
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{"/devices/dev1/interfaces[name=eth0]/mtu=1600"});
  stream.context.TryCancel();
  stream.rw->Finish();
}

TEST(AgentStart, PlaintextOffLoopbackAndBadFilesAreRefusedWithTheReason) {
  auto refusal = [](ServiceOptions o, const std::string& address) {
    AgentServer server(smallDevice(), makeLibraryBridge, std::move(o));
    std::string error;
    EXPECT_FALSE(server.start(address, error));
    return error;
  };
  EXPECT_THAT(refusal({}, "0.0.0.0:0"), HasSubstr("refusing plaintext gRPC on 0.0.0.0:0"));
  Pki pki;
  ServiceOptions expired;
  expired.tls = {pki.dir.write("expired.pem", pki.expiredAlice.cert), pki.dir.write("expired.key", pki.expiredAlice.key),
                 ""};
  EXPECT_THAT(refusal(expired, "127.0.0.1:0"), HasSubstr("the certificate expired on"));
  ServiceOptions mismatch;
  mismatch.tls = {pki.dir.write("a.pem", pki.server.cert), pki.dir.write("b.key", pki.alice.key), ""};
  EXPECT_THAT(refusal(mismatch, "127.0.0.1:0"), HasSubstr("is not the key of the certificate in --tls-cert"));
  ServiceOptions badUsers;
  badUsers.usersFile = pki.dir.write("users", "ops:" + quickHash("x") + ":read\nroot:toor:write\n");
  EXPECT_THAT(refusal(badUsers, "127.0.0.1:0"), HasSubstr("users: line 2: the hash of 'root' is not a salted hash"));
}

// ----------------------------------------------------- authentication, roles

TEST(AgentAuth, EveryRpcNeedsCredentials) {
  SecureAgent server(withUsers());
  auto stub = gnmi::gNMI::NewStub(plaintext(server.address()));
  for (const Login& login : {Login{}, Login{"", "writer-pw"}, Login{"writer", "wrong"}, Login{"nobody", "writer-pw"},
                             Login{"alice", ""}, Login{"alice", "anything"}}) {
    const std::string who = login.user + "/" + login.password;
    grpc::ClientContext context;
    prepare(context, login);
    gnmi::CapabilityResponse caps;
    const grpc::Status c = stub->Capabilities(&context, gnmi::CapabilityRequest(), &caps);
    expectStatus(c, grpc::StatusCode::UNAUTHENTICATED, "Capabilities " + who);
    expectStatus(get(*stub, login, INSIDE), grpc::StatusCode::UNAUTHENTICATED, "Get " + who);
    expectStatus(set(*stub, login, INSIDE), grpc::StatusCode::UNAUTHENTICATED, "Set " + who);
    const auto [status, responses] = subscribeOnce(*stub, login, INSIDE);
    expectStatus(status, grpc::StatusCode::UNAUTHENTICATED, "Subscribe " + who);
    EXPECT_EQ(responses, 0) << who;
  }
  // A wrong password and an unknown user get the same answer.
  EXPECT_EQ(get(*stub, {"writer", "wrong"}, INSIDE).error_message(), "wrong user name or password");
  EXPECT_EQ(get(*stub, {"nobody", "wrong"}, INSIDE).error_message(), "wrong user name or password");
  EXPECT_EQ(get(*stub, {}, INSIDE).error_message(),
            "no credentials: send the username and password metadata (or a client certificate naming a user)");
}

TEST(AgentAuth, RolesAndPrefixesForEveryRpc) {
  SecureAgent server(withUsers());
  auto stub = gnmi::gNMI::NewStub(plaintext(server.address()));
  const Login reader{"reader", "reader-pw"}, writer{"writer", "writer-pw"}, limited{"limited", "limited-pw"},
      observer{"observer", "observer-pw"};
  using Code = grpc::StatusCode;
  // A Subscribe path the model cannot hold is UNIMPLEMENTED, as gNMI's table
  // of Subscribe answers says; Get and Set call it NOT_FOUND.
  struct Row {
    Login login;
    const char* path;
    Code get, set, subscribe;
  };
  const Row rows[] = {
      {reader, INSIDE, Code::OK, Code::PERMISSION_DENIED, Code::OK},
      {reader, OUTSIDE, Code::OK, Code::PERMISSION_DENIED, Code::OK},
      {reader, ABSENT, Code::NOT_FOUND, Code::PERMISSION_DENIED, Code::UNIMPLEMENTED},
      {writer, INSIDE, Code::OK, Code::OK, Code::OK},
      {writer, OUTSIDE, Code::OK, Code::OK, Code::OK},
      {writer, ABSENT, Code::NOT_FOUND, Code::NOT_FOUND, Code::UNIMPLEMENTED},
      {limited, INSIDE, Code::OK, Code::OK, Code::OK},
      {limited, OUTSIDE, Code::PERMISSION_DENIED, Code::PERMISSION_DENIED, Code::PERMISSION_DENIED},
      // Authorization comes before lookup: a path outside that names nothing
      // is refused, not reported missing.
      {limited, ABSENT, Code::PERMISSION_DENIED, Code::PERMISSION_DENIED, Code::PERMISSION_DENIED},
      {observer, INSIDE, Code::OK, Code::PERMISSION_DENIED, Code::OK},
      {observer, OUTSIDE, Code::PERMISSION_DENIED, Code::PERMISSION_DENIED, Code::PERMISSION_DENIED},
  };
  for (const Row& row : rows) {
    const std::string what = row.login.user + " " + row.path;
    EXPECT_TRUE(capabilities(plaintext(server.address()), row.login).ok()) << what;
    expectStatus(get(*stub, row.login, row.path), row.get, "Get " + what);
    expectStatus(set(*stub, row.login, row.path), row.set, "Set " + what);
    const auto [status, responses] = subscribeOnce(*stub, row.login, row.path);
    expectStatus(status, row.subscribe, "Subscribe " + what);
    if (row.subscribe == Code::PERMISSION_DENIED) {
      EXPECT_EQ(responses, 0) << "nothing before the status: " << what;
    }
  }
  const grpc::Status denied = set(*stub, reader, INSIDE);
  EXPECT_EQ(denied.error_message(), "user 'reader' may not Set (role read)");
  EXPECT_EQ(get(*stub, limited, OUTSIDE).error_message(),
            "/devices/dev1/interfaces[name=eth1]/mtu is outside the paths user 'limited' may reach");
  // A STREAM reaching beyond the prefixes with a wildcard is refused too.
  grpc::ClientContext context;
  prepare(context, limited);
  auto stream = stub->Subscribe(&context);
  stream->Write(subscription(gnmi::SubscriptionList::STREAM, {"/devices/dev1/interfaces[name=*]/mtu"}));
  gnmi::SubscribeResponse response;
  EXPECT_FALSE(stream->Read(&response)) << "nothing before the status";
  expectStatus(stream->Finish(), Code::PERMISSION_DENIED, "a wildcard STREAM");
}

TEST(AgentAuth, AnUnknownUserCostsAHashLikeAWrongPassword) {
  SecureAgent server(withUsers());
  auto stub = gnmi::gNMI::NewStub(plaintext(server.address()));
  Authenticator& auth = *server.server().authenticator();
  EXPECT_TRUE(get(*stub, {"writer", "writer-pw"}, INSIDE).ok());
  const uint64_t before = auth.hashesVerified();
  EXPECT_EQ(before, 1u);
  EXPECT_TRUE(get(*stub, {"writer", "writer-pw"}, INSIDE).ok());
  EXPECT_EQ(auth.hashesVerified(), before) << "a verified password is remembered";
  EXPECT_FALSE(get(*stub, {"writer", "wrong"}, INSIDE).ok());
  EXPECT_EQ(auth.hashesVerified(), before + 1);
  EXPECT_FALSE(get(*stub, {"nobody", "wrong"}, INSIDE).ok());
  EXPECT_EQ(auth.hashesVerified(), before + 2) << "verified against the dummy hash";
  EXPECT_FALSE(get(*stub, {"alice", "wrong"}, INSIDE).ok());
  EXPECT_EQ(auth.hashesVerified(), before + 3) << "a certificate-only user too";
  EXPECT_FALSE(get(*stub, {}, INSIDE).ok());
  EXPECT_EQ(auth.hashesVerified(), before + 3) << "no name: nothing to hide";
}

TEST(AgentAuth, AClientCertificateNamesTheUser) {
  Pki pki;
  ServiceOptions o = withUsers();
  o.tls = pki.files(true);
  SecureAgent server(o);
  auto stub = gnmi::gNMI::NewStub(tls(server.address(), pki.ca.certPem(), &pki.alice));
  EXPECT_TRUE(get(*stub, {}, INSIDE).ok()) << "alice, by her certificate";
  EXPECT_EQ(set(*stub, {}, INSIDE).error_message(), "user 'alice' may not Set (role read)");
  EXPECT_TRUE(set(*stub, {"writer", "writer-pw"}, INSIDE).ok()) << "credentials, when sent, decide";
  EXPECT_EQ(get(*stub, {"alice", "anything"}, INSIDE).error_code(), grpc::StatusCode::UNAUTHENTICATED)
      << "alice has no password";
}

TEST(AgentAuth, RepeatedFailuresAreHeldBackLonger) {
  ServiceOptions o = withUsers();
  o.maxLoginDelay = LoginThrottle::MAX_DELAY;
  SecureAgent server(o);
  auto stub = gnmi::gNMI::NewStub(plaintext(server.address()));
  Traces traces;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(get(*stub, {"writer", "wrong"}, INSIDE).error_code(), grpc::StatusCode::UNAUTHENTICATED);
  }
  EXPECT_TRUE(get(*stub, {"writer", "writer-pw"}, INSIDE).ok());
  EXPECT_EQ(get(*stub, {"writer", "wrong"}, INSIDE).error_code(), grpc::StatusCode::UNAUTHENTICATED);
  std::vector<std::string> held;
  for (const std::string& line : traces.lines()) {
    const size_t at = line.find("reply held back ");
    if (at != std::string::npos) held.push_back(line.substr(at + 16));
  }
  EXPECT_THAT(held, ::testing::ElementsAre("0 ms", "100 ms", "200 ms", "0 ms")) << "a success forgets";
}

// ------------------------------------------------------------------- limits

TEST(AgentLimits, StreamsPerUserAndInTotal) {
  ServiceOptions o = withUsers();
  o.maxStreams = 3;
  o.maxStreamsPerUser = 2;
  SecureAgent server(o);
  auto stub = gnmi::gNMI::NewStub(plaintext(server.address()));
  auto open = [&](const Login& login) {
    auto s = std::make_unique<grpc::ClientContext>();
    prepare(*s, login);
    return s;
  };
  std::vector<std::unique_ptr<grpc::ClientContext>> contexts;
  std::vector<std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>>> streams;
  std::vector<bool> finished;
  // Opens a STREAM subscription: OK once it synced, else how it ended.
  auto stream = [&](const Login& login) {
    contexts.push_back(open(login));
    streams.push_back(stub->Subscribe(contexts.back().get()));
    streams.back()->Write(subscription(gnmi::SubscriptionList::STREAM, {INSIDE}));
    finished.push_back(false);
    gnmi::SubscribeResponse r;
    while (streams.back()->Read(&r)) {
      if (r.response_case() == gnmi::SubscribeResponse::kSyncResponse) return grpc::Status::OK;
    }
    finished.back() = true;
    return streams.back()->Finish();
  };
  const Login writer{"writer", "writer-pw"}, reader{"reader", "reader-pw"};
  EXPECT_TRUE(stream(writer).ok());
  EXPECT_TRUE(stream(writer).ok());
  const grpc::Status perUser = stream(writer);
  expectStatus(perUser, grpc::StatusCode::RESOURCE_EXHAUSTED, "a third stream of one user");
  EXPECT_EQ(perUser.error_message(),
            "user 'writer' has 2 Subscribe streams open, the limit per user (--max-streams-per-user)");
  EXPECT_TRUE(stream(reader).ok());
  const grpc::Status total = stream(reader);
  EXPECT_EQ(total.error_message(), "this target has 3 Subscribe streams open, its limit (--max-streams)");
  // Closing one makes room.
  Traces traces({"AgentAuth"});
  contexts[0]->TryCancel();
  ASSERT_TRUE(traces.waitFor("Subscribe stream of 'writer' done"));
  EXPECT_TRUE(stream(reader).ok());
  for (size_t i = 0; i < streams.size(); ++i) {
    if (finished[i]) continue;
    contexts[i]->TryCancel();
    gnmi::SubscribeResponse r;
    while (streams[i]->Read(&r)) {
    }
    streams[i]->Finish();
  }
}

TEST(AgentLimits, PathsAndBytesPerRequest) {
  ServiceOptions o;
  o.maxPaths = 3;
  o.maxRequestBytes = 4096;
  SecureAgent server(o);
  auto stub = gnmi::gNMI::NewStub(plaintext(server.address()));
  grpc::ClientContext context;
  withDeadline(context);
  gnmi::GetRequest four;
  for (int i = 0; i < 4; ++i) *four.add_path() = P(INSIDE);
  gnmi::GetResponse response;
  const grpc::Status paths = stub->Get(&context, four, &response);
  expectStatus(paths, grpc::StatusCode::RESOURCE_EXHAUSTED, "four paths");
  EXPECT_EQ(paths.error_message(), "the request has 4 paths; this target takes at most 3 (--max-paths)");
  const grpc::Status bytes = set(*stub, {}, setOf("/devices/dev1/system/motd", "\"" + std::string(8000, 'm') + "\""));
  expectStatus(bytes, grpc::StatusCode::RESOURCE_EXHAUSTED, "an 8 KB Set");
  const auto [status, responses] = subscribeOnce(*stub, {}, INSIDE);
  EXPECT_TRUE(status.ok()) << status.error_message();
}

// -------------------------------------------------------------------- audit

TEST(AgentAudit, EverySetIsAuditedAndNoPasswordReachesALog) {
  Traces traces;
  SecureAgent server(withUsers());
  auto stub = gnmi::gNMI::NewStub(plaintext(server.address()));
  EXPECT_TRUE(set(*stub, {"writer", "writer-pw"}, INSIDE).ok());
  EXPECT_FALSE(set(*stub, {"reader", "reader-pw"}, INSIDE).ok());
  EXPECT_FALSE(set(*stub, {"writer", "not-the-password"}, INSIDE).ok());
  EXPECT_FALSE(set(*stub, {"writer", "writer-pw"}, setOf("/devices/dev1/interfaces[name=eth0]/mtu", "20000")).ok());
  EXPECT_TRUE(get(*stub, {"reader", "reader-pw"}, INSIDE).ok());
  const std::vector<std::string> audit = server.audit();
  ASSERT_EQ(audit.size(), 4u) << "Sets only";
  auto field = [](const std::string& line, const char* name) {
    return nlohmann::json::parse(line).at(name).dump();
  };
  EXPECT_EQ(field(audit[0], "user"), "\"writer\"");
  EXPECT_EQ(field(audit[0], "code"), "\"OK\"");
  EXPECT_EQ(field(audit[0], "ops"), R"([{"op":"update","path":"/devices/dev1/system/hostname"}])");
  EXPECT_THAT(field(audit[0], "peer"), HasSubstr("127.0.0.1"));
  EXPECT_EQ(field(audit[1], "user"), "\"reader\"");
  EXPECT_EQ(field(audit[1], "code"), "\"PERMISSION_DENIED\"");
  EXPECT_EQ(field(audit[2], "authenticated"), "false");
  EXPECT_EQ(field(audit[2], "code"), "\"UNAUTHENTICATED\"");
  EXPECT_EQ(field(audit[3], "code"), "\"INVALID_ARGUMENT\"") << "refused by the device";
  EXPECT_EQ(field(audit[3], "ops"), R"([{"op":"update","path":"/devices/dev1/interfaces[name=eth0]/mtu"}])");
  for (const std::string& line : audit) {
    EXPECT_THAT(line, Not(HasSubstr("-pw")));
    EXPECT_THAT(line, Not(HasSubstr("not-the-password")));
    EXPECT_THAT(line, Not(HasSubstr("core7"))) << "values are not logged";
  }
  const std::vector<std::string> lines = traces.lines();
  EXPECT_FALSE(lines.empty());
  for (const std::string& line : lines) {
    EXPECT_THAT(line, Not(HasSubstr("-pw")));
    EXPECT_THAT(line, Not(HasSubstr("not-the-password")));
  }
}

// ---------------------------------------------------- undecodable requests

grpc::Status rawUnary(const std::shared_ptr<grpc::Channel>& channel, const std::string& method,
                      const std::string& bytes) {
  grpc::GenericStub stub(channel);
  grpc::ClientContext context;
  withDeadline(context);
  grpc::Slice slice(bytes);
  grpc::ByteBuffer request(&slice, 1);
  grpc::ByteBuffer response;
  std::promise<grpc::Status> done;
  stub.UnaryCall(&context, method, grpc::StubOptions(), &request, &response,
                 [&done](grpc::Status status) { done.set_value(std::move(status)); });
  return done.get_future().get();
}

grpc::Status rawSubscribe(const std::shared_ptr<grpc::Channel>& channel, const std::string& bytes) {
  grpc::GenericStub stub(channel);
  grpc::CompletionQueue cq;
  grpc::ClientContext context;
  withDeadline(context);
  auto call = stub.PrepareCall(&context, "/gnmi.gNMI/Subscribe", &cq);
  void* tag = nullptr;
  bool ok = false;
  auto step = [&](intptr_t id) {
    EXPECT_TRUE(cq.Next(&tag, &ok));
    EXPECT_EQ(reinterpret_cast<intptr_t>(tag), id);
  };
  call->StartCall(reinterpret_cast<void*>(1));
  step(1);
  grpc::Slice slice(bytes);
  grpc::ByteBuffer request(&slice, 1);
  call->Write(request, reinterpret_cast<void*>(2));
  step(2);
  grpc::ByteBuffer response;
  call->Read(&response, reinterpret_cast<void*>(3));
  step(3);
  EXPECT_FALSE(ok) << "nothing is sent before the status";
  grpc::Status status;
  call->Finish(&status, reinterpret_cast<void*>(4));
  step(4);
  cq.Shutdown();
  while (cq.Next(&tag, &ok)) {
  }
  return status;
}

TEST(AgentDecoding, UndecodableRequestsAreInvalidArgumentsWithTheReason) {
  SecureAgent server(ServiceOptions{});
  auto channel = plaintext(server.address());
  const std::string garbage = "\xff\xff\xff\xff garbage";
  for (const char* method : {"Capabilities", "Get", "Set"}) {
    const grpc::Status status = rawUnary(channel, std::string("/gnmi.gNMI/") + method, garbage);
    expectStatus(status, grpc::StatusCode::INVALID_ARGUMENT, method);
    EXPECT_THAT(status.error_message(), HasSubstr("cannot be decoded: it is not a protobuf message")) << method;
  }
  gnmi::GetRequest get;
  get.add_path()->add_elem()->set_name("x");
  std::string notUtf8 = get.SerializeAsString();
  notUtf8.replace(notUtf8.find('x'), 1, "\xc3");
  EXPECT_EQ(rawUnary(channel, "/gnmi.gNMI/Get", notUtf8).error_message(),
            "the GetRequest cannot be decoded: a string field is not valid UTF-8 (use bytes or base64 for binary "
            "data)");
  const std::string whole = subscription(gnmi::SubscriptionList::ONCE, {INSIDE}).SerializeAsString();
  const grpc::Status truncated = rawSubscribe(channel, whole.substr(0, whole.size() / 2));
  expectStatus(truncated, grpc::StatusCode::INVALID_ARGUMENT, "a truncated SubscribeRequest");
  EXPECT_EQ(truncated.error_message(),
            "the SubscribeRequest cannot be decoded: it is not a protobuf message (malformed or cut short)");
  EXPECT_TRUE(capabilities(channel).ok()) << "the agent goes on";
}

// --------------------------------------------------------- slow subscribers

TEST(AgentSlowSubscriber, SeesWhyItWasEndedEvenAfterTheAgentIsDoneWithIt) {
  Traces traces({"AgentAuth"});
  SecureAgent server(ServiceOptions{}, smallDevice(std::chrono::milliseconds(200), 200));
  grpc::ChannelArguments args;
  args.SetInt("grpc.http2.bdp_probe", 0);
  auto stub = gnmi::gNMI::NewStub(grpc::CreateCustomChannel(server.address(), grpc::InsecureChannelCredentials(),
                                                            args));
  Stream stalled(*stub, subscription(gnmi::SubscriptionList::STREAM, {"/"}, gnmi::JSON, gnmi::ON_CHANGE));
  // The client reads nothing until the agent has ended the RPC entirely
  // (before, the status waited behind the blocked data and the RPC was
  // cancelled: the client saw CANCELLED).
  ASSERT_TRUE(traces.waitFor("Subscribe stream of '' done"));
  gnmi::SubscribeResponse r;
  while (stalled.rw->Read(&r)) {
  }
  const grpc::Status status = stalled.rw->Finish();
  EXPECT_EQ(status.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED) << status.error_message();
  EXPECT_EQ(status.error_message(), "the subscriber has not read for 0.2 s; the stream is ended");
}

// ---------------------------------------------------------------- the client

std::pair<int, std::string> client(std::vector<std::string> args) {
  std::ostringstream out;
  std::ostringstream err;
  const int code = VekGnmi::Client::runClient(args, out, err);
  return {code, out.str() + err.str()};
}

TEST(AgentClient, TlsAndCredentialOptions) {
  Pki pki;
  ServiceOptions o = withUsers();
  o.tls = pki.files(true);
  SecureAgent server(o);
  const std::string ca = pki.dir.write("client-ca.pem", pki.ca.certPem());
  const std::string cert = pki.dir.write("alice.pem", pki.alice.cert);
  const std::string key = pki.dir.write("alice.key", pki.alice.key);
  const std::vector<std::string> tlsArgs = {"-a", server.address(), "--tls-ca", ca, "--tls-cert", cert,
                                            "--tls-key", key,       "--timeout", "10s"};
  auto with = [&](std::vector<std::string> more) {
    std::vector<std::string> args = tlsArgs;
    args.insert(args.end(), more.begin(), more.end());
    return client(args);
  };
  auto [code, text] = with({"--username", "writer", "--password", "writer-pw", "set", "--update",
                            std::string(INSIDE) + "=\"r9\""});
  EXPECT_EQ(code, 0) << text;
  std::tie(code, text) = with({"get", "--path", INSIDE});
  EXPECT_EQ(code, 0) << text;
  EXPECT_THAT(text, HasSubstr("\"r9\"")) << "as alice, by her certificate";
  std::tie(code, text) = with({"--username", "writer", "--password", "wrong", "capabilities"});
  EXPECT_EQ(code, 1);
  EXPECT_EQ(text, "error: UNAUTHENTICATED (16): wrong user name or password\n");
  EXPECT_THAT(text, Not(HasSubstr("wrong user name or password: wrong")));
  std::tie(code, text) =
      with({"--tls-server-name", "localhost", "--username", "reader", "--password", "reader-pw", "subscribe",
            "--mode", "once", "--path", INSIDE});
  EXPECT_EQ(code, 0) << text;
  EXPECT_THAT(text, HasSubstr("sync_response"));
  // Without verification the rogue CA's server is reached too; with it, not.
  ServiceOptions rogue;
  rogue.tls = {pki.dir.write("rogue.pem", pki.rogueServer.cert), pki.dir.write("rogue.key", pki.rogueServer.key), ""};
  SecureAgent rogueServer(rogue);
  std::tie(code, text) = client({"-a", rogueServer.address(), "--skip-verify", "capabilities"});
  EXPECT_EQ(code, 0) << text;
  std::tie(code, text) = client({"-a", rogueServer.address(), "--tls-ca", ca, "capabilities"});
  EXPECT_EQ(code, 1);
  EXPECT_THAT(text, HasSubstr("error: UNAVAILABLE (14)"));
}

// ------------------------------------------------------------- the watchdog

TEST(ShutdownWatchdog, ExpiresAfterItsGraceOrAtOnceUnlessDisarmed) {
  std::promise<void> expired;
  {
    ShutdownWatchdog dog(std::chrono::milliseconds(0), [&] { expired.set_value(); });
    expired.get_future().wait();
  }
  std::promise<void> now;
  {
    ShutdownWatchdog dog(std::chrono::hours(1), [&] { now.set_value(); });
    dog.expireNow();
    now.get_future().wait();
  }
  bool fired = false;
  { ShutdownWatchdog dog(std::chrono::hours(1), [&] { fired = true; }); }
  EXPECT_FALSE(fired) << "disarmed by its end";
}

}  // namespace
