// Validation of Subscribe and Get requests into what the agent acts on,
// with the exact status of each refusal, and the response of a Set.
// Everything here runs before the library is asked anything.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include "ModelSchema.h"

namespace VekGnmi::Server {

struct SubscribeLimits {
  // The lowest sample and heartbeat interval; sample_interval 0 means it.
  std::chrono::nanoseconds minSampleInterval{std::chrono::milliseconds(100)};
};

struct SubscriptionEntry {
  gnmi::Path path;                  // prefix + path
  gnmi::SubscriptionMode mode;      // ON_CHANGE or SAMPLE (TARGET_DEFINED is ON_CHANGE)
  uint64_t sampleInterval = 0;      // ns, SAMPLE only
  bool suppressRedundant = false;   // SAMPLE only
  uint64_t heartbeatInterval = 0;   // ns, 0: none
};

struct SubscribeParams {
  gnmi::SubscriptionList::Mode mode = gnmi::SubscriptionList::STREAM;
  gnmi::Encoding encoding = gnmi::JSON;
  std::string target;  // echoed in every notification when set
  bool updatesOnly = false;
  std::vector<SubscriptionEntry> entries;
};

// The first message of a Subscribe stream. INVALID_ARGUMENT unless it is a
// SubscriptionList with at least one subscription, a known list mode and,
// for STREAM, known subscription modes and intervals the target supports;
// INVALID_ARGUMENT for an origin other than "" or "openconfig";
// UNIMPLEMENTED for encodings other than JSON, JSON_IETF and PROTO. The
// paths are resolved when the subscription starts (Subscription.h): as gNMI
// clients expect of a Subscribe, a path the model cannot hold is UNIMPLEMENTED (it is not an absent value), a
// malformed one INVALID_ARGUMENT, and one that names nothing now is no error.
grpc::Status parseSubscribe(const gnmi::SubscribeRequest& request, const SubscribeLimits& limits,
                            SubscribeParams& out);

struct GetParams {
  std::vector<gnmi::Path> paths;  // prefix + path, one per requested path
  gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL;
  gnmi::Encoding encoding = gnmi::JSON;
  std::string target;
};

// A GetRequest: UNIMPLEMENTED for unsupported encodings, INVALID_ARGUMENT for
// an unknown data type or origin. No path means the prefix itself.
grpc::Status parseGet(const gnmi::GetRequest& request, GetParams& out);

// Whether a leaf passes a Get's data type: ALL every leaf, CONFIG the
// writable ones, STATE and OPERATIONAL the read-only ones.
bool passesDataType(gnmi::GetRequest::DataType type, const LeafInfo* leaf);

// The response of a Set: the prefix echoed, one result per operation with
// the path the client sent (deletes, then replaces, then updates, as they
// are applied), and the time. (Checking and applying a Set: SetPlan.h,
// SetApply.h.)
gnmi::SetResponse setResponse(const gnmi::SetRequest& request, int64_t timestamp);

}  // namespace VekGnmi::Server
