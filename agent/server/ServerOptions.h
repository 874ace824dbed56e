// vekgnmid's command line (CLI11): every flag, its default and its help.
#pragma once

#include <chrono>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "Agent.h"
#include "GnmiService.h"

namespace VekGnmi::Server {

// The YANG model to serve instead of the demo device (served when `modules`
// is empty).
struct YangOptions {
  std::vector<std::string> dirs;      // search folders, in lookup order
  std::vector<std::string> modules;   // NAME or NAME@REVISION
  std::vector<std::string> features;  // MODULE:F1,F2 narrows MODULE's features
  std::string data;                   // RFC 7951 JSON instance data; empty: none
};

struct ServerOptions {
  std::string address = "127.0.0.1:57400";
  AgentOptions agent;
  ServiceOptions service;
  YangOptions yang;
  std::string auditLog = "-";  // "-": standard output
  std::chrono::milliseconds shutdownTimeout{5000};
  bool hashPassword = false;  // print the hash of a password read from standard input, then exit
};

// Parses the arguments (without the program name) into `out`. Returns
// nullopt when the program goes on; otherwise the exit code, after printing
// the help to `help` (0) or the error with a pointer to --help to `errors`
// (2).
std::optional<int> parseServerOptions(const std::vector<std::string>& args, ServerOptions& out, std::ostream& help,
                                      std::ostream& errors);

}  // namespace VekGnmi::Server
