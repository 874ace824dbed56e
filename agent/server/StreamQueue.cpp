#include "StreamQueue.h"

#include "MessageCodec.h"

namespace VekGnmi::Server {

bool SharedWire::bytesOf(const gnmi::SubscribeResponse& response, grpc::ByteBuffer& out) {
  std::lock_guard lock(mutex_);
  if (!serialised_) {
    serialised_ = true;
    ok_ = MessageCodec::encode(response, bytes_);
  }
  if (ok_) out = bytes_;
  return ok_;
}

bool OutMessage::serialise(grpc::ByteBuffer& out) const {
  if (wire_) return wire_->bytesOf(response(), out);
  out.Clear();
  return MessageCodec::encode(response(), out);
}

StreamQueue::StreamQueue(size_t syncLimit, size_t updatesPerMessage)
    : syncLimit_(syncLimit == 0 ? 1 : syncLimit),
      updatesPerMessage_(updatesPerMessage == 0 ? 1 : updatesPerMessage) {}

bool StreamQueue::pushSync(OutMessage message) {
  std::lock_guard lock(mutex_);
  // A closed stream takes nothing more: its sync pauses until the agent,
  // told that the stream has gone, cancels it.
  if (closed_) return false;
  sync_.push_back(std::move(message));
  if (sync_.size() >= syncLimit_) {
    full_ = true;
    return false;
  }
  return true;
}

void StreamQueue::pushSyncResponse() {
  auto response = std::make_shared<gnmi::SubscribeResponse>();
  response->set_sync_response(true);
  std::lock_guard lock(mutex_);
  if (!closed_) sync_.emplace_back(std::move(response));
}

void StreamQueue::pushUpdate(const gnmi::Path& prefix, const gnmi::Path& path,
                             gnmi::TypedValue value, int64_t timestamp) {
  std::lock_guard lock(mutex_);
  if (!closed_) changes_.update(prefix, path, std::move(value), timestamp);
}

void StreamQueue::pushUpdateEncoded(std::string key, gnmi::TypedValue value, int64_t timestamp) {
  std::lock_guard lock(mutex_);
  if (!closed_) changes_.updateEncoded(std::move(key), std::move(value), timestamp);
}

void StreamQueue::pushDelete(const gnmi::Path& prefix, const gnmi::Path& path, int64_t timestamp) {
  std::lock_guard lock(mutex_);
  if (!closed_) changes_.remove(prefix, path, timestamp);
}

StreamQueue::Next StreamQueue::pop() {
  Next next;
  std::lock_guard lock(mutex_);
  if (closed_) return next;
  if (!sync_.empty()) {
    next.message = std::move(sync_.front());
    sync_.pop_front();
    if (full_ && sync_.size() <= syncLimit_ / 2) {
      full_ = false;
      next.roomFreed = true;
    }
    return next;
  }
  if (!changes_.empty()) {
    auto response = std::make_shared<gnmi::SubscribeResponse>();
    gnmi::Notification* notification = response->mutable_update();
    changes_.popInto(*notification, updatesPerMessage_);
    if (!target_.empty()) notification->mutable_prefix()->set_target(target_);
    next.message = OutMessage(std::move(response));
  }
  return next;
}

void StreamQueue::targetIs(std::string target) {
  std::lock_guard lock(mutex_);
  target_ = std::move(target);
}

void StreamQueue::close() {
  std::deque<OutMessage> dropped;
  {
    std::lock_guard lock(mutex_);
    closed_ = true;
    dropped.swap(sync_);
    changes_.clear();
  }
}

bool StreamQueue::closed() const {
  std::lock_guard lock(mutex_);
  return closed_;
}

bool StreamQueue::hasRoom() const {
  std::lock_guard lock(mutex_);
  return !closed_ && sync_.size() < syncLimit_;
}

size_t StreamQueue::syncQueued() const {
  std::lock_guard lock(mutex_);
  return sync_.size();
}

size_t StreamQueue::changesQueued() const {
  std::lock_guard lock(mutex_);
  return changes_.size();
}

uint64_t StreamQueue::coalesced() const {
  std::lock_guard lock(mutex_);
  return changes_.coalesced();
}

}  // namespace VekGnmi::Server
