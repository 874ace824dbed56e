// A deterministic text dump of an entity tree, for checking that an operation
// left a model exactly as it was:
//
//   const std::string before = OstrelTest::dumpTree(*tree.root);
//   ...
//   EXPECT_EQ(OstrelTest::dumpTree(*tree.root), before);
//
// Each entity prints a header line with its path text and type, then one line
// per attribute in declaration order with the attribute's gNMI JSON text
// (pointers and owned entities as path text, collections as JSON objects or
// arrays in key order); the entities it owns follow, depth first.
#pragma once

#include <string>

#include <Vek/Vek.h>

namespace OstrelTest {

std::string dumpTree(const Vek::Entity& root);

}  // namespace OstrelTest
