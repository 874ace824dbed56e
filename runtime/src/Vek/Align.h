// Alignment arithmetic shared by the runtime's layouts: the attribute blocks
// and values of types, and the nodes of the hash map. Private to the runtime.
#pragma once

#include <cstddef>

namespace Vek::detail {

// `size` rounded up to the next multiple of `alignment` (which is not zero).
constexpr size_t alignUp(size_t size, size_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

}  // namespace Vek::detail
