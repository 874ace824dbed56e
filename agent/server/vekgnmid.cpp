// vekgnmid: the reference gNMI agent. See `vekgnmid --help`.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include <fmt/format.h>

#include "GnmiService.h"
#include "ServerOptions.h"
#include "YangSource.h"

int main(int argc, char** argv) {
  using namespace VekGnmi::Server;
  ServerOptions options;
  std::string error;
  if (!parseServerOptions(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
    std::cerr << "vekgnmid: " << error << " (see --help)\n";
    return 2;
  }
  if (options.help) {
    std::cout << serverHelpText();
    return 0;
  }
  if (!options.yang.modules.empty()) {
    auto source = makeYangSource({options.yang.dirs, options.yang.modules, options.yang.features}, options.yang.data);
    if (!source) {
      std::cerr << "vekgnmid: " << source.error() << '\n';
      return 1;
    }
    options.agent.source = std::move(source).value();
  }
  if (!options.agent.source) options.agent.source = makeDemoSource(options.agent.interfaces);
  // SIGINT and SIGTERM are taken by sigwait below, on this thread only: block
  // them before any other thread starts, so that every thread inherits it.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  AgentServer server(options.agent, makeLibraryBridge);
  if (!server.start(options.address, error)) {
    std::cerr << "vekgnmid: " << error << '\n';
    return 1;
  }
  std::cout << fmt::format("vekgnmid: serving gNMI on {} (port {}), {}, churn {}/s\n", options.address,
                           server.port(), options.agent.source->description(), options.agent.churnRate)
            << std::flush;
  int received = 0;
  sigwait(&signals, &received);
  std::cout << fmt::format("vekgnmid: {} received, shutting down\n", received == SIGINT ? "SIGINT" : "SIGTERM")
            << std::flush;
  server.stop();
  return 0;
}
