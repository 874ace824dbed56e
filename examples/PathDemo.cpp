// Parses, prints, joins and hashes a few gNMI paths. Run it with traces on to
// see what the path code reports:
//
//   ZOLT_TRACE='OstrelPath=0x200,Demo=0x2' ./PathDemo
#include <cstdio>
#include <string>

#include <Ostrel/Path.h>
#include <Zolt/Zolt.h>

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("Demo");

}  // namespace

int main() {
  const std::string texts[] = {
      "/interfaces/interface[name=eth0]/state/counters",
      "/network-instances/network-instance[name=default]/protocols/"
      "protocol[identifier=BGP][name=bgp]/neighbors/neighbor[address=10.0.0.1]",
      "a[k=[x]]/b[path=x/y]/c[k=x\\]y]",
  };
  for (const std::string& text : texts) {
    const gnmi::Path path = Ostrel::strToPath(text);
    ZOLT_TRACE(dbg, 1, "PathDemo", "parsed {} into {} elements", text, path.elem_size());
    std::printf("text     %s\n", text.c_str());
    std::printf("printed  %s\n", Ostrel::pathToStr(path).c_str());
    std::printf("key text %s\n", Ostrel::pathToKeyStr(path).c_str());
    std::printf("hash     0x%08x\n\n", Ostrel::hashPath(path));
  }

  const gnmi::Path prefix = Ostrel::strToPath("/interfaces/interface[name=eth0]");
  const gnmi::Path leaf = Ostrel::pathToGnmiPath("state/counters/in-octets");
  const gnmi::Path joined = Ostrel::joinPath(prefix, leaf);
  std::printf("joined   %s\n", fmt::format("{}", joined).c_str());
  std::printf("prefix?  %s\n", Ostrel::isPrefix(prefix, joined) ? "yes" : "no");
  std::printf("rest     %s\n", Ostrel::pathToStr(Ostrel::removePrefix(prefix, joined)).c_str());
  std::printf("entity   %s\n", Ostrel::extractGifPath("entity('sys.intf.eth0')").c_str());
  return 0;
}
