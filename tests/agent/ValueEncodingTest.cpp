// Library values to client encodings, and client values to what the
// library's Set needs, by the leaf's runtime type.
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

#include "DemoModel.h"
#include "ModelSchema.h"
#include "ValueEncoding.h"

namespace {

using namespace VekGnmi::Server;

LeafInfo leafOf(Vek::VekType type, LeafKind kind = LeafKind::Value) {
  LeafInfo leaf;
  leaf.kind = kind;
  leaf.type = type;
  return leaf;
}

template <typename T>
LeafInfo builtin(LeafKind kind = LeafKind::Value) {
  return leafOf(Vek::builtinType<T>(), kind);
}

gnmi::TypedValue u(uint64_t v) {
  gnmi::TypedValue t;
  t.set_uint_val(v);
  return t;
}
gnmi::TypedValue i(int64_t v) {
  gnmi::TypedValue t;
  t.set_int_val(v);
  return t;
}
gnmi::TypedValue s(const std::string& v) {
  gnmi::TypedValue t;
  t.set_string_val(v);
  return t;
}
gnmi::TypedValue bytes(const std::string& v) {
  gnmi::TypedValue t;
  t.set_bytes_val(v);
  return t;
}
gnmi::TypedValue doubleBytes(double d) {
  const uint64_t bits = std::bit_cast<uint64_t>(d);
  std::string b;
  for (int k = 7; k >= 0; --k) b.push_back(static_cast<char>((bits >> (8 * k)) & 0xff));
  return bytes(b);
}
gnmi::TypedValue json(const std::string& text) {
  gnmi::TypedValue t;
  t.set_json_val(text);
  return t;
}
gnmi::TypedValue jsonIetf(const std::string& text) {
  gnmi::TypedValue t;
  t.set_json_ietf_val(text);
  return t;
}

std::string J(const LeafInfo& leaf, const gnmi::TypedValue& v) { return leafJson(&leaf, v, false); }
std::string IETF(const LeafInfo& leaf, const gnmi::TypedValue& v) { return leafJson(&leaf, v, true); }

TEST(ValueEncoding, Integers) {
  EXPECT_EQ(J(builtin<unsigned char>(), u(200)), "200");
  EXPECT_EQ(J(builtin<unsigned short>(), u(65535)), "65535");
  EXPECT_EQ(J(builtin<unsigned>(), u(9000)), "9000");
  EXPECT_EQ(J(builtin<signed char>(), i(-5)), "-5");
  EXPECT_EQ(J(builtin<short>(), i(-300)), "-300");
  EXPECT_EQ(J(builtin<int>(), i(-70000)), "-70000");
  EXPECT_EQ(IETF(builtin<int>(), i(-70000)), "-70000");
  EXPECT_EQ(IETF(builtin<unsigned>(), u(9000)), "9000");
}

TEST(ValueEncoding, SixtyFourBitIntegersAreStringsInJsonIetfOnly) {
  EXPECT_EQ(J(builtin<unsigned long long>(), u(18446744073709551615ull)), "18446744073709551615");
  EXPECT_EQ(IETF(builtin<unsigned long long>(), u(18446744073709551615ull)),
            "\"18446744073709551615\"");
  EXPECT_EQ(J(builtin<long long>(), i(-9)), "-9");
  EXPECT_EQ(IETF(builtin<long long>(), i(-9)), "\"-9\"");
}

TEST(ValueEncoding, DoubleTravelsAsBigEndianBytesAndLeavesAsANumber) {
  EXPECT_EQ(J(builtin<double>(), doubleBytes(1.0)), "1");
  EXPECT_EQ(J(builtin<double>(), bytes(std::string("\x3f\xf0\0\0\0\0\0\0", 8))), "1");
  EXPECT_EQ(J(builtin<double>(), doubleBytes(0.1)), "0.1");
  EXPECT_EQ(IETF(builtin<double>(), doubleBytes(-2.5e-300)), "-2.5e-300");
  EXPECT_EQ(J(builtin<double>(), doubleBytes(NAN)), "\"NaN\"");
  EXPECT_EQ(J(builtin<double>(), doubleBytes(-INFINITY)), "\"-Infinity\"");
}

TEST(ValueEncoding, FloatIsAShortestNumber) {
  gnmi::TypedValue f;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  f.set_float_val(1.1f);
#pragma GCC diagnostic pop
  EXPECT_EQ(J(builtin<float>(), f), "1.1");
}

TEST(ValueEncoding, CharIsAOneCharacterString) {
  EXPECT_EQ(J(builtin<char>(), u('A')), "\"A\"");
  EXPECT_EQ(J(builtin<char>(), u('"')), "\"\\\"\"");
  EXPECT_EQ(J(builtin<char>(), u(0xe9)), "\"\xc3\xa9\"");  // Latin-1 e-acute
}

TEST(ValueEncoding, SecondsAreExactSeconds) {
  EXPECT_EQ(J(builtin<Vek::Seconds>(), i(1500000000)), "1.5");
  EXPECT_EQ(J(builtin<Vek::Seconds>(), i(3600500000000)), "3600.5");
  EXPECT_EQ(J(builtin<Vek::Seconds>(), i(-1)), "-0.000000001");
  EXPECT_EQ(J(builtin<Vek::Seconds>(), i(0)), "0");
  EXPECT_EQ(secondsText(1800000000123456789), "1800000000.123456789");
}

TEST(ValueEncoding, StringsBytesAndBooleans) {
  EXPECT_EQ(J(builtin<Vek::String>(), s("a\"b\n")), "\"a\\\"b\\n\"");
  EXPECT_EQ(J(builtin<Vek::Bytes>(), bytes("\x01\x02\x03")), "\"AQID\"");
  gnmi::TypedValue b;
  b.set_bool_val(true);
  EXPECT_EQ(J(builtin<bool>(), b), "true");
}

TEST(ValueEncoding, EnumerationsTextFormsPointersAndKeys) {
  const DemoTypes& t = demoTypes();
  EXPECT_EQ(J(leafOf(t.operStatus), s("up")), "\"up\"");
  EXPECT_EQ(J(leafOf(t.ipv4Prefix, LeafKind::Key), s("10.0.0.0/31")), "\"10.0.0.0/31\"");
  EXPECT_EQ(J(leafOf(t.interface, LeafKind::Pointer), s("/devices/dev1/interfaces[name=eth0]")),
            "\"/devices/dev1/interfaces[name=eth0]\"");
  EXPECT_EQ(J(builtin<Vek::String>(LeafKind::Key), s("eth0")), "\"eth0\"");
}

TEST(ValueEncoding, JsonTextPassesThrough) {
  const LeafInfo leaf = builtin<Vek::String>(LeafKind::JsonText);
  EXPECT_EQ(J(leaf, s("{\"banner\":\"hi\"}")), "{\"banner\":\"hi\"}");
  EXPECT_EQ(J(leaf, json("[1,2]")), "[1,2]");
  EXPECT_EQ(J(leaf, s("not json")), "\"not json\"");
}

TEST(ValueEncoding, ArraysConvertEachElement) {
  gnmi::TypedValue list;
  list.mutable_leaflist_val()->add_element()->set_uint_val(10);
  list.mutable_leaflist_val()->add_element()->set_uint_val(20);
  EXPECT_EQ(J(builtin<unsigned long long>(LeafKind::Array), list), "[10,20]");
  EXPECT_EQ(IETF(builtin<unsigned long long>(LeafKind::Array), list), "[\"10\",\"20\"]");
}

TEST(ValueEncoding, UnknownLeavesAndUnexpectedKindsUseTheValuesKind) {
  EXPECT_EQ(leafJson(nullptr, u(5), false), "5");
  EXPECT_EQ(leafJson(nullptr, bytes("\x01\x02\x03"), false), "\"AQID\"");
  // A double leaf holding something else than 8 bytes is rendered as it is.
  EXPECT_EQ(J(builtin<double>(), s("x")), "\"x\"");
}

TEST(ValueEncoding, EncodeValueByEncoding) {
  const LeafInfo leaf = builtin<unsigned long long>();
  gnmi::TypedValue out;
  encodeValue(&leaf, u(7), gnmi::JSON, out);
  EXPECT_EQ(out.json_val(), "7");
  encodeValue(&leaf, u(7), gnmi::JSON_IETF, out);
  EXPECT_EQ(out.json_ietf_val(), "\"7\"");
  encodeValue(&leaf, u(7), gnmi::PROTO, out);
  EXPECT_EQ(out.uint_val(), 7u);
}

TEST(ValueEncoding, SupportedEncodings) {
  EXPECT_TRUE(checkEncoding(gnmi::JSON).ok());
  EXPECT_TRUE(checkEncoding(gnmi::JSON_IETF).ok());
  EXPECT_TRUE(checkEncoding(gnmi::PROTO).ok());
  const grpc::Status ascii = checkEncoding(gnmi::ASCII);
  EXPECT_EQ(ascii.error_code(), grpc::StatusCode::UNIMPLEMENTED);
  EXPECT_EQ(ascii.error_message(), "encoding ASCII is not supported; use JSON, JSON_IETF or PROTO");
  EXPECT_EQ(checkEncoding(gnmi::BYTES).error_code(), grpc::StatusCode::UNIMPLEMENTED);
  EXPECT_EQ(checkEncoding(42).error_message(),
            "encoding 42 is not supported; use JSON, JSON_IETF or PROTO");
}

// Set: client values to the typed value of the leaf.
gnmi::TypedValue setValue(const LeafInfo& leaf, const gnmi::TypedValue& in) {
  gnmi::TypedValue out;
  std::string error;
  EXPECT_TRUE(setValueForLeaf(leaf, in, out, error)) << error;
  return out;
}
std::string setError(const LeafInfo& leaf, const gnmi::TypedValue& in) {
  gnmi::TypedValue out;
  std::string error;
  EXPECT_FALSE(setValueForLeaf(leaf, in, out, error));
  return error;
}

TEST(ValueEncodingSet, JsonScalarsBecomeTheLeafsTypedValue) {
  EXPECT_EQ(setValue(builtin<unsigned>(), json("9000")).uint_val(), 9000u);
  EXPECT_EQ(setValue(builtin<int>(), json("-3")).int_val(), -3);
  EXPECT_EQ(setValue(builtin<int>(), json("7")).int_val(), 7);  // signedness of the leaf
  EXPECT_TRUE(setValue(builtin<bool>(), json("true")).bool_val());
  EXPECT_EQ(setValue(builtin<Vek::String>(), json("\"x\"")).string_val(), "x");
  EXPECT_EQ(setValue(leafOf(demoTypes().operStatus), json("\"down\"")).string_val(), "down");
  EXPECT_EQ(setValue(builtin<double>(), json("2.5")).double_val(), 2.5);
  EXPECT_EQ(setValue(builtin<Vek::Bytes>(), json("\"AQID\"")).bytes_val(), "\x01\x02\x03");
  EXPECT_EQ(setValue(builtin<Vek::Seconds>(), json("1.5")).int_val(), 1500000000);
  EXPECT_EQ(setValue(builtin<char>(), json("\"A\"")).uint_val(), 65u);
  EXPECT_EQ(setValue(builtin<unsigned>(), json("9000.0")).uint_val(), 9000u);
}

TEST(ValueEncodingSet, JsonIetfSixtyFourBitIntegersComeAsStrings) {
  EXPECT_EQ(setValue(builtin<unsigned long long>(), jsonIetf("\"18446744073709551615\"")).uint_val(),
            18446744073709551615ull);
  EXPECT_EQ(setValue(builtin<long long>(), jsonIetf("\"-9223372036854775808\"")).int_val(),
            std::numeric_limits<int64_t>::min());
  EXPECT_EQ(setValue(builtin<unsigned long long>(), jsonIetf("12")).uint_val(), 12u);
}

TEST(ValueEncodingSet, IntegersAreRangeChecked) {
  EXPECT_EQ(setError(builtin<unsigned char>(), json("300")), "300 is out of range 0..255");
  EXPECT_EQ(setError(builtin<unsigned>(), json("-1")), "-1 is out of range 0..4294967295");
  EXPECT_EQ(setError(builtin<signed char>(), i(-129)), "-129 is out of range -128..127");
  EXPECT_EQ(setError(builtin<long long>(), u(9223372036854775808ull)),
            "9223372036854775808 is out of range -9223372036854775808..9223372036854775807");
  EXPECT_EQ(setValue(builtin<unsigned>(), i(5)).uint_val(), 5u);  // typed int to unsigned leaf
  EXPECT_EQ(setValue(builtin<int>(), u(5)).int_val(), 5);
}

TEST(ValueEncodingSet, WrongShapesAreRefusedWithAReason) {
  EXPECT_EQ(setError(builtin<unsigned>(), json("\"abc\"")), "\"abc\" is not an integer");
  EXPECT_EQ(setError(builtin<unsigned>(), json("1.5")), "1.5 is not an integer");
  EXPECT_EQ(setError(builtin<bool>(), json("1")), "1 is not true or false");
  EXPECT_EQ(setError(builtin<Vek::String>(), json("5")), "5 is not a string");
  EXPECT_NE(setError(builtin<unsigned>(), json("{\"a\":1}")).find("takes a JSON scalar"),
            std::string::npos);
  EXPECT_EQ(setError(builtin<unsigned>(), json("{")), "'{' is not JSON");
  EXPECT_EQ(setError(leafOf(demoTypes().interface, LeafKind::Pointer), s("x")),
            "pointer leaves cannot be set");
  EXPECT_EQ(setError(builtin<unsigned>(), gnmi::TypedValue()), "the update has no value");
}

TEST(ValueEncodingSet, JsonTextLeavesTakeAnyJson) {
  EXPECT_EQ(setValue(builtin<Vek::String>(LeafKind::JsonText), json("{\"b\": [1]}")).string_val(),
            "{\"b\":[1]}");
}

}  // namespace
