#include "StreamChannel.h"

namespace VekGnmi::Server {

StreamWriter::~StreamWriter() = default;

StreamChannel::StreamChannel(StreamWriter* writer, size_t syncLimit, const Clock& clock)
    : queue_(syncLimit), clock_(clock), writer_(writer) {}

void StreamChannel::onRoomFreed(std::function<void()> callback) {
  std::lock_guard lock(mutex_);
  onRoomFreed_ = std::move(callback);
}

void StreamChannel::kick() {
  std::unique_lock lock(mutex_);
  postTurn(lock);
}

void StreamChannel::postTurn(std::unique_lock<std::mutex>& lock) {
  if (detached_ || writing_ || finishIssued_ || turnPosted_) return;
  if (!finishWanted_ && queue_.syncQueued() == 0 && queue_.changesQueued() == 0) return;
  turnPosted_ = true;
  lock.unlock();
  // The turn holds the channel: it may run after the RPC is done.
  std::shared_ptr<StreamChannel> self = shared_from_this();
  withWriter([&](StreamWriter& writer) { writer.post([self] { self->turn(); }); });
}

void StreamChannel::turn() {
  std::unique_lock lock(mutex_);
  turnPosted_ = false;
  next(lock);
}

template <typename Fn>
void StreamChannel::withWriter(Fn fn) {
  std::lock_guard writerLock(writerMutex_);
  if (writer_ != nullptr) fn(*writer_);
}

void StreamChannel::next(std::unique_lock<std::mutex>& lock) {
  if (detached_ || writing_ || finishIssued_) return;
  StreamQueue::Next next = queue_.pop();
  if (next.message) {
    writing_ = true;
    writeStarted_ = clock_.now();
    inFlight_ = std::move(next.message);
    const OutMessage& message = inFlight_;
    std::function<void()> roomFreed = next.roomFreed ? onRoomFreed_ : nullptr;
    lock.unlock();
    // `writing_` is ours: no other thread starts a write or a normal finish
    // until this write completes.
    withWriter([&](StreamWriter& writer) { writer.startWrite(message); });
    if (roomFreed) roomFreed();
    return;
  }
  if (finishWanted_) {
    finishIssued_ = true;
    const grpc::Status status = *finishWanted_;
    lock.unlock();
    withWriter([&](StreamWriter& writer) { writer.finish(status); });
  }
}

void StreamChannel::finishWhenDrained(grpc::Status status) {
  std::unique_lock lock(mutex_);
  if (finishWanted_) return;
  finishWanted_ = std::move(status);
  postTurn(lock);
}

bool StreamChannel::abort(grpc::Status status) {
  queue_.close();
  std::unique_lock lock(mutex_);
  if (aborted_ || finishIssued_ || cancelIssued_ || detached_) return false;
  aborted_ = true;
  finishWanted_ = std::move(status);
  if (!writing_) {
    postTurn(lock);
    return true;
  }
  // A write is outstanding and may never complete: a Finish would wait
  // behind it, so cancel with the status; the write then fails and
  // `writeDone` issues the Finish.
  cancelIssued_ = true;
  const grpc::Status finalStatus = *finishWanted_;
  lock.unlock();
  withWriter([&](StreamWriter& writer) { writer.cancel(finalStatus); });
  return true;
}

void StreamChannel::cancelIfStillOpen() {
  std::unique_lock lock(mutex_);
  const grpc::Status status =
      finishWanted_ ? *finishWanted_ : grpc::Status(grpc::StatusCode::CANCELLED, "stream cancelled");
  lock.unlock();
  withWriter([&](StreamWriter& writer) { writer.cancel(status); });
}

Clock::Duration StreamChannel::writeBlockedFor() const {
  std::lock_guard lock(mutex_);
  return writing_ ? clock_.now() - writeStarted_ : Clock::Duration::zero();
}

bool StreamChannel::ended() const {
  std::lock_guard lock(mutex_);
  return aborted_ || finishIssued_ || cancelIssued_ || detached_;
}

void StreamChannel::writeDone(bool ok) {
  OutMessage done;  // released outside the lock
  std::unique_lock lock(mutex_);
  writing_ = false;
  done = std::move(inFlight_);
  if (!ok) {
    // The RPC broke (client gone or cancelled): nothing more can be sent.
    if (!finishWanted_) finishWanted_ = grpc::Status(grpc::StatusCode::CANCELLED, "stream cancelled");
    lock.unlock();
    queue_.close();
    lock.lock();
  }
  next(lock);
}

void StreamChannel::cancelled() {
  queue_.close();
  std::unique_lock lock(mutex_);
  if (!finishWanted_) finishWanted_ = grpc::Status(grpc::StatusCode::CANCELLED, "stream cancelled");
  next(lock);
}

void StreamChannel::detach() {
  {
    std::lock_guard writerLock(writerMutex_);
    writer_ = nullptr;
  }
  OutMessage done;
  std::lock_guard lock(mutex_);
  detached_ = true;
  writing_ = false;
  done = std::move(inFlight_);
}

}  // namespace VekGnmi::Server
