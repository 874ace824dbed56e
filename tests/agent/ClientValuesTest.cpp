// The client's value, duration and encoding parsing, and its output.
#include <gtest/gtest.h>

#include "ClientOutput.h"
#include "ClientValues.h"
#include "GnmiPathText.h"
#include "JsonText.h"

namespace {

using namespace VekGnmi::Client;

gnmi::TypedValue value(const std::string& text, gnmi::Encoding encoding = gnmi::JSON) {
  gnmi::TypedValue v;
  std::string error;
  EXPECT_TRUE(parseValue(text, encoding, v, error)) << text << ": " << error;
  return v;
}

std::string valueError(const std::string& text, gnmi::Encoding encoding = gnmi::JSON) {
  gnmi::TypedValue v;
  std::string error;
  EXPECT_FALSE(parseValue(text, encoding, v, error)) << text;
  return error;
}

TEST(ClientValues, TypedScalars) {
  EXPECT_EQ(value("int:-5").int_val(), -5);
  EXPECT_EQ(value("uint:18446744073709551615").uint_val(), 18446744073709551615ull);
  EXPECT_TRUE(value("bool:true").bool_val());
  EXPECT_FALSE(value("bool:FALSE").bool_val());
  EXPECT_EQ(value("string:a:b").string_val(), "a:b");
  EXPECT_EQ(value("ascii:x").ascii_val(), "x");
  EXPECT_DOUBLE_EQ(value("double:1.5").double_val(), 1.5);
  EXPECT_EQ(value("bytes:AAEC").bytes_val(), std::string("\x00\x01\x02", 3));
  EXPECT_EQ(value("json:{\"a\":1}").json_val(), "{\"a\":1}");
  EXPECT_EQ(value("json_ietf:\"9\"").json_ietf_val(), "\"9\"");
}

TEST(ClientValues, TypedScalarsAreChecked) {
  EXPECT_NE(valueError("int:x").find("not a 64-bit signed integer"), std::string::npos);
  EXPECT_NE(valueError("int:9223372036854775808").find("signed"), std::string::npos);
  EXPECT_NE(valueError("uint:-1").find("unsigned"), std::string::npos);
  EXPECT_NE(valueError("bool:yes").find("true or false"), std::string::npos);
  EXPECT_NE(valueError("double:1.5x").find("not a number"), std::string::npos);
  EXPECT_NE(valueError("bytes:!!").find("not base64"), std::string::npos);
  EXPECT_NE(valueError("json:{").find("not JSON"), std::string::npos);
}

TEST(ClientValues, UntypedValuesAreJsonForJsonEncodings) {
  EXPECT_EQ(value("9000").json_val(), "9000");
  EXPECT_EQ(value("\"x\"").json_val(), "\"x\"");
  EXPECT_EQ(value("eth0 uplink").json_val(), "\"eth0 uplink\"");
  EXPECT_EQ(value("10:30").json_val(), "\"10:30\"");
  EXPECT_EQ(value("true", gnmi::JSON_IETF).json_ietf_val(), "true");
  EXPECT_EQ(value("{\"a\": [1, 2]}").json_val(), "{\"a\":[1,2]}");
}

TEST(ClientValues, UntypedValuesAreScalarsForProto) {
  EXPECT_EQ(value("9000", gnmi::PROTO).uint_val(), 9000u);
  EXPECT_EQ(value("-3", gnmi::PROTO).int_val(), -3);
  EXPECT_TRUE(value("true", gnmi::PROTO).bool_val());
  EXPECT_EQ(value("up", gnmi::PROTO).string_val(), "up");
  EXPECT_DOUBLE_EQ(value("2.25", gnmi::PROTO).double_val(), 2.25);
  EXPECT_NE(valueError("[1]", gnmi::PROTO).find("scalars only"), std::string::npos);
  EXPECT_NE(valueError("x", gnmi::ASCII).find("untyped values need"), std::string::npos);
}

TEST(ClientValues, UpdateArgumentSplitsAtFirstBareEquals) {
  gnmi::Update u;
  std::string error;
  ASSERT_TRUE(parseUpdateArgument("/i[name=a=b]/mtu=9000", gnmi::JSON, u, error)) << error;
  EXPECT_EQ(VekGnmi::pathString(u.path()), "/i[name=a=b]/mtu");
  EXPECT_EQ(u.val().json_val(), "9000");
  ASSERT_TRUE(parseUpdateArgument("/we\\=ird=string:x=y", gnmi::JSON, u, error)) << error;
  EXPECT_EQ(u.path().elem(0).name(), "we=ird");
  EXPECT_EQ(u.val().string_val(), "x=y");
}

TEST(ClientValues, UpdateArgumentErrors) {
  gnmi::Update u;
  std::string error;
  EXPECT_FALSE(parseUpdateArgument("/a/b", gnmi::JSON, u, error));
  EXPECT_NE(error.find("is not PATH=VALUE"), std::string::npos);
  EXPECT_FALSE(parseUpdateArgument("/a//b=1", gnmi::JSON, u, error));
  EXPECT_NE(error.find("bad path"), std::string::npos);
  EXPECT_FALSE(parseUpdateArgument("/a=int:z", gnmi::JSON, u, error));
  EXPECT_NE(error.find("bad value for /a"), std::string::npos);
}

TEST(ClientValues, Encodings) {
  EXPECT_EQ(parseEncoding("JSON_IETF"), gnmi::JSON_IETF);
  EXPECT_EQ(parseEncoding("json-ietf"), gnmi::JSON_IETF);
  EXPECT_EQ(parseEncoding("proto"), gnmi::PROTO);
  EXPECT_FALSE(parseEncoding("xml"));
  EXPECT_EQ(encodingName(gnmi::ASCII), "ascii");
}

TEST(ClientValues, Durations) {
  EXPECT_EQ(parseDuration("10s")->count(), 10'000'000'000);
  EXPECT_EQ(parseDuration("500ms")->count(), 500'000'000);
  EXPECT_EQ(parseDuration("1.5")->count(), 1'500'000'000);
  EXPECT_EQ(parseDuration("2m")->count(), 120'000'000'000);
  EXPECT_EQ(parseDuration("7ns")->count(), 7);
  EXPECT_FALSE(parseDuration("-1s"));
  EXPECT_FALSE(parseDuration("10 s"));
  EXPECT_FALSE(parseDuration("s"));
  EXPECT_FALSE(parseDuration("1y"));
}

TEST(ClientOutput, NotificationIsOneObjectWithFullPaths) {
  gnmi::Notification n;
  n.set_timestamp(42);
  std::string error;
  ASSERT_TRUE(VekGnmi::parsePathString("/dev[name=a]", *n.mutable_prefix(), error));
  n.mutable_prefix()->set_target("t1");
  gnmi::Update* u = n.add_update();
  ASSERT_TRUE(VekGnmi::parsePathString("mtu", *u->mutable_path(), error));
  u->mutable_val()->set_uint_val(9000);
  u->set_duplicates(3);
  gnmi::Update* j = n.add_update();
  ASSERT_TRUE(VekGnmi::parsePathString("cfg", *j->mutable_path(), error));
  j->mutable_val()->set_json_val("{\"a\":1}");
  ASSERT_TRUE(VekGnmi::parsePathString("old", *n.add_delete_(), error));
  EXPECT_EQ(VekGnmi::jsonDump(notificationJson(n)),
            R"({"deletes":["/dev[name=a]/old"],"target":"t1","timestamp":42,"updates":[)"
            R"({"duplicates":3,"path":"/dev[name=a]/mtu","value":9000},)"
            R"({"path":"/dev[name=a]/cfg","value":{"a":1}}]})");
}

TEST(ClientOutput, TypedValuesAsJson) {
  gnmi::TypedValue v;
  v.set_bytes_val(std::string("\x01\x02\x03", 3));
  EXPECT_EQ(VekGnmi::typedValueJson(v), "AQID");
  v.set_double_val(std::numeric_limits<double>::infinity());
  EXPECT_EQ(VekGnmi::typedValueJson(v), "Infinity");
  v.set_json_ietf_val("not json");
  EXPECT_EQ(VekGnmi::typedValueJson(v), "not json");
  gnmi::TypedValue list;
  list.mutable_leaflist_val()->add_element()->set_int_val(-1);
  list.mutable_leaflist_val()->add_element()->set_string_val("x");
  EXPECT_EQ(VekGnmi::jsonDump(VekGnmi::typedValueJson(list)), "[-1,\"x\"]");
  EXPECT_TRUE(VekGnmi::typedValueJson(gnmi::TypedValue()).is_null());
}

TEST(ClientOutput, Base64RoundTrips) {
  for (const std::string s : {"", "a", "ab", "abc", "abcd", "\xff\x00\x10"}) {
    EXPECT_EQ(VekGnmi::base64Decode(VekGnmi::base64Encode(s)), s);
  }
  EXPECT_EQ(VekGnmi::base64Encode("ab"), "YWI=");
  EXPECT_FALSE(VekGnmi::base64Decode("a"));
}

TEST(ClientOutput, Base64PaddingIsOptional) {
  EXPECT_EQ(VekGnmi::base64Decode("YWI"), "ab");
  EXPECT_EQ(VekGnmi::base64Decode("YQ"), "a");
  EXPECT_EQ(VekGnmi::base64Decode("YQ=="), "a");
  EXPECT_EQ(VekGnmi::base64Decode(""), "");
}

TEST(ClientOutput, Base64DecodingRefusesWhatRfc4648DoesNotWrite) {
  for (const char* text : {"YWI==",     // more padding than the last group needs
                           "YQ=",       // padding that does not complete the group
                           "YQ===",     // three '='
                           "Y=WI",      // padding inside
                           "YW I=",     // whitespace
                           "YWI=\n",    // a line break
                           "YW-_",      // the URL-safe alphabet
                           "YWJj!",     // no base64 letter
                           "YWJjZ"}) {  // a group of one letter
    EXPECT_FALSE(VekGnmi::base64Decode(text)) << text;
  }
}

TEST(ClientOutput, StatusLineNamesCodeAndMessage) {
  EXPECT_EQ(statusLine(grpc::Status(grpc::StatusCode::NOT_FOUND, "no such path /x")),
            "error: NOT_FOUND (5): no such path /x");
}

}  // namespace
