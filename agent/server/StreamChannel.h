// One Subscribe stream between the event loop and gRPC: its outbound queue
// and the writer that empties it into the RPC, one write at a time.
//
// gRPC's callback API allows one outstanding write per stream and no write
// after Finish. The channel keeps that rule under its mutex: whoever turns
// `writing_` from false to true starts the next write; Finish is issued
// once, when no write is outstanding.
//
// The event loop never starts a write (nor a Finish) itself: starting one
// runs gRPC's write inline on the calling thread, serialisation and
// `sendmsg` included, and the loop that applies changes would pay a system
// call per change with every change behind it waiting. The loop only queues
// and `kick`s; a kick of an idle stream posts one turn to the writer
// (`StreamWriter::post`, one of gRPC's threads), which starts the write.
// Further writes are started by the previous write's completion, on gRPC's
// threads too. At most one turn is posted at a time.
//
// `abort` ends a stream at once. With no write outstanding it finishes with
// its status (on the writer's turn). With a write outstanding (a subscriber
// that does not read: the write waits for the client's flow-control window) a
// Finish would queue its status behind the blocked data, where the client
// never sees it; so the RPC is cancelled with the status instead, which gRPC
// sends in trailers that overtake the blocked data, and the Finish that the
// callback API still requires follows when the write completes (failed).
//
// How long a write has been blocked is measured on the agent's Clock, so
// that the send timeout runs on the same time as the loop's timers.
//
// The gRPC side is reached through `StreamWriter` (the reactor); it detaches
// itself when the RPC is done, after which every call is a no-op. A posted
// turn holds the channel, never the writer, so it may run after the RPC is
// done. Calls into the writer are made under `writerMutex_` (recursive, so
// that a reaction gRPC runs inline on the calling thread may call back in),
// never under `mutex_`; `detach` takes `writerMutex_`, so the writer cannot
// go away during a call.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include <grpcpp/support/status.h>

#include "Clock.h"
#include "StreamQueue.h"

namespace VekGnmi::Server {

class StreamWriter {
 public:
  virtual ~StreamWriter();
  // Sends `message` (its bytes taken, OutMessage::serialise, before the
  // call returns); the completion comes back through
  // `StreamChannel::writeDone`.
  virtual void startWrite(const OutMessage& message) = 0;
  // Ends the RPC with `status` after the outstanding write, if any.
  virtual void finish(const grpc::Status& status) = 0;
  // Ends the RPC now, with `status` delivered to the client even past data
  // its flow control holds back; an outstanding write then fails.
  virtual void cancel(const grpc::Status& status) = 0;
  // Runs `task` soon on one of the writer's threads, never inside this call.
  // `task` runs once, whether or not the RPC has ended meanwhile.
  virtual void post(std::function<void()> task) = 0;
};

class StreamChannel : public std::enable_shared_from_this<StreamChannel> {
 public:
  // `clock` times blocked writes and must outlive the channel.
  StreamChannel(StreamWriter* writer, size_t syncLimit, const Clock& clock = systemClock());

  StreamQueue& queue() { return queue_; }

  // Called (on the writer's thread) when a write drained a full sync queue
  // to half: the agent resumes paused syncs.
  void onRoomFreed(std::function<void()> callback);

  // Has the writer start a write, on its own thread, if none is outstanding
  // and something is queued. Never calls `startWrite` itself.
  void kick();
  // Ends the stream with `status` once everything queued has been written
  // (the Finish issued on the writer's thread).
  void finishWhenDrained(grpc::Status status);
  // Ends the stream now: drops what is queued and ends the RPC with
  // `status`, even while a write is outstanding (see above). Returns false
  // when it had ended. Never calls `startWrite` or `finish` itself; the
  // cancel of a stream whose write is outstanding is issued here.
  bool abort(grpc::Status status);
  // For a stream aborted while a write stayed blocked: cancels the RPC (with
  // the abort's status) if it has not ended yet.
  void cancelIfStillOpen();

  // How long the outstanding write has been waiting (zero when none).
  Clock::Duration writeBlockedFor() const;
  // Whether the stream has been ended (aborted, finish issued or RPC gone).
  bool ended() const;

  // Writer side: the outstanding write completed (ok false: the RPC broke).
  void writeDone(bool ok);
  // Writer side: the RPC was cancelled by the client or the server.
  void cancelled();
  // Writer side: the RPC is done; the writer must not be called any more.
  void detach();

 private:
  // Starts the next write or the finish; called with `lock` held, releases it.
  void next(std::unique_lock<std::mutex>& lock);
  // Posts a turn of the writer (which runs `next`) unless one is posted or
  // there is nothing it could start; called with `lock` held, releases it.
  void postTurn(std::unique_lock<std::mutex>& lock);
  // The posted turn, on the writer's thread.
  void turn();

  // Calls the writer if it is still attached.
  template <typename Fn>
  void withWriter(Fn fn);

  StreamQueue queue_;
  const Clock& clock_;
  std::recursive_mutex writerMutex_;
  StreamWriter* writer_;  // guarded by writerMutex_
  mutable std::mutex mutex_;
  bool detached_ = false;
  bool writing_ = false;
  Clock::Duration writeStarted_{};
  OutMessage inFlight_;
  std::optional<grpc::Status> finishWanted_;
  bool finishIssued_ = false;
  bool cancelIssued_ = false;  // aborted while a write was outstanding
  bool aborted_ = false;
  bool turnPosted_ = false;
  std::function<void()> onRoomFreed_;
};

}  // namespace VekGnmi::Server
