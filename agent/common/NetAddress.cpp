#include "NetAddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <string>

namespace VekGnmi {

namespace {

std::string_view hostOf(std::string_view address) {
  for (std::string_view scheme : {"dns:///", "ipv4:", "ipv6:"}) {
    if (address.substr(0, scheme.size()) == scheme) address.remove_prefix(scheme.size());
  }
  if (!address.empty() && address.front() == '[') {
    const size_t close = address.find(']');
    return close == std::string_view::npos ? address.substr(1) : address.substr(1, close - 1);
  }
  const size_t colon = address.rfind(':');
  if (colon == std::string_view::npos) return address;
  // More than one ':' without brackets: a bare IPv6 address, no port.
  if (address.find(':') != colon) return address;
  return address.substr(0, colon);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

}  // namespace

bool isLoopbackAddress(std::string_view address) {
  if (address.rfind("unix:", 0) == 0 || address.rfind("unix-abstract:", 0) == 0) return true;
  const std::string host(hostOf(address));
  if (equalsIgnoringCase(host, "localhost") || equalsIgnoringCase(host, "localhost.")) return true;
  unsigned char bytes[16];
  if (inet_pton(AF_INET, host.c_str(), bytes) == 1) return bytes[0] == 127;
  if (inet_pton(AF_INET6, host.c_str(), bytes) == 1) {
    static constexpr unsigned char LOOPBACK[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    static constexpr unsigned char MAPPED[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    return std::equal(bytes, bytes + 16, LOOPBACK) ||
           (std::equal(bytes, bytes + 12, MAPPED) && bytes[12] == 127);
  }
  return false;
}

}  // namespace VekGnmi
