// Value representations: construction, comparison, hashing and text of
// builtin, enumeration and value types; the pooled value handle.
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include <absl/strings/escaping.h>

#include "ThreadState.h"
#include "ValueOps.h"
#include "Vek/Entity.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VEK_VALUE_POOL 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VEK_VALUE_POOL 0
#endif
#endif
#ifndef VEK_VALUE_POOL
#define VEK_VALUE_POOL 1
#endif

namespace Vek::detail {

Zolt::Debuggable& debug() {
  static Zolt::Debuggable& handle = Zolt::Platform::getDebugHandler("Vek");
  return handle;
}

}  // namespace Vek::detail

namespace Vek {
void unknownBuiltinCode(BuiltinCode code) {
  ZOLT_FMASSERT(detail::debug(), "Vek", "unknown builtin code {}", static_cast<int>(code));
}
}  // namespace Vek

namespace Vek::detail {

const char* builtinName(BuiltinCode code) {
  switch (code) {
    case BuiltinCode::UnsignedChar: return "unsigned char";
    case BuiltinCode::SignedChar: return "signed char";
    case BuiltinCode::UnsignedShort: return "unsigned short";
    case BuiltinCode::Short: return "short";
    case BuiltinCode::UnsignedInt: return "unsigned int";
    case BuiltinCode::Int: return "int";
    case BuiltinCode::UnsignedLongLong: return "unsigned long long";
    case BuiltinCode::LongLong: return "long long";
    case BuiltinCode::Bool: return "bool";
    case BuiltinCode::Char: return "char";
    case BuiltinCode::Float: return "float";
    case BuiltinCode::Double: return "double";
    case BuiltinCode::String: return "Vek::String";
    case BuiltinCode::Bytes: return "Vek::Bytes";
    case BuiltinCode::Seconds: return "Vek::Seconds";
    case BuiltinCode::None: break;
  }
  return "none";
}

namespace {

// Attributes of a value type that hold data, in order.
template <typename Fn>
void forEachField(const VekTypeBase& type, Fn&& fn) {
  for (size_t i = 0; i < type.attrCount(); ++i) {
    const VekAttr a = type.attrAt(i);
    if (a->storage() == AttrStorage::Value) fn(*a);
  }
}

const VekTypeBase& resolved(const VekTypeBase& type) { return *type.baseType(); }

const Entity& entityAt(const void* raw) {
  return *static_cast<const Entity*>(entityOf(raw));
}

template <typename T>
void hashBuiltin(const T& v, HashMix& mix) {
  if constexpr (std::is_same_v<T, String>) {
    mix.mixBytes(v.stdString().data(), v.size());
  } else if constexpr (std::is_same_v<T, Bytes>) {
    mix.mixBytes(v.bytesPtr(), v.size());
  } else if constexpr (std::is_floating_point_v<T> || std::is_same_v<T, Seconds>) {
    double d = static_cast<double>(v);
    // Equal values hash alike: -0.0 equals 0.0, and every NaN equals every
    // other (see `compare`).
    if (d == 0.0) d = 0.0;
    if (std::isnan(d)) d = std::numeric_limits<double>::quiet_NaN();
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    mix.mixBytes8(bits);
  } else {
    mix.mixBytes8(static_cast<uint64_t>(v));
  }
}

template <typename T>
void strBuiltin(const T& v, std::string& out) {
  if constexpr (std::is_same_v<T, String>) {
    out += v.stdString();
  } else if constexpr (std::is_same_v<T, Bytes>) {
    out += v.view();
  } else if constexpr (std::is_same_v<T, bool>) {
    out += v ? "true" : "false";
  } else if constexpr (std::is_same_v<T, char>) {
    out += v;
  } else if constexpr (std::is_same_v<T, Seconds>) {
    fmt::format_to(std::back_inserter(out), "{}", v.value());
  } else {
    fmt::format_to(std::back_inserter(out), "{}", v);
  }
}

template <typename T>
bool parseBuiltin(std::string_view text, T& v) {
  if constexpr (std::is_same_v<T, String>) {
    v = String(text);
    return true;
  } else if constexpr (std::is_same_v<T, Bytes>) {
    v = Bytes(text);
    return true;
  } else if constexpr (std::is_same_v<T, bool>) {
    if (text == "true") v = true;
    else if (text == "false") v = false;
    else return false;
    return true;
  } else if constexpr (std::is_same_v<T, char>) {
    if (text.size() != 1) return false;
    v = text[0];
    return true;
  } else if constexpr (std::is_same_v<T, Seconds>) {
    double d = 0;
    if (!parseBuiltin(text, d)) return false;
    v = d;
    return true;
  } else {
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, v);
    return ec == std::errc() && ptr == end && !text.empty();
  }
}

}  // namespace

void construct(const VekTypeBase& t, void* dst) {
  const VekTypeBase& type = resolved(t);
  if (type.isValue()) {
    if (type.defaultValueRaw()) {
      copyConstruct(type, dst, type.defaultValueRaw());
      return;
    }
    forEachField(type, [&](const VekAttrBase& a) {
      constructAttr(a, static_cast<char*>(dst) + a.offset());
    });
    return;
  }
  visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) { new (dst) T(); });
}

void constructAttr(const VekAttrBase& attr, void* dst) {
  if (attr.defaultValue()) {
    copyConstruct(*attr.type(), dst, attr.defaultValue()->voidPtr());
  } else {
    construct(*attr.type(), dst);
  }
}

void copyConstruct(const VekTypeBase& t, void* dst, const void* src) {
  if (isTrivialCode(t.storageCode())) {
    // Fixed sizes compile to single moves instead of a call to memcpy.
    switch (t.valueSize()) {
      case 1: std::memcpy(dst, src, 1); return;
      case 2: std::memcpy(dst, src, 2); return;
      case 4: std::memcpy(dst, src, 4); return;
      case 8: std::memcpy(dst, src, 8); return;
      default: std::memcpy(dst, src, t.valueSize()); return;
    }
  }
  const VekTypeBase& type = resolved(t);
  if (type.isValue()) {
    forEachField(type, [&](const VekAttrBase& a) {
      copyConstruct(*a.type(), static_cast<char*>(dst) + a.offset(),
                    static_cast<const char*>(src) + a.offset());
    });
    return;
  }
  visitBuiltin(type.storageCode(),
               [&]<typename T>(std::type_identity<T>) { new (dst) T(*static_cast<const T*>(src)); });
}

void assign(const VekTypeBase& t, void* dst, const void* src) {
  const VekTypeBase& type = resolved(t);
  if (dst == src) return;
  if (type.isValue()) {
    forEachField(type, [&](const VekAttrBase& a) {
      assign(*a.type(), static_cast<char*>(dst) + a.offset(),
             static_cast<const char*>(src) + a.offset());
    });
    return;
  }
  visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
    *static_cast<T*>(dst) = *static_cast<const T*>(src);
  });
}

void destroy(const VekTypeBase& t, void* dst) {
  if (isTrivialCode(t.storageCode())) return;
  const VekTypeBase& type = resolved(t);
  if (type.isValue()) {
    forEachField(type, [&](const VekAttrBase& a) {
      destroy(*a.type(), static_cast<char*>(dst) + a.offset());
    });
    return;
  }
  visitBuiltin(type.storageCode(),
               [&]<typename T>(std::type_identity<T>) { static_cast<T*>(dst)->~T(); });
}

int compare(const VekTypeBase& t, const void* a, const void* b) {
  const VekTypeBase& type = resolved(t);
  if (type.isEntity()) {
    const uint64_t x = entityAt(a).serial();
    const uint64_t y = entityAt(b).serial();
    return x < y ? -1 : (x > y ? 1 : 0);
  }
  if (type.isValue()) {
    int result = 0;
    forEachField(type, [&](const VekAttrBase& f) {
      if (result == 0) {
        result = compare(*f.type(), static_cast<const char*>(a) + f.offset(),
                         static_cast<const char*>(b) + f.offset());
      }
    });
    return result;
  }
  return visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
    const T& x = *static_cast<const T*>(a);
    const T& y = *static_cast<const T*>(b);
    if constexpr (std::is_floating_point_v<T> || std::is_same_v<T, Seconds>) {
      // A total order, so floating values can be keys: NaN (any payload or
      // sign) after every number and equal to itself; -0.0 equal to 0.0.
      const bool xNan = std::isnan(static_cast<double>(x));
      const bool yNan = std::isnan(static_cast<double>(y));
      if (xNan || yNan) return static_cast<int>(xNan) - static_cast<int>(yNan);
    }
    return x < y ? -1 : (y < x ? 1 : 0);
  });
}

void hash(const VekTypeBase& t, const void* raw, HashMix& mix) {
  const VekTypeBase& type = resolved(t);
  if (type.isEntity()) {
    mix.mixBytes8(entityAt(raw).serial());
    return;
  }
  if (type.isValue()) {
    forEachField(type, [&](const VekAttrBase& f) {
      hash(*f.type(), static_cast<const char*>(raw) + f.offset(), mix);
    });
    return;
  }
  visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
    hashBuiltin(*static_cast<const T*>(raw), mix);
  });
}

void appendStr(const VekTypeBase& t, const void* raw, std::string& out) {
  if (t.hasGnmiStrRep()) {
    out += t.gnmiFormatter()(*valueView(t, raw));
    return;
  }
  const VekTypeBase& type = resolved(t);
  if (&type != &t) {
    appendStr(type, raw, out);
    return;
  }
  if (type.isEntity()) {
    out += "entity('" + entityAt(raw).dottedName() + "')";
    return;
  }
  if (type.isEnum()) {
    const int64_t v = visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
      if constexpr (std::is_integral_v<T>) return static_cast<int64_t>(*static_cast<const T*>(raw));
      return int64_t{0};
    });
    if (const VekAttr e = type.enumerator(v)) {
      out += e->name();
    } else {
      fmt::format_to(std::back_inserter(out), "{}", v);
    }
    return;
  }
  if (type.isValue()) {
    if (type.isWrapper() && type.valAttr()) {
      appendStr(*type.valAttr()->type(), static_cast<const char*>(raw) + type.valAttr()->offset(),
                out);
      return;
    }
    out += type.name();
    out += '(';
    bool first = true;
    forEachField(type, [&](const VekAttrBase& f) {
      if (!first) out += ", ";
      first = false;
      out += f.name();
      out += ':';
      appendStr(*f.type(), static_cast<const char*>(raw) + f.offset(), out);
    });
    out += ')';
    return;
  }
  visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
    strBuiltin(*static_cast<const T*>(raw), out);
  });
}

void appendJsonString(std::string_view text, std::string& out) {
  out += '"';
  for (const char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<int>(c));
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

void appendJson(const VekTypeBase& t, const void* raw, std::string& out) {
  const VekTypeBase& type = resolved(t);
  if (t.hasGnmiStrRep() || type.isEnum() || type.isEntity()) {
    std::string text;
    appendStr(t, raw, text);
    appendJsonString(text, out);
    return;
  }
  if (type.isValue()) {
    out += '{';
    bool first = true;
    forEachField(type, [&](const VekAttrBase& f) {
      if (!first) out += ',';
      first = false;
      appendJsonString(f.name(), out);
      out += ':';
      appendJson(*f.type(), static_cast<const char*>(raw) + f.offset(), out);
    });
    out += '}';
    return;
  }
  visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
    const T& v = *static_cast<const T*>(raw);
    if constexpr (std::is_same_v<T, String>) {
      appendJsonString(v.stdString(), out);
    } else if constexpr (std::is_same_v<T, Bytes>) {
      out += '"';
      out += absl::Base64Escape(absl::string_view(v.view().data(), v.view().size()));
      out += '"';
    } else if constexpr (std::is_same_v<T, char>) {
      appendJsonString(std::string_view(&v, 1), out);
    } else if constexpr (std::is_same_v<T, long long> || std::is_same_v<T, unsigned long long>) {
      // 64-bit integers travel as strings in gNMI JSON, so no precision is lost.
      fmt::format_to(std::back_inserter(out), "\"{}\"", v);
    } else if constexpr (std::is_same_v<T, Seconds>) {
      fmt::format_to(std::back_inserter(out), "{}", v.value());
    } else if constexpr (std::is_floating_point_v<T>) {
      if (std::isfinite(v)) {
        fmt::format_to(std::back_inserter(out), "{}", v);
      } else {
        out += "null";
      }
    } else if constexpr (std::is_same_v<T, bool>) {
      out += v ? "true" : "false";
    } else {
      fmt::format_to(std::back_inserter(out), "{}", static_cast<long long>(v));
    }
  });
}

bool parse(const VekTypeBase& t, std::string_view text, void* dst) {
  if (t.gnmiParser()) {
    Ptr<GenericIf> view = valueView(t, dst);
    return t.gnmiParser()(text, *view);
  }
  const VekTypeBase& type = resolved(t);
  if (&type != &t) return parse(type, text, dst);
  if (type.isEntity() || type.isCollectionControl()) return false;
  if (type.isEnum()) {
    for (size_t i = 0; i < type.attrCount(); ++i) {
      const VekAttr a = type.attrAt(i);
      if (a->name() == text) {
        visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
          if constexpr (std::is_integral_v<T>) *static_cast<T*>(dst) = static_cast<T>(a->enumValue());
        });
        return true;
      }
    }
    return false;
  }
  if (type.isValue()) {
    if (type.isWrapper() && type.valAttr()) {
      return parse(*type.valAttr()->type(), text,
                   static_cast<char*>(dst) + type.valAttr()->offset());
    }
    return false;
  }
  return visitBuiltin(type.storageCode(), [&]<typename T>(std::type_identity<T>) {
    return parseBuiltin(text, *static_cast<T*>(dst));
  });
}

// ---------------------------------------------------------------- handles

namespace {

// Freed value handles are kept per thread for reuse (in the thread's
// `AllocTrackThreadAccess::ThreadState`), so that reading a value costs no
// heap allocation in the steady state. The list is bounded; once the thread
// has begun to exit, handles go straight back to the heap.
[[maybe_unused]] constexpr size_t POOL_LIMIT = 4096;
using ThreadAccess = AllocTrackThreadAccess;

// The handle of a builtin, enumeration or value object: owns a copy in its
// inline buffer (or on the heap when larger), or views foreign memory.
// Handles are made only by `make` and freed only by `handleZeroRef`, which
// take the memory from and return it to the thread's pool and count the
// handle in its type's `allocTrack` with one thread-local lookup each.
class Value final : public GenericIf {
 public:
  static constexpr size_t INLINE = 48;

  static Value* make(const VekTypeBase& type, const void* src, bool view) {
    ThreadAccess::ThreadState& st = ThreadAccess::current();
    void* memory = allocate(st);
    Value* value;
    try {
      value = new (memory) Value(type, src, view);
    } catch (...) {
      release(st, memory);
      throw;
    }
    ThreadAccess::change(st, type.allocTrack(), 1, sizeof(Value));
    return value;
  }

  void handleZeroRef() override {
    const VekTypeBase& t = *type();
    this->~Value();
    ThreadAccess::ThreadState& st = ThreadAccess::current();
    ThreadAccess::change(st, t.allocTrack(), -1, -static_cast<int64_t>(sizeof(Value)));
    release(st, this);
  }

 private:
  Value(const VekTypeBase& type, const void* src, bool view)
      : GenericIf(&type, view ? const_cast<void*>(src) : place(type, inline_)), view_(view) {
    if (!view_) {
      try {
        if (src) {
          copyConstruct(type, voidPtr(), src);
        } else {
          construct(type, voidPtr());
        }
      } catch (...) {
        unplace(type);
        throw;
      }
    }
  }

  ~Value() override {
    if (!view_) {
      const VekTypeBase& t = *type();
      destroy(t, voidPtr());
      unplace(t);
    }
  }

  static void* allocate([[maybe_unused]] ThreadAccess::ThreadState& st) {
#if VEK_VALUE_POOL
    if (void* p = st.freeHead) {
      st.freeHead = *static_cast<void**>(p);
      --st.freeCount;
      return p;
    }
#endif
    return ::operator new(sizeof(Value));
  }

  static void release([[maybe_unused]] ThreadAccess::ThreadState& st, void* p) {
#if VEK_VALUE_POOL
    // Past its exit hook the thread's pool is not drained any more.
    if (!st.gone && st.freeCount < POOL_LIMIT) {
      *static_cast<void**>(p) = st.freeHead;
      st.freeHead = p;
      ++st.freeCount;
      return;
    }
#endif
    ::operator delete(p);
  }

  static void* place(const VekTypeBase& type, std::byte* buffer) {
    if (type.valueSize() <= INLINE && type.valueAlign() <= alignof(std::max_align_t)) return buffer;
    return ::operator new(type.valueSize(), std::align_val_t(type.valueAlign()));
  }
  void unplace(const VekTypeBase& type) {
    if (voidPtr() != static_cast<void*>(inline_)) {
      ::operator delete(voidPtr(), std::align_val_t(type.valueAlign()));
    }
  }

  alignas(std::max_align_t) std::byte inline_[INLINE];
  bool view_;
};

}  // namespace

Ptr<GenericIf> valueNew(const VekTypeBase& type, const void* src) {
  if (!type.isSealed() || type.isEntity() || type.isCollectionControl()) {
    ZOLT_FMASSERT(debug(), "Vek", "{} cannot make values", type.qualifiedName());
  }
  return Ptr<GenericIf>(Value::make(type, src, false));
}

Ptr<GenericIf> valueView(const VekTypeBase& type, const void* src) {
  return Ptr<GenericIf>(Value::make(type, src, true));
}

}  // namespace Vek::detail

namespace Vek {

GenericIf::~GenericIf() = default;

const void* GenericIf::voidPtrIs(const VekTypeBase& type) const {
  for (VekType t = type_; t; t = t->aliasOf()) {
    if (t.base() == &type) return data_;
  }
  return type.isEntity() && type_->isEntity() && VekType(&type) == entityBaseType() ? data_ : nullptr;
}

uint32_t GenericIf::hash() const {
  HashMix mix;
  detail::hash(*type_, data_, mix);
  return mix.value();
}

std::string GenericIf::strRep() const {
  std::string out;
  detail::appendStr(*type_, data_, out);
  return out;
}

std::string GenericIf::gnmiStrRep() const { return strRep(); }

Ptr<GenericIf> genericIfOfRaw(BuiltinCode code, const void* raw) {
  return detail::valueNew(*builtinType(code), raw);
}

}  // namespace Vek
