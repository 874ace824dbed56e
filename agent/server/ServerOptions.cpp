#include "ServerOptions.h"

#include <algorithm>
#include <ostream>

#include <CLI/CLI.hpp>

#include "CliHelp.h"

namespace VekGnmi::Server {

namespace {

constexpr const char* DESCRIPTION =
    "vekgnmid: a gNMI target serving a demo device, or YANG modules and their data, through libVekTypeDecoder.";

constexpr const char* FOOTER = R"(
A YANG model instead of the demo device:
  vekgnmid --yang-dir DIR --module NAME [--data FILE.json] [options]

Service gnmi.gNMI, gNMI 0.10.0: Capabilities, Get, Set, Subscribe (ONCE, POLL,
STREAM with ON_CHANGE, SAMPLE and TARGET_DEFINED); encodings JSON, JSON_IETF
and PROTO.

Plaintext is served only on a loopback address or with --insecure; any other
address needs --tls-cert and --tls-key. Clients authenticate with the
username and password gRPC metadata (or, with --tls-ca, a client certificate
whose common name is a user). Users file lines: NAME:HASH:ROLE[:PREFIX,...]
with ROLE read or write (see agent/README.md).

SIGHUP re-reads the TLS files and the users file (open streams go on).
SIGINT or SIGTERM end open streams with UNAVAILABLE and stop the agent; if
that takes longer than --shutdown-timeout, or on a second signal, the
process exits at once. Traces: ZOLT_TRACE='Agent=0x3,AgentAuth=0x2' and the
library's handles (see the README).
)";

}  // namespace

std::optional<int> parseServerOptions(const std::vector<std::string>& args, ServerOptions& out, std::ostream& help,
                                      std::ostream& errors) {
  ServerOptions o;
  double sendTimeout = 30;
  double minSampleInterval = 0.1;
  double shutdownTimeout = 5;
  CLI::App app(DESCRIPTION, "vekgnmid");
  app.formatter(std::make_shared<HelpFormatter>());
  app.footer(FOOTER);

  app.add_option("--address", o.address,
                 "where to listen (default 127.0.0.1:57400); port 0 picks a free port, printed at start")
      ->option_text("HOST:PORT");
  app.add_option("--interfaces", o.agent.interfaces,
                 "interfaces of the demo device (default 16); each publishes about 24 leaves with its route and "
                 "share of a neighbour, so 42000 publish over a million")
      ->option_text("N")
      ->check(CLI::Range(size_t{0}, size_t{10000000}));
  app.add_option("--churn", o.agent.churnRate,
                 "model changes per second (default 0: none): counters advance, operational statuses flap, now "
                 "and then an interface is removed and re-created (a YANG model: its config false counters "
                 "advance, its config false enumerations flap)")
      ->option_text("RATE")
      ->check(CLI::NonNegativeNumber);
  CLI::Option* yangDir =
      app.add_option("--yang-dir", o.yang.dirs,
                     "a folder of YANG modules (repeatable, searched in order); serves a YANG model instead of "
                     "the demo")
          ->option_text("DIR")
          ->take_all();
  CLI::Option* module =
      app.add_option("--module", o.yang.modules,
                     "a module to serve (repeatable): the newest revision in the folders unless one is given; its "
                     "imports and the modules augmenting it are loaded as needed")
          ->option_text("NAME[@REVISION]")
          ->take_all();
  CLI::Option* features = app.add_option("--features", o.yang.features,
                                         "enables only these features of MODULE (repeatable; MODULE: for none); "
                                         "by default all are enabled")
                              ->option_text("MODULE:F1,F2")
                              ->take_all();
  CLI::Option* data =
      app.add_option("--data", o.yang.data, "RFC 7951 JSON instance data of the modules, checked by libyang at "
                                            "start (default: no data)")
          ->option_text("FILE.json");
  module->needs(yangDir);
  yangDir->needs(module);
  features->needs(module);
  data->needs(module);
  app.add_option("--send-timeout", sendTimeout,
                 "a subscriber whose stream has not taken a message for this long is ended with "
                 "RESOURCE_EXHAUSTED (default 30)")
      ->option_text("SECONDS")
      ->check(CLI::Range(0.001, 1e9));
  app.add_option("--min-sample-interval", minSampleInterval,
                 "the lowest sample and heartbeat interval; a sample_interval of 0 means it (default 0.1)")
      ->option_text("SECONDS")
      ->check(CLI::Range(0.001, 1e9));

  CLI::Option* cert = app.add_option("--tls-cert", o.service.tls.cert,
                                     "serve TLS (1.2 or 1.3) with this PEM certificate chain, leaf first")
                          ->option_text("FILE");
  CLI::Option* key =
      app.add_option("--tls-key", o.service.tls.key, "the certificate's PEM private key, unencrypted")
          ->option_text("FILE");
  CLI::Option* ca = app.add_option("--tls-ca", o.service.tls.ca,
                                   "mutual TLS: require a client certificate issued by a CA of this PEM bundle")
                        ->option_text("FILE");
  CLI::Option* insecure =
      app.add_flag("--insecure", o.service.insecure, "serve plaintext gRPC even on a non-loopback address");
  cert->needs(key);
  key->needs(cert);
  ca->needs(cert);
  insecure->excludes(cert);
  app.add_option("--users", o.service.usersFile,
                 "authenticate clients against this users file (NAME:HASH:ROLE[:PREFIX,...] a line); without "
                 "it every client may do everything")
      ->option_text("FILE");
  app.add_flag("--hash-password", o.hashPassword,
               "read a password from standard input, print its salted hash for the users file, and exit");
  app.add_option("--audit-log", o.auditLog,
                 "append one JSON line per Set request (time, user, peer, paths, outcome) to FILE; - is standard "
                 "output (default -)")
      ->option_text("FILE");

  app.add_option("--max-streams", o.service.maxStreams,
                 "Subscribe streams open at once, beyond which a new one is RESOURCE_EXHAUSTED (default 256; 0: "
                 "no limit)")
      ->option_text("N");
  app.add_option("--max-streams-per-user", o.service.maxStreamsPerUser,
                 "the same for each authenticated user (default 32; 0: no limit)")
      ->option_text("N");
  app.add_option("--max-paths", o.service.maxPaths,
                 "paths a request may carry: Get paths, Set operations, subscriptions (default 1000; 0: no limit)")
      ->option_text("N");
  app.add_option("--max-request-size", o.service.maxRequestBytes,
                 "the largest request message, in bytes, or with a unit: 64KiB, 16MiB (default 16MiB); larger "
                 "ones are RESOURCE_EXHAUSTED")
      ->option_text("BYTES")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 31));
  bool noSharedWalks = false;
  app.add_flag("--no-shared-walks", noSharedWalks,
               "every sync walks the model on its own, even when others of the same paths run (for "
               "measurements: by default identical syncs share one walk)");
  app.add_option("--shutdown-timeout", shutdownTimeout,
                 "on SIGINT or SIGTERM, exit at the latest this long after the signal, however busy (default 5)")
      ->option_text("SECONDS")
      ->check(CLI::Range(0.0, 3600.0));

  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e, help, errors);
  } catch (const CLI::ParseError& e) {
    errors << "vekgnmid: " << e.what() << " (see --help)\n";
    return 2;
  }
  o.agent.sendTimeout = std::chrono::milliseconds(static_cast<int64_t>(sendTimeout * 1000));
  o.agent.limits.minSampleInterval = std::chrono::nanoseconds(static_cast<int64_t>(minSampleInterval * 1e9));
  o.shutdownTimeout = std::chrono::milliseconds(static_cast<int64_t>(shutdownTimeout * 1000));
  o.agent.shareWalks = !noSharedWalks;
  out = std::move(o);
  return std::nullopt;
}

}  // namespace VekGnmi::Server
