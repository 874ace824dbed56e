// When vekgnmid may speak plaintext: only when asked (--insecure), or on a
// loopback address, where nothing leaves the machine. A non-loopback address
// without TLS and without --insecure refuses to start.
#pragma once

#include <string>
#include <string_view>

namespace VekGnmi::Server {

// Empty when serving `address` this way is allowed (loopback as
// VekGnmi::isLoopbackAddress says); else the one-line reason
// it is not: plaintext on a non-loopback address without `insecure`, or
// `insecure` together with TLS.
std::string listenRefusal(std::string_view address, bool tls, bool insecure);

}  // namespace VekGnmi::Server
