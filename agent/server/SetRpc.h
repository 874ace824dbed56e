// Set: the request is checked completely and planned before anything
// changes (SetPlan.h), then applied all or nothing: the agent's structural
// changes (members made and removed, subtrees emptied), then the leaf
// writes, every library Set prepared before any commits; a refusal undoes
// everything applied (SetApply.h, SetUndo.h). The response lists one result
// per operation: deletes, replaces, updates.
//
// Event-loop thread only.
#pragma once

#include <memory>

#include "AgentContext.h"

namespace VekGnmi::Server {

class SetRpc {
 public:
  explicit SetRpc(AgentContext context) : context_(context) {}

  // Applies `call`'s request and finishes it.
  void handle(const std::shared_ptr<SetCall>& call);

 private:
  AgentContext context_;
};

}  // namespace VekGnmi::Server
