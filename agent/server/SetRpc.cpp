#include "SetRpc.h"

#include <Zolt/Zolt.h>

#include "SetUndo.h"

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentSet");
}  // namespace

void SetRpc::handle(const std::shared_ptr<SetCall>& call) {
  SetPlan plan;
  grpc::Status status = planSet(context_.schema, call->request, plan);
  if (!status.ok()) return call->finish(status);
  if (!plan.entities.empty()) {
    std::vector<std::unique_ptr<SetTransaction>> transactions;
    SetUndo undo(context_.schema);
    for (EntitySet& entity : plan.entities) {
      undo.record(entity);
      transactions.push_back(context_.bridge.makeSet(context_.root, std::move(entity.request)));
    }
    for (auto& tx : transactions) {
      status = tx->prepare();
      if (!status.ok()) return call->finish(status);
    }
    for (auto& tx : transactions) {
      status = tx->commit();
      if (!status.ok()) {
        const size_t restored = undo.restore();
        ZOLT_TRACE(dbg, 2, "Set", "Set refused at commit ({}); {} values restored", status.error_message(),
                   restored);
        return call->finish(status);
      }
    }
  }
  call->response = setResponse(call->request, context_.clock().utcNanos());
  call->finish(grpc::Status::OK);
}

}  // namespace VekGnmi::Server
