// Fixtures of the YANG model tests: modules written by a test into a folder
// of their own, the Debian-installed IETF modules, loading a model and data,
// syncing the built tree with the library and reading back what it
// published as RFC 7951 JSON.
#pragma once

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <Ostrel/Path.h>
#include <Ostrel/VekTypeWalker.h>

#include "SortedLists.h"
#include "WalkSupport.h"
#include "YangData.h"
#include "YangJson.h"
#include "YangModel.h"
#include "YangSchema.h"

namespace YangTest {

using namespace VekGnmi::Yang;

// Where libyuma-base installs the IETF modules: NMDA revisions, and the
// classic ones (with iana-if-type, which only the classic folder has).
inline const std::string NMDA_DIR = "/usr/share/yuma/nmda-modules/ietf";
inline const std::string CLASSIC_DIR = "/usr/share/yuma/modules/ietf";

// A new folder holding the files `modules` (file name -> text).
inline std::string writeModules(const std::map<std::string, std::string>& modules) {
  static std::atomic<int> next{0};
  const std::filesystem::path dir = std::filesystem::path(::testing::TempDir()) /
                                    ("yang-modules-" + std::to_string(::getpid()) + "-" + std::to_string(next++));
  std::filesystem::create_directories(dir);
  for (const auto& [name, text] : modules) std::ofstream(dir / name) << text;
  return dir.string();
}

// Loads models and data, and syncs them on the test clock; every entity is
// released before the walk maps are checked.
class YangFixture : public OstrelTest::WalkTest {
 protected:
  void SetUp() override {
    // libyang prints dates in the process's time zone (ctest sets it too).
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }
  void TearDown() override {
    root_ = nullptr;
    OstrelTest::WalkTest::TearDown();
  }

  std::shared_ptr<YangModel> model(const std::vector<std::string>& dirs, const std::vector<std::string>& modules,
                                    const std::vector<std::string>& features = {}) {
    auto schema = YangSchema::load({dirs, modules, features});
    EXPECT_TRUE(schema.ok()) << schema.error();
    if (!schema) return nullptr;
    auto built = YangModel::build(schema.value());
    EXPECT_TRUE(built.ok()) << built.error();
    return built ? built.value() : nullptr;
  }

  // Parses and builds `json` into root_; returns libyang's print of it.
  nlohmann::json load(const YangModel& model, const std::string& json) {
    auto tree = YangDataTree::parseJson(model, json);
    EXPECT_TRUE(tree.ok()) << tree.error();
    if (!tree) return nullptr;
    auto root = YangData::buildRoot(model, tree.value());
    EXPECT_TRUE(root.ok()) << root.error();
    if (root) root_ = root.value();
    return tree.value().json();
  }

  // Syncs every top-level container of root_ at its path (as the agent syncs
  // the root's children); leaves_ gets what was published, as text.
  nlohmann::json published(const YangModel& model) {
    router_.clear();
    uint64_t walk = 1;
    for (Vek::CollectionIterator it = Vek::Dir::entityPtrAttr().genericIfIteratorConst(root_); it; ++it) {
      const Ostrel::WalkResult result = Ostrel::FullVekTypeWalker::syncObject(
          it.ptr().ptr(), Ostrel::strToPath("/" + it.key()->strRep()), router_, OstrelTest::ids(1, walk++),
          Ostrel::WalkerFlags::RequestKindBit1);
      EXPECT_EQ(result, Ostrel::WalkResult::Done);
    }
    leaves_ = router_.leaves();
    PublishedJson out(model);
    for (const auto& msg : router_.messages) {
      std::string error;
      EXPECT_TRUE(out.add(msg->response->update(), error)) << error;
    }
    return out.json();
  }

  Vek::Ptr<Vek::Dir> root_;
  std::vector<std::string> leaves_;
};

}  // namespace YangTest
