// A Subscribe client for the agent's end-to-end tests: subscription
// requests, a stream that reads up to its sync_response, notifications
// flattened to "path=value" lines, and the lines vekgnmi prints.
#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "AgentFixture.h"
#include "ClientCommands.h"
#include "GnmiPathText.h"
#include "TestPaths.h"

namespace VekGnmiTest {

inline gnmi::SubscribeRequest subscription(gnmi::SubscriptionList::Mode mode, std::vector<std::string> paths,
                                    gnmi::Encoding encoding = gnmi::JSON,
                                    gnmi::SubscriptionMode streamMode = gnmi::TARGET_DEFINED) {
  gnmi::SubscribeRequest r;
  r.mutable_subscribe()->set_mode(mode);
  r.mutable_subscribe()->set_encoding(encoding);
  for (const std::string& p : paths) {
    gnmi::Subscription* s = r.mutable_subscribe()->add_subscription();
    *s->mutable_path() = P(p);
    s->set_mode(streamMode);
  }
  return r;
}

struct Stream {
  grpc::ClientContext context;
  std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>> rw;

  Stream(gnmi::gNMI::Stub& stub, const gnmi::SubscribeRequest& request, int deadlineSeconds = 20) {
    withDeadline(context, deadlineSeconds);
    rw = stub.Subscribe(&context);
    rw->Write(request);
  }
  // Reads up to and including the next sync_response; returns the
  // notifications read before it.
  std::vector<gnmi::Notification> untilSync() {
    std::vector<gnmi::Notification> out;
    gnmi::SubscribeResponse r;
    while (rw->Read(&r)) {
      if (r.has_update()) out.push_back(r.update());
      if (r.response_case() == gnmi::SubscribeResponse::kSyncResponse) return out;
    }
    ADD_FAILURE() << "the stream ended before a sync_response";
    return out;
  }
  // Reads what is left of the stream and returns how it ended.
  grpc::Status end() {
    gnmi::SubscribeResponse r;
    while (rw->Read(&r)) {
    }
    return finish();
  }
  // Cancels the stream (unless it has been finished) and waits for its end.
  void close() {
    if (finished_) return;
    context.TryCancel();
    finish();
  }
  // The stream's status, once every response has been read; once only.
  grpc::Status finish() {
    EXPECT_FALSE(finished_) << "the stream was finished already";
    finished_ = true;
    return rw->Finish();
  }
  gnmi::Notification next() {
    gnmi::SubscribeResponse r;
    while (rw->Read(&r)) {
      if (r.has_update()) return r.update();
      ADD_FAILURE() << "unexpected response " << r.ShortDebugString();
    }
    ADD_FAILURE() << "the stream ended";
    return {};
  }

 private:
  bool finished_ = false;
};

// Every update of `notifications` as "path=value", values rendered compactly.
inline std::vector<std::string> flat(const std::vector<gnmi::Notification>& notifications) {
  std::vector<std::string> out;
  for (const gnmi::Notification& n : notifications) {
    for (const gnmi::Update& u : n.update()) {
      const std::string path = VekGnmi::joinedPathString(n.prefix(), u.path());
      const gnmi::TypedValue& v = u.val();
      std::string value = v.has_json_val()        ? v.json_val()
                          : v.has_json_ietf_val() ? "ietf:" + v.json_ietf_val()
                                                  : v.ShortDebugString();
      out.push_back(path + "=" + value);
    }
    for (const gnmi::Path& d : n.delete_()) out.push_back("delete " + VekGnmi::joinedPathString(n.prefix(), d));
  }
  return out;
}

// vekgnmi run against the agent at `address`: the lines it prints.
inline std::vector<std::string> clientLines(const std::string& address, std::vector<std::string> args,
                                            int expectedCode = 0) {
  args.insert(args.begin(), {"--address", address});
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(VekGnmi::Client::runClient(args, out, err), expectedCode) << err.str();
  std::vector<std::string> lines;
  std::istringstream in(out.str());
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace VekGnmiTest
