// What the library publishes for the sample model, compared with golden files
// (see tests/golden/README.md to regenerate them):
//   SampleSync.txt     the full sync, message by message, as
//                      `ArenaRespMsg::toString` renders each;
//   SampleChanges.txt  the change stream of a published device through a
//                      scripted series of changes, each at its own time of
//                      the test clock.
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <Ostrel/Path.h>

#include "Golden.h"
#include "SampleModel.h"
#include "WalkSupport.h"

namespace {

using namespace Ostrel;
using OstrelTest::escapedLine;
using OstrelTest::expectGolden;
using OstrelTest::Sample::ipv4;
using OstrelTest::Sample::name;
using OstrelTest::Sample::types;

class SyncGolden : public OstrelTest::WalkTest {};

TEST_F(SyncGolden, TheSampleModelSyncsAsTheGoldenFileSays) {
  std::string rendered;
  {
    auto tree = OstrelTest::Sample::buildTree();
    ASSERT_EQ(FullVekTypeWalker::syncObject(tree.devices.ptr(), strToPath("/devices"), router_,
                                            OstrelTest::ids(1, 1), WalkerFlags::RequestKindBit1),
              WalkResult::Done);
    for (const std::string& text : router_.texts) rendered += escapedLine(text) + "\n";
  }
  expectGolden("SampleSync.txt", rendered);
}

// The sample device, published (synced once, the sync forgotten), then
// changed step by step, one second of the test clock apart. `step` renders
// what the library pushed for each: a "# what" line, then per message its
// sync id, timestamp and prefix, and one line per update and delete.
class ChangeStreamGolden : public OstrelTest::WalkTest {
 protected:
  void SetUp() override {
    tree_ = OstrelTest::Sample::buildTree();
    ASSERT_EQ(FullVekTypeWalker::syncObject(tree_.device.ptr(), strToPath("/devices/dev1"), router_,
                                            OstrelTest::ids(1, 1), WalkerFlags::RequestKindBit1),
              WalkResult::Done);
    router_.clear();
  }
  void TearDown() override {
    tree_ = {};
    OstrelTest::WalkTest::TearDown();
  }

  template <typename Change>
  void step(const std::string& what, Change change) {
    clock_.advance(1.0);
    change();
    rendered_ += "# " + what + "\n";
    for (size_t i = 0; i < router_.messages.size(); ++i) {
      const gnmi::Notification& n = router_.messages[i]->response->update();
      rendered_ += fmt::format("sync {} timestamp {} prefix {}\n", router_.syncIds[i].value(), n.timestamp(),
                               pathToStr(n.prefix()));
      for (const gnmi::Update& u : n.update()) {
        rendered_ += escapedLine(fmt::format("  update {} = {}", pathToStr(u.path()), OstrelTest::valueText(u.val()))) +
                     "\n";
      }
      for (const gnmi::Path& d : n.delete_()) rendered_ += escapedLine("  delete " + pathToStr(d)) + "\n";
    }
    router_.clear();
  }

  OstrelTest::Sample::Tree tree_;
  std::string rendered_;
};

TEST_F(ChangeStreamGolden, TheSampleModelsChangesStreamAsTheGoldenFileSays) {
  const Vek::VekAttr interfaces = types().device->attr("interfaces");
  step("eth0's mtu and description updated", [&] {
    tree_.eth0->valueIs("mtu", 1280u);
    tree_.eth0->valueIs("description", "core link");
  });
  step("the hostname updated", [&] { tree_.device->valueIs("hostname", "dev1.example"); });
  step("eth0's counters replaced by a new value", [&] {
    types().interface->attr("counters").genericIfSet(
        tree_.eth0, nullptr,
        types().counters.genericIf(Vek::GenericIfArgs{Vek::genericIfOf(7ull), Vek::genericIfOf(8ull)}));
  });
  step("an element of eth0's vlans changed", [&] {
    types().interface->attr("vlans").genericIfSet(tree_.eth0, Vek::genericIfOf(1u),
                                                  Vek::genericIfOf(static_cast<unsigned short>(99)));
  });
  step("a vlan name added, then changed", [&] {
    const Vek::VekAttr vlanNames = types().device->attr("vlanNames");
    vlanNames.genericIfSet(tree_.device, Vek::genericIfOf(static_cast<unsigned short>(30)),
                           Vek::genericIfOf("voice"));
    vlanNames.genericIfSet(tree_.device, Vek::genericIfOf(static_cast<unsigned short>(30)),
                           Vek::genericIfOf("video"));
  });
  step("a member of vlanNames erased", [&] {
    types().device->attr("vlanNames").genericIfErase(tree_.device,
                                                     Vek::genericIfOf(static_cast<unsigned short>(10)));
  });
  step("an address of eth0 erased", [&] {
    types().interface->attr("addresses").genericIfErase(tree_.eth0, ipv4("192.168.1.1"));
  });
  step("eth1 removed (what points at it is cleared)", [&] {
    tree_.eth1 = nullptr;
    tree_.device->entityDel(interfaces, name("eth1"));
  });
  step("eth1 created again", [&] { tree_.eth1 = tree_.device->entityNew("interfaces", name("eth1")); });
  step("the new eth1's mtu updated", [&] { tree_.eth1->valueIs("mtu", 9100u); });
  step("the fan created", [&] { tree_.device->entityNew("fan"); });
  step("the fan cleared", [&] { tree_.device->entityDel(types().device->attr("fan")); });
  expectGolden("SampleChanges.txt", rendered_);
}

}  // namespace
