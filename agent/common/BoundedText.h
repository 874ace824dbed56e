// Client text echoed in the agent's status messages, bounded.
//
// A status message travels in the HTTP/2 trailers of the answer, which gRPC
// caps (8 KiB to 64 KiB depending on the peer's settings). A message over the
// cap never reaches the client: its call ends DEADLINE_EXCEEDED and later
// calls on the connection can stall. So every piece of client text the agent
// puts in a status (a path, an element name, a key value, a JSON or bytes
// value, a user name...) goes through `boundedText`, and every status the
// agent finishes a call with goes through `boundedStatus` as a last cap
// (messages of the library or of libyang may quote client text too).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <grpcpp/support/status.h>

namespace VekGnmi {

// Client text longer than this is shortened by `boundedText`.
inline constexpr size_t MAX_ECHO_BYTES = 80;
// A status message longer than this is shortened by `boundedStatus`.
inline constexpr size_t MAX_STATUS_MESSAGE_BYTES = 2048;

// `text` itself when it has at most `limit` bytes; otherwise its first bytes
// (at most `limit`, cut before a UTF-8 sequence that would not fit whole),
// "…" and its length: "aaaa… (4194304 bytes)".
std::string boundedText(std::string_view text, size_t limit = MAX_ECHO_BYTES);

// `status` with its message bounded to MAX_STATUS_MESSAGE_BYTES by
// `boundedText`; code and details unchanged. A short message is unchanged.
grpc::Status boundedStatus(const grpc::Status& status);

}  // namespace VekGnmi
