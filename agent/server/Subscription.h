// One Subscribe stream as the event loop sees it: its subscriptions, the
// syncs it owns, the changes it takes, its sample and heartbeat timers.
//
//   ONCE    initial sync, one sync_response, then the stream ends with OK;
//   POLL    the same for the list and for every Poll;
//   STREAM  initial sync (published silently with updates_only), exactly one
//           sync_response, then changes: ON_CHANGE (and TARGET_DEFINED)
//           entries queue every change under their path, coalesced by leaf;
//           SAMPLE entries keep the latest value of each leaf and send them
//           every sample_interval (only changed ones with
//           suppress_redundant, all of them again at least every
//           heartbeat_interval); ON_CHANGE entries with a heartbeat_interval
//           re-send their leaves that often.
// Paths are answered as gNMI clients expect of a Subscribe: a path with nothing under it now keeps the stream open
// (ONCE and POLL send nothing for it), since members created later are
// published by their owner's notifiee and pass the filter; a path the model
// cannot hold (an element its schema does not have) ends the stream with
// UNIMPLEMENTED; a malformed path (a key the list does not have, a key value
// that is no value of its key) with INVALID_ARGUMENT.
//
// Lives on the event-loop thread; ended by `end`, after which it takes
// nothing more.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Router.h"
#include "EventLoop.h"
#include "ModelSchema.h"
#include "ModelSource.h"
#include "PathIndex.h"
#include "PathResolver.h"
#include "Requests.h"
#include "StreamChannel.h"

namespace VekGnmi::Server {

class Subscription final : public SyncOwner, public ChangeSink {
 public:
  struct Context {
    EventLoop& loop;
    Router& router;
    const ModelSource& source;
    ModelSchema& schema;
  };

  Subscription(Context context, std::shared_ptr<StreamChannel> channel, SubscribeParams params);
  ~Subscription() override;

  // Resolves the paths and starts the initial sync; a path that cannot be
  // resolved ends the stream with its status.
  void start();
  // A Poll arrived.
  void poll();
  // The client will send nothing more: a POLL subscription ends with OK once
  // its last poll has been answered; other modes go on.
  void clientDone();
  // Stops everything: syncs cancelled, no more changes, timers dropped.
  void end();

  bool onSyncMessage(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) override;
  void onSyncDone(Ostrel::SyncId syncId) override;
  bool hasRoom() const override;
  void onChange(const Ostrel::ArenaRespMsgPtr& message, const ChangeMatch& match) override;

  const std::shared_ptr<StreamChannel>& channel() const { return channel_; }
  const SubscribeParams& params() const { return params_; }
  bool ended() const { return ended_; }
 private:
  struct Row {
    gnmi::TypedValue value;  // in the subscriber's encoding
    int64_t timestamp = 0;
    bool dirty = true;
  };
  struct Entry {
    SubscriptionEntry params;
    bool keepsTable = false;                 // SAMPLE, or a heartbeat
    std::map<std::string, Row> table;        // by encoded leaf path
    EventLoop::TimerId timer = 0;
    int64_t lastFullSend = 0;                // ns: last time every row went out
  };

  // Queues the sync message's updates (and deletes) that fall under the
  // subscription's paths; false when the queue is full.
  bool queueSync(const Ostrel::ArenaRespMsgPtr& message, bool whole);
  void record(Entry& entry, const gnmi::Notification& notification, const gnmi::Update& update);
  void prune(Entry& entry, const gnmi::Path& prefix, const gnmi::Path& deleted);
  // Resolves every entry's path now and starts a sync of what covers them
  // (entities are resolved again for every poll: members come and go).
  void startSync();
  gnmi::TypedValue encoded(const gnmi::Path& prefix, const gnmi::Path& path, const gnmi::TypedValue& value);
  // Whether some value of `notification` goes out otherwise in PROTO.
  bool protoChanges(const gnmi::Notification& notification) const;
  void armTimer(Entry& entry);
  void tick(Entry& entry);
  void fail(grpc::Status status);

  Context context_;
  std::shared_ptr<StreamChannel> channel_;
  SubscribeParams params_;
  std::vector<std::unique_ptr<Entry>> entries_;
  PathIndex<Entry*> paths_;   // the entries by requested path, for sync messages
  bool anyTable_ = false;     // some entry keeps a table
  Ostrel::SyncId syncing_;     // the sync in progress, if any
  bool initialDone_ = false;
  size_t pollsWaiting_ = 0;
  bool clientDone_ = false;
  bool ended_ = false;
  bool changeSink_ = false;
};

}  // namespace VekGnmi::Server
