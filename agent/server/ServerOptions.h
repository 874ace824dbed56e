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

struct ServerOptions {
  std::string address = "127.0.0.1:57400";
  AgentOptions agent;
  ServiceOptions service;
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
