// The byte mixer's bulk input.
#include <cstring>

#include "Vek/HashMix.h"

namespace Vek {

void HashMix::mixBytes(const void* bytes, size_t size) {
  const auto* p = static_cast<const unsigned char*>(bytes);
  size_t i = 0;
  for (; i + 4 <= size; i += 4) mixBytes4(p + i);
  if (i < size) {
    unsigned char tail[4] = {0, 0, 0, 0};
    std::memcpy(tail, p + i, size - i);
    mixBytes4(tail);
  }
  mixBytes4(static_cast<uint32_t>(size));
}

}  // namespace Vek
