#include "Requests.h"

#include <fmt/format.h>

#include "GnmiPathText.h"
#include "PathResolver.h"
#include "ValueEncoding.h"

#include <Ostrel/Path.h>

namespace VekGnmi::Server {

namespace {

grpc::Status invalid(std::string message) {
  return {grpc::StatusCode::INVALID_ARGUMENT, std::move(message)};
}

std::string durationText(uint64_t ns) {
  if (ns % 1000000000u == 0) return fmt::format("{}s", ns / 1000000000u);
  if (ns % 1000000u == 0) return fmt::format("{}ms", ns / 1000000u);
  return fmt::format("{}ns", ns);
}

}  // namespace

grpc::Status parseSubscribe(const gnmi::SubscribeRequest& request, const SubscribeLimits& limits,
                            SubscribeParams& out) {
  if (!request.has_subscribe()) {
    return invalid(request.has_poll()
                       ? "the first message of a Subscribe must be a SubscriptionList, not a Poll"
                       : "the first message of a Subscribe must be a SubscriptionList");
  }
  const gnmi::SubscriptionList& list = request.subscribe();
  SubscribeParams params;
  if (!gnmi::SubscriptionList::Mode_IsValid(list.mode())) {
    return invalid(fmt::format("unknown subscription list mode {}", static_cast<int>(list.mode())));
  }
  params.mode = list.mode();
  grpc::Status status = checkEncoding(list.encoding());
  if (!status.ok()) return status;
  params.encoding = list.encoding();
  status = checkOrigin(list.prefix(), "the prefix");
  if (!status.ok()) return status;
  params.target = list.prefix().target();
  params.updatesOnly = list.updates_only();
  if (list.subscription_size() == 0) return invalid("the SubscriptionList has no subscription");
  const auto minimum = static_cast<uint64_t>(limits.minSampleInterval.count());
  for (int i = 0; i < list.subscription_size(); ++i) {
    const gnmi::Subscription& s = list.subscription(i);
    status = checkOrigin(s.path(), fmt::format("subscription {}", i).c_str());
    if (!status.ok()) return status;
    SubscriptionEntry entry;
    entry.path = joinRequestPath(list.prefix(), s.path());
    entry.mode = gnmi::ON_CHANGE;
    if (params.mode == gnmi::SubscriptionList::STREAM) {
      switch (s.mode()) {
        case gnmi::TARGET_DEFINED:
        case gnmi::ON_CHANGE:
          entry.mode = gnmi::ON_CHANGE;
          break;
        case gnmi::SAMPLE:
          entry.mode = gnmi::SAMPLE;
          entry.sampleInterval = s.sample_interval() == 0 ? minimum : s.sample_interval();
          if (entry.sampleInterval < minimum) {
            return invalid(fmt::format(
                "subscription {}: sample_interval {} is below the lowest this target supports ({})", i,
                durationText(s.sample_interval()), durationText(minimum)));
          }
          entry.suppressRedundant = s.suppress_redundant();
          break;
        default:
          return invalid(fmt::format("subscription {}: unknown mode {}", i, static_cast<int>(s.mode())));
      }
      if (s.heartbeat_interval() != 0 && s.heartbeat_interval() < minimum) {
        return invalid(fmt::format(
            "subscription {}: heartbeat_interval {} is below the lowest this target supports ({})", i,
            durationText(s.heartbeat_interval()), durationText(minimum)));
      }
      entry.heartbeatInterval = s.heartbeat_interval();
    }
    params.entries.push_back(std::move(entry));
  }
  out = std::move(params);
  return grpc::Status::OK;
}

grpc::Status parseGet(const gnmi::GetRequest& request, GetParams& out) {
  GetParams params;
  grpc::Status status = checkEncoding(request.encoding());
  if (!status.ok()) return status;
  params.encoding = request.encoding();
  if (!gnmi::GetRequest::DataType_IsValid(request.type())) {
    return invalid(fmt::format("unknown data type {}", static_cast<int>(request.type())));
  }
  params.type = request.type();
  status = checkOrigin(request.prefix(), "the prefix");
  if (!status.ok()) return status;
  params.target = request.prefix().target();
  for (int i = 0; i < request.path_size(); ++i) {
    status = checkOrigin(request.path(i), fmt::format("path {}", i).c_str());
    if (!status.ok()) return status;
    params.paths.push_back(joinRequestPath(request.prefix(), request.path(i)));
  }
  if (params.paths.empty()) params.paths.push_back(joinRequestPath(request.prefix(), gnmi::Path()));
  out = std::move(params);
  return grpc::Status::OK;
}

bool passesDataType(gnmi::GetRequest::DataType type, const LeafInfo* leaf) {
  switch (type) {
    case gnmi::GetRequest::CONFIG: return leaf != nullptr && !leaf->state;
    case gnmi::GetRequest::STATE:
    case gnmi::GetRequest::OPERATIONAL: return leaf != nullptr && leaf->state;
    default: return true;
  }
}

gnmi::SetResponse setResponse(const gnmi::SetRequest& request, int64_t timestamp) {
  gnmi::SetResponse response;
  if (request.has_prefix()) *response.mutable_prefix() = request.prefix();
  for (const gnmi::Path& p : request.delete_()) {
    gnmi::UpdateResult* r = response.add_response();
    *r->mutable_path() = p;
    r->set_op(gnmi::UpdateResult::DELETE);
  }
  for (const gnmi::Update& u : request.replace()) {
    gnmi::UpdateResult* r = response.add_response();
    *r->mutable_path() = u.path();
    r->set_op(gnmi::UpdateResult::REPLACE);
  }
  for (const gnmi::Update& u : request.update()) {
    gnmi::UpdateResult* r = response.add_response();
    *r->mutable_path() = u.path();
    r->set_op(gnmi::UpdateResult::UPDATE);
  }
  response.set_timestamp(timestamp);
  return response;
}

}  // namespace VekGnmi::Server
