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

Value int_value(int v) {
    Value x;
    x.set_int(v);
    return x;
}

Value string_value(const char* s) {
    Value x;
    x.set_string(s);
    return x;
}

TEST(Argv, NothingDeclared) {
    zp::Argv a;
    testing::internal::CaptureStdout();
    Value got = a.get("input", string_value("fallback"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Have not add 'argv'; Argv get: 'input' not exist. \n");
    EXPECT_EQ(got.kind(), zp::kValueString);
    EXPECT_EQ(got.as_string(), "fallback");
    EXPECT_FALSE(run(a, {"tool", "--input=x"}));
    EXPECT_FALSE(a.exist("input"));
    EXPECT_EQ(a.usage(), "");
}

TEST(Argv, EveryKindRoundTripsThroughTheParser) {
    zp::Argv a;
    Value def;
    def.set_int(1);
    a.add("i", 'i', "int", false, def);
    def.set_uint(2);
    a.add("u", 'u', "uint", false, def);
    def.set_float(0.5f);
    a.add("f", 0, "float", false, def);
    def.set_double(0.25);
    a.add("d", 0, "double", false, def);
    def.set_int64(-3);
    a.add("ll", 0, "int64", false, def);
    def.set_uint64(4);
    a.add("ull", 0, "uint64", false, def);
    a.add("s", 's', "string", true, string_value(nullptr));
    def.set_bool(false);
    a.add("b", 'b', "bool", false, def);
    ASSERT_TRUE(
        run(a, {"tool", "-i", "-7", "--u=4000000000", "--f", "2.5", "--d=-1e10", "--ll=-9000000000",
                "--ull", "18000000000000000000", "-s", "a b", "-b", "1"}));

    Value probe;
    probe.set_int(0);
    EXPECT_EQ(a.get("i", probe).as_int(), -7);
    probe.set_uint(0);
    EXPECT_EQ(a.get("u", probe).as_uint(), 4000000000u);
    probe.set_float(0);
    EXPECT_EQ(a.get("f", probe).as_float(), 2.5f);
    probe.set_double(0);
    EXPECT_EQ(a.get("d", probe).as_double(), -1e10);
    probe.set_int64(0);
    EXPECT_EQ(a.get("ll", probe).as_int64(), -9000000000LL);
    probe.set_uint64(0);
    Value ull = a.get("ull", probe);
    EXPECT_EQ(ull.kind(), zp::kValueUint64);
    EXPECT_EQ(ull.as_uint64(), 18000000000000000000ULL);
    Value s = a.get("s", string_value(""));
    EXPECT_EQ(s.kind(), zp::kValueString);
    EXPECT_EQ(s.as_string(), "a b");
    probe.set_bool(false);
    Value b = a.get("b", probe);
    EXPECT_EQ(b.kind(), zp::kValueBool);
    EXPECT_TRUE(b.as_bool());
}

TEST(Argv, NotGivenReturnsTheExpectedValueNotTheDefault) {
    zp::Argv a;
    a.add("count", 'c', "repeat", false, int_value(3));
    ASSERT_TRUE(run(a, {"tool"}));
    testing::internal::CaptureStdout();
    Value got = a.get("count", int_value(42));
    Value undeclared = a.get("other", int_value(5));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Argv get: 'count' not exist. \n** Argv get: 'other' not exist. \n");
    EXPECT_EQ(got.as_int(), 42);
    EXPECT_EQ(undeclared.as_int(), 5);
}

TEST(Argv, UnknownKindDeclaresAFlag) {
    zp::Argv a;
    Value ptr;
    ptr.set_pointer(&a);
    testing::internal::CaptureStdout();
    a.add("force", 'f', "no questions", true, Value());
    a.add("where", 0, "pointer", true, ptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Argv add: unknow type 'force'\n** Argv add: unknow type 'where'\n");
    // Flags are never required, so nothing is missing.
    EXPECT_TRUE(run(a, {"tool", "-f"}));
    EXPECT_TRUE(a.exist("force"));
    EXPECT_FALSE(a.exist("where"));
    EXPECT_EQ(a.usage(),
              "usage: tool [options] ... \noptions:\n"
              "  -f, --force    no questions\n"
              "      --where    pointer\n");
}

TEST(Argv, ExpectedKindWithoutOptionTypePrintsNotType) {
    zp::Argv a;
    a.add("count", 'c', "repeat", false, int_value(3));
    ASSERT_TRUE(run(a, {"tool", "-c", "9"}));
    Value expected;
    expected.set_pointer(&a);
    testing::internal::CaptureStdout();
    Value got = a.get("count", expected);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Argv get: 'count' exist!  but not type: "
              "string,bool,int,uint,int64,float,double\n");
    EXPECT_EQ(got.kind(), zp::kValuePointer);
    EXPECT_EQ(got.as_pointer(), &a);
}

TEST(Argv, DeclarationAndTypeErrorsEscape) {
    zp::Argv a;
    a.add("count", 'c', "repeat", false, int_value(3));
    try {
        a.add("count", 0, "again", false, string_value("x"));
        FAIL();
    } catch (const cmdline::cmdline_error& e) {
        EXPECT_STREQ(e.what(), "multiple definition: count");
    }
    ASSERT_TRUE(run(a, {"tool", "--count=2"}));
    try {
        a.get("count", string_value(""));
        FAIL();
    } catch (const cmdline::cmdline_error& e) {
        EXPECT_STREQ(e.what(), "type mismatch flag 'count'");
    }
    Value wide;
    wide.set_int64(0);
    EXPECT_THROW(a.get("count", wide), cmdline::cmdline_error);
    EXPECT_FALSE(a.exist("never-declared"));
    EXPECT_FALSE(a.exist(nullptr));
}

TEST(Argv, ParseFailureAndUsage) {
    zp::Argv a;
    a.add("input", 0, "input file", true, string_value(""));
    a.add("count", 'c', "repeat", false, int_value(3));
    EXPECT_FALSE(run(a, {"tool", "--count=x"}));
    EXPECT_EQ(a.errors(), (std::vector<std::string>{"option value is invalid: --count=x",
                                                    "need option: --input"}));
    EXPECT_EQ(a.usage(),
              "usage: tool --input=string [options] ... \noptions:\n"
              "      --input    input file (string)\n"
              "  -c, --count    repeat (int [=3])\n");
}

TEST(Argv, NewAndDeleteInstance) {
    zp::Admin* root = reinterpret_cast<zp::Admin*>(&root);  // never dereferenced
    zp::Argv a(root);
    a.add("x", 0, "", false, int_value(1));
    zp::Abstract_Argv* b = a.new_instance();
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->owner(), root);
    testing::internal::CaptureStdout();
    b->get("x", int_value(0));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "** Have not add 'argv'; Argv get: 'x' not exist. \n");
    a.delete_instance(&b);
    EXPECT_EQ(b, nullptr);
    a.delete_instance(&b);
    a.delete_instance(nullptr);
}

}  // namespace
