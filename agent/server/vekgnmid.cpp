// vekgnmid: the reference gNMI agent. See `vekgnmid --help`.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include <fmt/format.h>

#include "GnmiService.h"
#include "PasswordHash.h"
#include "SecretInput.h"
#include "ServerOptions.h"
#include "ShutdownWatchdog.h"
#include "YangSource.h"

namespace {

int printPasswordHash() {
  std::string password;
  if (!VekGnmi::readSecretLine("password: ", password) || password.empty()) {
    std::cerr << "vekgnmid: --hash-password reads a password from standard input; none was given\n";
    return 2;
  }
  std::string hash;
  std::string error;
  if (!VekGnmi::Server::PasswordHash::make(password, hash, error)) {
    std::cerr << "vekgnmid: " << error << '\n';
    return 1;
  }
  std::cout << hash << '\n';
  return 0;
}

// Written from the watchdog's or the signal thread when the process exits
// without finishing its shutdown.
void exitNow(const char* why, int code) {
  std::fputs(why, stdout);
  std::fflush(stdout);
  std::_Exit(code);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace VekGnmi::Server;
  ServerOptions options;
  if (std::optional<int> code =
          parseServerOptions(std::vector<std::string>(argv + 1, argv + argc), options, std::cout, std::cerr)) {
    return *code;
  }
  if (options.hashPassword) return printPasswordHash();
  std::string error;
  options.service.audit = AuditLog::fileWriter(options.auditLog, error);
  if (!options.service.audit) {
    std::cerr << "vekgnmid: " << error << '\n';
    return 1;
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
  // SIGINT, SIGTERM and SIGHUP are taken by sigwait below, on this thread
  // only: block them before any other thread starts, so that every thread
  // inherits it.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  // Armed when the signal arrives; declared first so that it also covers
  // the agent's destruction (a large model takes a while to free).
  std::optional<ShutdownWatchdog> watchdog;
  AgentServer server(options.agent, makeLibraryBridge, options.service);
  if (!server.start(options.address, error)) {
    std::cerr << "vekgnmid: " << error << '\n';
    return 1;
  }
  const char* security = options.service.tls.enabled() ? (options.service.tls.ca.empty() ? "TLS" : "mutual TLS")
                                                       : "plaintext";
  std::cout << fmt::format("vekgnmid: serving gNMI on {} (port {}), {}, {}, {}, churn {}/s\n",
                           options.address, server.port(), security,
                           server.authenticator()->enabled() ? "users from " + options.service.usersFile
                                                             : std::string("no authentication"),
                           options.agent.source->description(), options.agent.churnRate)
            << std::flush;
  int received = 0;
  for (;;) {
    sigwait(&signals, &received);
    if (received != SIGHUP) break;
    std::string report;
    server.reload(report);
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) std::cout << "vekgnmid: SIGHUP: " << line << '\n';
    std::cout << std::flush;
  }
  std::cout << fmt::format("vekgnmid: {} received, shutting down\n", received == SIGINT ? "SIGINT" : "SIGTERM")
            << std::flush;
  // Stopping waits for the event loop; the watchdog does not.
  watchdog.emplace(options.shutdownTimeout, [&options] {
    exitNow(fmt::format("vekgnmid: shutdown took longer than {:g} s; exiting now\n",
                        std::chrono::duration<double>(options.shutdownTimeout).count())
                .c_str(),
            1);
  });
  std::thread([signals] {
    int again = SIGHUP;
    while (again == SIGHUP) sigwait(&signals, &again);
    exitNow("vekgnmid: second signal; exiting now\n", 1);
  }).detach();
  server.stop();
  return 0;
}
