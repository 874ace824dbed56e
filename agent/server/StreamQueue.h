// The bounded outbound queue of one Subscribe stream, between the event loop
// (which fills it) and the stream's gRPC writer (which empties it).
//
// Two parts:
//   - sync messages, in order: the responses of a sync (initial or poll) and
//     its sync_response marker. Bounded: `pushSync` always takes the message
//     but answers false once `syncLimit` messages wait, which pauses the
//     library's sync (the router returns false); the writer reports when the
//     queue has drained to half the limit, and the agent then resumes syncs.
//   - changes, coalesced by leaf (CoalescingQueue): bounded by the number of
//     distinct leaves, never blocking the event loop.
// The writer takes sync messages first and changes only when no sync message
// waits, so a change queued after a sync message is never sent before it.
//
// Thread-safe: every member takes the queue's mutex.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include <Ostrel/ArenaRespMsg.h>
#include <grpcpp/support/byte_buffer.h>

#include <gnmi/gnmi.pb.h>

#include "CoalescingQueue.h"

namespace VekGnmi::Server {

// The bytes of one response that several streams send (a library message
// shared by the syncs of one walk): serialised once, by the first writer that
// needs them, and handed to every stream as a copy of one grpc::ByteBuffer
// (copies share its reference-counted slices, not the bytes). Thread-safe.
class SharedWire {
 public:
  // Copies the bytes of `response` (serialised on the first call) into
  // `out`; false when it cannot be serialised (a message over 2 GiB).
  bool bytesOf(const gnmi::SubscribeResponse& response, grpc::ByteBuffer& out);

 private:
  std::mutex mutex_;
  bool serialised_ = false;  // guarded by mutex_
  bool ok_ = false;          // guarded by mutex_
  grpc::ByteBuffer bytes_;   // guarded by mutex_
};

// One response to write: a library message sent as it is (with the bytes it
// shares with other streams, if it goes to several), or one the agent built.
// Either handle may be dropped on any thread.
class OutMessage {
 public:
  OutMessage() = default;
  explicit OutMessage(Ostrel::ArenaRespMsgPtr library, std::shared_ptr<SharedWire> wire = nullptr)
      : library_(std::move(library)), wire_(std::move(wire)) {}
  explicit OutMessage(std::shared_ptr<gnmi::SubscribeResponse> own) : own_(std::move(own)) {}

  const gnmi::SubscribeResponse& response() const {
    return library_ ? *library_->response : *own_;
  }
  explicit operator bool() const { return library_ || own_; }
  bool isLibraryMessage() const { return static_cast<bool>(library_); }

  // The response's bytes into `out`: the shared ones when there are, else
  // serialised now. False when it cannot be serialised.
  bool serialise(grpc::ByteBuffer& out) const;

 private:
  Ostrel::ArenaRespMsgPtr library_;
  std::shared_ptr<SharedWire> wire_;
  std::shared_ptr<gnmi::SubscribeResponse> own_;
};

class StreamQueue {
 public:
  static constexpr size_t DEFAULT_SYNC_LIMIT = 64;
  static constexpr size_t DEFAULT_UPDATES_PER_MESSAGE = 512;

  explicit StreamQueue(size_t syncLimit = DEFAULT_SYNC_LIMIT,
                       size_t updatesPerMessage = DEFAULT_UPDATES_PER_MESSAGE);

  // Queues a sync message; false when the queue is now full (the caller's
  // sync must pause). Once closed the message is dropped and the answer is
  // false: the sync of a stream that has gone waits to be cancelled.
  bool pushSync(OutMessage message);
  // Queues a sync_response marker (never refused for room).
  void pushSyncResponse();
  // Queues a change (already in the subscriber's encoding), or a delete.
  void pushUpdate(const gnmi::Path& prefix, const gnmi::Path& path, gnmi::TypedValue value,
                  int64_t timestamp);
  void pushUpdateEncoded(std::string key, gnmi::TypedValue value, int64_t timestamp);
  void pushDelete(const gnmi::Path& prefix, const gnmi::Path& path, int64_t timestamp);

  // What the writer gets: the next message, or nothing; `roomFreed` is set
  // when this pop drained a full sync queue to half its limit.
  struct Next {
    OutMessage message;
    bool roomFreed = false;
  };
  Next pop();

  // Sets the target that every notification the agent builds carries in its
  // prefix (empty: none).
  void targetIs(std::string target);

  // After close every push is ignored (pushSync answers false) and pop
  // returns nothing; queued messages are dropped (their handles released on
  // the calling thread).
  void close();
  bool closed() const;

  bool hasRoom() const;
  size_t syncQueued() const;
  size_t changesQueued() const;
  uint64_t coalesced() const;

 private:
  const size_t syncLimit_;
  const size_t updatesPerMessage_;
  mutable std::mutex mutex_;
  std::deque<OutMessage> sync_;
  CoalescingQueue changes_;
  std::string target_;
  bool full_ = false;  // a pushSync answered false and room has not been reported since
  bool closed_ = false;
};

}  // namespace VekGnmi::Server
