// What vekgnmi prints: one JSON object per line, so that its output pipes
// into jq.
//
//   {"timestamp":1700000000000000000,"updates":[{"path":"/a/b","value":5}],
//    "deletes":["/a/c"]}                                  a notification
//   {"sync_response":true}                                end of a sync
//
// Paths are full (prefix and path joined) in the gNMI path-strings
// convention; "target" appears when the notification's prefix has one, and
// "duplicates" on an update that reports coalesced changes.
#pragma once

#include <string>

#include <grpcpp/support/status.h>
#include <nlohmann/json.hpp>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi::Client {

nlohmann::json notificationJson(const gnmi::Notification& notification);
nlohmann::json capabilitiesJson(const gnmi::CapabilityResponse& response);
nlohmann::json setResponseJson(const gnmi::SetResponse& response);

// How a failed RPC is reported: "error: NOT_FOUND (5): <message>".
std::string statusLine(const grpc::Status& status);

}  // namespace VekGnmi::Client
