#include "ClientOptions.h"

#include <charconv>
#include <ostream>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ClientValues.h"
#include "CliHelp.h"
#include "GnmiPathText.h"
#include "NetAddress.h"

namespace VekGnmi::Client {

namespace {

constexpr const char* DESCRIPTION = "vekgnmi: a gNMI client.";

constexpr const char* FOOTER = R"(
transport: plaintext to a loopback address, TLS (verifying the server against
the system's CAs, or --tls-ca) to any other; --insecure forces plaintext,
any --tls-* option or --skip-verify forces TLS. --username and --password
(or VEKGNMI_USERNAME and VEKGNMI_PASSWORD, which keep the password out of
the process list) are sent as gRPC metadata on every RPC; with --username
and no password, a terminal is asked for it without echo.

paths follow the gNMI path-strings convention that common clients accept:
  /interfaces/interface[name=eth0]/state   elements separated by '/'
  /routes[prefix=10.0.0.0/24]              '/' inside [...] needs no escape
  \/ \[ \] \= \\                          a backslash makes the next character
                                           literal: a\/b is the name "a/b",
                                           [name=x\]y] the key value "x]y"
  / (or nothing)                           the root
  *                                        any element name or key value
This differs from the library's own path text (Ostrel::strToPath), which has
no escapes for names; vekgnmi converts.

values (set): TYPE:TEXT with TYPE string, ascii, int, uint, bool, double,
float, bytes (base64), json or json_ietf; or untyped TEXT, read as JSON (or
as a string when it is not JSON) and sent as json_val, json_ietf_val or, with
--encoding proto, as the scalar it holds.

durations: a number with ns, us, ms, s, m or h (10s, 500ms); bare numbers are
seconds.

output: one JSON object per line: a notification as
  {"timestamp":NS,"updates":[{"path":P,"value":V}],"deletes":[P]}
with full paths, {"sync_response":true} at the end of a sync, the response
of capabilities and set as one object each. Errors go to stderr as
  error: CODE_NAME (CODE): message
and the exit code is 1 (2 for usage errors).
)";

std::string lowerDash(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c == '_') c = '-';
  }
  return text;
}

gnmi::Path parsePathArg(const std::string& flag, const std::string& text) {
  gnmi::Path path;
  std::string error;
  if (!parsePathString(text, path, error)) throw UsageError{fmt::format("{} '{}': {}", flag, text, error)};
  return path;
}

uint64_t parseCount(const std::string& flag, const std::string& text) {
  uint64_t value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || text.empty()) {
    throw UsageError{fmt::format("{} needs a non-negative integer, not '{}'", flag, text)};
  }
  return value;
}

std::chrono::nanoseconds parseDurationArg(const std::string& flag, const std::string& text) {
  std::optional<std::chrono::nanoseconds> d = parseDuration(text);
  if (!d) throw UsageError{fmt::format("{} needs a duration such as 10s or 500ms, not '{}'", flag, text)};
  return *d;
}

// The option texts as given; checked and converted once CLI11 is done.
struct Texts {
  std::string encoding, prefix, timeout, type, mode, streamMode, sampleInterval, heartbeatInterval, polls, duration,
      count;
  std::vector<std::string> paths, deletes;
};

// One value per occurrence: `--path a --path b`, never `--path a b`.
CLI::Option* repeatable(CLI::App& app, const std::string& name, std::vector<std::string>& into,
                        const std::string& description, const char* value) {
  return app.add_option(name, into, description)->option_text(value)->allow_extra_args(false);
}

CLI::Option* text(CLI::App& app, const std::string& name, std::string& into, const std::string& description,
                  const char* value) {
  return app.add_option(name, into, description)->option_text(value);
}

void convert(const Texts& t, Options& o) {
  if (!t.encoding.empty()) {
    std::optional<gnmi::Encoding> e = parseEncoding(t.encoding);
    if (!e) throw UsageError{fmt::format("unknown encoding '{}'", t.encoding)};
    o.encoding = *e;
  }
  if (!t.prefix.empty()) {
    o.prefix = parsePathArg("--prefix", t.prefix);
    o.prefixGiven = true;
  }
  if (!t.timeout.empty()) o.timeout = parseDurationArg("--timeout", t.timeout);
  for (const std::string& p : t.paths) o.paths.push_back(parsePathArg("--path", p));
  for (const std::string& p : t.deletes) o.deletes.push_back(parsePathArg("--delete", p));
  if (!t.type.empty()) {
    const std::string v = lowerDash(t.type);
    if (v == "all") o.dataType = gnmi::GetRequest::ALL;
    else if (v == "config") o.dataType = gnmi::GetRequest::CONFIG;
    else if (v == "state") o.dataType = gnmi::GetRequest::STATE;
    else if (v == "operational") o.dataType = gnmi::GetRequest::OPERATIONAL;
    else throw UsageError{fmt::format("--type is all, config, state or operational, not '{}'", v)};
  }
  if (!t.mode.empty()) {
    const std::string v = lowerDash(t.mode);
    if (v == "once") o.mode = gnmi::SubscriptionList::ONCE;
    else if (v == "poll") o.mode = gnmi::SubscriptionList::POLL;
    else if (v == "stream") o.mode = gnmi::SubscriptionList::STREAM;
    else throw UsageError{fmt::format("--mode is once, poll or stream, not '{}'", v)};
  }
  if (!t.streamMode.empty()) {
    const std::string v = lowerDash(t.streamMode);
    if (v == "on-change") o.streamMode = gnmi::ON_CHANGE;
    else if (v == "sample") o.streamMode = gnmi::SAMPLE;
    else if (v == "target-defined") o.streamMode = gnmi::TARGET_DEFINED;
    else throw UsageError{fmt::format("--stream-mode is on-change, sample or target-defined, not '{}'", v)};
  }
  if (!t.sampleInterval.empty()) {
    o.sampleInterval = static_cast<uint64_t>(parseDurationArg("--sample-interval", t.sampleInterval).count());
  }
  if (!t.heartbeatInterval.empty()) {
    o.heartbeatInterval =
        static_cast<uint64_t>(parseDurationArg("--heartbeat-interval", t.heartbeatInterval).count());
  }
  if (!t.polls.empty()) o.polls = parseCount("--polls", t.polls);
  if (!t.duration.empty()) o.duration = parseDurationArg("--duration", t.duration);
  if (!t.count.empty()) o.count = parseCount("--count", t.count);
  const Connection& c = o.connection;
  const bool tlsOption =
      !c.tlsCa.empty() || !c.tlsCert.empty() || !c.tlsKey.empty() || !c.tlsServerName.empty() || c.skipVerify;
  if (c.insecure && tlsOption) {
    throw UsageError{"--insecure (plaintext) excludes --tls-ca, --tls-cert, --tls-key, --tls-server-name and "
                     "--skip-verify"};
  }
  if (c.tlsCert.empty() != c.tlsKey.empty()) throw UsageError{"--tls-cert and --tls-key go together"};
}

// Builds the whole command line into `app`, its values landing in `o` and
// `t`.
void describe(CLI::App& app, Options& o, Texts& t) {
  app.formatter(std::make_shared<HelpFormatter>());
  app.footer(FOOTER);
  app.fallthrough();  // global options may follow the command too
  Connection& c = o.connection;
  text(app, "-a,--address", c.address, "target to connect to (default 127.0.0.1:57400)", "HOST:PORT");
  text(app, "-e,--encoding", t.encoding, "json (default), json_ietf, proto, ascii or bytes", "ENC");
  text(app, "--prefix", t.prefix, "prefix of every path of the request", "PATH");
  text(app, "--target", o.target, "sets the prefix's target; the target echoes it", "NAME");
  text(app, "--timeout", t.timeout, "deadline of capabilities, get and set (default 30s)", "DURATION");
  app.add_flag("--insecure", c.insecure, "plaintext gRPC, even to a non-loopback address");
  text(app, "--tls-ca", c.tlsCa, "verify the server's certificate against this PEM CA bundle (default: the "
                                  "system's CAs)",
       "FILE");
  text(app, "--tls-cert", c.tlsCert, "present this PEM client certificate (mutual TLS)", "FILE");
  text(app, "--tls-key", c.tlsKey, "the client certificate's PEM private key", "FILE");
  text(app, "--tls-server-name", c.tlsServerName,
       "the name the server's certificate must hold, when it is not the address's host", "NAME");
  app.add_flag("--skip-verify", c.skipVerify, "TLS without verifying the server's certificate (testing only)");
  text(app, "--username", c.username, "user name sent with every RPC (or VEKGNMI_USERNAME)", "NAME")
      ->envname("VEKGNMI_USERNAME");
  text(app, "--password", c.password, "password sent with every RPC (or VEKGNMI_PASSWORD)", "PASSWORD")
      ->envname("VEKGNMI_PASSWORD");

  app.add_subcommand("capabilities", "print the target's gNMI version, models and encodings");
  CLI::App* get = app.add_subcommand("get", "print the values under --path (default: the root)");
  repeatable(*get, "--path", t.paths, "a path to get (repeatable)", "PATH");
  text(*get, "--type", t.type, "all (default), config, state or operational", "TYPE");
  CLI::App* set = app.add_subcommand("set", "apply --update, --replace and --delete operations");
  repeatable(*set, "--update", o.updates, "merge VALUE at PATH (repeatable)", "PATH=VALUE");
  repeatable(*set, "--replace", o.replaces, "replace PATH with VALUE (repeatable)", "PATH=VALUE");
  repeatable(*set, "--delete", t.deletes, "delete PATH (repeatable)", "PATH");
  CLI::App* sub = app.add_subcommand("subscribe", "stream the values under --path (default: the root)");
  repeatable(*sub, "--path", t.paths, "a path to subscribe to (repeatable)", "PATH");
  text(*sub, "--mode", t.mode, "stream (default), once or poll", "MODE");
  text(*sub, "--stream-mode", t.streamMode, "target-defined (default), on-change or sample", "MODE");
  text(*sub, "--sample-interval", t.sampleInterval, "sample period (0 or absent: the target's lowest)", "DUR");
  text(*sub, "--heartbeat-interval", t.heartbeatInterval, "re-send unchanged values at least this often", "DUR");
  sub->add_flag("--suppress-redundant", o.suppressRedundant, "in sample mode, send only values that changed");
  sub->add_flag("--updates-only", o.updatesOnly, "skip the initial values; stream changes only");
  text(*sub, "--polls", t.polls,
       "poll mode: poll N times after the first sync, then stop (without it, each line read from stdin polls "
       "once)",
       "N");
  text(*sub, "--duration", t.duration, "stop after DUR (exit 0)", "DUR");
  text(*sub, "--count", t.count, "stop after N notifications (exit 0)", "N");
  for (CLI::App* command : app.get_subcommands({})) command->formatter(app.get_formatter());
}

}  // namespace

bool Connection::tls() const {
  if (insecure) return false;
  if (!tlsCa.empty() || !tlsCert.empty() || !tlsServerName.empty() || skipVerify) return true;
  return !isLoopbackAddress(address);
}

std::optional<int> parseClientOptions(const std::vector<std::string>& args, Options& out, std::ostream& help) {
  Options o;
  Texts t;
  CLI::App app(DESCRIPTION, "vekgnmi");
  describe(app, o, t);
  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    // The whole command line on one page, the commands' options included.
    help << app.help("", CLI::AppFormatMode::All);
    return 0;
  } catch (const CLI::ParseError& e) {
    throw UsageError{fmt::format("{} (see --help)", e.what())};
  }
  for (CLI::App* command : app.get_subcommands()) o.command = command->get_name();
  o.connection.passwordGiven = app.count("--password") > 0 || !o.connection.password.empty();
  convert(t, o);
  out = std::move(o);
  return std::nullopt;
}

std::string helpText() {
  Options o;
  Texts t;
  CLI::App app(DESCRIPTION, "vekgnmi");
  describe(app, o, t);
  return app.help("", CLI::AppFormatMode::All);
}

}  // namespace VekGnmi::Client
