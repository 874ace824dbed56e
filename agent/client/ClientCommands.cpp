#include "ClientCommands.h"

#include <charconv>
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include <fmt/format.h>
#include <grpcpp/grpcpp.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "ClientOutput.h"
#include "ClientValues.h"
#include "GnmiPathText.h"
#include "JsonText.h"

namespace VekGnmi::Client {

namespace {

constexpr const char* DEFAULT_ADDRESS = "127.0.0.1:57400";

struct Options {
  std::string command;
  std::string address = DEFAULT_ADDRESS;
  gnmi::Encoding encoding = gnmi::JSON;
  bool encodingGiven = false;
  gnmi::Path prefix;
  bool prefixGiven = false;
  std::string target;
  std::chrono::nanoseconds timeout = std::chrono::seconds(30);
  std::vector<gnmi::Path> paths;
  gnmi::GetRequest::DataType dataType = gnmi::GetRequest::ALL;
  std::vector<std::string> updates;   // PATH=VALUE, parsed once the encoding is known
  std::vector<std::string> replaces;
  std::vector<gnmi::Path> deletes;
  gnmi::SubscriptionList::Mode mode = gnmi::SubscriptionList::STREAM;
  gnmi::SubscriptionMode streamMode = gnmi::TARGET_DEFINED;
  uint64_t sampleInterval = 0;
  uint64_t heartbeatInterval = 0;
  bool suppressRedundant = false;
  bool updatesOnly = false;
  std::optional<uint64_t> polls;
  std::optional<std::chrono::nanoseconds> duration;
  std::optional<uint64_t> count;
  bool help = false;
};

struct UsageError {
  std::string message;
};

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
  if (!parsePathString(text, path, error)) {
    throw UsageError{fmt::format("{} '{}': {}", flag, text, error)};
  }
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

Options parseOptions(const std::vector<std::string>& args) {
  Options o;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string arg = args[i];
    std::optional<std::string> inlineValue;
    if (arg.rfind("--", 0) == 0) {
      const size_t eq = arg.find('=');
      if (eq != std::string::npos) {
        inlineValue = arg.substr(eq + 1);
        arg = arg.substr(0, eq);
      }
    }
    auto value = [&]() -> std::string {
      if (inlineValue) return *inlineValue;
      if (i + 1 >= args.size()) throw UsageError{fmt::format("{} needs a value", arg)};
      return args[++i];
    };
    if (arg == "--help" || arg == "-h") {
      o.help = true;
    } else if (arg == "--address" || arg == "-a") {
      o.address = value();
    } else if (arg == "--encoding" || arg == "-e") {
      const std::string v = value();
      std::optional<gnmi::Encoding> e = parseEncoding(v);
      if (!e) throw UsageError{fmt::format("unknown encoding '{}'", v)};
      o.encoding = *e;
      o.encodingGiven = true;
    } else if (arg == "--prefix") {
      o.prefix = parsePathArg(arg, value());
      o.prefixGiven = true;
    } else if (arg == "--target") {
      o.target = value();
    } else if (arg == "--timeout") {
      o.timeout = parseDurationArg(arg, value());
    } else if (arg == "--path") {
      o.paths.push_back(parsePathArg(arg, value()));
    } else if (arg == "--type") {
      const std::string v = lowerDash(value());
      if (v == "all") o.dataType = gnmi::GetRequest::ALL;
      else if (v == "config") o.dataType = gnmi::GetRequest::CONFIG;
      else if (v == "state") o.dataType = gnmi::GetRequest::STATE;
      else if (v == "operational") o.dataType = gnmi::GetRequest::OPERATIONAL;
      else throw UsageError{fmt::format("--type is all, config, state or operational, not '{}'", v)};
    } else if (arg == "--update") {
      o.updates.push_back(value());
    } else if (arg == "--replace") {
      o.replaces.push_back(value());
    } else if (arg == "--delete") {
      o.deletes.push_back(parsePathArg(arg, value()));
    } else if (arg == "--mode") {
      const std::string v = lowerDash(value());
      if (v == "once") o.mode = gnmi::SubscriptionList::ONCE;
      else if (v == "poll") o.mode = gnmi::SubscriptionList::POLL;
      else if (v == "stream") o.mode = gnmi::SubscriptionList::STREAM;
      else throw UsageError{fmt::format("--mode is once, poll or stream, not '{}'", v)};
    } else if (arg == "--stream-mode") {
      const std::string v = lowerDash(value());
      if (v == "on-change") o.streamMode = gnmi::ON_CHANGE;
      else if (v == "sample") o.streamMode = gnmi::SAMPLE;
      else if (v == "target-defined") o.streamMode = gnmi::TARGET_DEFINED;
      else throw UsageError{fmt::format("--stream-mode is on-change, sample or target-defined, not '{}'", v)};
    } else if (arg == "--sample-interval") {
      o.sampleInterval = static_cast<uint64_t>(parseDurationArg(arg, value()).count());
    } else if (arg == "--heartbeat-interval") {
      o.heartbeatInterval = static_cast<uint64_t>(parseDurationArg(arg, value()).count());
    } else if (arg == "--suppress-redundant") {
      o.suppressRedundant = true;
    } else if (arg == "--updates-only") {
      o.updatesOnly = true;
    } else if (arg == "--polls") {
      o.polls = parseCount(arg, value());
    } else if (arg == "--duration") {
      o.duration = parseDurationArg(arg, value());
    } else if (arg == "--count") {
      o.count = parseCount(arg, value());
    } else if (arg.rfind("-", 0) == 0) {
      throw UsageError{fmt::format("unknown option '{}' (see --help)", arg)};
    } else if (o.command.empty()) {
      o.command = arg;
    } else {
      throw UsageError{fmt::format("unexpected argument '{}' (see --help)", arg)};
    }
  }
  return o;
}

std::shared_ptr<grpc::Channel> makeChannel(const Options& o) {
  grpc::ChannelArguments channelArgs;
  channelArgs.SetMaxReceiveMessageSize(-1);  // a Get of a large model is one message
  return grpc::CreateCustomChannel(o.address, grpc::InsecureChannelCredentials(), channelArgs);
}

void setDeadline(grpc::ClientContext& context, const Options& o) {
  context.set_deadline(std::chrono::system_clock::now() +
                       std::chrono::duration_cast<std::chrono::system_clock::duration>(o.timeout));
}

void fillPrefix(const Options& o, gnmi::Path* prefix) {
  if (o.prefixGiven) prefix->CopyFrom(o.prefix);
  if (!o.target.empty()) prefix->set_target(o.target);
}

bool hasPrefix(const Options& o) { return o.prefixGiven || !o.target.empty(); }

int fail(std::ostream& err, const grpc::Status& status) {
  err << statusLine(status) << '\n';
  return 1;
}

int runCapabilities(const Options& o, gnmi::gNMI::Stub& stub, std::ostream& out, std::ostream& err) {
  grpc::ClientContext context;
  setDeadline(context, o);
  gnmi::CapabilityResponse response;
  const grpc::Status status = stub.Capabilities(&context, gnmi::CapabilityRequest(), &response);
  if (!status.ok()) return fail(err, status);
  out << jsonDump(capabilitiesJson(response)) << '\n';
  return 0;
}

int runGet(const Options& o, gnmi::gNMI::Stub& stub, std::ostream& out, std::ostream& err) {
  gnmi::GetRequest request;
  if (hasPrefix(o)) fillPrefix(o, request.mutable_prefix());
  for (const gnmi::Path& p : o.paths) request.add_path()->CopyFrom(p);
  if (o.paths.empty()) request.add_path();  // the root
  request.set_type(o.dataType);
  request.set_encoding(o.encoding);
  grpc::ClientContext context;
  setDeadline(context, o);
  gnmi::GetResponse response;
  const grpc::Status status = stub.Get(&context, request, &response);
  if (!status.ok()) return fail(err, status);
  for (const gnmi::Notification& n : response.notification()) out << jsonDump(notificationJson(n)) << '\n';
  return 0;
}

int runSet(const Options& o, gnmi::gNMI::Stub& stub, std::ostream& out, std::ostream& err) {
  gnmi::SetRequest request;
  if (hasPrefix(o)) fillPrefix(o, request.mutable_prefix());
  for (const gnmi::Path& p : o.deletes) request.add_delete_()->CopyFrom(p);
  auto addAll = [&](const std::vector<std::string>& args, auto add) {
    for (const std::string& arg : args) {
      std::string error;
      if (!parseUpdateArgument(arg, o.encoding, *add(), error)) throw UsageError{error};
    }
  };
  addAll(o.replaces, [&] { return request.add_replace(); });
  addAll(o.updates, [&] { return request.add_update(); });
  if (request.delete__size() + request.replace_size() + request.update_size() == 0) {
    throw UsageError{"set needs at least one --update, --replace or --delete"};
  }
  grpc::ClientContext context;
  setDeadline(context, o);
  gnmi::SetResponse response;
  const grpc::Status status = stub.Set(&context, request, &response);
  if (!status.ok()) return fail(err, status);
  out << jsonDump(setResponseJson(response)) << '\n';
  return 0;
}

// Cancels a subscription when its duration has passed or the user
// interrupted; `stop()` ends the watch.
class SubscriptionWatch {
 public:
  SubscriptionWatch(grpc::ClientContext& context, std::optional<std::chrono::nanoseconds> duration,
                    const std::atomic<bool>* interrupted)
      : context_(context), thread_([this, duration, interrupted] {
          const auto start = std::chrono::steady_clock::now();
          std::unique_lock lock(mutex_);
          while (!stopped_) {
            if ((interrupted && interrupted->load()) ||
                (duration && std::chrono::steady_clock::now() - start >= *duration)) {
              cancelled_ = true;
              context_.TryCancel();
              return;
            }
            cv_.wait_for(lock, std::chrono::milliseconds(20));
          }
        }) {}
  ~SubscriptionWatch() { stop(); }
  void stop() {
    {
      std::lock_guard lock(mutex_);
      stopped_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
  }
  bool cancelled() {
    std::lock_guard lock(mutex_);
    return cancelled_;
  }
  void cancelNow() {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    context_.TryCancel();
  }

 private:
  grpc::ClientContext& context_;
  std::mutex mutex_;
  std::condition_variable cv_;
  bool stopped_ = false;
  bool cancelled_ = false;
  std::thread thread_;
};

int runSubscribe(const Options& o, gnmi::gNMI::Stub& stub, std::ostream& out, std::ostream& err,
                 const std::atomic<bool>* interrupted) {
  gnmi::SubscribeRequest request;
  gnmi::SubscriptionList* list = request.mutable_subscribe();
  if (hasPrefix(o)) fillPrefix(o, list->mutable_prefix());
  list->set_mode(o.mode);
  list->set_encoding(o.encoding);
  list->set_updates_only(o.updatesOnly);
  std::vector<gnmi::Path> paths = o.paths;
  if (paths.empty()) paths.emplace_back();
  for (const gnmi::Path& p : paths) {
    gnmi::Subscription* s = list->add_subscription();
    s->mutable_path()->CopyFrom(p);
    if (o.mode == gnmi::SubscriptionList::STREAM) {
      s->set_mode(o.streamMode);
      s->set_sample_interval(o.sampleInterval);
      s->set_heartbeat_interval(o.heartbeatInterval);
      s->set_suppress_redundant(o.suppressRedundant);
    }
  }
  grpc::ClientContext context;
  SubscriptionWatch watch(context, o.duration, interrupted);
  std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>> stream =
      stub.Subscribe(&context);
  stream->Write(request);
  uint64_t pollsLeft = o.polls.value_or(0);
  const bool pollFromStdin = o.mode == gnmi::SubscriptionList::POLL && !o.polls;
  uint64_t notifications = 0;
  gnmi::SubscribeResponse response;
  while (stream->Read(&response)) {
    if (response.has_update()) {
      out << jsonDump(notificationJson(response.update())) << '\n';
      ++notifications;
    } else if (response.response_case() == gnmi::SubscribeResponse::kSyncResponse) {
      out << jsonDump({{"sync_response", response.sync_response()}}) << '\n';
      if (o.mode == gnmi::SubscriptionList::POLL) {
        bool pollAgain = false;
        if (pollFromStdin) {
          std::string line;
          pollAgain = static_cast<bool>(std::getline(std::cin, line));
        } else if (pollsLeft > 0) {
          --pollsLeft;
          pollAgain = true;
        }
        if (pollAgain) {
          gnmi::SubscribeRequest poll;
          poll.mutable_poll();
          stream->Write(poll);
        } else {
          stream->WritesDone();
        }
      }
    }
    out.flush();
    if (o.count && notifications >= *o.count) {
      watch.cancelNow();
      break;
    }
  }
  const grpc::Status status = stream->Finish();
  const bool cancelledByUs = watch.cancelled();
  watch.stop();
  if (cancelledByUs) return 0;
  if (!status.ok()) return fail(err, status);
  return 0;
}

}  // namespace

std::string helpText() {
  return R"(vekgnmi: a gNMI client.

usage: vekgnmi [options] COMMAND [command options]

commands:
  capabilities             print the target's gNMI version, models and encodings
  get                      print the values under --path (default: the root)
  set                      apply --update, --replace and --delete operations
  subscribe                stream the values under --path (default: the root)

options:
  --address HOST:PORT      target to connect to, plaintext (default 127.0.0.1:57400)
  --encoding ENC           json (default), json_ietf, proto, ascii or bytes
  --prefix PATH            prefix of every path of the request
  --target NAME            sets the prefix's target; the target echoes it
  --timeout DURATION       deadline of capabilities, get and set (default 30s)
  --help                   this text

get:
  --path PATH              a path to get (repeatable)
  --type TYPE              all (default), config, state or operational

set:
  --update PATH=VALUE      merge VALUE at PATH (repeatable)
  --replace PATH=VALUE     replace PATH with VALUE (repeatable)
  --delete PATH            delete PATH (repeatable)

subscribe:
  --path PATH              a path to subscribe to (repeatable)
  --mode MODE              stream (default), once or poll
  --stream-mode MODE       target-defined (default), on-change or sample
  --sample-interval DUR    sample period (0 or absent: the target's lowest)
  --heartbeat-interval DUR re-send unchanged values at least this often
  --suppress-redundant     in sample mode, send only values that changed
  --updates-only           skip the initial values; stream changes only
  --polls N                poll mode: poll N times after the first sync, then stop
                           (without it, each line read from stdin polls once)
  --duration DUR           stop after DUR (exit 0)
  --count N                stop after N notifications (exit 0)

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
}

int runClient(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
              const std::atomic<bool>* interrupted) {
  Options o;
  try {
    o = parseOptions(args);
    if (o.help) {
      out << helpText();
      return 0;
    }
    if (o.command.empty()) throw UsageError{"a command is needed (see --help)"};
    std::shared_ptr<grpc::Channel> channel = makeChannel(o);
    std::unique_ptr<gnmi::gNMI::Stub> stub = gnmi::gNMI::NewStub(channel);
    if (o.command == "capabilities") return runCapabilities(o, *stub, out, err);
    if (o.command == "get") return runGet(o, *stub, out, err);
    if (o.command == "set") return runSet(o, *stub, out, err);
    if (o.command == "subscribe") return runSubscribe(o, *stub, out, err, interrupted);
    throw UsageError{fmt::format("unknown command '{}' (see --help)", o.command)};
  } catch (const UsageError& e) {
    err << "vekgnmi: " << e.message << '\n';
    return 2;
  }
}

}  // namespace VekGnmi::Client
