// vekgnmid's command line.
#pragma once

#include <string>
#include <vector>

#include "Agent.h"

namespace VekGnmi::Server {

struct ServerOptions {
  std::string address = "127.0.0.1:57400";
  AgentOptions agent;
  bool help = false;
};

// Parses the arguments (without the program name); false with `error` set
// for an unknown option or a bad value.
bool parseServerOptions(const std::vector<std::string>& args, ServerOptions& out, std::string& error);

std::string serverHelpText();

}  // namespace VekGnmi::Server
