// GifGnmiNotifiee: the change listener hooked onto every published entity,
// and the registries that find a published entity's notifiee by path and its
// path by entity.
//
// A sync (`FullVekTypeWalker::syncObject`) makes one notifiee per entity it
// publishes. From then on every change of an attribute of that entity reaches
// `onAttribute`, which publishes it at once as an update or a delete, stamped
// with the time of the change, to the router the notifiee was made with. When
// the entity ends, `onZeroReferences` removes the notifiee from the
// registries, drops its timestamps and the queued sync work under its path.
//
// Single-threaded: everything here runs on the thread that runs the library
// and changes the model.
#pragma once

#include <string>
#include <unordered_map>

#include <Vek/Vek.h>
#include <gnmi/gnmi.pb.h>

#include "Ostrel/BaseRouter.h"
#include "Ostrel/Export.h"
#include "Ostrel/Path.h"
#include "Ostrel/Types.h"

namespace Ostrel {

class OSTREL_EXPORT GifGnmiNotifiee : public Vek::GenericIf::NotifieeConst {
 public:
  // Allocation accounting of notifiees, under "Ostrel::GifGnmiNotifiee".
  static Vek::AllocTrackTypeInfo vekAllocTrackTypeInfo_;

  // Hooks a notifiee onto `entity` (weakly: it keeps the entity alive no
  // longer than anything else does) and registers it under `prefixPath`, or,
  // when that path is empty, under the path read from the entity's text form
  // entity('a.b.c') -> /a/b/c. An entry that exists already for the path or
  // the entity is left as it is. The options choose the walker flags of the
  // changes it publishes (`walkerFlags`).
  GifGnmiNotifiee(const Vek::PtrInterface* entity, gnmi::Path prefixPath, BaseRouter& router,
                  bool firstOption, bool secondOption);
  ~GifGnmiNotifiee() override;

  // Unregisters the notifiee of an entity that ends: removes the queued sync
  // work under its path, its entry in both registries and its timestamps.
  // The registry's reference goes last, which normally destroys the
  // notifiee. Fatal when the path is not registered.
  void onZeroReferences() override;
  // Publishes the change of attribute |attrId| (the id may come negated; the
  // sign is passed on to the change walker) and, for a collection, of the
  // member at `key`. Changes of attributes the type does not know are ignored.
  void onAttribute(Vek::AttributeId attrId, const void* key) override;

  const Vek::PtrInterface* entity() const { return entity_; }
  const gnmi::Path& prefixPath() const { return prefixPath_; }
  BaseRouter& router() const { return router_; }
  // The walker flags of the changes it publishes: 35 with the first option
  // (push results ignored, pushes suppressed), else 46; plus 64 (a delete
  // without a prior update is ignored) with the second.
  WalkerFlags walkerFlags() const;

  // One line "path:<path> notifiee:<address>\n" per registered prefix.
  static std::string dumpGnmiNotifieeMap();
  // One line "ptrInterface:<address> path:<path>\n" per watched entity.
  static std::string dumpNotifieePathMap();

 private:
  const Vek::PtrInterface* entity_;
  gnmi::Path prefixPath_;
  BaseRouter& router_;
  bool firstOption_;
  bool secondOption_;
};

// The notifiee of each published prefix (the map owns them), and the prefix
// of each watched entity. Paths hash and compare by names and keys.
OSTREL_EXPORT extern std::unordered_map<gnmi::Path, Vek::Ptr<GifGnmiNotifiee>> gNmiNotifieeMap;
OSTREL_EXPORT extern std::unordered_map<const Vek::PtrInterface*, gnmi::Path> notifieePathMap;

namespace VekGnmiUtils {

// The notifiee registered at exactly `prefix` (no longest-prefix search).
// Fatal when none is registered ("Could not locate gifGnmiNotifiee at prefix
// <p>") or the entry is null ("Notifiee does not exist for prefix <p>").
OSTREL_EXPORT Vek::Ptr<GifGnmiNotifiee> lookupGnmiNotifieeMap(const gnmi::Path& prefix);

}  // namespace VekGnmiUtils

}  // namespace Ostrel
