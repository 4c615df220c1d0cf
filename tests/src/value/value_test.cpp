// Tests of zp::Value: the written text of each kind, read-back, and the lenient reader's quirks.

#include "value/value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using zp::Value;

Value read_text(const char* text) {
    Value v;
    v.read(text);
    return v;
}

TEST(ValueWrite, EveryKindWritesAndReadsBack) {
    const struct {
        const char* text;
        void (*set)(Value&);
    } cases[] = {
        {"[i]-7", [](Value& v) { v.set_int(-7); }},
        {"[u]4000000000", [](Value& v) { v.set_uint(4000000000u); }},
        {"[f]1.500000", [](Value& v) { v.set_float(1.5f); }},
        {"[d]-2.250000", [](Value& v) { v.set_double(-2.25); }},
        {"[lld]-9223372036854775808", [](Value& v) { v.set_int64(INT64_MIN); }},
        {"[llu]18446744073709551615", [](Value& v) { v.set_uint64(UINT64_MAX); }},
        {"[b]true", [](Value& v) { v.set_bool(true); }},
        {"[v]00000ABCDEF12345",
         [](Value& v) { v.set_pointer(reinterpret_cast<void*>(uintptr_t{0xabcdef12345ULL})); }},
        {"[str:9]a ] [ b c", [](Value& v) { v.set_string("a ] [ b c"); }},
        {"[list:12][str:5]hello", [](Value& v) { v.set_list("[str:5]hello"); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Value v;
        c.set(v);
        EXPECT_EQ(v.write(), c.text);
        Value back = read_text(c.text);
        EXPECT_EQ(back.kind(), v.kind());
        EXPECT_EQ(back.write(), c.text);
    }
    static char block[8];
    Value v;
    v.set_ptr_size(block, 8);
    const std::string text =
        "[ptr]" + std::to_string(static_cast<unsigned long long>(uintptr_t(block))) + ",8";
    EXPECT_EQ(v.write(), text);
    EXPECT_EQ(read_text(text.c_str()).as_pointer(), block);
    v.set_error(-3, "no file");
    EXPECT_EQ(v.write(), "[err:7]-3,no file");
    // An unknown kind writes its payload raw.
    v.set_string("raw");
    v.set_kind(42);
    EXPECT_EQ(v.write(), "<variant>raw");
}

// What the lenient reader makes of odd texts, seen through what it writes back.
TEST(ValueRead, OddTextsAgainstTheValueRead) {
    const struct {
        const char *text, *written;
    } cases[] = {
        {nullptr, "<null>"},
        {"[i]x", "<null>"},
        {"[zz]1", "<null>"},
        {"[ptr]12", "<null>"},
        {"xi]9", "[i]9"},
        {"[i] 12", "[i]12"},  // the opening byte is never looked at
        {"[b]TRUE", "[b]false"},
        {"[v]0x1f", "[v]000000000000001F"},
        {"[str]abc", "[str:3]abc"},
        {"[str:2]abc", "[str:2]ab"},
        {"[str:99]abc", "[str:3]abc"},
        {"[str:3]a]bc", "[str:3]a]b"},
        {"[listing:1]xy", "[list:2]xy"},  // a length only right after the tag word
        // A written error loses as many trailing bytes as its code and comma take.
        {"[err:7]-3,no file", "[err:4]-3,no f"},
        {"[err:50]12,abc", "[err:3]12,abc"},
        {"[err]5,abc", "[err:5]5,5,abc"},  // no length: all of it, code included
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(null)");
        EXPECT_EQ(read_text(c.text).write(), c.written);
    }
    testing::internal::CaptureStderr();
    const Value v = read_text("[str:]abc");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "> zp::Value:read() err: type='str:', missing 'len'.\n");
    EXPECT_STREQ(v.payload(), "abc");
}

TEST(ValueAccess, ReadReplacesEverythingAndNumbersConvert) {
    Value v;
    v.set_string("old");
    v.set_flag(2, 9);
    v.read("[d]1e30");
    EXPECT_EQ(v.payload(), nullptr);
    EXPECT_EQ(v.flag(2), 0);
    EXPECT_EQ(v.as_int(), INT32_MAX);
    v.set_string("12");
    EXPECT_EQ(v.as_int(), 0);
}

TEST(ValueCopy, PayloadIsDuplicatedBlockIsShared) {
    Value a;
    a.set_string("abc");
    a.set_flag(1, 7);
    Value b(a);
    Value c;
    c.set_int(1);
    c = a;
    a.set_string("changed");
    EXPECT_EQ(b.as_string(), "abc");
    EXPECT_EQ(b.flag(1), 7);
    EXPECT_EQ(c.write(), "[str:3]abc");
    Value d(std::move(c));  // a source left holding the payload would free it twice
    EXPECT_EQ(d.as_string(), "abc");

    // A stack block: any attempt to free it would be caught by the sanitizer.
    char block[16] = "shared";
    {
        Value p;
        p.set_ptr_size(block, 16);
        Value q(p);
        EXPECT_EQ(q.payload(), block);
        q.set_int(1);
    }
    EXPECT_STREQ(block, "shared");
}

TEST(ValueCopy, FailedAllocationGivesNull) {
    Value a;
    a.set_string("payload");
    Value::set_allocator([](size_t) -> void* { return nullptr; });
    Value b(a);
    Value::set_allocator(nullptr);
    EXPECT_EQ(b.kind(), zp::kValueNull);
    EXPECT_EQ(a.as_string(), "payload");
}

}  // namespace
