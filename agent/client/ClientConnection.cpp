#include "ClientConnection.h"

#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <grpcpp/security/tls_certificate_provider.h>
#include <grpcpp/security/tls_certificate_verifier.h>
#include <grpcpp/security/tls_credentials_options.h>

namespace VekGnmi::Client {

namespace {

std::string readPem(const char* flag, const std::string& path) {
  if (path.empty()) return {};
  std::ifstream in(path, std::ios::binary);
  if (!in) throw UsageError{fmt::format("{} {}: cannot be read", flag, path)};
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::shared_ptr<grpc::ChannelCredentials> tlsCredentials(const Connection& c) {
  const std::string ca = readPem("--tls-ca", c.tlsCa);
  const std::string cert = readPem("--tls-cert", c.tlsCert);
  const std::string key = readPem("--tls-key", c.tlsKey);
  if (!c.skipVerify) {
    grpc::SslCredentialsOptions options;
    options.pem_root_certs = ca;  // empty: gRPC's default roots
    options.pem_cert_chain = cert;
    options.pem_private_key = key;
    return grpc::SslCredentials(options);
  }
  // Encrypted, but the server's certificate is not checked.
  grpc::experimental::TlsChannelCredentialsOptions options;
  options.set_verify_server_certs(false);
  options.set_check_call_host(false);
  options.set_certificate_verifier(std::make_shared<grpc::experimental::NoOpCertificateVerifier>());
  if (!cert.empty()) {
    options.set_certificate_provider(std::make_shared<grpc::experimental::StaticDataCertificateProvider>(
        std::vector<grpc::experimental::IdentityKeyCertPair>{{key, cert}}));
    options.watch_identity_key_cert_pairs();
  }
  return grpc::experimental::TlsCredentials(options);
}

}  // namespace

std::shared_ptr<grpc::Channel> makeChannel(const Connection& connection) {
  grpc::ChannelArguments args;
  args.SetMaxReceiveMessageSize(-1);  // a Get of a large model is one message
  if (!connection.tls()) {
    return grpc::CreateCustomChannel(connection.address, grpc::InsecureChannelCredentials(), args);
  }
  if (!connection.tlsServerName.empty()) args.SetSslTargetNameOverride(connection.tlsServerName);
  return grpc::CreateCustomChannel(connection.address, tlsCredentials(connection), args);
}

void addCredentials(const Connection& connection, grpc::ClientContext& context) {
  if (connection.username.empty()) return;
  context.AddMetadata("username", connection.username);
  context.AddMetadata("password", connection.password);
}

}  // namespace VekGnmi::Client
