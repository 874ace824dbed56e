#include "AuditLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BoundedText.h"
#include "GnmiPathText.h"
#include "JsonText.h"
#include "PathResolver.h"
#include "StatusText.h"

namespace VekGnmi::Server {

namespace {

std::string utcTime(std::chrono::system_clock::time_point time) {
  const auto ms = std::chrono::time_point_cast<std::chrono::milliseconds>(time);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(std::chrono::system_clock::to_time_t(ms)),
                     ms.time_since_epoch().count() % 1000);
}

}  // namespace

// A client may send paths and user names of megabytes: an audit line keeps
// the first MAX_AUDIT_TEXT_BYTES of each, with its length, so that a line
// stays readable and one request cannot fill the log.
constexpr size_t MAX_AUDIT_TEXT_BYTES = 1024;

std::string auditLine(const AuditEntry& entry) {
  nlohmann::json ops = nlohmann::json::array();
  if (entry.request != nullptr) {
    const gnmi::SetRequest& r = *entry.request;
    auto add = [&](const char* op, const gnmi::Path& path) {
      ops.push_back({{"op", op}, {"path", boundedText(pathString(joinRequestPath(r.prefix(), path)), MAX_AUDIT_TEXT_BYTES)}});
    };
    for (const gnmi::Path& p : r.delete_()) add("delete", p);
    for (const gnmi::Update& u : r.replace()) add("replace", u.path());
    for (const gnmi::Update& u : r.update()) add("update", u.path());
    for (const gnmi::Update& u : r.union_replace()) add("union_replace", u.path());
  }
  nlohmann::json line = {{"time", utcTime(entry.time)},
                         {"user", boundedText(entry.user, MAX_AUDIT_TEXT_BYTES)},
                         {"authenticated", entry.authenticated},
                         {"peer", entry.peer},
                         {"ops", entry.request != nullptr ? ops : nlohmann::json(nullptr)},
                         {"code", statusCodeName(entry.outcome.error_code())},
                         {"message", boundedStatus(entry.outcome).error_message()}};
  return jsonDump(line);
}

AuditLog::Writer AuditLog::fileWriter(const std::string& path, std::string& error) {
  if (path == "-") {
    return [](std::string_view line) {
      std::fwrite(line.data(), 1, line.size(), stdout);
      std::fflush(stdout);
    };
  }
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    error = fmt::format("--audit-log {}: {}", path, std::strerror(errno));
    return {};
  }
  auto file = std::shared_ptr<int>(new int(fd), [](int* f) {
    ::close(*f);
    delete f;
  });
  // One write(2) per line on an O_APPEND descriptor: lines never interleave
  // with another writer's, and nothing is buffered in the process.
  return [file](std::string_view line) {
    const char* data = line.data();
    size_t left = line.size();
    while (left > 0) {
      const ssize_t n = ::write(*file, data, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      data += n;
      left -= static_cast<size_t>(n);
    }
  };
}

void AuditLog::record(const AuditEntry& entry) {
  if (!writer_) return;
  std::string line = auditLine(entry);
  line += '\n';
  std::lock_guard lock(mutex_);
  writer_(line);
}

}  // namespace VekGnmi::Server
