// The gNMI client side shared by the agent benchmarks that run over real
// sockets (AgentClientBench, AgentPrebuiltServer): request building, channels
// of their own, and a subscriber that reads a sync to its sync_response.
// Header-only: each program includes it once.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <grpcpp/grpcpp.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "GnmiPathText.h"

namespace AgentBench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Nanoseconds since the epoch on the clock the agent stamps notifications
// with (CLOCK_REALTIME).
inline int64_t wallNanos() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

inline gnmi::Path parsePath(const std::string& text) {
  gnmi::Path path;
  std::string error;
  if (!VekGnmi::parsePathString(text, path, error)) throw std::runtime_error(fmt::format("{}: {}", text, error));
  return path;
}

// A Subscribe of `paths` in `listMode` (ONCE, STREAM), each path in
// `mode` (ignored for ONCE), in PROTO.
inline gnmi::SubscribeRequest subscribeRequest(const std::vector<std::string>& paths,
                                               gnmi::SubscriptionList::Mode listMode,
                                               gnmi::SubscriptionMode mode = gnmi::TARGET_DEFINED) {
  gnmi::SubscribeRequest r;
  gnmi::SubscriptionList* list = r.mutable_subscribe();
  list->set_mode(listMode);
  list->set_encoding(gnmi::PROTO);
  for (const std::string& p : paths) {
    gnmi::Subscription* s = list->add_subscription();
    *s->mutable_path() = parsePath(p);
    s->set_mode(mode);
  }
  return r;
}

// A gRPC channel argument given as NAME=VALUE: an integer when VALUE is one,
// a string otherwise.
inline void addChannelArgument(const std::string& nameValue, grpc::ChannelArguments& args) {
  const size_t eq = nameValue.find('=');
  if (eq == std::string::npos || eq == 0) throw std::runtime_error(fmt::format("'{}' is not NAME=VALUE", nameValue));
  const std::string name = nameValue.substr(0, eq);
  const std::string value = nameValue.substr(eq + 1);
  try {
    size_t end = 0;
    const int n = std::stoi(value, &end);
    if (end == value.size()) {
      args.SetInt(name, n);
      return;
    }
  } catch (const std::exception&) {
  }
  args.SetString(name, value);
}

// A channel to 127.0.0.1:`port` on a TCP connection of its own (channels
// made with equal arguments would otherwise share one connection): each
// simulated client is a client of its own. `extra` are NAME=VALUE channel
// arguments.
inline std::shared_ptr<grpc::Channel> openChannel(int port, const std::vector<std::string>& extra = {}) {
  grpc::ChannelArguments args;
  args.SetMaxReceiveMessageSize(-1);
  args.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  for (const std::string& a : extra) addChannelArgument(a, args);
  return grpc::CreateCustomChannel(fmt::format("127.0.0.1:{}", port), grpc::InsecureChannelCredentials(), args);
}

inline size_t updatesIn(const gnmi::SubscribeResponse& r) {
  return r.has_update() ? static_cast<size_t>(r.update().update_size()) : 0;
}

struct SyncResult {
  double seconds = 0;  // from the request to the sync_response
  size_t leaves = 0;   // updates before the sync_response
  size_t messages = 0; // responses up to and including the sync_response
  bool synced = false; // a sync_response arrived
};

// Subscribes with `request` on `stub` and reads up to the sync_response,
// handing every response to `each` (may be empty). A ONCE subscription is
// then read to its end; any other is cancelled. Throws when the stream
// ends before its sync_response.
inline SyncResult syncOnce(gnmi::gNMI::Stub& stub, const gnmi::SubscribeRequest& request,
                           const std::function<void(const gnmi::SubscribeResponse&)>& each = {}) {
  grpc::ClientContext context;
  SyncResult result;
  const auto start = Clock::now();
  auto stream = stub.Subscribe(&context);
  stream->Write(request);
  gnmi::SubscribeResponse r;
  while (stream->Read(&r)) {
    ++result.messages;
    result.leaves += updatesIn(r);
    if (each) each(r);
    if (r.sync_response()) {
      result.synced = true;
      break;
    }
  }
  result.seconds = secondsSince(start);
  if (request.subscribe().mode() == gnmi::SubscriptionList::ONCE && result.synced) {
    while (stream->Read(&r)) {
    }
  } else {
    context.TryCancel();
  }
  const grpc::Status status = stream->Finish();
  if (!result.synced) {
    throw std::runtime_error(fmt::format("the subscription ended before its sync_response: {} {}",
                                         static_cast<int>(status.error_code()), status.error_message()));
  }
  return result;
}

}  // namespace AgentBench
