#include "WalkSupport.h"

#include <fmt/format.h>

#include <Ostrel/Path.h>

namespace OstrelTest {

std::string valueText(const gnmi::TypedValue& value) {
  if (value.has_leaflist_val()) {
    std::string out = "[";
    for (const auto& element : value.leaflist_val().element()) {
      if (out.size() > 1) out += ", ";
      out += valueText(element);
    }
    return out + "]";
  }
  return value.ShortDebugString();
}

std::vector<std::string> TestRouter::leaves() const {
  std::vector<std::string> out;
  for (const auto& msg : messages) {
    if (!msg->response->has_update()) continue;
    const gnmi::Notification& n = msg->response->update();
    for (const auto& update : n.update()) {
      out.push_back(fmt::format("{} = {}", Ostrel::pathToStr(Ostrel::joinPath(n.prefix(), update.path())),
                                valueText(update.val())));
    }
    for (const auto& path : n.delete_()) {
      out.push_back("delete " + Ostrel::pathToStr(Ostrel::joinPath(n.prefix(), path)));
    }
  }
  return out;
}

void WalkTest::TearDown() {
  Ostrel::FullVekTypeWalker::flushWalkMap();
  Ostrel::staticPathWalkIdMap.clear();
  EXPECT_EQ(Ostrel::gNmiNotifieeMap.size(), 0u) << Ostrel::GifGnmiNotifiee::dumpGnmiNotifieeMap();
  EXPECT_EQ(Ostrel::notifieePathMap.size(), 0u);
  EXPECT_EQ(Ostrel::objTsMap().size(), 0u);
  Ostrel::gNmiNotifieeMap.clear();
  Ostrel::notifieePathMap.clear();
  Ostrel::objTsMap().clear();
}

}  // namespace OstrelTest
