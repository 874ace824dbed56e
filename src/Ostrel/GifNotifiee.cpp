// The entity notifiee and the registries of published entities.
#include "Ostrel/GifNotifiee.h"

#include <Vek/Format.h>
#include <Zolt/Zolt.h>
#include <fmt/format.h>

#include "Ostrel/TimeStamps.h"
#include "Ostrel/VekTypeWalker.h"
#include "internal/PlainAssert.h"

namespace Ostrel {

std::unordered_map<gnmi::Path, Vek::Ptr<GifGnmiNotifiee>> gNmiNotifieeMap;
std::unordered_map<const Vek::PtrInterface*, gnmi::Path> notifieePathMap;

Vek::AllocTrackTypeInfo GifGnmiNotifiee::vekAllocTrackTypeInfo_("Ostrel::GifGnmiNotifiee");

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelGifGnmiNotifiee");
Zolt::Debuggable& notifWalkerDbg = Zolt::Platform::getDebugHandler("OstrelVekTypeNotifWalker");
Zolt::Debuggable& utilsDbg = Zolt::Platform::getDebugHandler("OstrelVekGnmiUtils");
constexpr const char* COMPONENT = "GifGnmiNotifiee";

}  // namespace

GifGnmiNotifiee::GifGnmiNotifiee(const Vek::PtrInterface* entity, gnmi::Path prefixPath,
                                 BaseRouter& router, bool firstOption, bool secondOption)
    : entity_(entity),
      prefixPath_(std::move(prefixPath)),
      router_(router),
      firstOption_(firstOption),
      secondOption_(secondOption) {
  vekAllocTrackTypeInfo_.trackAllocation(sizeof(GifGnmiNotifiee));
  // A table left by a notifiee that lived at this address before is stale.
  objTsMap()[this].clear();
  // Weak first, so that hooking on never takes a reference on the entity.
  isWeakReferenceIs(true);
  notifierIs(entity);
  isRegisteredNotifieeIs(true);
  if (prefixPath_.elem_size() == 0) {
    const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(entity);
    prefixPath_ = pathToGnmiPath(extractGifPath(gif->strRep()));
  }
  // All three maps hold the notifiee before any change can reach it: changes
  // arrive only on this thread, after the constructor returns.
  // (A counted reference is taken only on insertion: a temporary one dropped
  // here would delete the notifiee under construction.)
  if (!gNmiNotifieeMap.contains(prefixPath_)) gNmiNotifieeMap.emplace(prefixPath_, this);
  notifieePathMap.try_emplace(entity_, prefixPath_);
  ZOLT_TRACE(dbg, 5, COMPONENT, "prefixPath_:{}", prefixPath_);
}

GifGnmiNotifiee::~GifGnmiNotifiee() {
  vekAllocTrackTypeInfo_.trackDeallocation(sizeof(GifGnmiNotifiee));
}

WalkerFlags GifGnmiNotifiee::walkerFlags() const {
  WalkerFlags flags = WalkerFlags{firstOption_ ? 35u : 46u};
  if (secondOption_) flags |= WalkerFlags::NotifieeOption;
  return flags;
}

void GifGnmiNotifiee::onAttribute(Vek::AttributeId attrId, const void* key) {
  ZOLT_TRACE(dbg, 5, COMPONENT, "prefixPath_:{}", prefixPath_);
  const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(entity_);
  if (!gif) return;
  // After its delete was published nothing more goes out under its path (the
  // runtime reports nothing from an entity that left; this holds for any
  // other caller too).
  if (gif->isEntity() && static_cast<const Vek::Entity*>(gif.ptr())->hasLeft()) return;
  const Vek::VekType type = gif->type();
  if (!type->attr(attrId.abs())) return;
  VekTypeNotifWalker walker(notifWalkerDbg, gif, *this, key, type, attrId, router_, walkerFlags());
  walker.walk();
}

void GifGnmiNotifiee::onZeroReferences() {
  ZOLT_TRACE(dbg, 5, COMPONENT, "prefixPath_:{}", prefixPath_);
  const auto it = gNmiNotifieeMap.find(prefixPath_);
  if (it == gNmiNotifieeMap.end()) {
    ZOLT_FMASSERT(dbg, COMPONENT, "could not find prefixPath {} in gNmiNotifieeMap", prefixPath_);
  }
  // The path may have passed to the notifiee of a new entity published there
  // while this one's entity was still held by a caller: then it is not ours to
  // clear.
  const bool ownsPath = it->second.ptr() == this;
  if (ownsPath) FullVekTypeWalker::delFromWalkQ(prefixPath_);
  const auto pathIt = notifieePathMap.find(entity_);
  if (pathIt != notifieePathMap.end() && pathIt->second == prefixPath_) notifieePathMap.erase(pathIt);
  const auto tsIter = objTsMap().find(this);
  OSTREL_PLAIN_ASSERT(tsIter != objTsMap().end());
  objTsMap().erase(tsIter);
  // Last: this drops the registry's reference and, normally, this notifiee.
  if (ownsPath) gNmiNotifieeMap.erase(prefixPath_);
}

std::string GifGnmiNotifiee::dumpGnmiNotifieeMap() {
  std::string out;
  for (const auto& [path, notifiee] : gNmiNotifieeMap) {
    fmt::format_to(std::back_inserter(out), "path:{} notifiee:{}\n", path,
                   static_cast<const void*>(notifiee.ptr()));
  }
  return out;
}

std::string GifGnmiNotifiee::dumpNotifieePathMap() {
  std::string out;
  for (const auto& [entity, path] : notifieePathMap) {
    fmt::format_to(std::back_inserter(out), "ptrInterface:{} path:{}\n",
                   static_cast<const void*>(entity), path);
  }
  return out;
}

namespace VekGnmiUtils {

Vek::Ptr<GifGnmiNotifiee> lookupGnmiNotifieeMap(const gnmi::Path& prefix) {
  const auto it = gNmiNotifieeMap.find(prefix);
  if (it == gNmiNotifieeMap.end()) {
    ZOLT_FMASSERT(utilsDbg, "VekGnmiUtils", "Could not locate gifGnmiNotifiee at prefix {}", prefix);
  }
  if (!it->second) {
    ZOLT_FMASSERT(utilsDbg, "VekGnmiUtils", "Notifiee does not exist for prefix {}", prefix);
  }
  return it->second;
}

}  // namespace VekGnmiUtils

}  // namespace Ostrel
