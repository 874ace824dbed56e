// gNMI messages to and from the bytes gRPC carries. The service takes its
// requests as raw bytes (gRPC's raw callback methods) so that a request that
// cannot be decoded is answered INVALID_ARGUMENT with the reason, where
// gRPC's generated handlers would answer with a status of their own and no
// useful text; responses are serialised here once each, straight into the
// slices gRPC sends.
#pragma once

#include <string_view>

#include <google/protobuf/message_lite.h>
#include <grpcpp/support/byte_buffer.h>
#include <grpcpp/support/status.h>

namespace VekGnmi::Server::MessageCodec {

// Parses `in` into `out`. INVALID_ARGUMENT naming `what` ("GetRequest") and
// the reason when the bytes are no such message: not protobuf at all or cut
// short, a string field that is not UTF-8, nesting deeper than protobuf
// reads. Protobuf's own log line about the failure is silenced (a client
// could otherwise fill the agent's log).
grpc::Status decode(const grpc::ByteBuffer& in, google::protobuf::MessageLite& out, std::string_view what);

// Serialises `message` into `out` (one serialisation, no copy); false only
// when protobuf refuses (a message over 2 GiB).
bool encode(const google::protobuf::MessageLite& message, grpc::ByteBuffer& out);

}  // namespace VekGnmi::Server::MessageCodec
