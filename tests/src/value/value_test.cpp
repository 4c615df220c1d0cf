// Tests of zp::Value: the written text of each kind, read-back, and the lenient reader's quirks.

#include "value/value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

using zp::Value;

Value read_text(const char* text) {
    Value v;
    v.read(text);
    return v;
}

std::string payload_of(const Value& v) {
    return v.payload() ? std::string(v.payload(), static_cast<size_t>(v.payload_length()))
                       : std::string("<absent>");
}

TEST(ValueWrite, ScalarsUseTheirPrintFormats) {
    Value v;
    EXPECT_EQ(v.write(), "<null>");
    v.set_int(42);
    EXPECT_EQ(v.write(), "[i]42");
    v.set_int(-7);
    EXPECT_EQ(v.write(), "[i]-7");
    v.set_uint(4000000000u);
    EXPECT_EQ(v.write(), "[u]4000000000");
    v.set_float(1.5f);
    EXPECT_EQ(v.write(), "[f]1.500000");
    v.set_double(-2.25);
    EXPECT_EQ(v.write(), "[d]-2.250000");
    v.set_int64(5);
    EXPECT_EQ(v.write(), "[lld]5");
    v.set_int64(INT64_MIN);
    EXPECT_EQ(v.write(), "[lld]-9223372036854775808");
    v.set_uint64(UINT64_MAX);
    EXPECT_EQ(v.write(), "[llu]18446744073709551615");
    v.set_bool(true);
    EXPECT_EQ(v.write(), "[b]true");
    v.set_bool(false);
    EXPECT_EQ(v.write(), "[b]false");
}

TEST(ValueWrite, PointerIsSixteenUpperCaseDigits) {
    Value v;
    v.set_pointer(reinterpret_cast<void*>(static_cast<uintptr_t>(0xabcdef12345ULL)));
    EXPECT_EQ(v.write(), "[v]00000ABCDEF12345");
    v.set_pointer(nullptr);
    EXPECT_EQ(v.write(), "[v]0000000000000000");
}

TEST(ValueWrite, PayloadKindsAreLengthFramed) {
    Value v;
    v.set_string("hello");
    EXPECT_EQ(v.write(), "[str:5]hello");
    Value list;
    list.set_list(v.write().c_str());
    EXPECT_EQ(list.write(), "[list:12][str:5]hello");
    v.set_map("k]v");
    EXPECT_EQ(v.write(), "[map:3]k]v");
    v.set_error(-3, "no file");
    EXPECT_EQ(v.write(), "[err:7]-3,no file");
    v.set_string(nullptr);
    EXPECT_EQ(v.write(), "[str:0]");
    EXPECT_EQ(v.payload(), nullptr);
    v.set_error(4, nullptr);
    EXPECT_EQ(v.write(), "[err:0]4,");
}

TEST(ValueWrite, UnknownKindWritesVariantAndPayload) {
    Value v;
    v.set_string("raw");
    v.set_kind(42);
    EXPECT_EQ(v.write(), "<variant>raw");
    EXPECT_EQ(read_text("<variant>raw").kind(), zp::kValueNull);
    EXPECT_EQ(payload_of(read_text("<variant>raw")), "raw");
}

TEST(ValueWrite, PointerWithSizeWritesAddressAndLength) {
    char block[8] = {0};
    Value v;
    v.set_ptr_size(block, 8);
    std::string expected =
        "[ptr]" +
        std::to_string(static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(block))) + ",8";
    EXPECT_EQ(v.write(), expected);
}

// Every kind survives write-then-read (the error kind by its documented loss, below).
TEST(ValueRoundTrip, EveryKind) {
    char block[4] = {1, 2, 3, 4};
    Value values[13];
    values[0].set_int(-123456);
    values[1].set_uint(4294967295u);
    values[2].set_float(0.125f);
    values[3].set_double(1234.5);
    values[4].set_pointer(block);
    values[5].set_int64(-9000000000LL);
    values[6].set_uint64(18000000000000000000ULL);
    values[7].set_string("a string with ] and [ and spaces");
    values[8].set_bool(true);
    values[9].set_bool(false);
    values[10].set_list("[i]1[str:1]x");
    values[11].set_map("[str:1]k[i]2");
    values[12].set_ptr_size(block, 4);
    for (const Value& original : values) {
        std::string text = original.write();
        Value back = read_text(text.c_str());
        SCOPED_TRACE(text);
        EXPECT_EQ(back.kind(), original.kind());
        EXPECT_EQ(back.write(), text);
        EXPECT_EQ(back.as_int64(), original.as_int64());
        EXPECT_EQ(back.as_pointer(), original.as_pointer());
        EXPECT_EQ(back.as_string(), original.as_string());
    }
    EXPECT_EQ(read_text("<null>").kind(), Value().kind());
}

TEST(ValueRoundTrip, NestedListMemberIsReadAgain) {
    Value inner;
    inner.set_string("hello");
    Value list;
    list.set_list(inner.write().c_str());
    Value back = read_text(list.write().c_str());
    ASSERT_EQ(back.kind(), zp::kValueList);
    EXPECT_EQ(back.payload_length(), 12);
    Value member = read_text(back.payload());
    EXPECT_EQ(member.kind(), zp::kValueString);
    EXPECT_EQ(member.as_string(), "hello");
}

TEST(ValueRead, PointerAcceptsBothHexForms) {
    EXPECT_EQ(read_text("[v]00000000DEADBEEF").as_pointer(),
              reinterpret_cast<void*>(static_cast<uintptr_t>(0xDEADBEEFULL)));
    EXPECT_EQ(read_text("[v]0x1f").as_pointer(), reinterpret_cast<void*>(uintptr_t{0x1f}));
    EXPECT_EQ(read_text("[v]zz").kind(), zp::kValueNull);
}

TEST(ValueRead, ShortAndMalformedTextsStayNull) {
    const char* nulls[] = {nullptr,           "",         "[i]",   "[i]x",    "abc",    "[i]  ",
                           "no bracket here", "[zz]1",    "[]123", "<null>]", "[lld]x", "[llu]",
                           "[ptr]12",         "[ptr]x,1", "[d]--", "[f]e",    "[u]+",   "[I]5"};
    for (const char* t : nulls) {
        SCOPED_TRACE(t ? t : "(null)");
        Value v = read_text(t);
        EXPECT_EQ(v.kind(), zp::kValueNull);
        EXPECT_EQ(v.payload(), nullptr);
    }
    // The opening byte is never looked at.
    EXPECT_EQ(read_text("xi]9").as_int(), 9);
    EXPECT_EQ(read_text("(lld]77").as_int64(), 77);
}

TEST(ValueRead, BoolIsTrueOnlyForLowerCaseTrue) {
    EXPECT_TRUE(read_text("[b]true").as_bool());
    EXPECT_TRUE(read_text("[b]trueish").as_bool());
    Value upper = read_text("[b]TRUE");
    EXPECT_EQ(upper.kind(), zp::kValueBool);
    EXPECT_FALSE(upper.as_bool());
    EXPECT_EQ(read_text("[b]1").kind(), zp::kValueBool);
    EXPECT_FALSE(read_text("[b]1").as_bool());
}

TEST(ValueRead, FramedLengthLimitsThePayload) {
    EXPECT_EQ(payload_of(read_text("[str]abc")), "abc");
    EXPECT_EQ(payload_of(read_text("[str:2]abc")), "ab");
    EXPECT_EQ(payload_of(read_text("[str:99]abc")), "abc");
    EXPECT_EQ(payload_of(read_text("[str:-1]abc")), "abc");
    EXPECT_EQ(payload_of(read_text("[str:3]a]bc")), "a]b");
    Value empty = read_text("[str:0]abc");
    EXPECT_EQ(empty.kind(), zp::kValueString);
    EXPECT_EQ(empty.payload(), nullptr);
    EXPECT_EQ(read_text("[map:1]xy").kind(), zp::kValueMap);
    EXPECT_EQ(payload_of(read_text("[map:1]xy")), "x");
    EXPECT_EQ(read_text("[list]xy").kind(), zp::kValueList);
    // Only a colon right after the tag word introduces a length.
    EXPECT_EQ(payload_of(read_text("[listing:1]xy")), "xy");
    EXPECT_EQ(read_text("[string]xy").kind(), zp::kValueString);
}

TEST(ValueRead, MissingLengthIsReportedAndPayloadTakenWhole) {
    testing::internal::CaptureStderr();
    Value v = read_text("[str:]abc");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "> zp::Value:read() err: type='str:', missing 'len'.\n");
    EXPECT_EQ(v.kind(), zp::kValueString);
    EXPECT_EQ(payload_of(v), "abc");

    testing::internal::CaptureStderr();
    Value l = read_text("[list:x]abcd");
    err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "> zp::Value:read() err: type='list:x', missing 'len'.\n");
    EXPECT_EQ(payload_of(l), "abcd");

    testing::internal::CaptureStderr();
    Value e = read_text("[err:]5,ab");
    err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "> zp::Value:read() err: type='err:', missing 'len'.\n");
    EXPECT_EQ(e.error_code(), 5);
    EXPECT_EQ(payload_of(e), "5,ab");

    // No colon at all is not a missing length: nothing is printed.
    testing::internal::CaptureStderr();
    read_text("[str]abc");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A written error loses as many trailing bytes as its code and comma take.
TEST(ValueRead, ErrorReadBackIsAsymmetric) {
    Value e;
    e.set_error(-3, "no file");
    Value back = read_text(e.write().c_str());
    EXPECT_EQ(back.kind(), zp::kValueError);
    EXPECT_EQ(back.error_code(), -3);
    EXPECT_EQ(payload_of(back), "no f");

    struct Case {
        const char* text;
        int code;
        const char* payload;
    } cases[] = {
        {"[err:3]5", 5, "<absent>"},                                     // no comma: code only
        {"[err:2]5,abc", 5, "<absent>"},                                 // count 2 - 2 = 0
        {"[err:3]5,abc", 5, "a"},        {"[err:50]12,abc", 12, "abc"},  // capped by the text
        {"[err]5,abc", 5, "5,abc"},  // no length: all of it, code included
        {"[err]5,", 5, "<absent>"},  // ... but only when text follows the comma
        {"[err:-4]7,z", 7, "7,z"},       {"[err:9]x,abcdefgh", 0, "abcdefg"},  // code unreadable
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        Value v = read_text(c.text);
        EXPECT_EQ(v.kind(), zp::kValueError);
        EXPECT_EQ(v.error_code(), c.code);
        EXPECT_EQ(payload_of(v), c.payload);
    }
}

TEST(ValueRead, PointerWithSizeAndScalars) {
    Value p = read_text("[ptr]4096,17");
    EXPECT_EQ(p.kind(), zp::kValuePtrSize);
    EXPECT_EQ(p.as_pointer(), reinterpret_cast<void*>(uintptr_t{4096}));
    EXPECT_EQ(p.payload_length(), 17);
    EXPECT_EQ(read_text("[i] 12").as_int(), 12);
    EXPECT_EQ(read_text("[u]7").kind(), zp::kValueUint);
    EXPECT_FLOAT_EQ(read_text("[f]2.5").as_float(), 2.5f);
    EXPECT_DOUBLE_EQ(read_text("[d]1e3").as_double(), 1000.0);
    EXPECT_EQ(read_text("[llu]18446744073709551615").as_uint64(), UINT64_MAX);
}

TEST(ValueRead, ReadReplacesEverything) {
    Value v;
    v.set_string("old");
    v.set_flag(0, 1);
    v.set_flag(2, 9);
    v.read("[i]3");
    EXPECT_EQ(v.kind(), zp::kValueInt);
    EXPECT_EQ(v.payload(), nullptr);
    EXPECT_EQ(v.flag(0), 0);
    EXPECT_EQ(v.flag(2), 0);
    v.read("garbage");
    EXPECT_EQ(v.kind(), zp::kValueNull);
    EXPECT_EQ(v.as_int(), 0);
}

TEST(ValueCopy, PayloadIsDuplicatedAndFlagsTravel) {
    Value a;
    a.set_string("abc");
    a.set_flag(1, 7);
    Value b(a);
    EXPECT_NE(b.payload(), a.payload());
    EXPECT_EQ(b.as_string(), "abc");
    EXPECT_EQ(b.flag(1), 7);
    EXPECT_EQ(b.payload()[3], '\0');
    Value c;
    c.set_int(1);
    c = a;
    EXPECT_EQ(c.kind(), zp::kValueString);
    EXPECT_EQ(c.as_string(), "abc");
    a.set_string("changed");
    EXPECT_EQ(b.as_string(), "abc");
}

TEST(ValueCopy, SelfAssignmentChangesNothing) {
    Value a;
    a.set_error(8, "text");
    const char* before = a.payload();
    Value& alias = a;
    a = alias;
    EXPECT_EQ(a.payload(), before);
    EXPECT_EQ(a.write(), "[err:4]8,text");
}

TEST(ValueCopy, PointerWithSizeSharesTheBlock) {
    // A stack block: any attempt to free it would be caught by the sanitizer.
    char block[16] = "shared";
    {
        Value a;
        a.set_ptr_size(block, 16);
        Value b(a);
        Value c;
        c = b;
        EXPECT_EQ(b.as_pointer(), block);
        EXPECT_EQ(c.payload(), block);
        EXPECT_EQ(c.payload_length(), 16);
        c.set_int(1);  // letting go of the block frees nothing either
    }
    EXPECT_STREQ(block, "shared");
}

TEST(ValueCopy, FailedAllocationGivesNull) {
    Value a;
    a.set_string("payload");
    a.set_flag(0, 3);
    Value::set_allocator([](size_t) -> void* { return nullptr; });
    Value b(a);
    Value c;
    c.set_int(5);
    c = a;
    Value::set_allocator(nullptr);
    EXPECT_EQ(b.kind(), zp::kValueNull);
    EXPECT_EQ(b.payload(), nullptr);
    EXPECT_EQ(c.kind(), zp::kValueNull);
    EXPECT_EQ(a.as_string(), "payload");
    // Scalars need no allocation.
    Value::set_allocator([](size_t) -> void* { return nullptr; });
    Value i;
    i.set_int(4);
    Value j(i);
    Value::set_allocator(nullptr);
    EXPECT_EQ(j.as_int(), 4);
}

TEST(ValueCopy, MoveLeavesSourceNull) {
    Value a;
    a.set_string("moved");
    Value b(std::move(a));
    EXPECT_EQ(b.as_string(), "moved");
    EXPECT_EQ(a.kind(), zp::kValueNull);  // NOLINT(bugprone-use-after-move)
    Value c;
    c = std::move(b);
    EXPECT_EQ(c.as_string(), "moved");
}

TEST(ValueAccess, NumericReadersConvert) {
    Value v;
    v.set_double(1e30);
    EXPECT_EQ(v.as_int(), INT32_MAX);
    v.set_double(-3.9);
    EXPECT_EQ(v.as_int(), -3);
    v.set_bool(true);
    EXPECT_EQ(v.as_uint64(), 1u);
    v.set_int(-1);
    EXPECT_EQ(v.as_int64(), -1);
    EXPECT_TRUE(v.as_bool());
    v.set_string("12");
    EXPECT_EQ(v.as_int(), 0);
}

}  // namespace
