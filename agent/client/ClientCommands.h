// vekgnmi, the command-line gNMI client: the four commands (capabilities,
// get, set, subscribe) over the options of ClientOptions.h. `runClient` is
// the whole program minus process set-up, so tests run it in-process.
#pragma once

#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>

namespace VekGnmi::Client {

// Runs the client on `args` (without the program name), printing results to
// `out` and diagnostics to `err`. Returns the exit code: 0 on success, 1 when
// the RPC failed (the status is printed), 2 for a usage error. A running
// subscription stops (exit 0) when `*interrupted` becomes true.
int runClient(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
              const std::atomic<bool>* interrupted = nullptr);

}  // namespace VekGnmi::Client
