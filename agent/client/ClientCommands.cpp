#include "ClientCommands.h"

#include <unistd.h>

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

#include "ClientConnection.h"
#include "ClientOptions.h"
#include "ClientOutput.h"
#include "ClientValues.h"
#include "GnmiPathText.h"
#include "JsonText.h"
#include "SecretInput.h"

namespace VekGnmi::Client {

namespace {

// A unary call's context: the deadline and the credentials.
void prepare(grpc::ClientContext& context, const Options& o) {
  context.set_deadline(std::chrono::system_clock::now() +
                       std::chrono::duration_cast<std::chrono::system_clock::duration>(o.timeout));
  addCredentials(o.connection, context);
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
  prepare(context, o);
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
  prepare(context, o);
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
  prepare(context, o);
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
  addCredentials(o.connection, context);
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

int runClient(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
              const std::atomic<bool>* interrupted) {
  Options o;
  try {
    if (std::optional<int> code = parseClientOptions(args, o, out)) return *code;
    if (o.command.empty()) throw UsageError{"a command is needed (see --help)"};
    Connection& c = o.connection;
    if (!c.username.empty() && !c.passwordGiven && ::isatty(STDIN_FILENO) == 1) {
      readSecretLine(fmt::format("password for {}: ", c.username).c_str(), c.password);
    }
    std::shared_ptr<grpc::Channel> channel = makeChannel(c);
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
