#include "BoundedText.h"

#include <fmt/format.h>

namespace VekGnmi {

std::string boundedText(std::string_view text, size_t limit) {
  if (text.size() <= limit) return std::string(text);
  size_t cut = limit;
  // Back up over continuation bytes (10xxxxxx) so that no sequence is split.
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return fmt::format("{}… ({} bytes)", text.substr(0, cut), text.size());
}

grpc::Status boundedStatus(const grpc::Status& status) {
  if (status.error_message().size() <= MAX_STATUS_MESSAGE_BYTES) return status;
  return grpc::Status(status.error_code(), boundedText(status.error_message(), MAX_STATUS_MESSAGE_BYTES),
                      status.error_details());
}

}  // namespace VekGnmi
