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
    if (v.kind() == zp::kValuePtrSize) return "<block>";  // a bare address, not to be read
    return v.payload() ? std::string(v.payload(), static_cast<size_t>(v.payload_length()))
                       : std::string("<absent>");
}

char g_block[8] = {1, 2, 3, 4};

// Every kind's text; all but the error kind read back to the same value.
TEST(ValueWrite, EveryKindWritesAndReadsBack) {
    const struct {
        const char* text;
        void (*set)(Value&);
    } cases[] = {
        {"<null>", [](Value&) {}},
        {"[i]-7", [](Value& v) { v.set_int(-7); }},
        {"[u]4000000000", [](Value& v) { v.set_uint(4000000000u); }},
        {"[f]1.500000", [](Value& v) { v.set_float(1.5f); }},
        {"[d]-2.250000", [](Value& v) { v.set_double(-2.25); }},
        {"[lld]-9223372036854775808", [](Value& v) { v.set_int64(INT64_MIN); }},
        {"[llu]18446744073709551615", [](Value& v) { v.set_uint64(UINT64_MAX); }},
        {"[b]true", [](Value& v) { v.set_bool(true); }},
        {"[b]false", [](Value& v) { v.set_bool(false); }},
        {"[v]00000ABCDEF12345",
         [](Value& v) { v.set_pointer(reinterpret_cast<void*>(uintptr_t{0xabcdef12345ULL})); }},
        {"[v]0000000000000000", [](Value& v) { v.set_pointer(nullptr); }},
        {"[str:9]a ] [ b c", [](Value& v) { v.set_string("a ] [ b c"); }},
        {"[str:0]", [](Value& v) { v.set_string(nullptr); }},
        {"[list:12][str:5]hello", [](Value& v) { v.set_list("[str:5]hello"); }},
        {"[map:3]k]v", [](Value& v) { v.set_map("k]v"); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Value v;
        c.set(v);
        EXPECT_EQ(v.write(), c.text);
        Value back = read_text(c.text);
        EXPECT_EQ(back.kind(), v.kind());
        EXPECT_EQ(back.write(), c.text);
        EXPECT_EQ(back.as_int64(), v.as_int64());
        EXPECT_EQ(back.as_pointer(), v.as_pointer());
        EXPECT_EQ(back.as_string(), v.as_string());
    }
    Value v;
    v.set_ptr_size(g_block, 8);
    const std::string text =
        "[ptr]" + std::to_string(static_cast<unsigned long long>(uintptr_t(g_block))) + ",8";
    EXPECT_EQ(v.write(), text);
    EXPECT_EQ(read_text(text.c_str()).as_pointer(), g_block);
    EXPECT_EQ(read_text(text.c_str()).payload_length(), 8);
    // A nested member is read again from the list's payload.
    EXPECT_EQ(read_text(read_text("[list:12][str:5]hello").payload()).as_string(), "hello");
    // An unknown kind writes its payload raw; that reads as null keeping the payload.
    v.set_string("raw");
    v.set_kind(42);
    EXPECT_EQ(v.write(), "<variant>raw");
    EXPECT_EQ(read_text("<variant>raw").kind(), zp::kValueNull);
    EXPECT_EQ(payload_of(read_text("<variant>raw")), "raw");
}

// What the lenient reader makes of odd texts, seen through what it writes back.
TEST(ValueRead, OddTextsAgainstTheValueRead) {
    const struct {
        const char* text;
        const char* written;
        const char* payload;
    } cases[] = {
        {nullptr, "<null>", "<absent>"},
        {"", "<null>", "<absent>"},
        {"[i]", "<null>", "<absent>"},
        {"[i]x", "<null>", "<absent>"},
        {"[i]  ", "<null>", "<absent>"},
        {"no bracket here", "<null>", "<absent>"},
        {"[zz]1", "<null>", "<absent>"},
        {"[]123", "<null>", "<absent>"},
        {"<null>]", "<null>", "<absent>"},
        {"[lld]x", "<null>", "<absent>"},
        {"[llu]", "<null>", "<absent>"},
        {"[ptr]12", "<null>", "<absent>"},
        {"[ptr]x,1", "<null>", "<absent>"},
        {"[d]--", "<null>", "<absent>"},
        {"[f]e", "<null>", "<absent>"},
        {"[u]+", "<null>", "<absent>"},
        {"[I]5", "<null>", "<absent>"},
        {"[v]zz", "<null>", "<absent>"},
        {"xi]9", "[i]9", "<absent>"},  // the opening byte is never looked at
        {"(lld]77", "[lld]77", "<absent>"},
        {"[i] 12", "[i]12", "<absent>"},
        {"[u]7", "[u]7", "<absent>"},
        {"[f]2.5", "[f]2.500000", "<absent>"},
        {"[d]1e3", "[d]1000.000000", "<absent>"},
        {"[v]00000000DEADBEEF", "[v]00000000DEADBEEF", "<absent>"},
        {"[v]0x1f", "[v]000000000000001F", "<absent>"},
        {"[b]trueish", "[b]true", "<absent>"},
        {"[b]TRUE", "[b]false", "<absent>"},
        {"[b]1", "[b]false", "<absent>"},
        {"[ptr]4096,17", "[ptr]4096,17", "<block>"},
        {"[str]abc", "[str:3]abc", "abc"},
        {"[str:2]abc", "[str:2]ab", "ab"},
        {"[str:99]abc", "[str:3]abc", "abc"},
        {"[str:-1]abc", "[str:3]abc", "abc"},
        {"[str:3]a]bc", "[str:3]a]b", "a]b"},
        {"[str:0]abc", "[str:0]", "<absent>"},
        {"[map:1]xy", "[map:1]x", "x"},
        {"[list]xy", "[list:2]xy", "xy"},
        {"[listing:1]xy", "[list:2]xy", "xy"},  // a length only right after the tag word
        {"[string]xy", "[str:2]xy", "xy"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(null)");
        const Value v = read_text(c.text);
        EXPECT_EQ(v.write(), c.written);
        EXPECT_EQ(payload_of(v), c.payload);
    }
}

TEST(ValueRead, MissingLengthIsReportedAndPayloadTakenWhole) {
    const struct {
        const char* text;
        const char* tag;
        const char* payload;
    } cases[] = {{"[str:]abc", "str:", "abc"},
                 {"[list:x]abcd", "list:x", "abcd"},
                 {"[err:]5,ab", "err:", "5,ab"}};
    for (const auto& c : cases) {
        testing::internal::CaptureStderr();
        const Value v = read_text(c.text);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  std::string("> zp::Value:read() err: type='") + c.tag + "', missing 'len'.\n");
        EXPECT_EQ(payload_of(v), c.payload);
        if (v.kind() == zp::kValueError) {
            EXPECT_EQ(v.error_code(), 5);
        }
    }
    // No colon at all is not a missing length: nothing is printed.
    testing::internal::CaptureStderr();
    read_text("[str]abc");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A written error loses as many trailing bytes as its code and comma take.
TEST(ValueRead, ErrorReadBackIsAsymmetric) {
    Value e;
    e.set_error(-3, "no file");
    EXPECT_EQ(e.write(), "[err:7]-3,no file");
    e.set_error(4, nullptr);
    EXPECT_EQ(e.write(), "[err:0]4,");
    const struct {
        const char* text;
        int code;
        const char* payload;
    } cases[] = {
        {"[err:7]-3,no file", -3, "no f"}, {"[err:3]5", 5, "<absent>"},    // no comma: code only
        {"[err:2]5,abc", 5, "<absent>"},                                   // count 2 - 2 = 0
        {"[err:3]5,abc", 5, "a"},          {"[err:50]12,abc", 12, "abc"},  // capped by the text
        {"[err]5,abc", 5, "5,abc"},  // no length: all of it, code included
        {"[err]5,", 5, "<absent>"},  // ... but only when text follows the comma
        {"[err:-4]7,z", 7, "7,z"},         {"[err:9]x,abcdefgh", 0, "abcdefg"},  // code unreadable
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Value v = read_text(c.text);
        EXPECT_EQ(v.kind(), zp::kValueError);
        EXPECT_EQ(v.error_code(), c.code);
        EXPECT_EQ(payload_of(v), c.payload);
    }
}

TEST(ValueRead, ReadReplacesEverything) {
    Value v;
    v.set_string("old");
    v.set_flag(0, 1);
    v.set_flag(2, 9);
    v.read("[i]3");
    EXPECT_EQ(v.write(), "[i]3");
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
    EXPECT_EQ(b.flag(1), 7);
    EXPECT_EQ(b.payload()[3], '\0');
    Value c;
    c.set_int(1);
    c = a;
    EXPECT_EQ(c.write(), "[str:3]abc");
    a.set_string("changed");
    EXPECT_EQ(b.as_string(), "abc");
    // Self-assignment keeps the payload where it is.
    const char* before = c.payload();
    Value& alias = c;
    c = alias;
    EXPECT_EQ(c.payload(), before);
    // A move leaves its source null.
    Value d(std::move(c));
    EXPECT_EQ(d.as_string(), "abc");
    EXPECT_EQ(c.kind(), zp::kValueNull);  // NOLINT(bugprone-use-after-move)
    Value e;
    e = std::move(d);
    EXPECT_EQ(e.as_string(), "abc");
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
        EXPECT_EQ(c.payload(), block);
        EXPECT_EQ(c.payload_length(), 16);
        c.set_int(1);  // letting go of the block frees nothing either
    }
    EXPECT_STREQ(block, "shared");
}

TEST(ValueCopy, FailedAllocationGivesNull) {
    Value a;
    a.set_string("payload");
    Value i;
    i.set_int(4);
    Value::set_allocator([](size_t) -> void* { return nullptr; });
    Value b(a);
    Value c;
    c.set_int(5);
    c = a;
    Value j(i);  // scalars need no allocation
    Value::set_allocator(nullptr);
    EXPECT_EQ(b.kind(), zp::kValueNull);
    EXPECT_EQ(b.payload(), nullptr);
    EXPECT_EQ(c.kind(), zp::kValueNull);
    EXPECT_EQ(a.as_string(), "payload");
    EXPECT_EQ(j.as_int(), 4);
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
    EXPECT_TRUE(v.as_bool());
    v.set_string("12");
    EXPECT_EQ(v.as_int(), 0);
}

}  // namespace
