#include "CoalescingQueue.h"

#include <algorithm>
#include <vector>

namespace VekGnmi::Server {

namespace {

// Separators of the encoding, below every printable character, so that
// ordering by bytes keeps each element's name first. A separator byte that
// occurs in a name or key is escaped with ESC.
constexpr char ESC = '\x1b';
constexpr char KEY = '\x1c';    // starts a key name
constexpr char VALUE = '\x1d';  // separates a key name from its value
constexpr char END = '\x1e';    // ends an element

void appendEscaped(std::string& out, const std::string& text) {
  for (const char c : text) {
    if (c == ESC || c == KEY || c == VALUE || c == END) out.push_back(ESC);
    out.push_back(c);
  }
}

void appendElems(std::string& out, const gnmi::Path& path) {
  for (const gnmi::PathElem& e : path.elem()) {
    appendEscaped(out, e.name());
    if (e.key_size() > 0) {
      std::vector<const std::string*> names;
      for (const auto& [k, v] : e.key()) names.push_back(&k);
      std::sort(names.begin(), names.end(),
                [](const std::string* a, const std::string* b) { return *a < *b; });
      for (const std::string* k : names) {
        out.push_back(KEY);
        appendEscaped(out, *k);
        out.push_back(VALUE);
        appendEscaped(out, e.key().at(*k));
      }
    }
    out.push_back(END);
  }
}

}  // namespace

std::string encodePath(const gnmi::Path& prefix, const gnmi::Path& path) {
  std::string out;
  appendElems(out, prefix);
  appendElems(out, path);
  return out;
}

gnmi::Path decodePath(const std::string& encoded) {
  gnmi::Path path;
  gnmi::PathElem* elem = nullptr;
  std::string text;
  std::string keyName;
  enum class In { Name, KeyName, KeyValue } in = In::Name;
  auto flush = [&] {
    if (!elem) elem = path.add_elem();
    switch (in) {
      case In::Name: elem->set_name(text); break;
      case In::KeyName: keyName = text; break;
      case In::KeyValue: (*elem->mutable_key())[keyName] = text; break;
    }
    text.clear();
  };
  for (size_t i = 0; i < encoded.size(); ++i) {
    const char c = encoded[i];
    if (c == ESC && i + 1 < encoded.size()) {
      text.push_back(encoded[++i]);
    } else if (c == KEY) {
      flush();
      in = In::KeyName;
    } else if (c == VALUE) {
      flush();
      in = In::KeyValue;
    } else if (c == END) {
      flush();
      elem = nullptr;
      in = In::Name;
    } else {
      text.push_back(c);
    }
  }
  return path;
}

void CoalescingQueue::update(const gnmi::Path& prefix, const gnmi::Path& path,
                             gnmi::TypedValue value, int64_t timestamp) {
  updateEncoded(encodePath(prefix, path), std::move(value), timestamp);
}

void CoalescingQueue::updateEncoded(std::string key, gnmi::TypedValue value, int64_t timestamp) {
  auto found = byPath_.find(key);
  if (found != byPath_.end()) {
    Entry& entry = *found->second;
    if (!entry.isDelete) {
      entry.value = std::move(value);
      entry.timestamp = timestamp;
      ++entry.duplicates;
      ++coalesced_;
      return;
    }
    // A member deleted and back again: the new value replaces the delete,
    // at the back.
    order_.erase(found->second);
    byPath_.erase(found);
  }
  order_.emplace_back();
  Entry& entry = order_.back();
  entry.value = std::move(value);
  entry.timestamp = timestamp;
  entry.index = byPath_.emplace(std::move(key), std::prev(order_.end())).first;
}

void CoalescingQueue::remove(const gnmi::Path& prefix, const gnmi::Path& path, int64_t timestamp) {
  std::string key = encodePath(prefix, path);
  auto it = byPath_.lower_bound(key);
  while (it != byPath_.end() && it->first.compare(0, key.size(), key) == 0) {
    order_.erase(it->second);
    it = byPath_.erase(it);
    ++superseded_;
  }
  order_.emplace_back();
  Entry& entry = order_.back();
  entry.isDelete = true;
  entry.timestamp = timestamp;
  entry.index = byPath_.emplace(std::move(key), std::prev(order_.end())).first;
}

size_t CoalescingQueue::popInto(gnmi::Notification& notification, size_t maxUpdates) {
  if (order_.empty()) return 0;
  const int64_t timestamp = order_.front().timestamp;
  notification.set_timestamp(timestamp);
  size_t moved = 0;
  while (!order_.empty() && moved < maxUpdates && order_.front().timestamp == timestamp) {
    Entry& entry = order_.front();
    if (entry.isDelete) {
      *notification.add_delete_() = decodePath(entry.index->first);
    } else {
      gnmi::Update* update = notification.add_update();
      *update->mutable_path() = decodePath(entry.index->first);
      *update->mutable_val() = std::move(entry.value);
      update->set_duplicates(entry.duplicates);
    }
    byPath_.erase(entry.index);
    order_.pop_front();
    ++moved;
  }
  return moved;
}

void CoalescingQueue::clear() {
  order_.clear();
  byPath_.clear();
}

}  // namespace VekGnmi::Server
