// Set: the attribute tree that stages, prepares and commits one request.
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/Path.h>
#include <Ostrel/VekGnmiSetter.h>
#include <Vek/Vek.h>

#include "SampleModel.h"
#include "SetRequests.h"
#include "TraceCapture.h"
#include "TreeDump.h"
#include "internal/AttrTree.h"

namespace {

namespace Sample = OstrelTest::Sample;
using namespace Ostrel::VekGnmiSet;
using OstrelTest::boolVal;
using OstrelTest::setRequest;
using OstrelTest::stringVal;
using OstrelTest::uintVal;
using OstrelTest::updateOf;

const char* const ETH0 = "/devices/dev1/interfaces[name=eth0]";

gnmi::PathElem elemOf(const std::string& text) { return Ostrel::strToPath(text).elem(0); }

// The tree of a Set whose prefix is ETH0, with the paths its nodes refer to
// (nodes do not copy their elements).
class Eth0Tree {
 public:
  explicit Eth0Tree(const Sample::Tree& tree) : prefix_(Ostrel::strToPath(ETH0)) {
    auto found = AttrTree::getDataElem(tree.device.ptr(), prefix_.elem(2));
    EXPECT_TRUE(found.ok());
    node_ = std::make_unique<AttrTree::EntityNode>(prefix_.elem(2), std::move(found).value());
  }

  Ostrel::Result<bool, AttrTree::Error> insert(const std::string& path,
                                               const gnmi::TypedValue& value) {
    const gnmi::Path& p = paths_.emplace_back(Ostrel::strToPath(path));
    return node_->insertPathSuffix(p.elem().begin(), p.elem().end(), value);
  }
  AttrTree::EntityNode* operator->() const { return node_.get(); }

 private:
  gnmi::Path prefix_;
  std::deque<gnmi::Path> paths_;
  std::unique_ptr<AttrTree::EntityNode> node_;
};

std::string pathOf(const AttrTree::Error& error) {
  gnmi::Path path;
  for (const gnmi::PathElem& elem : error.path) *path.add_elem() = elem;
  return Ostrel::pathToStr(path, 0, false);
}

grpc::Status execute(const Sample::Tree& tree, gnmi::SetRequest request) {
  Set set(tree.root.ptr(), std::move(request));
  return set.execute().second;
}

void expectStatus(const grpc::Status& status, grpc::StatusCode code, const std::string& message) {
  EXPECT_EQ(status.error_code(), code);
  EXPECT_EQ(status.error_message(), message);
}

Vek::Ptr<Vek::GenericIf const> countersOf(const Vek::Ptr<Vek::Entity>& intf) {
  return Sample::types().interface->attr("counters").genericIfGet(intf);
}

// inPkts, outPkts, inErrors of a Counters value.
std::vector<unsigned long long> fieldsOf(const Vek::GenericIf& counters) {
  return {counters.value<unsigned long long>("inPkts"), counters.value<unsigned long long>("outPkts"),
          counters.value<unsigned>("inErrors")};
}

using Fields = std::vector<unsigned long long>;

TEST(VekGnmiSetTree, SiblingLeavesOfOneCompositeShareOneNodeAndOneRebuiltValue) {
  const Sample::Tree tree = Sample::buildTree();
  Eth0Tree node(tree);
  ASSERT_TRUE(node.insert("counters/inPkts", uintVal(5)).ok());
  ASSERT_TRUE(node.insert("counters/outPkts", uintVal(6)).ok());
  ASSERT_EQ(node->attrs().nodes().size(), 1u);
  const auto* counters =
      dynamic_cast<const AttrTree::CompositeNode*>(node->attrs().nodes()[0].get());
  ASSERT_NE(counters, nullptr);
  EXPECT_EQ(counters->elem().name(), "counters");
  ASSERT_EQ(counters->attrs().nodes().size(), 2u);
  EXPECT_EQ(counters->attrs().nodes()[0]->elem().name(), "inPkts");
  EXPECT_EQ(counters->attrs().nodes()[1]->elem().name(), "outPkts");
  ASSERT_TRUE(node->prepare(SetOp::Update).ok());
  ASSERT_TRUE(node->commit().ok());
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{5, 6, 1}));
}

TEST(VekGnmiSetTree, ReplaceOfACompositeGivesDefaultsToTheAttributesItDoesNotName) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {updateOf("counters/inPkts", uintVal(7))}, {})).ok());
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{7, 0, 0}));
}

TEST(VekGnmiSetTree, UpdateOfACompositeKeepsTheAttributesItDoesNotName) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {}, {updateOf("counters/inPkts", uintVal(7))})).ok());
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{7, 200, 1}));
}

TEST(VekGnmiSetTree, ReplacePassesConstructorArgumentsAtTheirParametersPositions) {
  const Sample::Tree tree = Sample::buildTree();
  // outPkts alone: inPkts, the parameter before it, takes its default.
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {updateOf("counters/outPkts", uintVal(9))}, {})).ok());
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{0, 9, 0}));
  // The parameters named in the opposite order, and a non-parameter first.
  ASSERT_TRUE(execute(tree, setRequest(ETH0,
                                       {updateOf("counters/inErrors", uintVal(3)),
                                        updateOf("counters/outPkts", uintVal(2)),
                                        updateOf("counters/inPkts", uintVal(1))},
                                       {}))
                  .ok());
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{1, 2, 3}));
}

TEST(VekGnmiSetTree, PathEndingOnACompositeIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  Eth0Tree node(tree);
  const auto refused = node.insert("counters", uintVal(1));
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error().code, 5);
  EXPECT_EQ(pathOf(refused.error()), "counters");
  EXPECT_EQ(refused.error().message, "Path must map to a leaf value");
  expectStatus(execute(tree, setRequest(ETH0, {}, {updateOf("stats/pkts", uintVal(1))})),
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path stats/pkts: Path must map to a leaf value");
}

TEST(VekGnmiSetTree, PathEndingOnThePrefixEntityIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::SetRequest request = setRequest(ETH0, {}, {});
  request.add_update()->mutable_val()->set_uint_val(1);  // no path
  expectStatus(execute(tree, std::move(request)), grpc::StatusCode::NOT_FOUND,
               "Error in finding path : Path must map to a leaf value");
}

TEST(VekGnmiSetTree, ReplaceOfAPlainAttributeUnderThePrefixWritesOnlyThatAttribute) {
  const Sample::Tree tree = Sample::buildTree();
  tree.eth0->valueIs("mtu", 1500u);
  const std::string expected = OstrelTest::dumpTree(*tree.root);
  tree.eth0->valueIs("mtu", 9000u);
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {updateOf("mtu", uintVal(1500))}, {})).ok());
  EXPECT_EQ(OstrelTest::dumpTree(*tree.root), expected);
}

TEST(VekGnmiSetTree, CompositeRebuiltByAReplaceAndNotUpdatedKeepsItsValueAndIsCommitted) {
  const Sample::Tree tree = Sample::buildTree();
  Eth0Tree node(tree);
  ASSERT_TRUE(node.insert("counters/inPkts", uintVal(7)).ok());
  ASSERT_TRUE(node->prepare(SetOp::Replace).ok());
  node->pruneSubTree();
  const auto* counters =
      dynamic_cast<const AttrTree::CompositeNode*>(node->attrs().nodes()[0].get());
  ASSERT_NE(counters, nullptr);
  EXPECT_TRUE(counters->attrs().nodes().empty());
  ASSERT_TRUE(node.insert("mtu", uintVal(1000)).ok());
  ASSERT_TRUE(node->prepare(SetOp::Update).ok());
  EXPECT_EQ(fieldsOf(*counters->data().value), (Fields{7, 0, 0}));
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{100, 200, 1}));  // not before commit
  ASSERT_TRUE(node->commit().ok());
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{7, 0, 0}));
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 1000u);
}

TEST(VekGnmiSetTree, UpdateAfterAReplaceOfTheSameCompositePatchesTheRebuiltValue) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {updateOf("counters/inPkts", uintVal(7))},
                                       {updateOf("counters/outPkts", uintVal(9))}))
                  .ok());
  EXPECT_EQ(fieldsOf(*countersOf(tree.eth0)), (Fields{7, 9, 0}));
}

TEST(VekGnmiSetTree, ErrorThreeLevelsBelowThePrefixListsThoseThreeElements) {
  const Sample::Tree tree = Sample::buildTree();
  Eth0Tree node(tree);
  const auto refused = node.insert("stats/pkts/inPkts", stringVal("x"));
  ASSERT_FALSE(refused.ok());
  ASSERT_EQ(refused.error().path.size(), 3u);
  EXPECT_EQ(pathOf(refused.error()), "stats/pkts/inPkts");
  EXPECT_EQ(refused.error().code, 3);
  expectStatus(execute(tree, setRequest(ETH0, {}, {updateOf("stats/pkts/inPkts", stringVal("x"))})),
               grpc::StatusCode::INVALID_ARGUMENT,
               "Error in argument to path stats/pkts/inPkts: Expected unsigned long long; found "
               "string");
  expectStatus(execute(tree, setRequest(ETH0, {}, {updateOf("stats/pkts/bytes", uintVal(1))})),
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path stats/pkts/bytes: Attribute bytes not found on Type Counters");
}

TEST(VekGnmiSetTree, PathContinuingBelowALeafIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  const std::string message =
      "Error in finding path mtu: Path mapped to a leaf value cannot have a sub-element x";
  // The leaf made by this very path, and a leaf staged before it.
  expectStatus(execute(tree, setRequest(ETH0, {}, {updateOf("mtu/x", uintVal(1))})),
               grpc::StatusCode::NOT_FOUND, message);
  expectStatus(execute(tree, setRequest(ETH0, {},
                                        {updateOf("mtu", uintVal(1000)), updateOf("mtu/x", uintVal(1))})),
               grpc::StatusCode::NOT_FOUND, message);
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 9000u);
}

TEST(VekGnmiSetTree, EntityBelowThePrefixIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest("/devices/dev1", {}, {updateOf("chassis/serial", stringVal("x"))})),
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path chassis: Non-prefix path element must refer to value; found "
               "entity chassis");
  expectStatus(
      execute(tree, setRequest("/devices/dev1", {}, {updateOf("interfaces[name=eth0]/mtu", uintVal(1000))})),
      grpc::StatusCode::NOT_FOUND,
      "Error in finding path interfaces[name=eth0]: Non-prefix path element must refer to value; "
      "found entity interfaces[name=eth0]");
  expectStatus(execute(tree, setRequest(ETH0, {}, {updateOf("peer/mtu", uintVal(1000))})),
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path peer: Non-prefix path element must refer to value; found "
               "entity peer");
  expectStatus(execute(tree, setRequest("/devices", {}, {updateOf("dev1/hostname", stringVal("x"))})),
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path dev1: Non-prefix path element must refer to value; found "
               "entity dev1");
}

TEST(VekGnmiSetTree, WrongValueIsRefusedBeforeAnyNodeIsMade) {
  const Sample::Tree tree = Sample::buildTree();
  Eth0Tree node(tree);
  const auto refused = node.insert("mtu", stringVal("jumbo"));
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error().code, 3);
  EXPECT_EQ(pathOf(refused.error()), "mtu");
  EXPECT_EQ(refused.error().message, "Expected unsigned int; found string");
  EXPECT_TRUE(node->attrs().nodes().empty());
}

TEST(VekGnmiSetTree, SecondWriteToALeafInOnePhaseKeepsTheLast) {
  const Sample::Tree tree = Sample::buildTree();
  Eth0Tree node(tree);
  ASSERT_TRUE(node.insert("mtu", uintVal(1000)).ok());
  ASSERT_TRUE(node.insert("mtu", uintVal(2000)).ok());
  ASSERT_EQ(node->attrs().nodes().size(), 1u);
  ASSERT_TRUE(node->prepare(SetOp::Update).ok());
  ASSERT_TRUE(node->commit().ok());
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 2000u);
}

TEST(VekGnmiSetTree, SecondWriteToALeafWithAWrongValueKeepsTheFirst) {
  const Sample::Tree tree = Sample::buildTree();
  Eth0Tree node(tree);
  ASSERT_TRUE(node.insert("mtu", uintVal(1000)).ok());
  ASSERT_FALSE(node.insert("mtu", boolVal(true)).ok());
  EXPECT_EQ(node->attrs().nodes()[0]->data().value->as<unsigned>(), 1000u);
}

TEST(VekGnmiSetTree, ReadOnlyAttributeIsRefusedWhenStaged) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest(ETH0, {},
                                        {updateOf("description", stringVal("core")),
                                         updateOf("name", stringVal("eth9"))})),
               grpc::StatusCode::NOT_FOUND, "Error in finding path name: Attribute name is read-only");
  EXPECT_EQ(tree.eth0->value<Vek::String>("description"), Vek::String("uplink"));
  EXPECT_EQ(tree.eth0->name(), Vek::String("eth0"));
}

// A model whose value type refuses some of its values, so that building a
// new value in prepare meets a runtime refusal. Both attributes are
// constructor parameters (a value type that declares none takes all).
struct CheckedModel {
  Vek::VekType range;   // value: low (refuses above 100), high
  Vek::VekType holder;  // entity: range, note

  static const CheckedModel& get() {
    static const CheckedModel model;
    return model;
  }

 private:
  CheckedModel() {
    Vek::Module& m = Vek::Module::moduleNew("SetTreeChecked");
    range = m.valueType("Range")
                .scalar("low", Vek::builtinType<unsigned>())
                .check([](const Vek::GenericIf&, const Vek::GenericIf*, const Vek::GenericIf* v) {
                  return v && v->as<unsigned>() > 100 ? std::string("low above 100") : std::string();
                })
                .scalar("high", Vek::builtinType<unsigned>())
                .done();
    holder = m.entityType("Holder")
                 .scalar("note", Vek::builtinType<Vek::String>())
                 .scalar("range", range)
                 .done();
  }
};

TEST(VekGnmiSetTree, RuntimeRefusalWhilePreparingIsNotFoundAtTheRefusedAttribute) {
  const CheckedModel& model = CheckedModel::get();
  Vek::Ptr<Vek::Dir> root = Vek::Dir::rootNew("");
  Vek::Ptr<Vek::Entity> holder = root->childNew(model.holder, "h");
  // Replace builds the value with the runtime's constructor, which runs no
  // checks; the refusal must come all the same.
  for (SetOp op : {SetOp::Replace, SetOp::Update}) {
    gnmi::SetRequest request = setRequest("/h", {}, {});
    *request.add_update() = updateOf("note", stringVal("changed"));
    *(op == SetOp::Replace ? request.add_replace() : request.add_update()) =
        updateOf("range/low", uintVal(200));
    Set set(root.ptr(), std::move(request));
    const grpc::Status status = set.execute().second;
    expectStatus(status, grpc::StatusCode::NOT_FOUND,
                 "Error in finding path range/low: low above 100");
    EXPECT_EQ(holder->value<Vek::String>("note"), Vek::String());
  }
}

TEST(VekGnmiSetTree, AttrQueueKeepsInsertionOrderAndRefusesASecondNodeForAnElement) {
  const Sample::Tree tree = Sample::buildTree();
  std::deque<gnmi::PathElem> elems;  // the nodes refer to them
  const auto leaf = [&](const char* name) {
    const gnmi::PathElem& elem = elems.emplace_back(elemOf(name));
    auto found = AttrTree::getDataElem(tree.eth0.ptr(), elem);
    return std::make_unique<AttrTree::LeafNode>(elem, std::move(found).value());
  };
  AttrTree::CompositeNode::AttrQueue queue;
  const auto [firstInserted, first] = queue.insert(leaf("mtu"));
  EXPECT_TRUE(firstInserted);
  const auto [secondInserted, second] = queue.insert(leaf("enabled"));
  EXPECT_TRUE(secondInserted);
  const auto [againInserted, again] = queue.insert(leaf("mtu"));
  EXPECT_FALSE(againInserted);
  EXPECT_EQ(again, first);
  EXPECT_EQ(queue.get(elemOf("enabled")), second);
  EXPECT_EQ(queue.get(elemOf("mtu")), first);
  EXPECT_EQ(queue.get(elemOf("mtu[k=v]")), nullptr);
  ASSERT_EQ(queue.nodes().size(), 2u);
  EXPECT_EQ(queue.nodes()[0].get(), first);
  EXPECT_EQ(queue.nodes()[1].get(), second);
  queue.clear();
  EXPECT_TRUE(queue.nodes().empty());
  EXPECT_EQ(queue.get(elemOf("mtu")), nullptr);
}

TEST(VekGnmiSetTree, AttrQueueFindsEveryChildAfterGrowing) {
  const Sample::Tree tree = Sample::buildTree();
  std::deque<gnmi::PathElem> elems;
  AttrTree::CompositeNode::AttrQueue queue;
  const Vek::VekType scalars = Sample::types().scalars;
  std::vector<const AttrTree::ValueNode*> inserted;
  for (size_t i = 0; i < scalars->attrCount(); ++i) {
    const gnmi::PathElem& elem = elems.emplace_back(elemOf(scalars->attrAt(i)->name()));
    auto found = AttrTree::getDataElem(tree.scalars.ptr(), elem);
    ASSERT_TRUE(found.ok()) << elem.name();
    const auto [fresh, node] =
        queue.insert(std::make_unique<AttrTree::LeafNode>(elem, std::move(found).value()));
    EXPECT_TRUE(fresh);
    inserted.push_back(node);
  }
  ASSERT_GT(inserted.size(), 16u);
  for (size_t i = 0; i < elems.size(); ++i) {
    EXPECT_EQ(queue.get(elems[i]), inserted[i]) << elems[i].name();
    EXPECT_EQ(queue.nodes()[i].get(), inserted[i]);
  }
  EXPECT_EQ(queue.get(elemOf("nosuch")), nullptr);
}

TEST(VekGnmiSetTree, AttrQueueGivenTheElementsHashAnswersAsWhenItHashesItself) {
  const Sample::Tree tree = Sample::buildTree();
  std::deque<gnmi::PathElem> elems;
  AttrTree::CompositeNode::AttrQueue queue;
  const Vek::VekType scalars = Sample::types().scalars;
  for (size_t i = 0; i < scalars->attrCount(); ++i) {
    const gnmi::PathElem& elem = elems.emplace_back(elemOf(scalars->attrAt(i)->name()));
    auto found = AttrTree::getDataElem(tree.scalars.ptr(), elem);
    ASSERT_TRUE(found.ok()) << elem.name();
    const uint32_t hash = Ostrel::hashPathElem(elem);
    EXPECT_EQ(queue.get(elem, hash), nullptr);
    const auto [fresh, node] =
        queue.insert(std::make_unique<AttrTree::LeafNode>(elem, std::move(found).value()), hash);
    EXPECT_TRUE(fresh);
    EXPECT_EQ(queue.get(elem), node);
    EXPECT_EQ(queue.get(elem, hash), node);
  }
  // A second node for an element, offered with its hash, is refused.
  const gnmi::PathElem& again = elems.emplace_back(elemOf(scalars->attrAt(1)->name()));
  auto found = AttrTree::getDataElem(tree.scalars.ptr(), again);
  const auto [inserted, existing] =
      queue.insert(std::make_unique<AttrTree::LeafNode>(again, std::move(found).value()), Ostrel::hashPathElem(again));
  EXPECT_FALSE(inserted);
  EXPECT_EQ(existing, queue.nodes()[1].get());
}

TEST(VekGnmiSetTree, StagingPreparingPruningAndCommittingTraceEachNode) {
  const Sample::Tree tree = Sample::buildTree();
  std::vector<std::string> lines;
  {
    OstrelTest::TraceCapture capture("OstrelVekGnmiSet", 0xffffffffu);
    ASSERT_TRUE(execute(tree, setRequest(ETH0, {updateOf("counters/inPkts", uintVal(7))},
                                         {updateOf("mtu", uintVal(1000))}))
                    .ok());
    lines = capture.lines;
  }
  const std::vector<std::string> expected = {
      "4 Set Processing prefix path to find prefix entity",
      "4 Set Accessing objects in prefix path /devices/dev1/interfaces[name=eth0]",
      "8 AttrTree Accessing path element devices with 0 keys",
      "9 AttrTree Accessing entity named devices under Vek::Dir",
      "8 AttrTree Accessing path element dev1 with 0 keys",
      "9 AttrTree Accessing entity named dev1 under Vek::Dir",
      "8 AttrTree Accessing path element interfaces with 1 keys",
      "9 AttrTree Accessing attribute interfaces in type Device",
      "9 AttrTree Creating Gif key object for gnmi key [name = eth0]",
      "4 Set Setting prefixEntity associated to prefix path /devices/dev1/interfaces[name=eth0]",
      "4 Set Processing Replace ops",
      "7 EntityNode PathElem: interfaces[name=eth0]",
      "8 AttrTree Accessing path element counters with 0 keys",
      "9 AttrTree Accessing attribute counters in type Interface",
      "9 AttrTree Making a non-const copy of the Value type object",
      "7 CompositeNode PathElem: interfaces[name=eth0], inserting new CompositeNode for "
      "sub-element counters",
      "7 CompositeNode PathElem: counters",
      "8 AttrTree Accessing path element inPkts with 0 keys",
      "9 AttrTree Accessing attribute inPkts in type Counters",
      "7 CompositeNode PathElem: counters, inserting new LeafNode for sub-element inPkts",
      "7 LeafNode PathElem: inPkts",
      "7 LeafNode PathElem: inPkts, inserting a new leaf value",
      "7 EntityNode PathElem: interfaces[name=eth0], prepare sub-attrs",
      "7 CompositeNode PathElem: counters, prepare sub-trees",
      "7 LeafNode PathElem: inPkts, already prepared",
      "7 CompositeNode PathElem: counters, perform Replace",
      "7 EntityNode PathElem: interfaces[name=eth0], prune sub-attrs",
      "4 Set Processing Update ops",
      "7 EntityNode PathElem: interfaces[name=eth0]",
      "8 AttrTree Accessing path element mtu with 0 keys",
      "9 AttrTree Accessing attribute mtu in type Interface",
      "7 CompositeNode PathElem: interfaces[name=eth0], inserting new LeafNode for sub-element mtu",
      "7 LeafNode PathElem: mtu",
      "7 LeafNode PathElem: mtu, inserting a new leaf value",
      "7 EntityNode PathElem: interfaces[name=eth0], prepare sub-attrs",
      "7 CompositeNode PathElem: counters, prepare sub-trees",
      "7 CompositeNode PathElem: counters, perform Update",
      "7 LeafNode PathElem: mtu, already prepared",
      "4 Set All ops are processed successfully, so commit the final values",
      "7 EntityNode PathElem: interfaces[name=eth0], commit sub-attrs",
  };
  EXPECT_EQ(lines, expected);
}

}  // namespace
