// Notification helpers.
#include "Ostrel/VekGnmiUtils.h"

#include <cstdint>

#include <Zolt/Zolt.h>

#include "Ostrel/TimeStamps.h"
#include "internal/PlainAssert.h"

namespace Ostrel::VekGnmiUtils {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelVekGnmiUtils");
}  // namespace

void populateTimestamp(gnmi::Notification& notification, Timestamp timestamp) {
  notification.set_timestamp(timestamp);
}

void pushDelete(gnmi::Notification& notification, const gnmi::Path& path) {
  notification.add_delete_()->CopyFrom(path);
}

// Agents match the location of this assertion, so it is fixed rather than
// wherever the check happens to sit in this file.
constexpr unsigned GET_TIMESTAMP_ASSERT_LINE = 33;

Timestamp getTimestamp(const char* attrName, GifGnmiNotifiee* gifNotifiee,
                       const Vek::Ptr<Vek::GenericIf const>* key) {
  if (gifNotifiee == nullptr) {
    plainAssertFail("gifNotifiee", __FILE_NAME__, GET_TIMESTAMP_ASSERT_LINE, __PRETTY_FUNCTION__);
  }
  const std::optional<Timestamp> time =
      key ? TimeStampUtils::lookupCollectionKeyTs(gifNotifiee, attrName, *key)
          : TimeStampUtils::lookupAttrTs(gifNotifiee, attrName);
  return time.value_or(0);
}

WalkerFlags requestTypeToFlags(RequestType requestType) {
  switch (static_cast<uint32_t>(requestType)) {
    case 0:
      return WalkerFlags::RequestKindBit1;
    case 1:
      return WalkerFlags::RequestKindBit2;
    case 2:
      return WalkerFlags::RequestKindBit1 | WalkerFlags::RequestKindBit2;
    default:
      ZOLT_FMASSERT(dbg, "VekGnmiUtils", "Unrecognized request type:{}",
                    static_cast<uint32_t>(requestType));
  }
}

std::string stringVecJoin(std::vector<std::string> parts, const std::string& separator) {
  if (parts.empty()) {
    return {};
  }
  size_t length = separator.size() * (parts.size() - 1);
  for (const std::string& part : parts) {
    length += part.size();
  }
  // The parts are ours (taken by value): grow the first one in place.
  std::string joined = std::move(parts.front());
  joined.reserve(length);
  for (size_t i = 1; i < parts.size(); ++i) {
    joined += separator;
    joined += parts[i];
  }
  return joined;
}

}  // namespace Ostrel::VekGnmiUtils
