// vekgnmi: the command-line gNMI client. See `vekgnmi --help`.
#include <atomic>
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include "ClientCommands.h"

namespace {
std::atomic<bool> interrupted{false};
extern "C" void onSignal(int) { interrupted.store(true); }
}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  std::vector<std::string> args(argv + 1, argv + argc);
  return VekGnmi::Client::runClient(args, std::cout, std::cerr, &interrupted);
}
