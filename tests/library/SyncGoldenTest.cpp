// The full sync of the sample model, message by message, as
// `ArenaRespMsg::toString` renders each, compared with
// tests/golden/SampleSync.txt (see tests/golden/README.md to regenerate it).
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "SampleModel.h"
#include "WalkSupport.h"

namespace {

using namespace Ostrel;

// One message per line: bytes outside printable ASCII (the raw bytes of
// double and bytes values) and the backslash are written as \xNN.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7f || c == '\\') {
      out += fmt::format("\\x{:02X}", byte);
    } else {
      out += c;
    }
  }
  return out;
}

class SyncGolden : public OstrelTest::WalkTest {};

TEST_F(SyncGolden, TheSampleModelSyncsAsTheGoldenFileSays) {
  std::string rendered;
  {
    auto tree = OstrelTest::Sample::buildTree();
    ASSERT_EQ(FullVekTypeWalker::syncObject(tree.devices.ptr(), strToPath("/devices"), router_,
                                            OstrelTest::ids(1, 1), WalkerFlags::RequestKindBit1),
              WalkResult::Done);
    for (const std::string& text : router_.texts) rendered += escaped(text) + "\n";
  }
  const std::string file = OSTREL_GOLDEN_DIR "/SampleSync.txt";
  if (const char* update = std::getenv("OSTREL_UPDATE_GOLDEN"); update && std::string(update) == "1") {
    std::ofstream(file) << rendered;
    GTEST_SKIP() << "wrote " << file;
  }
  std::ifstream in(file);
  ASSERT_TRUE(in) << "missing " << file;
  std::stringstream golden;
  golden << in.rdbuf();
  EXPECT_EQ(rendered, golden.str());
}

}  // namespace
