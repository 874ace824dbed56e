// Parses, joins, prints and hashes a path through the installed library and
// checks the results; exits non-zero on any mismatch.
#include <cstdio>
#include <string>

#include <Ostrel/Path.h>

int main() {
  const gnmi::Path prefix = Ostrel::strToPath("/interfaces");
  const gnmi::Path leaf = Ostrel::strToPath("interface[name=eth0]/state/mtu");
  const gnmi::Path joined = Ostrel::joinPath(prefix, leaf);
  const std::string text = Ostrel::pathToStr(joined);
  if (text != "/interfaces/interface[name=eth0]/state/mtu") {
    std::fprintf(stderr, "unexpected text %s\n", text.c_str());
    return 1;
  }
  if (std::hash<gnmi::Path>{}(joined) != std::hash<gnmi::Path>{}(Ostrel::strToPath(text))) {
    std::fprintf(stderr, "hash differs after a round trip\n");
    return 1;
  }
  std::printf("%s\n", fmt::format("{}", joined).c_str());
  return 0;
}
