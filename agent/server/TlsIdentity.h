// vekgnmid's TLS: the certificate and key it presents, the CA its clients'
// certificates must chain to (mutual TLS), and their reload on SIGHUP.
//
// gRPC's TLS server credentials (Debian 12: gRPC 1.51) take their material
// from a certificate provider. Of the two it offers, the static one cannot
// change, and the file watcher re-reads its files on a timer (every second
// at the least), with no way to ask it to read them now. So the agent never
// points gRPC at the operator's files: it checks them (a certificate chain
// and an unencrypted key that belongs to it, not expired; a CA bundle) and
// copies them into a private directory of its own (mode 0700, removed when
// the agent stops), which the file watcher watches. A reload checks the
// operator's files again and, only when they are good, replaces the copies;
// gRPC picks them up within REFRESH_SECONDS, and every handshake after that
// uses them. Connections already open keep the session they negotiated, so
// open streams go on.
//
// The key and the certificate chain are copied into one file (key first),
// replaced by one rename, and gRPC reads the key and the chain from that
// same file: it compares the file's modification time before and after its
// two reads and reads again when it changed, and each copy is given a
// modification time at least a second after the previous one (gRPC compares
// whole seconds), so a key is never paired with another key's certificate.
//
// gRPC negotiates TLS 1.2 or 1.3 only; there is no plaintext fallback on a
// TLS port.
#pragma once

#include <memory>
#include <string>

#include <grpcpp/security/server_credentials.h>
#include <grpcpp/security/tls_certificate_provider.h>

namespace VekGnmi::Server {

struct TlsFiles {
  std::string cert;  // PEM certificate chain, leaf first
  std::string key;   // PEM private key, unencrypted
  std::string ca;    // PEM CA bundle; empty: clients are not asked for certificates
  bool enabled() const { return !cert.empty(); }
};

// Checks PEM texts as `TlsIdentity` does; `files` names them in the errors.
bool checkTlsMaterial(const TlsFiles& files, const std::string& certPem, const std::string& keyPem,
                      const std::string& caPem, std::string& error);

class TlsIdentity {
 public:
  static constexpr unsigned REFRESH_SECONDS = 1;

  TlsIdentity() = default;
  // Removes the private copies.
  ~TlsIdentity();
  TlsIdentity(const TlsIdentity&) = delete;
  TlsIdentity& operator=(const TlsIdentity&) = delete;

  // Reads and checks `files`, copies them and makes the credentials. False
  // with `error` ("--tls-key server.key: ...") when they are not usable.
  bool load(TlsFiles files, std::string& error);
  // Reads and checks the same files again and, when they are good, hands
  // them to gRPC (new handshakes use them within REFRESH_SECONDS); else
  // keeps what it had and says why.
  bool reload(std::string& error);

  // The server credentials (after a successful load).
  std::shared_ptr<grpc::ServerCredentials> credentials() const { return credentials_; }
  // The private directory of the copies (for tests).
  const std::string& stagingDirectory() const { return dir_; }

 private:
  bool readAndStage(std::string& error);

  TlsFiles files_;
  std::string dir_;
  std::shared_ptr<grpc::experimental::FileWatcherCertificateProvider> provider_;
  std::shared_ptr<grpc::ServerCredentials> credentials_;
};

}  // namespace VekGnmi::Server
