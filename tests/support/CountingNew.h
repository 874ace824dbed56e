// Replaces the global allocation functions of the program that includes it
// with ones that count every allocation, so tests and benchmarks can assert
// how many heap allocations an operation costs:
//
//   const uint64_t before = OstrelTest::heapAllocationCount();
//   doWork();
//   EXPECT_EQ(OstrelTest::heapAllocationCount() - before, 0u);
//
// Include it in exactly one source file of a program: the replacement
// functions are ordinary (non-inline) definitions.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

// g++ cannot pair the std::free in the replacement delete with the std::malloc
// in the replacement new through inlining, and warns.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace OstrelTest {

inline std::atomic<uint64_t> heapAllocations{0};

// Global allocations (every form of operator new) made so far by the program.
inline uint64_t heapAllocationCount() { return heapAllocations.load(std::memory_order_relaxed); }

}  // namespace OstrelTest

void* operator new(std::size_t size) {
  OstrelTest::heapAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) {
    return p;
  }
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return ::operator new(size, std::nothrow);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
