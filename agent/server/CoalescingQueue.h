// The queue of changes waiting for one subscriber.
//
// Changes are kept by leaf path, in the order their paths first entered the
// queue: a newer value of a queued leaf replaces the older one in place and
// counts the dropped transition (sent in Update.duplicates), so the queue
// never holds more entries than there are distinct leaves (plus deletes of
// paths that are gone), however fast the model changes and however slowly
// the subscriber reads. A delete removes every queued entry at or below
// its path, then queues itself; a later update of a leaf below it queues
// after it, so a subscriber always ends with the model's state.
//
// Entries store the full path in a compact ordered encoding (so that all
// paths below a deleted one form one range) and the value already in the
// subscriber's encoding. Not synchronised: the owner locks.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi::Server {

// The ordered encoding of a path: the encoding of P is a prefix of the
// encoding of every path below P, and decodes back to P's elements.
std::string encodePath(const gnmi::Path& prefix, const gnmi::Path& path);
gnmi::Path decodePath(const std::string& encoded);

class CoalescingQueue {
 public:
  struct Entry {
    std::map<std::string, std::list<Entry>::iterator>::iterator index;
    bool isDelete = false;
    gnmi::TypedValue value;
    int64_t timestamp = 0;
    uint32_t duplicates = 0;
  };

  // Queues the value of the leaf at `prefix` + `path`.
  void update(const gnmi::Path& prefix, const gnmi::Path& path, gnmi::TypedValue value,
              int64_t timestamp);
  // The same, with the path already encoded (encodePath).
  void updateEncoded(std::string key, gnmi::TypedValue value, int64_t timestamp);
  // Queues the delete of `prefix` + `path`, dropping what is queued below it.
  void remove(const gnmi::Path& prefix, const gnmi::Path& path, int64_t timestamp);

  bool empty() const { return order_.empty(); }
  size_t size() const { return order_.size(); }

  // Moves the oldest entries, up to `maxUpdates` of them, that share one
  // timestamp, into `notification` (full paths, no prefix), and returns how
  // many it moved.
  size_t popInto(gnmi::Notification& notification, size_t maxUpdates);

  // Transitions dropped by coalescing since the queue was made.
  uint64_t coalesced() const { return coalesced_; }
  // Entries dropped because a delete above them was queued.
  uint64_t superseded() const { return superseded_; }

  void clear();

 private:
  std::list<Entry> order_;
  std::map<std::string, std::list<Entry>::iterator> byPath_;
  uint64_t coalesced_ = 0;
  uint64_t superseded_ = 0;
};

}  // namespace VekGnmi::Server
