// gRPC addresses as the agent and its client write them.
#pragma once

#include <string_view>

namespace VekGnmi {

// Whether a gRPC address ("HOST:PORT", "[V6]:PORT", "dns:///HOST:PORT",
// "ipv4:HOST:PORT", "unix:PATH") stays on this machine: a host in
// 127.0.0.0/8, ::1 (or an IPv4-mapped 127 address), "localhost", or a Unix
// socket. "0.0.0.0" and "[::]" mean every interface and are not loopback.
bool isLoopbackAddress(std::string_view address);

}  // namespace VekGnmi
