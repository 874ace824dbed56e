#include "ServerOptions.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <optional>

#include <fmt/format.h>

namespace VekGnmi::Server {

namespace {

std::optional<double> number(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || !std::isfinite(v) || v < 0) return std::nullopt;
  return v;
}

}  // namespace

bool parseServerOptions(const std::vector<std::string>& args, ServerOptions& out, std::string& error) {
  ServerOptions o;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string arg = args[i];
    std::optional<std::string> inlineValue;
    const size_t eq = arg.find('=');
    if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      inlineValue = arg.substr(eq + 1);
      arg = arg.substr(0, eq);
    }
    auto value = [&]() -> std::optional<std::string> {
      if (inlineValue) return inlineValue;
      if (i + 1 >= args.size()) return std::nullopt;
      return args[++i];
    };
    if (arg == "--help" || arg == "-h") {
      o.help = true;
      continue;
    }
    if (arg == "--no-shared-walks") {
      o.agent.shareWalks = false;
      continue;
    }
    const std::optional<std::string> v = value();
    if (!v) {
      error = arg.rfind("--", 0) == 0 ? fmt::format("{} needs a value", arg)
                                      : fmt::format("unexpected argument '{}'", arg);
      return false;
    }
    if (arg == "--address") {
      o.address = *v;
    } else if (arg == "--interfaces") {
      size_t n = 0;
      const auto [end, ec] = std::from_chars(v->data(), v->data() + v->size(), n);
      if (ec != std::errc() || end != v->data() + v->size() || v->empty() || n > 10000000) {
        error = fmt::format("--interfaces needs a count up to 10000000, not '{}'", *v);
        return false;
      }
      o.agent.interfaces = n;
    } else if (arg == "--churn") {
      const std::optional<double> rate = number(*v);
      if (!rate) {
        error = fmt::format("--churn needs a rate of changes per second, not '{}'", *v);
        return false;
      }
      o.agent.churnRate = *rate;
    } else if (arg == "--send-timeout") {
      const std::optional<double> seconds = number(*v);
      if (!seconds || *seconds < 0.001) {
        error = fmt::format("--send-timeout needs a number of seconds, not '{}'", *v);
        return false;
      }
      o.agent.sendTimeout = std::chrono::milliseconds(static_cast<int64_t>(*seconds * 1000));
    } else if (arg == "--min-sample-interval") {
      const std::optional<double> seconds = number(*v);
      if (!seconds || *seconds < 0.001) {
        error = fmt::format("--min-sample-interval needs a number of seconds, not '{}'", *v);
        return false;
      }
      o.agent.limits.minSampleInterval =
          std::chrono::nanoseconds(static_cast<int64_t>(*seconds * 1e9));
    } else if (arg == "--yang-dir") {
      o.yang.dirs.push_back(*v);
    } else if (arg == "--module") {
      o.yang.modules.push_back(*v);
    } else if (arg == "--features") {
      o.yang.features.push_back(*v);
    } else if (arg == "--data") {
      o.yang.data = *v;
    } else {
      error = fmt::format("unknown option '{}'", arg);
      return false;
    }
  }
  if (o.yang.modules.empty() && (!o.yang.dirs.empty() || !o.yang.features.empty() || !o.yang.data.empty())) {
    error = "--yang-dir, --features and --data need at least one --module";
    return false;
  }
  if (!o.yang.modules.empty() && o.yang.dirs.empty()) {
    error = "--module needs at least one --yang-dir to search";
    return false;
  }
  out = std::move(o);
  return true;
}

std::string serverHelpText() {
  return R"(vekgnmid: a gNMI target serving a demo device, or YANG modules and their data,
through libVekTypeDecoder.

usage: vekgnmid [options]
       vekgnmid --yang-dir DIR --module NAME [--data FILE.json] [options]

  --address HOST:PORT        where to listen, plaintext gRPC (default 127.0.0.1:57400;
                             port 0 picks a free port, printed at start)
  --interfaces N             interfaces of the demo device (default 16); each
                             publishes about 24 leaves with its route and share
                             of a neighbour, so 42000 publish over a million
  --churn RATE               model changes per second (default 0: none):
                             counters advance, operational statuses flap, now
                             and then an interface is removed and re-created
                             (a YANG model: its config false counters advance,
                             its config false enumerations flap)
  --yang-dir DIR             a folder of YANG modules (repeatable, searched in
                             order); serves a YANG model instead of the demo
  --module NAME[@REVISION]   a module to serve (repeatable): the newest revision
                             in the folders unless one is given; its imports and
                             the modules augmenting it are loaded as needed
  --features MODULE:F1,F2    enables only these features of MODULE (repeatable;
                             MODULE: for none); by default all are enabled
  --data FILE.json           RFC 7951 JSON instance data of the modules, checked
                             by libyang at start (default: no data)
  --send-timeout SECONDS     a subscriber whose stream has not taken a message
                             for this long is ended with RESOURCE_EXHAUSTED
                             (default 30)
  --min-sample-interval SEC  the lowest sample and heartbeat interval; a
                             sample_interval of 0 means it (default 0.1)
  --no-shared-walks          every sync walks the model on its own, even when
                             others of the same paths run (for measurements:
                             by default identical syncs share one walk)
  --help                     this text

Service gnmi.gNMI, gNMI 0.10.0: Capabilities, Get, Set, Subscribe (ONCE, POLL,
STREAM with ON_CHANGE, SAMPLE and TARGET_DEFINED); encodings JSON, JSON_IETF
and PROTO. SIGINT or SIGTERM end open streams with UNAVAILABLE and stop the
agent. Traces: ZOLT_TRACE='Agent=0x3,AgentRouter=0x10' and the library's
handles (see the README).
)";
}

}  // namespace VekGnmi::Server
