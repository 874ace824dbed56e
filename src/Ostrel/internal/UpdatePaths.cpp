#include "UpdatePaths.h"

namespace Ostrel::UpdatePaths {

namespace {

// Whether `path` holds more than elements: an origin, a target, or the old
// string elements (deprecated, but a path may still carry them).
bool hasMoreThanElems(const gnmi::Path& path) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  const bool oldElements = path.element_size() > 0;
#pragma GCC diagnostic pop
  return oldElements || !path.origin().empty() || !path.target().empty();
}

}  // namespace

void append(const gnmi::Path& from, gnmi::Path* to) {
  if (hasMoreThanElems(from)) {
    to->MergeFrom(from);
    return;
  }
  for (const gnmi::PathElem& elem : from.elem()) {
    gnmi::PathElem* copy = to->add_elem();
    copy->set_name(elem.name());
    if (!elem.key().empty()) *copy->mutable_key() = elem.key();
  }
}

gnmi::TypedValue* addUpdate(gnmi::Notification& notification, const gnmi::Path& path,
                            const std::string* leaf) {
  gnmi::Update* update = notification.add_update();
  gnmi::Path* updatePath = update->mutable_path();
  append(path, updatePath);
  if (leaf) updatePath->add_elem()->set_name(*leaf);
  return update->mutable_val();
}

}  // namespace Ostrel::UpdatePaths
