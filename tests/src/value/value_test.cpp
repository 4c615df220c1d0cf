// Tests of zp::Value: the written text of each kind, read-back, and the lenient reader's quirks.

#include "value/value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "core/testing_hooks.h"
#include "support/value_support.h"

namespace {

using zp::Value;
constexpr auto read_text = kinefix_test::value_of;

// The written form of every kind, straight from its setter, and what the reader makes of texts.
TEST(Value, EachKindsTextTextsReadBackAndCopies) {
    const struct {
        std::function<void(Value&)> set;
        const char* written;
    } cases[] = {
        {[](Value&) {}, "<null>"},
        {[](Value& v) { v.set_int(-7); }, "[i]-7"},
        {[](Value& v) { v.set_uint(UINT32_MAX); }, "[u]4294967295"},
        {[](Value& v) { v.set_float(1.5f); }, "[f]1.500000"},
        {[](Value& v) { v.set_double(-2.25); }, "[d]-2.250000"},
        {[](Value& v) { v.set_int64(INT64_MIN); }, "[lld]-9223372036854775808"},
        {[](Value& v) { v.set_uint64(UINT64_MAX); }, "[llu]18446744073709551615"},
        {[](Value& v) { v.set_bool(true); }, "[b]true"},
        {[](Value& v) { v.set_pointer(reinterpret_cast<void*>(0x1f)); }, "[v]000000000000001F"},
        {[](Value& v) { v.set_string("a ] b"); }, "[str:5]a ] b"},
        {[](Value& v) { v.set_map("k=v"); }, "[map:3]k=v"},
        {[](Value& v) { v.set_list("[i]1"); }, "[list:4][i]1"},
        {[](Value& v) { v.set_error(-3, "no file"); }, "[err:7]-3,no file"},
        {[](Value& v) { v.set_ptr_size(reinterpret_cast<void*>(16), 4); }, "[ptr]16,4"},
        {[](Value& v) {
             v.set_string("raw");
             v.set_kind(42);  // a kind this build does not know
         },
         "<variant>raw"},
    };
    for (const auto& c : cases) {
        Value v;
        c.set(v);
        EXPECT_EQ(v.write(), c.written);
    }
    // Texts read and written back: a kind's own text unchanged (no second column), and what the
    // lenient reader makes of odd texts.
    const struct {
        const char *text, *written;
    } texts[] = {
        {"[u]4294967295", nullptr},
        {"[f]-0.250000", nullptr},
        {"[map:3]k=v", nullptr},
        {"[str:9]a ] [ b c", nullptr},
        {"", "<null>"},
        {"[ptr]12", "<null>"},
        {"xi]9", "[i]9"},  // the opening byte is never looked at
        {"[b]TRUE", "[b]false"},
        {"[v]0x1f", "[v]000000000000001F"},
        {"[str:2]abc", "[str:2]ab"},
        {"[str:0]abc", "[str:0]"},
        {"[listing:1]xy", "[list:2]xy"},  // a length only right after the tag word
        // A written error loses as many trailing bytes as its code and comma take.
        {"[err:7]-3,no file", "[err:4]-3,no f"},
        {"[err]5,abc", "[err:5]5,5,abc"},  // no length: all of it, code included
    };
    for (const auto& c : texts) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(read_text(c.text).write(), c.written ? c.written : c.text);
    }
    EXPECT_EQ(read_text(nullptr).write(), "<null>");
    testing::internal::CaptureStderr();
    const Value v = read_text("[str:]abc");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "> zp::Value:read() err: type='str:', missing 'len'.\n");
    EXPECT_STREQ(v.payload(), "abc");

    Value a = read_text("[str:3]abc");
    a.set_flag(2, 7);
    Value b(a);
    Value c = read_text("[i]1");
    c = a;
    a.set_string("changed");
    EXPECT_EQ(b.as_string(), "abc");
    EXPECT_EQ(b.flag(2), 7);
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
    zp::testing_hooks::set_value_allocator([](size_t) -> void* { return nullptr; });
    Value e(a);
    zp::testing_hooks::set_value_allocator(nullptr);
    EXPECT_EQ(e.kind(), zp::kValueNull) << "a failed copy gives null";
    b.read("[d]1e30");
    EXPECT_EQ(b.payload(), nullptr);
    EXPECT_EQ(b.flag(2), 0);
    EXPECT_EQ(b.as_int(), INT32_MAX);  // numbers convert, saturating
}

}  // namespace
