// vekgnmi's command line (CLI11): global options, the four commands and
// theirs, checked and turned into what the commands send.
#pragma once

#include <chrono>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi::Client {

// How to reach the target: transport security and credentials.
struct Connection {
  std::string address = "127.0.0.1:57400";
  bool insecure = false;      // plaintext, even to a non-loopback address
  std::string tlsCa;          // PEM CA bundle the server's certificate must chain to
  std::string tlsCert;        // PEM client certificate (mutual TLS)
  std::string tlsKey;         // its PEM private key
  std::string tlsServerName;  // the name the server's certificate must hold (and SNI)
  bool skipVerify = false;    // TLS without verifying the server's certificate
  std::string username;       // sent as metadata on every RPC when set
  std::string password;
  bool passwordGiven = false;

  // Whether the connection uses TLS: with --insecure never; with any TLS
  // option always; otherwise for every address but a loopback one.
  bool tls() const;
};

struct Options {
  std::string command;
  Connection connection;
  gnmi::Encoding encoding = gnmi::JSON;
  gnmi::Path prefix;
  bool prefixGiven = false;
  std::string target;
  std::chrono::nanoseconds timeout = std::chrono::seconds(30);
  std::vector<gnmi::Path> paths;
  gnmi::GetRequest::DataType dataType = gnmi::GetRequest::ALL;
  std::vector<std::string> updates;  // PATH=VALUE, parsed once the encoding is known
  std::vector<std::string> replaces;
  std::vector<gnmi::Path> deletes;
  gnmi::SubscriptionList::Mode mode = gnmi::SubscriptionList::STREAM;
  gnmi::SubscriptionMode streamMode = gnmi::TARGET_DEFINED;
  uint64_t sampleInterval = 0;
  uint64_t heartbeatInterval = 0;
  bool suppressRedundant = false;
  bool updatesOnly = false;
  std::optional<uint64_t> polls;
  std::optional<std::chrono::nanoseconds> duration;
  std::optional<uint64_t> count;
};

// A usage error: vekgnmi prints "vekgnmi: <message>" and exits with 2.
struct UsageError {
  std::string message;
};

// Parses the arguments (without the program name). Returns nullopt when the
// program goes on with `out`; 0 after printing the help to `help`. Throws
// UsageError for anything malformed. The password is never part of a
// message.
std::optional<int> parseClientOptions(const std::vector<std::string>& args, Options& out, std::ostream& help);

// The text that --help prints.
std::string helpText();

}  // namespace VekGnmi::Client
