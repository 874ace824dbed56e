#include "Subscription.h"

#include <unordered_set>

#include "PathIndex.h"

#include <fmt/format.h>
#include <Zolt/Zolt.h>

#include "BoundedText.h"
#include "CoalescingQueue.h"
#include "GnmiPathText.h"
#include "ValueEncoding.h"

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentSubscription");
// Sync messages queued before the writer is woken.
constexpr size_t SYNC_KICK_BATCH = 16;
}  // namespace

Subscription::Subscription(Context context, std::shared_ptr<StreamChannel> channel,
                           SubscribeParams params)
    : context_(context), channel_(std::move(channel)), params_(std::move(params)) {
  channel_->queue().targetIs(params_.target);
  for (const SubscriptionEntry& e : params_.entries) {
    auto entry = std::make_unique<Entry>();
    entry->params = e;
    entry->keepsTable = params_.mode == gnmi::SubscriptionList::STREAM &&
                        (e.mode == gnmi::SAMPLE || e.heartbeatInterval != 0);
    anyTable_ = anyTable_ || entry->keepsTable;
    paths_.insert(e.path, entry.get());
    entries_.push_back(std::move(entry));
  }
}

Subscription::~Subscription() { end(); }

void Subscription::start() {
  if (params_.mode == gnmi::SubscriptionList::STREAM) {
    std::vector<gnmi::Path> paths;
    for (const auto& entry : entries_) paths.push_back(entry->params.path);
    context_.router.addChangeSink(this, paths);
    changeSink_ = true;
  }
  startSync();
}

void Subscription::startSync() {
  std::vector<PublishedEntity> cover;
  std::vector<PublishedEntity> watch;
  std::unordered_set<const Vek::Entity*> seen;
  for (const auto& entry : entries_) {
    Resolution r;
    const grpc::Status status = resolvePath(context_.schema, entry->params.path, r);
    // A path the model cannot hold is not implemented by this target; a
    // member that does not exist now is no error (see Subscription.h).
    if (status.error_code() == grpc::StatusCode::NOT_FOUND) {
      return fail({grpc::StatusCode::UNIMPLEMENTED,
                   fmt::format("this target does not implement the path {}: {}",
                               boundedText(pathString(entry->params.path)), status.error_message())});
    }
    if (!status.ok()) return fail(status);
    for (PublishedEntity& e : r.cover) {
      if (seen.insert(e.entity.ptr()).second) cover.push_back(std::move(e));
    }
    for (PublishedEntity& e : r.watch) watch.push_back(std::move(e));
  }
  if (params_.mode == gnmi::SubscriptionList::STREAM && !initialDone_) {
    std::vector<PublishedEntity> watchOnly;
    for (PublishedEntity& e : watch) {
      if (seen.insert(e.entity.ptr()).second) watchOnly.push_back(std::move(e));
    }
    context_.router.watch(watchOnly);
  }
  ZOLT_TRACE(dbg, 4, "Subscription", "sync of {} entities", cover.size());
  syncing_ = context_.router.startSync(*this, std::move(cover), SyncKind::Subscribe);
}

void Subscription::poll() {
  if (ended_) return;
  if (params_.mode != gnmi::SubscriptionList::POLL) {
    return fail({grpc::StatusCode::INVALID_ARGUMENT,
                 "a Poll was sent on a subscription whose mode is not POLL"});
  }
  if (syncing_) {
    ++pollsWaiting_;
    return;
  }
  startSync();
}

void Subscription::clientDone() {
  clientDone_ = true;
  if (!ended_ && params_.mode == gnmi::SubscriptionList::POLL && !syncing_) {
    channel_->finishWhenDrained(grpc::Status::OK);
  }
}

void Subscription::end() {
  if (ended_) return;
  ended_ = true;
  context_.router.cancel(*this);
  if (changeSink_) context_.router.removeChangeSink(this);
  for (const auto& entry : entries_) {
    if (entry->timer) context_.loop.cancel(entry->timer);
    entry->timer = 0;
    entry->table.clear();
  }
}

void Subscription::fail(grpc::Status status) {
  ZOLT_TRACE(dbg, 2, "Subscription", "ending the stream: {}", status.error_message());
  channel_->abort(std::move(status));
  end();
}

gnmi::TypedValue Subscription::encoded(const gnmi::Path& prefix, const gnmi::Path& path,
                                       const gnmi::TypedValue& value) {
  if (params_.encoding == gnmi::PROTO && !context_.source.protoChanges(prefix, path, value)) return value;
  gnmi::TypedValue out;
  context_.source.encode(context_.schema.leafOf(prefix, path), value, params_.encoding, out);
  return out;
}

void Subscription::record(Entry& entry, const gnmi::Notification& notification, const gnmi::Update& update) {
  Row& row = entry.table[encodePath(notification.prefix(), update.path())];
  row.value = encoded(notification.prefix(), update.path(), update.val());
  row.timestamp = notification.timestamp();
  row.dirty = true;
}

void Subscription::prune(Entry& entry, const gnmi::Path& prefix, const gnmi::Path& deleted) {
  const std::string key = encodePath(prefix, deleted);
  auto it = entry.table.lower_bound(key);
  while (it != entry.table.end() && it->first.compare(0, key.size(), key) == 0) it = entry.table.erase(it);
}

bool Subscription::onSyncMessage(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) {
  StreamQueue& queue = channel_->queue();
  if (ended_ || syncId != syncing_ || !message->response->has_update()) return queue.hasRoom();
  const gnmi::Notification& notification = message->response->update();
  // Whether some path holds everything published at this prefix; when none
  // does and none goes below it, nothing here is for this subscription.
  bool whole = false;
  bool below = false;
  paths_.forPrefix(notification.prefix(), [&](Entry*, bool all) {
    whole = whole || all;
    below = below || !all;
  });
  if (!whole && !below) return queue.hasRoom();
  if (anyTable_) {
    for (const gnmi::Update& u : notification.update()) {
      paths_.forUnder(PathElems{notification.prefix(), &u.path()}, [&](Entry* entry) {
        if (entry->keepsTable) record(*entry, notification, u);
      });
    }
  }
  if (params_.mode == gnmi::SubscriptionList::STREAM && params_.updatesOnly && !initialDone_) {
    return true;  // published silently: only changes go out
  }
  const bool room = queueSync(message, whole);
  // The writer is woken once per batch of sync messages, or when the queue
  // is full; the sync's end (onSyncDone) wakes it for what is left. Waking
  // it for every message made a writer that keeps up sleep and wake once
  // per message.
  if (!room || queue.syncQueued() >= SYNC_KICK_BATCH) channel_->kick();
  return room;
}

bool Subscription::queueSync(const Ostrel::ArenaRespMsgPtr& message, bool whole) {
  StreamQueue& queue = channel_->queue();
  const gnmi::Notification& notification = message->response->update();
  if (whole && params_.encoding == gnmi::PROTO && params_.target.empty() && !protoChanges(notification)) {
    // The library's message goes out as it is, the same handle for every
    // subscription that shares its sync (nobody changes it), serialised once
    // for all of them. A message whose values PROTO sends otherwise is
    // copied below.
    return queue.pushSync(context_.router.outMessageOf(message));
  }
  auto response = std::make_shared<gnmi::SubscribeResponse>();
  gnmi::Notification* out = response->mutable_update();
  out->set_timestamp(notification.timestamp());
  *out->mutable_prefix() = notification.prefix();
  if (!params_.target.empty()) out->mutable_prefix()->set_target(params_.target);
  for (const gnmi::Update& u : notification.update()) {
    if (!whole) {
      bool under = false;
      paths_.forUnder(PathElems{notification.prefix(), &u.path()}, [&](Entry*) { under = true; });
      if (!under) continue;
    }
    gnmi::Update* copy = out->add_update();
    *copy->mutable_path() = u.path();
    *copy->mutable_val() = encoded(notification.prefix(), u.path(), u.val());
    copy->set_duplicates(u.duplicates());
  }
  for (const gnmi::Path& d : notification.delete_()) {
    bool concerned = whole;
    if (!concerned) paths_.forUnderOrAbove(PathElems{notification.prefix(), &d}, [&](Entry*) { concerned = true; });
    if (concerned) *out->add_delete_() = d;
  }
  if (out->update_size() == 0 && out->delete__size() == 0) return queue.hasRoom();
  return queue.pushSync(OutMessage(std::move(response)));
}

bool Subscription::protoChanges(const gnmi::Notification& notification) const {
  for (const gnmi::Update& u : notification.update()) {
    if (context_.source.protoChanges(notification.prefix(), u.path(), u.val())) return true;
  }
  return false;
}

bool Subscription::hasRoom() const { return !ended_ && channel_->queue().hasRoom(); }

void Subscription::onSyncDone(Ostrel::SyncId syncId) {
  if (ended_ || syncId != syncing_) return;
  syncing_ = Ostrel::SyncId();
  channel_->queue().pushSyncResponse();
  channel_->kick();
  switch (params_.mode) {
    case gnmi::SubscriptionList::ONCE:
      channel_->finishWhenDrained(grpc::Status::OK);
      return;
    case gnmi::SubscriptionList::POLL:
      if (pollsWaiting_ > 0) {
        --pollsWaiting_;
        startSync();
      } else if (clientDone_) {
        channel_->finishWhenDrained(grpc::Status::OK);
      }
      return;
    default:
      break;
  }
  initialDone_ = true;
  const int64_t now = context_.loop.clock().utcNanos();
  for (const auto& entry : entries_) {
    entry->lastFullSend = now;
    for (auto& [key, row] : entry->table) row.dirty = false;  // the initial sync sent them
    if (entry->keepsTable) armTimer(*entry);
  }
}

void Subscription::armTimer(Entry& entry) {
  const uint64_t interval =
      entry.params.mode == gnmi::SAMPLE ? entry.params.sampleInterval : entry.params.heartbeatInterval;
  if (interval == 0) return;
  Entry* target = &entry;
  entry.timer = context_.loop.postAfter(std::chrono::nanoseconds(interval), [this, target] {
    target->timer = 0;
    if (!ended_) tick(*target);
  });
}

void Subscription::tick(Entry& entry) {
  const int64_t now = context_.loop.clock().utcNanos();
  const bool heartbeatDue =
      entry.params.heartbeatInterval != 0 &&
      now - entry.lastFullSend >= static_cast<int64_t>(entry.params.heartbeatInterval);
  const bool everything =
      heartbeatDue || (entry.params.mode == gnmi::SAMPLE && !entry.params.suppressRedundant);
  StreamQueue& queue = channel_->queue();
  for (auto& [key, row] : entry.table) {
    if (everything || (entry.params.mode == gnmi::SAMPLE && row.dirty)) {
      queue.pushUpdateEncoded(key, row.value, row.timestamp);
    }
    row.dirty = false;
  }
  if (everything) entry.lastFullSend = now;
  channel_->kick();
  armTimer(entry);
}

void Subscription::onChange(const Ostrel::ArenaRespMsgPtr& message, const ChangeMatch& match) {
  if (ended_ || params_.mode != gnmi::SubscriptionList::STREAM || !message->response->has_update()) {
    return;
  }
  const gnmi::Notification& notification = message->response->update();
  StreamQueue& queue = channel_->queue();
  bool queued = false;
  int last = -1;  // the last update queued: one that falls under several paths goes out once
  for (const auto& [index, path] : match.updates) {
    Entry& entry = *entries_[path];
    const gnmi::Update& u = notification.update(index);
    if (entry.keepsTable) record(entry, notification, u);
    if (entry.params.mode != gnmi::ON_CHANGE || index == last) continue;
    queue.pushUpdate(notification.prefix(), u.path(), encoded(notification.prefix(), u.path(), u.val()),
                     notification.timestamp());
    last = index;
    queued = true;
  }
  last = -1;
  for (const auto& [index, path] : match.deletes) {
    Entry& entry = *entries_[path];
    const gnmi::Path& d = notification.delete_(index);
    if (entry.keepsTable) prune(entry, notification.prefix(), d);
    if (index == last) continue;
    queue.pushDelete(notification.prefix(), d, notification.timestamp());
    last = index;
    queued = true;
  }
  if (queued) channel_->kick();
}

}  // namespace VekGnmi::Server
