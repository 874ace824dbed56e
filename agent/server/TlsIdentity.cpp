#include "TlsIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <fmt/format.h>
#include <grpcpp/security/tls_credentials_options.h>

namespace VekGnmi::Server {

namespace {

struct BioFree {
  void operator()(BIO* b) const { BIO_free(b); }
};
struct X509Free {
  void operator()(X509* x) const { X509_free(x); }
};
struct KeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using Bio = std::unique_ptr<BIO, BioFree>;
using Cert = std::unique_ptr<X509, X509Free>;
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;

Bio memoryBio(const std::string& text) { return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))); }

std::vector<Cert> certificatesIn(const std::string& pem) {
  std::vector<Cert> out;
  Bio bio = memoryBio(pem);
  while (X509* x = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)) out.emplace_back(x);
  ERR_clear_error();
  return out;
}

// A callback that refuses to ask for a pass phrase (the default one would
// prompt on the terminal).
int noPassphrase(char*, int, int, void*) { return -1; }

std::string timeText(const ASN1_TIME* time) {
  std::tm tm{};
  if (ASN1_TIME_to_tm(time, &tm) != 1) return "an unreadable date";
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &tm);
  return text;
}

bool readFile(const char* flag, const std::string& path, std::string& out, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = fmt::format("{} {}: cannot be read", flag, path);
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  out = text.str();
  return true;
}

// Writes `text` to `path` through a temporary file and one rename, with a
// modification time at least a second after the file it replaces.
bool replaceFile(const std::string& path, const std::string& text, std::string& error) {
  const std::string temporary = path + ".new";
  ::unlink(temporary.c_str());
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) {
    error = fmt::format("cannot write {}: {}", temporary, std::strerror(errno));
    return false;
  }
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    written += static_cast<size_t>(n);
  }
  struct timespec times[2];
  ::clock_gettime(CLOCK_REALTIME, &times[0]);
  struct stat previous {};
  if (::stat(path.c_str(), &previous) == 0 && times[0].tv_sec <= previous.st_mtim.tv_sec) {
    times[0].tv_sec = previous.st_mtim.tv_sec + 1;
  }
  times[1] = times[0];
  const bool ok = written == text.size() && ::futimens(fd, times) == 0;
  ::close(fd);
  if (!ok || ::rename(temporary.c_str(), path.c_str()) != 0) {
    error = fmt::format("cannot write {}: {}", path, std::strerror(errno));
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace

bool checkTlsMaterial(const TlsFiles& files, const std::string& certPem, const std::string& keyPem,
                      const std::string& caPem, std::string& error) {
  const std::vector<Cert> chain = certificatesIn(certPem);
  if (chain.empty()) {
    error = fmt::format("--tls-cert {}: no PEM certificate in it", files.cert);
    return false;
  }
  X509* leaf = chain.front().get();
  if (X509_cmp_current_time(X509_get0_notAfter(leaf)) < 0) {
    error = fmt::format("--tls-cert {}: the certificate expired on {}", files.cert,
                        timeText(X509_get0_notAfter(leaf)));
    return false;
  }
  if (X509_cmp_current_time(X509_get0_notBefore(leaf)) > 0) {
    error = fmt::format("--tls-cert {}: the certificate is not valid before {}", files.cert,
                        timeText(X509_get0_notBefore(leaf)));
    return false;
  }
  Bio keyBio = memoryBio(keyPem);
  Key key(PEM_read_bio_PrivateKey(keyBio.get(), nullptr, noPassphrase, nullptr));
  ERR_clear_error();
  if (!key) {
    error = fmt::format("--tls-key {}: no unencrypted PEM private key in it", files.key);
    return false;
  }
  if (X509_check_private_key(leaf, key.get()) != 1) {
    ERR_clear_error();
    error = fmt::format("--tls-key {} is not the key of the certificate in --tls-cert {}", files.key, files.cert);
    return false;
  }
  if (!files.ca.empty() && certificatesIn(caPem).empty()) {
    error = fmt::format("--tls-ca {}: no PEM certificate in it", files.ca);
    return false;
  }
  return true;
}

TlsIdentity::~TlsIdentity() {
  credentials_.reset();
  provider_.reset();  // stops gRPC's watcher thread before its files go
  if (!dir_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
}

bool TlsIdentity::readAndStage(std::string& error) {
  std::string certPem, keyPem, caPem;
  if (!readFile("--tls-cert", files_.cert, certPem, error) || !readFile("--tls-key", files_.key, keyPem, error) ||
      (!files_.ca.empty() && !readFile("--tls-ca", files_.ca, caPem, error)) ||
      !checkTlsMaterial(files_, certPem, keyPem, caPem, error)) {
    return false;
  }
  if (!replaceFile(dir_ + "/identity.pem", keyPem + "\n" + certPem, error)) return false;
  return files_.ca.empty() || replaceFile(dir_ + "/ca.pem", caPem, error);
}

bool TlsIdentity::load(TlsFiles files, std::string& error) {
  files_ = std::move(files);
  std::string pattern = (std::filesystem::temp_directory_path() / "vekgnmid-tls-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    error = fmt::format("cannot make a private directory for the TLS files: {}", std::strerror(errno));
    return false;
  }
  dir_ = pattern;
  if (!readAndStage(error)) return false;
  const std::string identity = dir_ + "/identity.pem";
  provider_ = std::make_shared<grpc::experimental::FileWatcherCertificateProvider>(
      identity, identity, files_.ca.empty() ? std::string() : dir_ + "/ca.pem", REFRESH_SECONDS);
  grpc::experimental::TlsServerCredentialsOptions options(provider_);
  options.watch_identity_key_cert_pairs();
  if (files_.ca.empty()) {
    options.set_cert_request_type(GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE);
  } else {
    options.watch_root_certs();
    options.set_cert_request_type(GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
  }
  credentials_ = grpc::experimental::TlsServerCredentials(options);
  if (!credentials_) {
    error = "gRPC could not make TLS server credentials";
    return false;
  }
  return true;
}

bool TlsIdentity::reload(std::string& error) {
  if (!credentials_) {
    error = "TLS is not in use";
    return false;
  }
  return readAndStage(error);
}

}  // namespace VekGnmi::Server
