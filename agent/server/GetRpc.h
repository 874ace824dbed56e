// Get: each requested path is resolved to the entities that cover it, each
// path gets a sync of its own (shared with identical syncs in progress), and
// the response, one notification per path with the updates under it in the
// requested encoding and data type, goes out when every sync has finished.
// A path that does not resolve ends the Get with its status; a path with
// nothing under it now is NOT_FOUND.
//
// Event-loop thread only.
#pragma once

#include <memory>
#include <unordered_map>

#include <grpcpp/support/status.h>

#include "AgentContext.h"

namespace VekGnmi::Server {

class GetOperation;

class GetRpc {
 public:
  explicit GetRpc(AgentContext context);
  ~GetRpc();
  GetRpc(const GetRpc&) = delete;
  GetRpc& operator=(const GetRpc&) = delete;

  // Answers `call` (now, or when its syncs have finished).
  void handle(std::shared_ptr<GetCall> call);
  // The client went away: the Get's syncs are cancelled and it is finished
  // with CANCELLED.
  void cancel(const std::shared_ptr<GetCall>& call);
  // Finishes every Get in progress with `status`.
  void stop(const grpc::Status& status);

  size_t inProgress() const { return gets_.size(); }

 private:
  AgentContext context_;
  std::unordered_map<const GetCall*, std::unique_ptr<GetOperation>> gets_;
};

}  // namespace VekGnmi::Server
