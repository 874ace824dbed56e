// Fuzzes the runtime's parsing of values from text, which a Set request feeds
// with client-supplied strings. The first byte picks the type; the rest is the
// text. Parsing must either refuse the text (a null handle) or give a value
// whose text form parses back to an equal value that hashes alike.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <Vek/Vek.h>
#include <Zolt/Zolt.h>

namespace {

std::vector<Vek::VekType>& types() {
  static std::vector<Vek::VekType> all = [] {
    using Vek::BuiltinCode;
    std::vector<Vek::VekType> t;
    for (BuiltinCode code :
         {BuiltinCode::UnsignedChar, BuiltinCode::SignedChar, BuiltinCode::UnsignedShort,
          BuiltinCode::Short, BuiltinCode::UnsignedInt, BuiltinCode::Int,
          BuiltinCode::UnsignedLongLong, BuiltinCode::LongLong, BuiltinCode::Bool,
          BuiltinCode::Char, BuiltinCode::Float, BuiltinCode::Double, BuiltinCode::String,
          BuiltinCode::Bytes, BuiltinCode::Seconds}) {
      t.push_back(Vek::builtinType(code));
    }
    Vek::Module& m = Vek::Module::moduleNew("Fuzz");
    t.push_back(m.enumType("Color", Vek::builtinType<short>())
                    .enumerator("red", -1)
                    .enumerator("green", 0)
                    .enumerator("blue", 700)
                    .done());
    t.push_back(m.valueType("Vlan")
                    .scalar("id", Vek::builtinType<unsigned short>())
                    .wrapperOf("id")
                    .done());
    return t;
  }();
  return all;
}

[[noreturn]] void fail(const char* what, const Vek::VekType& type, const std::string& text,
                       const std::string& printed) {
  std::fprintf(stderr, "%s: type %s, text \"%s\", printed \"%s\"\n", what,
               type->qualifiedName().c_str(), text.c_str(), printed.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Zolt::fatalHandlerIs(&Zolt::throwingFatalHandler);
  Zolt::traceSinkIs([](const Zolt::TraceRecord&) {});
  types();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const Vek::VekType type = types()[data[0] % types().size()];
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  Vek::Ptr<Vek::GenericIf> value;
  try {
    value = type.genericIf(Vek::String(text), false);
  } catch (const Zolt::FatalError& e) {
    fail(("fatal assertion: " + e.message).c_str(), type, text, "");
  }
  if (!value) return 0;  // refused
  if (!(value->type() == type)) fail("parsed value has another type", type, text, "");
  const std::string printed = value->strRep();
  Vek::Ptr<Vek::GenericIf> again = type.genericIf(Vek::String(printed), false);
  if (!again) fail("printed text does not parse", type, text, printed);
  if (!Vek::VekType::genericIfBooleanOp(value, Vek::AttrOp::Equal, again)) {
    fail("round trip changed the value", type, text, printed);
  }
  if (value->hash() != again->hash()) fail("equal values hash differently", type, text, printed);
  return 0;
}
