// vekgnmid's command line.
#pragma once

#include <string>
#include <vector>

#include "Agent.h"

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
  YangOptions yang;
  bool help = false;
};

// Parses the arguments (without the program name); false with `error` set
// for an unknown option or a bad value.
bool parseServerOptions(const std::vector<std::string>& args, ServerOptions& out, std::string& error);

std::string serverHelpText();

}  // namespace VekGnmi::Server
