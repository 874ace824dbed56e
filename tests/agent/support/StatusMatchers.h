// gmock matchers of grpc::Status, so that a failed status check prints the
// code and the message it got beside those it wanted:
//
//   EXPECT_THAT(stub.Get(&context, request, &response),
//               StatusIs(grpc::StatusCode::NOT_FOUND, HasSubstr("nothing exists")));
//   EXPECT_THAT(stream->Finish(), IsOk());
//
// Codes print by name ("NOT_FOUND (5)").
#pragma once

#include <ostream>
#include <string>

#include <absl/status/status.h>
#include <gmock/gmock.h>
#include <grpcpp/support/status.h>

namespace VekGnmiTest {

// The name of a status code as gRPC spells it ("NOT_FOUND"); gRPC's codes
// are abseil's.
inline std::string statusCodeName(grpc::StatusCode code) {
  return absl::StatusCodeToString(static_cast<absl::StatusCode>(code));
}

}  // namespace VekGnmiTest

namespace grpc {

// How gmock prints a status: `NOT_FOUND (5): "message"`. Found by
// argument-dependent lookup.
inline void PrintTo(const Status& status, std::ostream* os) {
  *os << VekGnmiTest::statusCodeName(status.error_code()) << " (" << static_cast<int>(status.error_code())
      << "): \"" << status.error_message() << "\"";
}

}  // namespace grpc

namespace VekGnmiTest {

class StatusIsMatcher {
 public:
  using is_gtest_matcher = void;

  StatusIsMatcher(grpc::StatusCode code, ::testing::Matcher<const std::string&> message)
      : code_(code), message_(std::move(message)) {}

  bool MatchAndExplain(const grpc::Status& status, ::testing::MatchResultListener* listener) const {
    if (status.error_code() != code_) {
      *listener << "whose code is " << statusCodeName(status.error_code());
      return false;
    }
    ::testing::StringMatchResultListener inner;
    if (!message_.MatchAndExplain(status.error_message(), &inner)) {
      *listener << "whose message does not match";
      if (!inner.str().empty()) *listener << ", " << inner.str();
      return false;
    }
    return true;
  }
  void DescribeTo(std::ostream* os) const {
    *os << "is a status " << statusCodeName(code_) << " whose message ";
    message_.DescribeTo(os);
  }
  void DescribeNegationTo(std::ostream* os) const {
    *os << "is not a status " << statusCodeName(code_) << " whose message ";
    message_.DescribeTo(os);
  }

 private:
  grpc::StatusCode code_;
  ::testing::Matcher<const std::string&> message_;
};

// A status of `code` whose message matches `message` (a string: equal to it).
inline StatusIsMatcher StatusIs(grpc::StatusCode code, ::testing::Matcher<const std::string&> message) {
  return StatusIsMatcher(code, std::move(message));
}
// A status of `code`, whatever its message.
inline StatusIsMatcher StatusIs(grpc::StatusCode code) { return StatusIsMatcher(code, ::testing::_); }
// grpc::Status::OK.
inline StatusIsMatcher IsOk() { return StatusIs(grpc::StatusCode::OK, ::testing::IsEmpty()); }

}  // namespace VekGnmiTest
