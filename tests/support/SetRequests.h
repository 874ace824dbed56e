// Builders of gNMI Set requests for the Set tests, benchmark and fuzz seeds:
//
//   gnmi::SetRequest request = OstrelTest::setRequest(
//       "/devices/dev1/interfaces[name=eth0]",
//       {OstrelTest::updateOf("counters/inPkts", OstrelTest::uintVal(7))},     // replaces
//       {OstrelTest::updateOf("description", OstrelTest::stringVal("core"))});  // updates
//
// Paths are gNMI path text (`Ostrel::strToPath`); a leading '/' is optional.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gnmi/gnmi.pb.h>

#include <Ostrel/Path.h>

namespace OstrelTest {

inline gnmi::TypedValue stringVal(const std::string& text) {
  gnmi::TypedValue v;
  v.set_string_val(text);
  return v;
}

inline gnmi::TypedValue intVal(int64_t number) {
  gnmi::TypedValue v;
  v.set_int_val(number);
  return v;
}

inline gnmi::TypedValue uintVal(uint64_t number) {
  gnmi::TypedValue v;
  v.set_uint_val(number);
  return v;
}

inline gnmi::TypedValue boolVal(bool flag) {
  gnmi::TypedValue v;
  v.set_bool_val(flag);
  return v;
}

inline gnmi::Update updateOf(const std::string& path, const gnmi::TypedValue& value) {
  gnmi::Update update;
  *update.mutable_path() = Ostrel::strToPath(path);
  *update.mutable_val() = value;
  return update;
}

inline gnmi::SetRequest setRequest(const std::string& prefix,
                                   const std::vector<gnmi::Update>& replaces,
                                   const std::vector<gnmi::Update>& updates,
                                   const std::vector<std::string>& deletes = {}) {
  gnmi::SetRequest request;
  *request.mutable_prefix() = Ostrel::strToPath(prefix);
  for (const std::string& path : deletes) *request.add_delete_() = Ostrel::strToPath(path);
  for (const gnmi::Update& update : replaces) *request.add_replace() = update;
  for (const gnmi::Update& update : updates) *request.add_update() = update;
  return request;
}

}  // namespace OstrelTest
