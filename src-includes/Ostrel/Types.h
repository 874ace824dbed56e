// Small value types shared across the library and with the agent: timestamps,
// request kinds, walker flags, walk results and the walk/sync identifiers,
// with their fmt formatters.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

namespace Ostrel {

// Nanoseconds since the Unix epoch (UTC). 0 means that no time is known.
using Timestamp = int64_t;

// The agent's kind of request. The agent defines the values 0, 1 and 2 and
// converts them with `VekGnmiUtils::requestTypeToFlags`; the library gives them
// no names of its own. Build one as `RequestType{1}`.
enum class RequestType : uint32_t {};

// Behaviour switches carried by every walk, a 32-bit set. The enumerators name
// the single bits; combine them with | and test them with `hasAny`.
enum class WalkerFlags : uint32_t {
  None = 0,
  SuppressPush = 1,          // pushes to the router are skipped, no time check
  RequestKindBit1 = 2,       // request-kind bits set by requestTypeToFlags
  RequestKindBit2 = 4,
  SkipWalk = 16,             // the walk returns Done at once
  IgnorePushResult = 32,     // a refused push does not pause the walk
  NotifieeOption = 64,       // passed on to newly created notifiees
};

constexpr uint32_t toBits(WalkerFlags flags) { return static_cast<uint32_t>(flags); }
constexpr WalkerFlags operator|(WalkerFlags a, WalkerFlags b) {
  return WalkerFlags{toBits(a) | toBits(b)};
}
constexpr WalkerFlags operator&(WalkerFlags a, WalkerFlags b) {
  return WalkerFlags{toBits(a) & toBits(b)};
}
constexpr WalkerFlags operator~(WalkerFlags a) { return WalkerFlags{~toBits(a)}; }
constexpr WalkerFlags& operator|=(WalkerFlags& a, WalkerFlags b) { return a = a | b; }
constexpr WalkerFlags& operator&=(WalkerFlags& a, WalkerFlags b) { return a = a & b; }
// True when `flags` has at least one of the bits of `bits`.
constexpr bool hasAny(WalkerFlags flags, WalkerFlags bits) { return toBits(flags & bits) != 0; }

// Result of one walk step. Any value other than Done pauses the walk.
enum class WalkResult : uint8_t {
  Done = 0,
  RouterFull = 1,
  QuantaExceeded = 2,
};

// A 64-bit identifier minted by the agent. The tag makes walk and sync ids
// distinct types so that one cannot be passed for the other. Compared and
// hashed by value; 0 means none.
template <typename Tag>
class Id64 {
 public:
  constexpr Id64() = default;
  constexpr explicit Id64(uint64_t value) : value_(value) {}

  constexpr uint64_t value() const { return value_; }
  constexpr explicit operator bool() const { return value_ != 0; }

  friend constexpr bool operator==(Id64, Id64) = default;
  friend constexpr auto operator<=>(Id64, Id64) = default;

 private:
  uint64_t value_ = 0;
};

struct _WalkId;
struct _SyncId;
using WalkId = Id64<_WalkId>;
using SyncId = Id64<_SyncId>;

}  // namespace Ostrel

// The hash of an id is its value truncated to the platform word.
template <typename Tag>
struct std::hash<Ostrel::Id64<Tag>> {
  size_t operator()(Ostrel::Id64<Tag> id) const noexcept { return static_cast<size_t>(id.value()); }
};

// Ids print as their decimal number.
template <typename Tag>
struct fmt::formatter<Ostrel::Id64<Tag>> : fmt::formatter<uint64_t> {
  template <typename FormatContext>
  auto format(Ostrel::Id64<Tag> id, FormatContext& ctx) const {
    return fmt::formatter<uint64_t>::format(id.value(), ctx);
  }
};

// A (sync id, walk id) pair prints as "sync:walk".
template <>
struct fmt::formatter<std::pair<Ostrel::SyncId, Ostrel::WalkId>> {
  constexpr auto parse(fmt::format_parse_context& ctx) { return ctx.begin(); }
  template <typename FormatContext>
  auto format(const std::pair<Ostrel::SyncId, Ostrel::WalkId>& ids, FormatContext& ctx) const {
    return fmt::format_to(ctx.out(), "{}:{}", ids.first, ids.second);
  }
};

// Flags print as 32 '0'/'1' characters, most significant bit first.
template <>
struct fmt::formatter<Ostrel::WalkerFlags> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(Ostrel::WalkerFlags flags, FormatContext& ctx) const {
    char bits[32];
    const uint32_t value = Ostrel::toBits(flags);
    for (int i = 0; i < 32; ++i) {
      bits[i] = ((value >> (31 - i)) & 1u) != 0 ? '1' : '0';
    }
    return fmt::formatter<std::string_view>::format(std::string_view(bits, sizeof(bits)), ctx);
  }
};

// Walk results print as their names; a value outside the enumeration prints
// as its number.
template <>
struct fmt::formatter<Ostrel::WalkResult> {
  constexpr auto parse(fmt::format_parse_context& ctx) { return ctx.begin(); }
  template <typename FormatContext>
  auto format(Ostrel::WalkResult result, FormatContext& ctx) const {
    switch (result) {
      case Ostrel::WalkResult::Done: return fmt::format_to(ctx.out(), "Done");
      case Ostrel::WalkResult::RouterFull: return fmt::format_to(ctx.out(), "RouterFull");
      case Ostrel::WalkResult::QuantaExceeded: return fmt::format_to(ctx.out(), "QuantaExceeded");
    }
    return fmt::format_to(ctx.out(), "{}", static_cast<unsigned>(result));
  }
};

// Request types print as their number.
template <>
struct fmt::formatter<Ostrel::RequestType> : fmt::formatter<uint32_t> {
  template <typename FormatContext>
  auto format(Ostrel::RequestType type, FormatContext& ctx) const {
    return fmt::formatter<uint32_t>::format(static_cast<uint32_t>(type), ctx);
  }
};
