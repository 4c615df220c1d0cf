// Tests of zp::Argv: declarations by value kind, the messages it prints and its lookups.

#include "cmdline/argv.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cmdline/cmdline.h"
#include "support/test_support.h"
#include "support/value_support.h"

namespace {

using zp::Value;
constexpr auto val = kinefix_test::value_of;
using kinefix_test::parse_args;

TEST(Argv, EveryKindRoundTripsThroughTheParser) {
    zp::Argv a;
    a.add("i", 'i', "int", false, val("[i]1"));
    a.add("ull", 0, "uint64", false, val("[llu]4"));
    a.add("s", 's', "string", true, val("[str]"));
    a.add("b", 'b', "bool", false, val("[b]false"));
    a.add("f", 0, "float", false, val("[f]0"));
    a.add("u", 0, "uint", false, val("[u]0"));
    ASSERT_TRUE(parse_args(a, {"tool", "-i", "-7", "--ull", "18000000000000000000", "-s", "a b",
                               "-b", "1", "--f", "1.5", "--u", "4294967295"}));
    const struct {
        const char *name, *expected, *written;
    } cases[] = {
        {"i", "[i]0", "[i]-7"},        {"ull", "[llu]0", "[llu]18000000000000000000"},
        {"s", "[str]x", "[str:3]a b"}, {"b", "[b]false", "[b]true"},
        {"f", "[f]0", "[f]1.500000"},  {"u", "[u]0", "[u]4294967295"},
    };
    for (const auto& c : cases) EXPECT_EQ(a.get(c.name, val(c.expected)).write(), c.written);
    // A declared type other than the expected kind escapes.
    EXPECT_THROW(a.get("i", val("[lld]0")), cmdline::cmdline_error);
}

TEST(Argv, LookupMessagesFallbacksEmptyInstanceAndUnknownKinds) {
    zp::Argv a;
    zp::Abstract_Argv* fresh = a.new_instance();
    a.add("count", 'c', "repeat", false, val("[i]3"));
    ASSERT_TRUE(parse_args(a, {"tool"}));
    testing::internal::CaptureStdout();
    const Value undeclared = fresh->get("x", val("[i]4"));
    const Value not_given = a.get("count", val("[i]42"));
    ASSERT_TRUE(parse_args(a, {"tool", "-c", "9"}));
    const Value other_kind = a.get("count", val("[v]1f"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Have not add 'argv'; Argv get: 'x' not exist. \n"
              "** Argv get: 'count' not exist. \n"
              "** Argv get: 'count' exist!  but not type: "
              "string,bool,int,uint,int64,float,double\n");
    EXPECT_EQ(undeclared.as_int(), 4);
    EXPECT_EQ(not_given.as_int(), 42);  // the expected value, not the declared default
    EXPECT_EQ(other_kind.write(), "[v]000000000000001F");
    EXPECT_FALSE(a.exist("undeclared"));
    // The new instance has nothing declared, so it parses nothing.
    EXPECT_FALSE(parse_args(*fresh, {"tool"}));
    a.delete_instance(&fresh);
    EXPECT_EQ(fresh, nullptr);

    zp::Argv flags;
    testing::internal::CaptureStdout();
    flags.add("force", 'f', "no questions", true, Value());
    flags.add("input", 0, "input file", true, Value());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Argv add: unknow type 'force'\n** Argv add: unknow type 'input'\n");
    EXPECT_TRUE(parse_args(flags, {"tool", "-f"}));  // flags are never required
    EXPECT_TRUE(flags.exist("force"));
    EXPECT_EQ(flags.usage(),
              "usage: tool [options] ... \noptions:\n"
              "  -f, --force    no questions\n"
              "      --input    input file\n");
}

}  // namespace
