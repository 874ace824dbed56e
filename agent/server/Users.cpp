#include "Users.h"

#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "GnmiPathText.h"
#include "PasswordHash.h"

namespace VekGnmi::Server {

namespace {

constexpr std::string_view NO_PASSWORD = "!";

std::string_view trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r");
  return text.substr(first, last - first + 1);
}

bool parsePrefix(std::string_view text, const std::string& user, gnmi::Path& out, std::string& error) {
  text = trim(text);
  if (text.empty()) {
    error = fmt::format("an empty prefix in the list of '{}'", user);
    return false;
  }
  std::string why;
  if (!parsePathString(text, out, why)) {
    error = fmt::format("prefix '{}' of '{}': {}", text, user, why);
    return false;
  }
  for (const gnmi::PathElem& e : out.elem()) {
    if (e.name() == "...") {
      error = fmt::format("prefix '{}' of '{}': '...' cannot appear in a prefix", text, user);
      return false;
    }
  }
  return true;
}

bool parseLine(std::string_view line, User& user, std::string& error) {
  // NAME:HASH:ROLE[:PREFIXES]; only the prefixes may hold further ':'.
  size_t fieldEnd[3];
  size_t from = 0;
  for (int i = 0; i < 3; ++i) {
    fieldEnd[i] = line.find(':', from);
    if (fieldEnd[i] == std::string_view::npos) {
      if (i == 2) {
        fieldEnd[i] = line.size();
        break;
      }
      error = "expected NAME:HASH:ROLE[:PREFIX,PREFIX...]";
      return false;
    }
    from = fieldEnd[i] + 1;
  }
  const std::string_view name = trim(line.substr(0, fieldEnd[0]));
  const std::string_view hash = trim(line.substr(fieldEnd[0] + 1, fieldEnd[1] - fieldEnd[0] - 1));
  const std::string_view role = trim(line.substr(fieldEnd[1] + 1, fieldEnd[2] - fieldEnd[1] - 1));
  if (name.empty()) {
    error = "an empty user name";
    return false;
  }
  if (name.find_first_of(" \t") != std::string_view::npos) {
    error = fmt::format("user name '{}' has a blank", name);
    return false;
  }
  user.name = std::string(name);
  if (hash != NO_PASSWORD) {
    std::string why;
    if (!PasswordHash::valid(std::string(hash), why)) {
      error = fmt::format("the hash of '{}' is {}", name, why);
      return false;
    }
    user.hash = std::string(hash);
  }
  if (role == "read") {
    user.role = Role::Read;
  } else if (role == "write") {
    user.role = Role::Write;
  } else {
    error = fmt::format("role '{}' of '{}' is neither read nor write", role, name);
    return false;
  }
  if (fieldEnd[2] >= line.size()) return true;
  const std::string_view list = line.substr(fieldEnd[2] + 1);
  for (size_t start = 0;;) {
    const size_t comma = findOutsidePath(list, ',', start);
    if (!parsePrefix(list.substr(start, comma - start), user.name, user.prefixes.emplace_back(), error)) {
      return false;
    }
    if (comma == std::string_view::npos) return true;
    start = comma + 1;
  }
}

}  // namespace

const User* UserTable::find(std::string_view name) const {
  auto it = index_.find(std::string(name));
  return it == index_.end() ? nullptr : &users_[it->second];
}

bool parseUsers(std::string_view text, UserTable& out, std::string& error) {
  UserTable table;
  size_t lineNumber = 0;
  std::istringstream in{std::string(text)};
  for (std::string raw; std::getline(in, raw);) {
    ++lineNumber;
    const std::string_view all = raw;
    const std::string_view line = trim(all.substr(0, findOutsidePath(all, '#', 0)));
    if (line.empty()) continue;
    User user;
    std::string why;
    if (!parseLine(line, user, why)) {
      error = fmt::format("line {}: {}", lineNumber, why);
      return false;
    }
    if (table.index_.count(user.name) != 0) {
      error = fmt::format("line {}: user '{}' appears twice", lineNumber, user.name);
      return false;
    }
    table.index_[user.name] = table.users_.size();
    table.users_.push_back(std::move(user));
  }
  if (table.users_.empty()) {
    error = "the users file names no user, so nobody could connect";
    return false;
  }
  std::string like;
  for (const User& user : table.users_) {
    if (!user.hash.empty()) {
      like = user.hash;
      break;
    }
  }
  table.dummyHash_ = PasswordHash::dummyLike(like);
  out = std::move(table);
  return true;
}

bool loadUsersFile(const std::string& path, UserTable& out, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    error = fmt::format("{}: cannot be read", path);
    return false;
  }
  std::ostringstream text;
  text << file.rdbuf();
  if (!parseUsers(text.str(), out, error)) {
    error = fmt::format("{}: {}", path, error);
    return false;
  }
  return true;
}

}  // namespace VekGnmi::Server
