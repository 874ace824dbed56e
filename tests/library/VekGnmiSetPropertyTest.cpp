// Set is all or nothing, as a property over generated requests against the
// sample model's interface eth0:
//   - a request in which exactly one operation fails (unknown attribute,
//     wrong value kind, missing member, a path into a leaf, a path ending on
//     a composite) changes no entity, fires no change notification, and its
//     status names that operation's path;
//   - a request that succeeds leaves every leaf with the value a simple model
//     of Replace and Update predicts, and each attribute that changed
//     notifies exactly once.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/Path.h>
#include <Ostrel/VekGnmiSetter.h>
#include <Vek/Vek.h>

#include "ChangeRecorder.h"
#include "SampleModel.h"
#include "SetRequests.h"
#include "TreeDump.h"

namespace {

namespace Sample = OstrelTest::Sample;
using Ostrel::VekGnmiSet::Set;
using OstrelTest::boolVal;
using OstrelTest::ChangeRecorder;
using OstrelTest::intVal;
using OstrelTest::stringVal;
using OstrelTest::uintVal;
using OstrelTest::updateOf;

const char* const ETH0 = "/devices/dev1/interfaces[name=eth0]";
constexpr int REQUESTS = 300;

// A leaf of eth0 a request may name.
struct Leaf {
  const char* path;
  char kind;             // 'm' mtu (64..9216), 'u' unsigned, 's' string, 'b' bool
  const char* typeName;  // as conversion messages name it
  const char* top;       // the attribute of eth0 it lies in
};

const std::vector<Leaf>& leaves() {
  static const std::vector<Leaf> all = {
      {"mtu", 'm', "unsigned int", "mtu"},
      {"description", 's', "Vek::String", "description"},
      {"enabled", 'b', "bool", "enabled"},
      {"config", 's', "Vek::String", "config"},
      {"counters/inPkts", 'u', "unsigned long long", "counters"},
      {"counters/outPkts", 'u', "unsigned long long", "counters"},
      {"counters/inErrors", 'u', "unsigned int", "counters"},
      {"stats/drops", 'u', "unsigned int", "stats"},
      {"stats/pkts/inPkts", 'u', "unsigned long long", "stats"},
      {"stats/pkts/outPkts", 'u', "unsigned long long", "stats"},
      {"stats/pkts/inErrors", 'u', "unsigned int", "stats"},
  };
  return all;
}

bool isComposite(const std::string& top) { return top == "counters" || top == "stats"; }

// The leaf's value as text (`strRep`), read through the runtime.
std::string readLeaf(const Vek::Entity& entity, const std::string& path) {
  Vek::Ptr<Vek::GenericIf const> at(&entity);
  const gnmi::Path elems = Ostrel::strToPath(path);
  for (const gnmi::PathElem& elem : elems.elem()) {
    at = at->type()->attr(elem.name()).genericIfGet(at);
  }
  return at->strRep();
}

std::map<std::string, std::string> readLeaves(const Vek::Entity& entity) {
  std::map<std::string, std::string> values;
  for (const Leaf& leaf : leaves()) values[leaf.path] = readLeaf(entity, leaf.path);
  return values;
}

// One generated operation: its update and, for a valid one, the value as
// text.
struct Op {
  gnmi::Update update;
  std::string text;
};

class Generator {
 public:
  explicit Generator(uint32_t seed) : random_(seed) {}

  size_t below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random_); }

  const Leaf& anyLeaf() { return leaves()[below(leaves().size())]; }

  // A valid write of `leaf`.
  Op validOp(const Leaf& leaf) {
    static const char* const TEXTS[] = {"uplink", "core", "", "a/b", "{\"speed\":\"1G\"}"};
    switch (leaf.kind) {
      case 'm': {
        const unsigned mtu = 64 + static_cast<unsigned>(below(9216 - 64 + 1));
        return {updateOf(leaf.path, uintVal(mtu)), std::to_string(mtu)};
      }
      case 'u': {
        // Small numbers, so that a write sometimes repeats the current value.
        const unsigned n = static_cast<unsigned>(below(4) == 0 ? below(3) : below(1000));
        return {updateOf(leaf.path, uintVal(n)), std::to_string(n)};
      }
      case 's': {
        const std::string text = TEXTS[below(std::size(TEXTS))];
        return {updateOf(leaf.path, stringVal(text)), text};
      }
      default: {
        const bool flag = below(2) == 0;
        return {updateOf(leaf.path, boolVal(flag)), flag ? "true" : "false"};
      }
    }
  }

  // An operation that fails, and the status message it must give.
  std::pair<gnmi::Update, std::string> failingOp() {
    const Leaf& leaf = anyLeaf();
    switch (below(5)) {
      case 0: {  // unknown attribute, on the entity or in a composite
        if (below(2) == 0) {
          return {updateOf("speed", uintVal(1)),
                  "Error in finding path speed: Attribute speed not found on Type Interface"};
        }
        return {updateOf("counters/speed", uintVal(1)),
                "Error in finding path counters/speed: Attribute speed not found on Type "
                "Counters"};
      }
      case 1: {  // wrong value kind
        const gnmi::TypedValue wrong = leaf.kind == 's'   ? uintVal(1)
                                       : leaf.kind == 'b' ? intVal(1)
                                                          : stringVal("x");
        const char* found = leaf.kind == 's' ? "unsigned int" : leaf.kind == 'b' ? "int" : "string";
        return {updateOf(leaf.path, wrong),
                std::string("Error in argument to path ") + leaf.path + ": Expected " +
                    leaf.typeName + "; found " + found};
      }
      case 2: {  // missing member
        if (below(2) == 0) {
          return {updateOf("addresses[ip=1.2.3.4]/prefixLength", uintVal(8)),
                  "Error in finding path addresses[ip=1.2.3.4]: Path element "
                  "addresses[ip=1.2.3.4] is not set"};
        }
        return {updateOf("vlans[index=9]", uintVal(8)),
                "Error in finding path vlans[index=9]: Path element vlans[index=9] is not set"};
      }
      case 3: {  // a path into a leaf, with a value the leaf would take
        Op op = validOp(leaf);
        op.update.mutable_path()->add_elem()->set_name("x");
        return {op.update, std::string("Error in finding path ") + leaf.path +
                               ": Path mapped to a leaf value cannot have a sub-element x"};
      }
      default: {  // a path ending on a composite
        static const char* const COMPOSITES[] = {"counters", "stats", "stats/pkts"};
        const std::string path = COMPOSITES[below(std::size(COMPOSITES))];
        return {updateOf(path, uintVal(1)),
                "Error in finding path " + path + ": Path must map to a leaf value"};
      }
    }
  }

 private:
  std::mt19937 random_;
};

// Records the changes of the entities around eth0.
struct Recorders {
  explicit Recorders(const Sample::Tree& tree) : device(tree.device), eth0(tree.eth0), eth1(tree.eth1) {}
  ChangeRecorder device;
  ChangeRecorder eth0;
  ChangeRecorder eth1;
};

TEST(VekGnmiSetProperty, RequestWithOneFailingOperationChangesNothingAndNamesIt) {
  Generator gen(20261123);
  for (int i = 0; i < REQUESTS; ++i) {
    const Sample::Tree tree = Sample::buildTree();
    const std::string before = OstrelTest::dumpTree(*tree.root);
    Recorders recorders(tree);

    std::vector<gnmi::Update> replaces;
    std::vector<gnmi::Update> updates;
    const size_t valid = gen.below(10);
    for (size_t k = 0; k < valid; ++k) {
      (gen.below(2) == 0 ? replaces : updates).push_back(gen.validOp(gen.anyLeaf()).update);
    }
    auto [failing, message] = gen.failingOp();
    std::vector<gnmi::Update>& list = gen.below(2) == 0 ? replaces : updates;
    list.insert(list.begin() + static_cast<long>(gen.below(list.size() + 1)), failing);
    const gnmi::SetRequest request = OstrelTest::setRequest(ETH0, replaces, updates);

    Set set(tree.root.ptr(), request);
    const auto [response, status] = set.execute();
    SCOPED_TRACE(request.ShortDebugString());
    EXPECT_FALSE(status.ok());
    EXPECT_EQ(status.error_message(), message);
    EXPECT_EQ(response.response_size(), request.replace_size() + request.update_size());
    EXPECT_EQ(OstrelTest::dumpTree(*tree.root), before);
    EXPECT_TRUE(recorders.device.events.empty());
    EXPECT_TRUE(recorders.eth0.events.empty());
    EXPECT_TRUE(recorders.eth1.events.empty());
    if (HasFailure()) return;
  }
}

TEST(VekGnmiSetProperty, RequestThatSucceedsLeavesEveryLeafAsModelledAndNotifiesEachChangeOnce) {
  Generator gen(11232026);
  for (int i = 0; i < REQUESTS; ++i) {
    const Sample::Tree tree = Sample::buildTree();
    const std::map<std::string, std::string> initial = readLeaves(*tree.eth0);
    Recorders recorders(tree);

    std::vector<Op> replaces;
    std::vector<Op> updates;
    const size_t count = 1 + gen.below(12);
    std::map<std::string, std::string> tops;  // leaf path -> top attribute
    for (const Leaf& leaf : leaves()) tops[leaf.path] = leaf.top;
    for (size_t k = 0; k < count; ++k) {
      (gen.below(2) == 0 ? replaces : updates).push_back(gen.validOp(gen.anyLeaf()));
    }

    // The model: a composite named by any replace starts again from the
    // type's defaults (all zero here); then the replaces, then the updates,
    // each leaf keeping the last value written.
    std::map<std::string, std::string> expected = initial;
    std::set<std::string> rebuilt;
    for (const Op& op : replaces) {
      const std::string& top = tops.at(Ostrel::pathToStr(op.update.path(), 0, false));
      if (isComposite(top)) rebuilt.insert(top);
    }
    for (const Leaf& leaf : leaves()) {
      if (rebuilt.count(leaf.top)) expected[leaf.path] = "0";
    }
    for (const std::vector<Op>* list : {&replaces, &updates}) {
      for (const Op& op : *list) expected[Ostrel::pathToStr(op.update.path(), 0, false)] = op.text;
    }
    std::vector<std::string> changed;
    for (const Leaf& leaf : leaves()) {
      if (expected[leaf.path] != initial.at(leaf.path) &&
          std::find(changed.begin(), changed.end(), leaf.top) == changed.end()) {
        changed.push_back(leaf.top);
      }
    }

    std::vector<gnmi::Update> replaceList;
    std::vector<gnmi::Update> updateList;
    for (const Op& op : replaces) replaceList.push_back(op.update);
    for (const Op& op : updates) updateList.push_back(op.update);
    const gnmi::SetRequest request = OstrelTest::setRequest(ETH0, replaceList, updateList);
    Set set(tree.root.ptr(), request);
    const grpc::Status status = set.execute().second;
    SCOPED_TRACE(request.ShortDebugString());
    ASSERT_TRUE(status.ok()) << status.error_message();
    EXPECT_EQ(readLeaves(*tree.eth0), expected);
    std::vector<std::string> events = recorders.eth0.events;
    std::sort(events.begin(), events.end());
    std::sort(changed.begin(), changed.end());
    EXPECT_EQ(events, changed);
    EXPECT_TRUE(recorders.device.events.empty());
    EXPECT_TRUE(recorders.eth1.events.empty());
    if (HasFailure()) return;
  }
}

}  // namespace
