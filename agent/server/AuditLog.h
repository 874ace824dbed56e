// The audit trail of Set requests: one line per Set, whatever its outcome
// (refused before it reached the device, or applied, or refused by it),
// written to a dedicated sink (`vekgnmid --audit-log`), never to the traces.
//
// A line is one JSON object:
//
//   {"time":"2025-01-31T12:00:00.123Z","user":"ops","authenticated":true,
//    "peer":"ipv4:10.0.0.7:51234","ops":[{"op":"update","path":"/devices/dev1/system/hostname"}],
//    "code":"OK","message":""}
//
// "ops" lists each operation with its full path (the request's prefix joined
// with the operation's), deletes first, then replaces, updates and
// union_replaces, as the request holds them; values are never written, nor
// is any password. "user" is the authenticated user, or the user name the
// client claimed when "authenticated" is false (an empty name when
// authentication is off or the client sent none). "code" is the gRPC status
// name of the answer the client got, "message" its text. JSON escaping keeps
// one Set on one line whatever its paths hold.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi::Server {

struct AuditEntry {
  std::chrono::system_clock::time_point time;
  std::string user;
  bool authenticated = false;
  std::string peer;
  const gnmi::SetRequest* request = nullptr;  // nullptr: it could not be decoded
  grpc::Status outcome;
};

// The line of one Set (without the newline).
std::string auditLine(const AuditEntry& entry);

// Where the lines go: the writer is called with each whole line (newline
// included), one call at a time.
class AuditLog {
 public:
  using Writer = std::function<void(std::string_view line)>;

  AuditLog() = default;
  explicit AuditLog(Writer writer) : writer_(std::move(writer)) {}

  // A log appending to `path` (created with mode 0600 when missing), or to
  // standard output for "-"; an empty Writer when the file cannot be opened
  // (`error` says why).
  static Writer fileWriter(const std::string& path, std::string& error);

  bool enabled() const { return static_cast<bool>(writer_); }
  // Writes the entry's line. Thread-safe.
  void record(const AuditEntry& entry);

 private:
  std::mutex mutex_;
  Writer writer_;
};

}  // namespace VekGnmi::Server
