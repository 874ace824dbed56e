// Notification helpers and the shared value types with their formatters.
#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "FatalCatcher.h"
#include "Ostrel/Path.h"
#include "Ostrel/Types.h"
#include "Ostrel/VekGnmiUtils.h"

namespace {

using Ostrel::RequestType;
using Ostrel::strToPath;
using Ostrel::SyncId;
using Ostrel::WalkerFlags;
using Ostrel::WalkId;
using Ostrel::WalkResult;
namespace Utils = Ostrel::VekGnmiUtils;

// ---------------------------------------------------------------------------
// populateTimestamp

TEST(VekGnmiUtils, PopulateTimestampSetsOnlyTheTimestamp) {
  gnmi::Notification notification;
  Utils::pushUpdate(strToPath("/a"), &notification, int64_t{1}, &gnmi::TypedValue::set_int_val);
  notification.mutable_prefix()->CopyFrom(strToPath("/p"));
  Utils::populateTimestamp(notification, 1700000000123456789);
  EXPECT_EQ(notification.timestamp(), 1700000000123456789);
  EXPECT_EQ(notification.update_size(), 1);
  EXPECT_EQ(notification.prefix(), strToPath("/p"));
  Utils::populateTimestamp(notification, 0);
  EXPECT_EQ(notification.timestamp(), 0);
}

// ---------------------------------------------------------------------------
// pushUpdate

TEST(VekGnmiUtils, PushUpdateAppendsPathAndValue) {
  gnmi::Notification notification;
  const gnmi::Path path = strToPath("/interfaces/interface[name=eth0]/mtu");
  Utils::pushUpdate(path, &notification, uint64_t{1500}, &gnmi::TypedValue::set_uint_val);
  Utils::pushUpdate(strToPath("/b"), &notification, 7, &gnmi::TypedValue::set_int_val);
  ASSERT_EQ(notification.update_size(), 2);
  EXPECT_EQ(notification.update(0).path(), path);
  EXPECT_EQ(notification.update(0).path().elem(1).key().at("name"), "eth0");
  EXPECT_EQ(notification.update(0).val().value_case(), gnmi::TypedValue::kUintVal);
  EXPECT_EQ(notification.update(0).val().uint_val(), 1500u);
  EXPECT_EQ(notification.update(1).path(), strToPath("/b"));
  EXPECT_EQ(notification.update(1).val().int_val(), 7);
}

TEST(VekGnmiUtils, PushUpdateTakesStringSettersByReferenceOrByMove) {
  gnmi::Notification notification;
  const std::string name = "eth0";
  Utils::pushUpdate(strToPath("/n"), &notification, name,
                    &gnmi::TypedValue::set_string_val<const std::string&>);
  std::string json = "{\"a\":1}";
  Utils::pushUpdate(strToPath("/j"), &notification, std::move(json),
                    &gnmi::TypedValue::set_json_val<std::string>);
  Utils::pushUpdate(strToPath("/f"), &notification, true, &gnmi::TypedValue::set_bool_val);
  ASSERT_EQ(notification.update_size(), 3);
  EXPECT_EQ(notification.update(0).val().string_val(), "eth0");
  EXPECT_EQ(name, "eth0");
  EXPECT_EQ(notification.update(1).val().json_val(), "{\"a\":1}");
  EXPECT_TRUE(notification.update(2).val().bool_val());
}

TEST(VekGnmiUtils, PushUpdateWithATargetAddsNoUpdate) {
  gnmi::Notification notification;
  Utils::pushUpdate(strToPath("/list"), &notification, 0, &gnmi::TypedValue::set_int_val);
  gnmi::TypedValue* leafList = notification.mutable_update(0)->mutable_val();
  gnmi::ScalarArray* elements = leafList->mutable_leaflist_val();
  for (int64_t i = 10; i < 13; ++i) {
    Utils::pushUpdate(strToPath("/ignored"), &notification, i, &gnmi::TypedValue::set_int_val,
                      elements->add_element());
  }
  EXPECT_EQ(notification.update_size(), 1);
  EXPECT_EQ(notification.update(0).path(), strToPath("/list"));
  ASSERT_EQ(notification.update(0).val().leaflist_val().element_size(), 3);
  EXPECT_EQ(notification.update(0).val().leaflist_val().element(2).int_val(), 12);
}

TEST(VekGnmiUtils, PushUpdateWithATargetNeedsNoNotification) {
  gnmi::TypedValue value;
  Utils::pushUpdate(gnmi::Path(), nullptr, std::string("x"),
                    &gnmi::TypedValue::set_ascii_val<std::string>, &value);
  EXPECT_EQ(value.ascii_val(), "x");
}

// ---------------------------------------------------------------------------
// pushDelete

TEST(VekGnmiUtils, PushDeleteAppendsCopiesInOrder) {
  gnmi::Notification notification;
  gnmi::Path first = strToPath("/a[k=1]");
  Utils::pushDelete(notification, first);
  Utils::pushDelete(notification, strToPath("/b/c"));
  first.mutable_elem(0)->set_name("changed");  // the notification holds a copy
  ASSERT_EQ(notification.delete__size(), 2);
  EXPECT_EQ(notification.delete_(0), strToPath("/a[k=1]"));
  EXPECT_EQ(notification.delete_(1), strToPath("/b/c"));
  EXPECT_EQ(notification.update_size(), 0);
}

// ---------------------------------------------------------------------------
// requestTypeToFlags

TEST(VekGnmiUtils, RequestTypesGiveTheirFlagBits) {
  EXPECT_EQ(Ostrel::toBits(Utils::requestTypeToFlags(RequestType{0})), 2u);
  EXPECT_EQ(Ostrel::toBits(Utils::requestTypeToFlags(RequestType{1})), 4u);
  EXPECT_EQ(Ostrel::toBits(Utils::requestTypeToFlags(RequestType{2})), 6u);
}

TEST(VekGnmiUtils, RequestTypeTwoIsTheUnionOfZeroAndOne) {
  EXPECT_EQ(Utils::requestTypeToFlags(RequestType{2}),
            Utils::requestTypeToFlags(RequestType{0}) | Utils::requestTypeToFlags(RequestType{1}));
}

TEST(VekGnmiUtils, UnknownRequestTypeIsFatal) {
  EXPECT_FATAL(Utils::requestTypeToFlags(RequestType{3}), "Unrecognized request type:3");
  EXPECT_FATAL(Utils::requestTypeToFlags(RequestType{4294967295u}),
               "Unrecognized request type:4294967295");
}

TEST(VekGnmiUtils, UnknownRequestTypeIsRaisedUnderTheUtilsHandle) {
  const Zolt::FatalError error =
      OstrelTest::catchFatal([] { Utils::requestTypeToFlags(RequestType{7}); });
  EXPECT_EQ(error.handle, "OstrelVekGnmiUtils");
  EXPECT_EQ(error.function, "requestTypeToFlags");
  EXPECT_EQ(error.message, "Unrecognized request type:7");
}

// ---------------------------------------------------------------------------
// stringVecJoin

TEST(VekGnmiUtils, JoinOfNoPartsIsEmpty) {
  EXPECT_EQ(Utils::stringVecJoin({}, ","), "");
}

TEST(VekGnmiUtils, JoinOfOnePartIsThatPartWithoutSeparator) {
  EXPECT_EQ(Utils::stringVecJoin({"alone"}, ", "), "alone");
  EXPECT_EQ(Utils::stringVecJoin({""}, ", "), "");
}

TEST(VekGnmiUtils, JoinPutsSeparatorsOnlyBetweenParts) {
  EXPECT_EQ(Utils::stringVecJoin({"a", "b", "c"}, ", "), "a, b, c");
  EXPECT_EQ(Utils::stringVecJoin({"a", "b"}, ""), "ab");
}

TEST(VekGnmiUtils, JoinKeepsEmptyParts) {
  EXPECT_EQ(Utils::stringVecJoin({"", ""}, ","), ",");
  EXPECT_EQ(Utils::stringVecJoin({"a", "", "c", ""}, "/"), "a//c/");
}

TEST(VekGnmiUtils, JoinLeavesTheCallersVectorAlone) {
  const std::vector<std::string> parts = {"x", "y"};
  EXPECT_EQ(Utils::stringVecJoin(parts, "-"), "x-y");
  EXPECT_EQ(parts, (std::vector<std::string>{"x", "y"}));
}

// ---------------------------------------------------------------------------
// Shared types

static_assert(!std::is_same_v<WalkId, SyncId>);
static_assert(!std::is_convertible_v<WalkId, SyncId>);
static_assert(!std::is_convertible_v<uint64_t, WalkId>);
static_assert(sizeof(WalkId) == 8 && sizeof(SyncId) == 8);
static_assert(sizeof(WalkerFlags) == 4);
static_assert(sizeof(WalkResult) == 1);
static_assert(static_cast<uint8_t>(WalkResult::Done) == 0);
static_assert(static_cast<uint8_t>(WalkResult::RouterFull) == 1);
static_assert(static_cast<uint8_t>(WalkResult::QuantaExceeded) == 2);

TEST(VekGnmiUtils, IdsCompareAndHashByValue) {
  EXPECT_EQ(WalkId(5), WalkId(5));
  EXPECT_NE(WalkId(5), WalkId(6));
  EXPECT_LT(SyncId(1), SyncId(2));
  EXPECT_FALSE(WalkId());
  EXPECT_TRUE(WalkId(1));
  EXPECT_EQ(std::hash<WalkId>()(WalkId(0x123456789abcdefull)),
            static_cast<size_t>(0x123456789abcdefull));
  std::unordered_set<WalkId> ids = {WalkId(1), WalkId(2), WalkId(1)};
  EXPECT_EQ(ids.size(), 2u);
}

TEST(VekGnmiUtils, IdsPrintInDecimalAndPairsWithAColon) {
  EXPECT_EQ(fmt::format("{}", WalkId(18446744073709551615ull)), "18446744073709551615");
  EXPECT_EQ(fmt::format("{}", SyncId(0)), "0");
  EXPECT_EQ(fmt::format("{}", std::make_pair(SyncId(12), WalkId(34))), "12:34");
}

TEST(VekGnmiUtils, FlagsPrintAsBitsMostSignificantFirst) {
  EXPECT_EQ(fmt::format("{}", Utils::requestTypeToFlags(RequestType{2})),
            "00000000000000000000000000000110");
  EXPECT_EQ(fmt::format("{}", WalkerFlags{0x80000001u}), "10000000000000000000000000000001");
  EXPECT_EQ(fmt::format("{}", WalkerFlags::None), std::string(32, '0'));
}

TEST(VekGnmiUtils, FlagOperators) {
  WalkerFlags flags = WalkerFlags::SuppressPush | WalkerFlags::SkipWalk;
  EXPECT_EQ(Ostrel::toBits(flags), 17u);
  EXPECT_TRUE(Ostrel::hasAny(flags, WalkerFlags::SkipWalk));
  EXPECT_FALSE(Ostrel::hasAny(flags, WalkerFlags::IgnorePushResult));
  flags &= ~WalkerFlags::SuppressPush;
  EXPECT_EQ(flags, WalkerFlags::SkipWalk);
  flags |= WalkerFlags::NotifieeOption;
  EXPECT_EQ(Ostrel::toBits(flags), 80u);
}

TEST(VekGnmiUtils, WalkResultsAndRequestTypesPrint) {
  EXPECT_EQ(fmt::format("{}", WalkResult::QuantaExceeded), "QuantaExceeded");
  EXPECT_EQ(fmt::format("{}", WalkResult{9}), "9");
  EXPECT_EQ(fmt::format("{}", RequestType{2}), "2");
}

}  // namespace
