// gRPC status codes as text, shared by the client's error lines and the
// agent's audit log.
#pragma once

#include <string>

#include <grpcpp/support/status.h>

namespace VekGnmi {

// The name of a status code: "NOT_FOUND"; "CODE_<n>" for a code gRPC does
// not define.
std::string statusCodeName(grpc::StatusCode code);

}  // namespace VekGnmi
