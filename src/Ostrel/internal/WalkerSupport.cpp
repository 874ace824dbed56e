#include "WalkerSupport.h"

namespace Ostrel::WalkerSupport {

Zolt::Debuggable& debug() {
  static Zolt::Debuggable& handle = Zolt::Platform::getDebugHandler("OstrelWalker");
  return handle;
}

VekKey& noKey() {
  static VekKey key;
  return key;
}

VekKey& plainKey() {
  static VekKey key = [] {
    VekKey k;
    k.escapesTextIs(false);
    return k;
  }();
  return key;
}

Timestamp nowUtc() {
  return static_cast<Timestamp>(Vek::System::currentTimeUtc().value() * 1000000000.0);
}

uint64_t queuedWalkers = 0;

}  // namespace Ostrel::WalkerSupport
