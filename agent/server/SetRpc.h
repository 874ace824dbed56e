// Set: the request is checked and split into one library Set per entity
// (planSet); every one is prepared before any commits, so that a request is
// applied all or nothing across entities; a write the runtime refuses while
// committing is undone with everything committed before it (SetUndo). The
// response lists one result per operation.
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
