#include "ListenPolicy.h"

#include <fmt/format.h>

#include "NetAddress.h"

namespace VekGnmi::Server {

std::string listenRefusal(std::string_view address, bool tls, bool insecure) {
  if (tls && insecure) return "--insecure and --tls-cert exclude each other: serve TLS or plaintext, not both";
  if (tls || insecure || isLoopbackAddress(address)) return {};
  return fmt::format(
      "refusing plaintext gRPC on {}, which is not a loopback address: give --tls-cert and --tls-key, "
      "or --insecure to serve plaintext anyway",
      address);
}

}  // namespace VekGnmi::Server
