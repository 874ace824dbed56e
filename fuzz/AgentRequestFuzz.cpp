// Fuzzes what vekgnmid does with a client's request before any gRPC or
// event-loop work: the first byte picks Get, Set or Subscribe, the rest is
// parsed as that request (inputs that are no such message are skipped), then
// the agent's checks run against the demo model, built once:
//   Get        parseGet, then each path normalized and resolved;
//   Set        planSet (paths resolved, keys and values checked, steps
//              planned; nothing is applied);
//   Subscribe  parseSubscribe of a subscription list, then each path
//              normalized and resolved.
// Every input must end in a status: no fatal assertion, no exception, no
// sanitizer report. Every refusal's message must be bounded (see
// BoundedText.h): client text is echoed shortened, so no message grows with
// the request.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <google/protobuf/stubs/logging.h>

#include <Vek/Vek.h>
#include <Zolt/Zolt.h>

#include "BoundedText.h"
#include "ModelSource.h"
#include "PathResolver.h"
#include "Requests.h"
#include "SetPlan.h"

namespace {

using namespace VekGnmi::Server;

// A status message may hold several bounded pieces of client text besides
// the agent's own words; it never holds a whole path or value.
constexpr size_t MAX_MESSAGE = 4096;

ModelSource& model() {
  static std::shared_ptr<ModelSource> source = [] {
    std::shared_ptr<ModelSource> s = makeDemoSource(4);
    s->build();
    return s;
  }();
  return *source;
}

[[noreturn]] void fail(const std::string& what, const google::protobuf::Message& request) {
  std::fprintf(stderr, "%s\nrequest: %s\n", what.c_str(), request.ShortDebugString().substr(0, 4000).c_str());
  std::abort();
}

void check(const grpc::Status& status, const google::protobuf::Message& request) {
  if (status.error_message().size() > MAX_MESSAGE) {
    fail("a status message of " + std::to_string(status.error_message().size()) + " bytes: " +
             status.error_message().substr(0, 300),
         request);
  }
  if (!status.ok() && status.error_message().empty()) fail("a refusal without a message", request);
}

// Normalizes and resolves `path` as Get and Subscribe do.
grpc::Status resolve(gnmi::Path path) {
  grpc::Status status = model().normalizePath(path);
  if (!status.ok()) return status;
  Resolution r;
  return resolvePath(model().schema(), path, r);
}

void fuzzGet(const uint8_t* data, size_t size) {
  gnmi::GetRequest request;
  if (!request.ParseFromArray(data, static_cast<int>(size))) return;
  GetParams params;
  grpc::Status status = parseGet(request, params);
  check(status, request);
  if (!status.ok()) return;
  for (const gnmi::Path& path : params.paths) check(resolve(path), request);
}

void fuzzSet(const uint8_t* data, size_t size) {
  gnmi::SetRequest request;
  if (!request.ParseFromArray(data, static_cast<int>(size))) return;
  SetPlan plan;
  check(planSet(model(), request, plan), request);
}

void fuzzSubscribe(const uint8_t* data, size_t size) {
  gnmi::SubscribeRequest request;
  if (!request.ParseFromArray(data, static_cast<int>(size))) return;
  SubscribeParams params;
  grpc::Status status = parseSubscribe(request, SubscribeLimits{}, params);
  check(status, request);
  if (!status.ok()) return;
  for (const SubscriptionEntry& entry : params.entries) check(resolve(entry.path), request);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Zolt::fatalHandlerIs(&Zolt::throwingFatalHandler);
  Zolt::traceSinkIs([](const Zolt::TraceRecord&) {});
  // Parsing refuses strings that are not UTF-8, and says so on every input.
  google::protobuf::SetLogHandler(nullptr);
  model();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  switch (data[0] % 3) {
    case 0: fuzzGet(data + 1, size - 1); break;
    case 1: fuzzSet(data + 1, size - 1); break;
    default: fuzzSubscribe(data + 1, size - 1); break;
  }
  return 0;
}
