// Tests of zp::Argv: declarations by value kind, the messages it prints and its lookups.

#include "cmdline/argv.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cmdline/cmdline.h"

namespace {

using zp::Value;

bool run(zp::Abstract_Argv& a, const std::vector<std::string>& args) {
    std::vector<const char*> argv;
    for (const std::string& s : args) argv.push_back(s.c_str());
    return a.parse(static_cast<int>(args.size()), argv.data());
}

template <typename Set, typename T>
Value make(Set set, T v) {
    Value x;
    (x.*set)(v);
    return x;
}

Value int_value(int v) { return make(&Value::set_int, v); }
Value str_value(const char* v) { return make<void (Value::*)(const char*)>(&Value::set_string, v); }

TEST(Argv, EveryKindRoundTripsThroughTheParser) {
    zp::Argv a;
    a.add("i", 'i', "int", false, int_value(1));
    a.add("d", 0, "double", false, make(&Value::set_double, 0.25));
    a.add("ull", 0, "uint64", false, make(&Value::set_uint64, uint64_t{4}));
    a.add("s", 's', "string", true, str_value(""));
    a.add("b", 'b', "bool", false, make(&Value::set_bool, false));
    ASSERT_TRUE(run(a, {"tool", "-i", "-7", "--d=-1e10", "--ull", "18000000000000000000", "-s",
                        "a b", "-b", "1"}));
    EXPECT_EQ(a.get("i", int_value(0)).as_int(), -7);
    EXPECT_EQ(a.get("d", make(&Value::set_double, 0.0)).as_double(), -1e10);
    const Value ull = a.get("ull", make(&Value::set_uint64, uint64_t{0}));
    EXPECT_EQ(ull.kind(), zp::kValueUint64);
    EXPECT_EQ(ull.as_uint64(), 18000000000000000000ULL);
    EXPECT_EQ(a.get("s", str_value("")).as_string(), "a b");
    const Value b = a.get("b", make(&Value::set_bool, false));
    EXPECT_EQ(b.kind(), zp::kValueBool);
    EXPECT_TRUE(b.as_bool());
    // A declared type other than the expected kind escapes.
    EXPECT_THROW(a.get("i", make(&Value::set_int64, int64_t{0})), cmdline::cmdline_error);
}

TEST(Argv, LookupMessagesAndFallbacks) {
    zp::Argv a;
    zp::Abstract_Argv* fresh = a.new_instance();
    a.add("count", 'c', "repeat", false, int_value(3));
    ASSERT_TRUE(run(a, {"tool"}));
    Value ptr;
    ptr.set_pointer(&a);
    testing::internal::CaptureStdout();
    const Value undeclared = fresh->get("x", int_value(4));
    const Value not_given = a.get("count", int_value(42));
    ASSERT_TRUE(run(a, {"tool", "-c", "9"}));
    const Value other_kind = a.get("count", ptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Have not add 'argv'; Argv get: 'x' not exist. \n"
              "** Argv get: 'count' not exist. \n"
              "** Argv get: 'count' exist!  but not type: "
              "string,bool,int,uint,int64,float,double\n");
    EXPECT_EQ(undeclared.as_int(), 4);
    EXPECT_EQ(not_given.as_int(), 42);  // the expected value, not the declared default
    EXPECT_EQ(other_kind.as_pointer(), &a);
    a.delete_instance(&fresh);
    EXPECT_EQ(fresh, nullptr);
}

TEST(Argv, UnknownKindDeclaresAFlag) {
    zp::Argv a;
    testing::internal::CaptureStdout();
    a.add("force", 'f', "no questions", true, Value());
    a.add("input", 0, "input file", true, Value());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Argv add: unknow type 'force'\n** Argv add: unknow type 'input'\n");
    EXPECT_TRUE(run(a, {"tool", "-f"}));  // flags are never required
    EXPECT_TRUE(a.exist("force"));
    EXPECT_FALSE(a.exist("input"));
    EXPECT_FALSE(a.exist("never-declared"));
    EXPECT_EQ(a.usage(), "usage: tool [options] ... \noptions:\n"
                         "  -f, --force    no questions\n"
                         "      --input    input file\n");
}

TEST(Argv, ParseErrorsPassThrough) {
    zp::Argv a;
    EXPECT_FALSE(run(a, {"tool"}));  // nothing declared
    a.add("input", 0, "input file", true, str_value(""));
    a.add("count", 'c', "repeat", false, int_value(3));
    EXPECT_FALSE(run(a, {"tool", "--count=x"}));
    EXPECT_EQ(a.errors(), (std::vector<std::string>{"option value is invalid: --count=x",
                                                    "need option: --input"}));
}

}  // namespace
