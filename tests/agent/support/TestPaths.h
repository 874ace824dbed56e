// Paths for the agent's tests, written in the gNMI path-strings convention.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include <gnmi/gnmi.pb.h>

#include "GnmiPathText.h"

namespace VekGnmiTest {

// The path `text` names; a test failure when the text is malformed.
inline gnmi::Path P(const std::string& text) {
  gnmi::Path path;
  std::string error;
  EXPECT_TRUE(VekGnmi::parsePathString(text, path, error)) << text << ": " << error;
  return path;
}

}  // namespace VekGnmiTest
