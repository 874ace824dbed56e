// Throwaway X.509 material for the agent's TLS tests, made in process with
// OpenSSL when a test runs (nothing is committed): a CA, certificates it
// issues (servers for localhost and 127.0.0.1, clients named by their
// common name), expired ones, and a second CA nobody trusts. EC P-256 keys,
// SHA-256 signatures. Files go to a temporary directory removed at the end.
// Free of GoogleTest (the TLS benchmark uses it too): a failure of OpenSSL
// throws std::runtime_error.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace VekGnmiTest {

struct PemPair {
  std::string cert;  // PEM certificate
  std::string key;   // PEM private key (PKCS#8, unencrypted)
};

class TestCa {
 public:
  explicit TestCa(const std::string& name) : key_(newKey()) {
    cert_ = makeCertificate(name, key_.get(), nullptr, key_.get(), -3600, 86400, Kind::Ca, {});
  }

  // The CA's certificate.
  std::string certPem() const { return certToPem(cert_.get()); }

  enum class Kind { Ca, Server, Client };

  // A certificate issued by this CA, valid from `fromSeconds` to
  // `untilSeconds` (relative to now; both negative: expired). Servers get
  // subjectAltName DNS:localhost and IP:127.0.0.1.
  PemPair issue(const std::string& commonName, Kind kind, long fromSeconds = -3600,
                long untilSeconds = 86400) const {
    Key key = newKey();
    Cert cert = makeCertificate(commonName, key.get(), cert_.get(), key_.get(), fromSeconds, untilSeconds, kind,
                                kind == Kind::Server ? "DNS:localhost,IP:127.0.0.1" : "");
    return {certToPem(cert.get()), keyToPem(key.get())};
  }

 private:
  struct KeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
  };
  struct CertFree {
    void operator()(X509* x) const { X509_free(x); }
  };
  using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
  using Cert = std::unique_ptr<X509, CertFree>;

  static Key newKey() {
    Key key(EVP_EC_gen("P-256"));
    if (!key) throw std::runtime_error("OpenSSL could not make a key");
    return key;
  }

  static void addExtension(X509* cert, X509* issuer, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    if (ext == nullptr) throw std::runtime_error(std::string("OpenSSL refused the extension ") + value);
    X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
  }

  static Cert makeCertificate(const std::string& commonName, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey,
                              long fromSeconds, long untilSeconds, Kind kind, const std::string& altNames) {
    static long serial = 1;
    Cert cert(X509_new());
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial++ + static_cast<long>(::getpid()) * 1000);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), fromSeconds);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), untilSeconds);
    X509_set_pubkey(cert.get(), key);
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("vekgnmid tests"),
                               -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(commonName.c_str()),
                               -1, -1, 0);
    X509_set_issuer_name(cert.get(), issuer ? X509_get_subject_name(issuer) : name);
    X509* signer = issuer ? issuer : cert.get();
    if (kind == Kind::Ca) {
      addExtension(cert.get(), signer, NID_basic_constraints, "critical,CA:TRUE");
      addExtension(cert.get(), signer, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
      addExtension(cert.get(), signer, NID_basic_constraints, "critical,CA:FALSE");
      addExtension(cert.get(), signer, NID_ext_key_usage, kind == Kind::Server ? "serverAuth" : "clientAuth");
    }
    if (!altNames.empty()) addExtension(cert.get(), signer, NID_subject_alt_name, altNames.c_str());
    if (X509_sign(cert.get(), issuerKey, EVP_sha256()) <= 0) throw std::runtime_error("OpenSSL could not sign");
    return cert;
  }

  template <typename Write>
  static std::string toPem(Write write) {
    BIO* bio = BIO_new(BIO_s_mem());
    write(bio);
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<size_t>(length));
    BIO_free(bio);
    return pem;
  }
  static std::string certToPem(X509* cert) {
    return toPem([cert](BIO* bio) { PEM_write_bio_X509(bio, cert); });
  }
  static std::string keyToPem(EVP_PKEY* key) {
    return toPem([key](BIO* bio) { PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr); });
  }

  Key key_;
  Cert cert_;
};

// A temporary directory for a test's files, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vekgnmi-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary directory");
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // Writes `text` to `name` in the directory; returns its path.
  std::string write(const std::string& name, const std::string& text) const {
    const std::string file = path_ + "/" + name;
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    return file;
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace VekGnmiTest
