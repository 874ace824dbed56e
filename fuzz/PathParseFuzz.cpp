// Fuzzes the three path parsers. The first byte picks the parser; the rest is
// the text. With the throwing fatal handler installed, every input must either
// parse or fail with one of the documented messages, and whatever parses must
// print, hash and compare consistently.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <Ostrel/Path.h>
#include <Zolt/Zolt.h>

namespace {

[[noreturn]] void fail(const std::string& what, const std::string& text) {
  std::fprintf(stderr, "%s for input \"%s\"\n", what.c_str(), text.c_str());
  std::abort();
}

// The parse failures strToPath may report, each naming the whole input text.
bool isDocumentedFailure(const std::string& message, const std::string& text) {
  const std::string quoted = "\"" + text + "\"";
  return message == "path " + quoted + " contains a trailing backslash" ||
         message == "reached end of path " + quoted + " without finding '='" ||
         message == "reached end of path " + quoted + " without finding ']'";
}

bool hasSpecialCharacters(const gnmi::Path& path) {
  auto special = [](const std::string& s) {
    return s.find_first_of("/[]=\\") != std::string::npos || s.empty();
  };
  for (const auto& elem : path.elem()) {
    if (special(elem.name())) return true;
    for (const auto& [k, v] : elem.key()) {
      if (special(k) || v.find_first_of("/[]=\\") != std::string::npos) return true;
    }
  }
  return false;
}

void fuzzStrToPath(const std::string& text) {
  gnmi::Path path;
  try {
    path = Ostrel::strToPath(text);
  } catch (const Zolt::FatalError& error) {
    if (!isDocumentedFailure(error.message, text)) fail("undocumented failure: " + error.message, text);
    return;
  }
  const std::string printed = Ostrel::pathToStr(path);
  if (Ostrel::hashPath(path) != Ostrel::hashPath(gnmi::Path(path))) fail("unstable hash", text);
  if (!(path == path)) fail("path unequal to itself", text);
  if (!Ostrel::isPrefix(path, path)) fail("path not a prefix of itself", text);
  if (Ostrel::removePrefix(path, path).elem_size() != 0) fail("self removal not empty", text);
  // Printing and parsing are inverse only without special characters.
  if (!hasSpecialCharacters(path) && !(Ostrel::strToPath(printed) == path)) {
    fail("round trip changed the path printed as " + printed, text);
  }
}

void fuzzPathToGnmiPath(const std::string& text) {
  const gnmi::Path path = Ostrel::pathToGnmiPath(text);
  size_t nameBytes = 0;
  for (const auto& elem : path.elem()) {
    if (elem.name().empty() || elem.name().find('/') != std::string::npos) {
      fail("empty or slashed name", text);
    }
    nameBytes += elem.name().size();
  }
  size_t nonSlash = 0;
  for (char c : text) nonSlash += c != '/';
  if (nameBytes != nonSlash) fail("names lost or gained bytes", text);
}

// extractGifPath aborts (outside the fatal handler) on text that does not
// match, so the fuzzer feeds it only references it must accept: the payload,
// with white space replaced, inside entity('...').
void fuzzExtractGifPath(std::string payload) {
  if (payload.empty()) payload = "x";
  for (char& c : payload) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r') c = '_';
  }
  const std::string out = Ostrel::extractGifPath("entity('" + payload + "')");
  if (out.size() != payload.size()) fail("length changed", payload);
  for (size_t i = 0; i < out.size(); ++i) {
    const char expected = payload[i] == '.' ? '/' : payload[i];
    if (out[i] != expected) fail("unexpected character in " + out, payload);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Zolt::fatalHandlerIs(&Zolt::throwingFatalHandler);
  Zolt::traceSinkIs([](const Zolt::TraceRecord&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 3) {
    case 0:
      fuzzStrToPath(text);
      break;
    case 1:
      fuzzPathToGnmiPath(text);
      break;
    default:
      fuzzExtractGifPath(text);
      break;
  }
  return 0;
}
