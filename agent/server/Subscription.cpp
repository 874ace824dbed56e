#include "Subscription.h"

#include <unordered_set>

#include <fmt/format.h>
#include <Zolt/Zolt.h>

#include "CoalescingQueue.h"
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
    entry->filter = PathFilter(e.path);
    entry->keepsTable = params_.mode == gnmi::SubscriptionList::STREAM &&
                        (e.mode == gnmi::SAMPLE || e.heartbeatInterval != 0);
    entries_.push_back(std::move(entry));
  }
}

Subscription::~Subscription() { end(); }

void Subscription::start() {
  if (params_.mode == gnmi::SubscriptionList::STREAM) {
    context_.dispatcher.addChangeSink(this);
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
    context_.dispatcher.watch(watchOnly);
  }
  ZOLT_TRACE(dbg, 4, "Subscription", "sync of {} entities", cover.size());
  syncing_ = context_.dispatcher.startSync(*this, std::move(cover), SyncKind::Subscribe);
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
  context_.dispatcher.cancel(*this);
  if (changeSink_) context_.dispatcher.removeChangeSink(this);
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

size_t Subscription::tableSize() const {
  size_t n = 0;
  for (const auto& entry : entries_) n += entry->table.size();
  return n;
}

Subscription::Match Subscription::matchNotification(const gnmi::Notification& notification) {
  Match match;
  for (const auto& entry : entries_) {
    switch (entry->filter.matchPrefix(notification.prefix())) {
      case PathFilter::PrefixMatch::All: match.entries.emplace_back(entry.get(), true); break;
      case PathFilter::PrefixMatch::Partial: match.entries.emplace_back(entry.get(), false); break;
      case PathFilter::PrefixMatch::None: break;
    }
  }
  return match;
}

bool Subscription::takes(const Match& match, const gnmi::Notification& notification,
                         const gnmi::Path& path) const {
  for (const auto& [entry, whole] : match.entries) {
    if (whole || entry->filter.matchUpdate(notification.prefix(), path)) return true;
  }
  return false;
}

gnmi::TypedValue Subscription::encoded(const gnmi::Path& prefix, const gnmi::Path& path,
                                       const gnmi::TypedValue& value) {
  if (params_.encoding == gnmi::PROTO) return value;
  gnmi::TypedValue out;
  encodeValue(context_.schema.leafOf(prefix, path), value, params_.encoding, out);
  return out;
}

void Subscription::recordInTables(const Match& match, const gnmi::Notification& notification) {
  for (const auto& [entry, whole] : match.entries) {
    if (!entry->keepsTable) continue;
    for (const gnmi::Update& u : notification.update()) {
      if (!whole && !entry->filter.matchUpdate(notification.prefix(), u.path())) continue;
      Row& row = entry->table[encodePath(notification.prefix(), u.path())];
      row.value = encoded(notification.prefix(), u.path(), u.val());
      row.timestamp = notification.timestamp();
      row.dirty = true;
    }
    for (const gnmi::Path& d : notification.delete_()) {
      if (!whole && !entry->filter.matchDelete(notification.prefix(), d)) continue;
      const std::string key = encodePath(notification.prefix(), d);
      auto it = entry->table.lower_bound(key);
      while (it != entry->table.end() && it->first.compare(0, key.size(), key) == 0) {
        it = entry->table.erase(it);
      }
    }
  }
}

bool Subscription::onSyncMessage(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) {
  StreamQueue& queue = channel_->queue();
  if (ended_ || syncId != syncing_ || !message->response->has_update()) return queue.hasRoom();
  gnmi::Notification& notification = *message->response->mutable_update();
  const Match match = matchNotification(notification);
  if (!match.any()) return queue.hasRoom();
  recordInTables(match, notification);
  if (params_.mode == gnmi::SubscriptionList::STREAM && params_.updatesOnly && !initialDone_) {
    return true;  // published silently: only changes go out
  }
  bool whole = false;
  for (const auto& [entry, all] : match.entries) whole = whole || all;
  bool room = true;
  if (whole && params_.encoding == gnmi::PROTO) {
    // The library's message goes out as it is; this sync is its only reader.
    if (!params_.target.empty()) notification.mutable_prefix()->set_target(params_.target);
    room = queue.pushSync(OutMessage(message));
  } else {
    auto response = std::make_shared<gnmi::SubscribeResponse>();
    gnmi::Notification* out = response->mutable_update();
    out->set_timestamp(notification.timestamp());
    *out->mutable_prefix() = notification.prefix();
    if (!params_.target.empty()) out->mutable_prefix()->set_target(params_.target);
    for (const gnmi::Update& u : notification.update()) {
      if (!whole && !takes(match, notification, u.path())) continue;
      gnmi::Update* copy = out->add_update();
      *copy->mutable_path() = u.path();
      *copy->mutable_val() = encoded(notification.prefix(), u.path(), u.val());
      copy->set_duplicates(u.duplicates());
    }
    for (const gnmi::Path& d : notification.delete_()) {
      bool under = whole;
      for (const auto& [entry, all] : match.entries) {
        under = under || entry->filter.matchDelete(notification.prefix(), d);
      }
      if (under) *out->add_delete_() = d;
    }
    if (out->update_size() == 0 && out->delete__size() == 0) return queue.hasRoom();
    room = queue.pushSync(OutMessage(std::move(response)));
  }
  // The writer is woken once per batch of sync messages, or when the queue
  // is full; the sync's end (onSyncDone) wakes it for what is left. Waking
  // it for every message made a writer that keeps up sleep and wake once
  // per message.
  if (!room || queue.syncQueued() >= SYNC_KICK_BATCH) channel_->kick();
  return room;
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
  const int64_t now = nowNanos();
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
  const int64_t now = nowNanos();
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

void Subscription::onChange(const Ostrel::ArenaRespMsgPtr& message) {
  if (ended_ || params_.mode != gnmi::SubscriptionList::STREAM || !message->response->has_update()) {
    return;
  }
  const gnmi::Notification& notification = message->response->update();
  const Match match = matchNotification(notification);
  if (!match.any()) return;
  recordInTables(match, notification);
  StreamQueue& queue = channel_->queue();
  bool queued = false;
  for (const gnmi::Update& u : notification.update()) {
    bool onChange = false;
    for (const auto& [entry, whole] : match.entries) {
      if (entry->params.mode != gnmi::ON_CHANGE) continue;
      if (whole || entry->filter.matchUpdate(notification.prefix(), u.path())) {
        onChange = true;
        break;
      }
    }
    if (!onChange) continue;
    queue.pushUpdate(notification.prefix(), u.path(), encoded(notification.prefix(), u.path(), u.val()),
                     notification.timestamp());
    queued = true;
  }
  for (const gnmi::Path& d : notification.delete_()) {
    bool under = false;
    for (const auto& [entry, whole] : match.entries) {
      under = under || whole || entry->filter.matchDelete(notification.prefix(), d);
    }
    if (!under) continue;
    queue.pushDelete(notification.prefix(), d, notification.timestamp());
    queued = true;
  }
  if (queued) channel_->kick();
}

}  // namespace VekGnmi::Server
