#include "ClientOutput.h"

#include <fmt/format.h>

#include "GnmiPathText.h"
#include "StatusText.h"
#include "JsonText.h"

namespace VekGnmi::Client {

nlohmann::json notificationJson(const gnmi::Notification& notification) {
  nlohmann::json out = nlohmann::json::object();
  out["timestamp"] = notification.timestamp();
  if (!notification.prefix().target().empty()) out["target"] = notification.prefix().target();
  if (!notification.prefix().origin().empty()) out["origin"] = notification.prefix().origin();
  if (notification.update_size() > 0) {
    nlohmann::json updates = nlohmann::json::array();
    for (const gnmi::Update& update : notification.update()) {
      nlohmann::json u = {{"path", joinedPathString(notification.prefix(), update.path())},
                          {"value", typedValueJson(update.val())}};
      if (update.duplicates() != 0) u["duplicates"] = update.duplicates();
      updates.push_back(std::move(u));
    }
    out["updates"] = std::move(updates);
  }
  if (notification.delete__size() > 0) {
    nlohmann::json deletes = nlohmann::json::array();
    for (const gnmi::Path& path : notification.delete_()) {
      deletes.push_back(joinedPathString(notification.prefix(), path));
    }
    out["deletes"] = std::move(deletes);
  }
  if (notification.atomic()) out["atomic"] = true;
  return out;
}

nlohmann::json capabilitiesJson(const gnmi::CapabilityResponse& response) {
  nlohmann::json models = nlohmann::json::array();
  for (const gnmi::ModelData& model : response.supported_models()) {
    models.push_back(
        {{"name", model.name()}, {"organization", model.organization()}, {"version", model.version()}});
  }
  nlohmann::json encodings = nlohmann::json::array();
  for (const int encoding : response.supported_encodings()) {
    encodings.push_back(gnmi::Encoding_IsValid(encoding)
                            ? nlohmann::json(gnmi::Encoding_Name(static_cast<gnmi::Encoding>(encoding)))
                            : nlohmann::json(encoding));
  }
  return {{"gNMI_version", response.gnmi_version()},
          {"supported_models", std::move(models)},
          {"supported_encodings", std::move(encodings)}};
}

nlohmann::json setResponseJson(const gnmi::SetResponse& response) {
  nlohmann::json results = nlohmann::json::array();
  for (const gnmi::UpdateResult& result : response.response()) {
    results.push_back({{"op", gnmi::UpdateResult::Operation_Name(result.op())},
                       {"path", joinedPathString(response.prefix(), result.path())}});
  }
  nlohmann::json out = {{"timestamp", response.timestamp()}, {"results", std::move(results)}};
  if (!response.prefix().target().empty()) out["target"] = response.prefix().target();
  return out;
}

std::string statusLine(const grpc::Status& status) {
  return fmt::format("error: {} ({}): {}", statusCodeName(status.error_code()),
                     static_cast<int>(status.error_code()), status.error_message());
}

}  // namespace VekGnmi::Client
