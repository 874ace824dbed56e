// The users file of `vekgnmid --users FILE`: who may connect, with which
// password, role and path prefixes.
//
//   # NAME:HASH:ROLE[:PREFIX,PREFIX...]
//   noc:$6$rounds=65536$J0...$Vx...:read
//   ops:$y$j9T$F5...$Qa...:write:/devices/dev1/interfaces,/devices/dev1/system/hostname
//   probe:!:read:/devices/dev1/interfaces[name=*]/counters     # certificate only
//
// One user a line; blank lines are ignored and `#` starts a comment (a `#`
// inside a key's brackets or after a backslash belongs to the path). NAME
// has no blanks and no ':'. HASH is a salted hash (see PasswordHash.h),
// never a password, or `!` for a user who may not log in with a password
// (a client certificate whose common name is NAME still may). ROLE is `read`
// (Capabilities, Get, Subscribe) or `write` (also Set). The optional
// prefixes, separated by ',' (a ',' inside a key's brackets belongs to the
// path), are gNMI path strings without an origin (GnmiPathText.h) that limit
// the user to those parts of the model (Authorization.h); without them the
// user reaches the whole model.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Authorization.h"

namespace VekGnmi::Server {

struct User {
  std::string name;
  std::string hash;  // empty: no password login
  Role role = Role::Read;
  std::vector<gnmi::Path> prefixes;
};

class UserTable {
 public:
  // The user named `name`, or nullptr.
  const User* find(std::string_view name) const;
  const std::vector<User>& users() const { return users_; }
  // A hash no password matches, costing what the first user's hash costs to
  // verify: unknown users are checked against it, so that a wrong name takes
  // as long to refuse as a wrong password.
  const std::string& dummyHash() const { return dummyHash_; }

 private:
  friend bool parseUsers(std::string_view text, UserTable& out, std::string& error);
  std::vector<User> users_;
  std::unordered_map<std::string, size_t> index_;
  std::string dummyHash_;
};

// Parses the text of a users file into `out`. False with `error` set to
// "line N: <what is wrong>" for the first malformed line, or to a sentence
// when the file names no user; `out` is untouched then.
bool parseUsers(std::string_view text, UserTable& out, std::string& error);

// Reads and parses the file at `path`; errors are prefixed with the path.
bool loadUsersFile(const std::string& path, UserTable& out, std::string& error);

}  // namespace VekGnmi::Server
