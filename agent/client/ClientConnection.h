// vekgnmi's channel to the target: plaintext or TLS (server verification
// against a CA bundle or the system's CAs, optionally skipped; a client
// certificate for mutual TLS; the expected server name), and the credentials
// sent as metadata on every RPC.
#pragma once

#include <memory>
#include <string>

#include <grpcpp/grpcpp.h>

#include "ClientOptions.h"

namespace VekGnmi::Client {

// A channel to `connection.address`; throws UsageError when a TLS file
// cannot be read.
std::shared_ptr<grpc::Channel> makeChannel(const Connection& connection);

// Adds the `username` and `password` metadata to a call (nothing without a
// username).
void addCredentials(const Connection& connection, grpc::ClientContext& context);

}  // namespace VekGnmi::Client
