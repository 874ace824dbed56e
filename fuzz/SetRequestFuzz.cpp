// Fuzzes Set: arbitrary bytes parsed as a gnmi::SetRequest are applied to a
// fresh sample tree (tests/support/SampleModel.h). Every input must end in a
// status: no fatal assertion, no exception, no sanitizer report. A request
// refused before its commit must leave the tree exactly as it was (compared
// through a dump), and `execute` on a twin tree must give the same status,
// leave the same tree and list one result per requested operation.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <google/protobuf/stubs/logging.h>

#include <Ostrel/VekGnmiSetter.h>
#include <Vek/Vek.h>
#include <Zolt/Zolt.h>

#include "SampleModel.h"
#include "TreeDump.h"

namespace {

namespace Sample = OstrelTest::Sample;

[[noreturn]] void fail(const std::string& what, const gnmi::SetRequest& request) {
  std::fprintf(stderr, "%s\nrequest: %s\n", what.c_str(), request.ShortDebugString().c_str());
  std::abort();
}

std::string describe(const grpc::Status& status) {
  return std::to_string(status.error_code()) + " \"" + status.error_message() + "\"";
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Zolt::fatalHandlerIs(&Zolt::throwingFatalHandler);
  Zolt::traceSinkIs([](const Zolt::TraceRecord&) {});
  // Parsing refuses strings that are not UTF-8, and says so on every input.
  google::protobuf::SetLogHandler(nullptr);
  // Every trace of the Set side is formatted, so its arguments are fuzzed too.
  Zolt::Platform::getDebugHandler("OstrelVekGnmiSet").levelMaskIs(0xffffffffu);
  Sample::types();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  gnmi::SetRequest request;
  if (!request.ParseFromArray(data, static_cast<int>(size))) return 0;
  const int operations = request.delete__size() + request.replace_size() + request.update_size();
  try {
    // Prepared and committed in two calls, so a refusal before the commit is
    // told apart from one inside it.
    const Sample::Tree tree = Sample::buildTree();
    const std::string before = OstrelTest::dumpTree(*tree.root);
    grpc::Status status;
    {
      Ostrel::VekGnmiSet::Set set(tree.root.ptr(), request);
      status = set.prepare();
      if (!status.ok()) {
        if (OstrelTest::dumpTree(*tree.root) != before) {
          fail("a request refused before its commit changed the tree: " + describe(status),
               request);
        }
      } else {
        status = set.commit();
      }
    }
    if (!status.ok() && status.error_message().empty()) fail("a refusal without a message", request);

    const Sample::Tree twin = Sample::buildTree();
    Ostrel::VekGnmiSet::Set set(twin.root.ptr(), request);
    const auto [response, executed] = set.execute();
    if (executed.error_code() != status.error_code() ||
        executed.error_message() != status.error_message()) {
      fail("execute gave " + describe(executed) + ", prepare and commit " + describe(status),
           request);
    }
    if (OstrelTest::dumpTree(*twin.root) != OstrelTest::dumpTree(*tree.root)) {
      fail("execute and prepare-commit left different trees", request);
    }
    if (response.response_size() != operations) fail("the response misses operations", request);
  } catch (const Zolt::FatalError& e) {
    fail("fatal assertion: " + e.message, request);
  }
  return 0;
}
