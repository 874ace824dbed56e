#include "SetRpc.h"

#include <Zolt/Zolt.h>

#include "SetApply.h"
#include "SetPlan.h"

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentSet");
}  // namespace

void SetRpc::handle(const std::shared_ptr<SetCall>& call) {
  SetPlan plan;
  grpc::Status status = planSet(context_.source, call->request, plan);
  if (status.ok()) status = applySet(plan, context_.source, context_.bridge);
  if (!status.ok()) {
    ZOLT_TRACE(dbg, 2, "Set", "Set refused: {}", status.error_message());
    return call->finish(status);
  }
  call->response = setResponse(call->request, context_.clock().utcNanos());
  call->finish(grpc::Status::OK);
}

}  // namespace VekGnmi::Server
