#include "MessageCodec.h"

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/unknown_field_set.h>
#include <grpcpp/impl/codegen/proto_utils.h>
#include <grpcpp/support/proto_buffer_reader.h>

namespace VekGnmi::Server::MessageCodec {

namespace {

std::string flatten(const grpc::ByteBuffer& in) {
  std::vector<grpc::Slice> slices;
  std::string bytes;
  if (!in.Dump(&slices).ok()) return bytes;
  for (const grpc::Slice& s : slices) bytes.append(reinterpret_cast<const char*>(s.begin()), s.size());
  return bytes;
}

// Why `bytes` failed to parse as `message`.
std::string reasonFor(const std::string& bytes, const google::protobuf::MessageLite& message) {
  google::protobuf::UnknownFieldSet wire;
  if (!wire.ParseFromString(bytes)) return "it is not a protobuf message (malformed or cut short)";
  std::unique_ptr<google::protobuf::MessageLite> probe(message.New());
  google::protobuf::io::CodedInputStream stream(reinterpret_cast<const uint8_t*>(bytes.data()),
                                                static_cast<int>(bytes.size()));
  stream.SetRecursionLimit(INT_MAX);
  if (probe->ParseFromCodedStream(&stream)) {
    return fmt::format("it nests deeper than {} levels",
                       google::protobuf::io::CodedInputStream::GetDefaultRecursionLimit());
  }
  return "a string field is not valid UTF-8 (use bytes or base64 for binary data)";
}

}  // namespace

grpc::Status decode(const grpc::ByteBuffer& in, google::protobuf::MessageLite& out, std::string_view what) {
  grpc::ByteBuffer copy(in);  // shares the slices; the reader needs a mutable buffer
  bool parsed = false;
  {
    google::protobuf::LogSilencer quiet;
    grpc::ProtoBufferReader reader(&copy);
    parsed = reader.status().ok() && out.ParseFromZeroCopyStream(&reader);
  }
  if (parsed) return grpc::Status::OK;
  std::string reason;
  {
    google::protobuf::LogSilencer quiet;
    reason = reasonFor(flatten(in), out);
  }
  out.Clear();
  return {grpc::StatusCode::INVALID_ARGUMENT, fmt::format("the {} cannot be decoded: {}", what, reason)};
}

bool encode(const google::protobuf::MessageLite& message, grpc::ByteBuffer& out) {
  bool own = false;
  return grpc::GenericSerialize<grpc::ProtoBufferWriter, google::protobuf::MessageLite>(message, &out, &own).ok();
}

}  // namespace VekGnmi::Server::MessageCodec
