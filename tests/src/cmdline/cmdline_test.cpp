// Tests of cmdline::parser: argument vectors against values and exact error lists, conversions,
// labels and the usage text.

#include "cmdline/cmdline.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Args = std::vector<std::string>;
using Errors = std::vector<std::string>;

bool run(cmdline::parser& p, const Args& args) {
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    return p.parse(static_cast<int>(args.size()), argv.data());
}

// verbose (-v flag), input (required string), count (-c int, default 3),
// ratio (-r double, default 0.5), keep (-k flag).
void declare(cmdline::parser& p) {
    p.add_flag("verbose", 'v', "talk more");
    p.add_option<std::string>("input", 0, "input file", true, "");
    p.add_option<int>("count", 'c', "repeat", false, 3);
    p.add_option<double>("ratio", 'r', "ratio", false, 0.5);
    p.add_flag("keep", 'k', "keep going");
}

// Splits "a|b|c"; the empty text gives no parts.
Args split(const std::string& text) {
    Args out;
    for (size_t at = 0; !text.empty();) {
        const size_t bar = text.find('|', at);
        out.push_back(text.substr(at, bar - at));
        if (bar == std::string::npos) break;
        at = bar + 1;
    }
    return out;
}

TEST(CmdlineParse, ArgumentVectorsAgainstValuesAndErrors) {
    // Arguments, errors, input, count, the flags set (v, k), what remains: lists split at '|'.
    const struct {
        const char *args, *errors, *input;
        int count;
        const char *flags, *rest;
    } cases[] = {
        {"tool|--input|a.mp4", "", "a.mp4", 3, "", ""},
        {"tool|--input=a|-v|-c|7|x|y", "", "a", 7, "v", "x|y"},
        {"tool|x|--input=|y", "", "", 3, "", "x|y"},
        {"tool|--input=a|--count=abc", "option value is invalid: --count=abc", "a", 3, "", ""},
        {"tool|--input=a|--count=", "option value is invalid: --count=", "a", 3, "", ""},
        {"tool|--input=a=b|--count=4", "", "a=b", 4, "", ""},
        {"tool|--input=a|--verbose=1", "option value is invalid: --verbose=1", "a", 3, "", ""},
        {"tool|--input=a|--count", "option needs value: --count", "a", 3, "", ""},
        {"tool|--input=a|--count|-5", "", "a", -5, "", ""},
        {"tool|--input|--count", "", "--count", 3, "", ""},
        {"tool|--input=a|-|--", "undefined option: --", "a", 3, "", ""},
        {"tool|--input=a|--count| 12", "", "a", 12, "", ""},
        {"tool|--input=a|--count|12 ", "option value is invalid: --count=12 ", "a", 3, "", ""},
        {"tool|--input=a|--count|12x", "option value is invalid: --count=12x", "a", 3, "", ""},
        {"tool|--input=a|--count|2147483648", "option value is invalid: --count=2147483648", "a", 3,
         "", ""},
        {"tool", "need option: --input", "", 3, "", ""},
        {"tool|--nope|-z|-vz|x",
         "undefined option: --nope|undefined short option: -z|undefined short option: -z|"
         "need option: --input",
         "", 3, "v", "x"},
        {"tool|-vc|9|--input=a", "", "a", 9, "v", ""},
        {"tool|-cv|--input=a", "option needs value: --count", "a", 3, "v", ""},
        {"tool|--input=a|-c", "option needs value: --count", "a", 3, "", ""},
        {"tool|--input=a|-k5", "undefined short option: -5", "a", 3, "k", ""},
        {"tool|--input=a|-kv|x", "", "a", 3, "vk", "x"},
        {"tool|-k|9|--input=a", "", "a", 3, "k", "9"},
        {"tool|-qvq|--input=a", "undefined short option: -q|undefined short option: -q", "a", 3,
         "v", ""},
        {"tool|--input|a|--input|b", "", "b", 3, "", ""},
        {"tool|--Input=a", "undefined option: --Input|need option: --input", "", 3, "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        cmdline::parser p;
        declare(p);
        const Errors errors = split(c.errors);
        EXPECT_EQ(run(p, split(c.args)), errors.empty());
        EXPECT_EQ(p.error_list(), errors);
        EXPECT_EQ(p.get_value<std::string>("input"), c.input);
        EXPECT_EQ(p.get_value<int>("count"), c.count);
        EXPECT_EQ(p.is_set("verbose"), strchr(c.flags, 'v') != nullptr);
        EXPECT_EQ(p.is_set("keep"), strchr(c.flags, 'k') != nullptr);
        EXPECT_EQ(p.remaining_args(), split(c.rest));
    }
}

TEST(CmdlineParse, NoArgumentsAtAll) {
    cmdline::parser p;
    declare(p);
    EXPECT_FALSE(p.parse(0, nullptr));
    EXPECT_EQ(p.error_list(), Errors{"argument number must be longer than 0"});
}

TEST(CmdlineParse, SharedShortCharFailsBeforeAnyArgument) {
    cmdline::parser p;
    p.add_flag("alpha", 'x', "");
    p.add_option<int>("beta", 'x', "", true, 0);
    p.add_flag("gamma", 'g', "");
    EXPECT_FALSE(run(p, {"tool", "--undefined", "-g", "rest"}));
    EXPECT_EQ(p.error_list(), Errors{"short option 'x' is ambiguous"});
    EXPECT_FALSE(p.is_set("gamma"));
    EXPECT_TRUE(p.remaining_args().empty());
    // The program name is still taken.
    EXPECT_EQ(p.program_name(), "tool");
}

TEST(CmdlineParse, EmptyLongNameIsLeftOutOfTheShortTable) {
    cmdline::parser p;
    p.add_flag("", 'x', "");
    p.add_flag("extra", 'x', "");
    EXPECT_TRUE(run(p, {"tool", "-x"}));
    EXPECT_TRUE(p.is_set("extra"));
    EXPECT_FALSE(p.is_set(""));
}

TEST(CmdlineParse, MissingRequiredOptionsComeLastInNameOrder) {
    cmdline::parser p;
    p.add_option<int>("zeta", 0, "", true, 0);
    p.add_option<int>("alpha", 0, "", true, 0);
    p.add_option<int>("Mid", 0, "", true, 0);
    EXPECT_FALSE(run(p, {"tool", "--zeta=x", "--bad"}));
    EXPECT_EQ(p.error_list(),
              (Errors{"option value is invalid: --zeta=x", "undefined option: --bad",
                      "need option: --Mid", "need option: --alpha", "need option: --zeta"}));
}

TEST(CmdlineParse, StatesSurviveLaterParsesAndLateDeclarations) {
    cmdline::parser p;
    declare(p);
    EXPECT_TRUE(run(p, {"first", "--input=a", "-c", "7", "left"}));
    EXPECT_TRUE(run(p, {"second"}));
    EXPECT_EQ(p.get_value<int>("count"), 7);
    EXPECT_TRUE(p.is_set("input"));
    EXPECT_TRUE(p.remaining_args().empty());
    EXPECT_EQ(p.program_name(), "first");

    p.add_option<unsigned>("late", 'l', "late", true, 1u);
    EXPECT_FALSE(run(p, {"third"}));
    EXPECT_EQ(p.error_list(), Errors{"need option: --late"});
    EXPECT_TRUE(run(p, {"third", "-l", "8"}));
    EXPECT_EQ(p.get_value<unsigned>("late"), 8u);
}

// The message a call raises, or "" when it raises nothing.
template <typename F>
std::string thrown(F call) {
    try {
        call();
    } catch (const cmdline::cmdline_error& e) {
        return e.what();
    }
    return "";
}

TEST(CmdlineDeclare, ErrorsAreRaisedWithTheirMessages) {
    cmdline::parser p;
    declare(p);
    const std::string before = p.usage_text();
    EXPECT_EQ(thrown([&] { p.add_option<int>("count", 'x', "again", false, 1); }),
              "multiple definition: count");
    EXPECT_EQ(thrown([&] { p.add_flag("verbose", 0, ""); }), "multiple definition: verbose");
    EXPECT_EQ(p.usage_text(), before);
    EXPECT_EQ(thrown([&] { p.is_set("missing"); }), "there is no flag: --missing");
    EXPECT_EQ(thrown([&] { p.get_value<int>("nothing"); }), "there is no flag: --nothing");
    EXPECT_EQ(thrown([&] { p.get_value<int64_t>("count"); }), "type mismatch flag 'count'");
    EXPECT_NE(thrown([&] { p.get_value<bool>("verbose"); }), "");
    EXPECT_NE(thrown([&] { p.get_value<float>("ratio"); }), "");
    EXPECT_EQ(p.get_value<double>("ratio"), 0.5);
}

// Every non-string type rejects trailing characters and out-of-range text.
template <class T>
bool converts(const std::string& text, T* out = nullptr) {
    try {
        T v = cmdline::default_reader<T>()(text);
        if (out) *out = v;
        return true;
    } catch (const std::bad_cast&) {
        return false;
    }
}

TEST(CmdlineReader, ConversionsAreStrict) {
    int i = 0;
    EXPECT_TRUE(converts<int>("-2147483648", &i));
    EXPECT_EQ(i, INT32_MIN);
    EXPECT_TRUE(converts<int>("\t+5", &i));
    EXPECT_EQ(i, 5);
    for (const char* bad : {"2147483648", "", " ", "1.5", "0x10", "5 ", "five"})
        EXPECT_FALSE(converts<int>(bad)) << bad;

    unsigned u = 0;
    EXPECT_TRUE(converts<unsigned>("4294967295", &u));
    EXPECT_EQ(u, 4294967295u);
    for (const char* bad : {"-1", " -0", "4294967296"}) EXPECT_FALSE(converts<unsigned>(bad));

    int64_t ll = 0;
    EXPECT_TRUE(converts<int64_t>("-9223372036854775808", &ll));
    EXPECT_EQ(ll, INT64_MIN);
    EXPECT_FALSE(converts<int64_t>("9223372036854775808"));
    uint64_t ull = 0;
    EXPECT_TRUE(converts<uint64_t>("18446744073709551615", &ull));
    EXPECT_EQ(ull, UINT64_MAX);
    EXPECT_FALSE(converts<uint64_t>("18446744073709551616"));
    EXPECT_FALSE(converts<uint64_t>("-5"));

    float f = 0;
    EXPECT_TRUE(converts<float>("2.5", &f));
    EXPECT_EQ(f, 2.5f);
    EXPECT_FALSE(converts<float>("1e39"));
    EXPECT_FALSE(converts<float>("1.5f"));
    double d = 0;
    EXPECT_TRUE(converts<double>("-1e308", &d));
    EXPECT_FALSE(converts<double>("1e400"));

    bool b = false;
    EXPECT_TRUE(converts<bool>("1", &b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(converts<bool>(" 0", &b));
    EXPECT_FALSE(b);
    for (const char* bad : {"2", "true", "false", "1 ", "-1"}) EXPECT_FALSE(converts<bool>(bad));

    std::string s = "x";
    EXPECT_TRUE(converts<std::string>("", &s));
    EXPECT_EQ(s, "");
    EXPECT_TRUE(converts<std::string>(" a b ", &s));
    EXPECT_EQ(s, " a b ");
}

TEST(CmdlineUsage, LabelsAndDescriptions) {
    cmdline::parser p;
    p.add_option<int>("i", 0, "d", false, 3);
    p.add_option<unsigned>("u", 0, "d", false, 4u);
    p.add_option<int64_t>("ll", 0, "d", false, -5);
    p.add_option<uint64_t>("ull", 0, "d", false, 6u);
    p.add_option<float>("f", 0, "d", false, 1.0f / 3);
    p.add_option<double>("dbl", 0, "d", false, 1e20);
    p.add_option<bool>("b", 0, "d", false, true);
    p.add_option<std::string>("s", 0, "d", false, "x y");
    p.add_option<std::string>("req", 0, "d", true, "ignored");
    p.add_option<uint64_t>("req64", 0, "d", true, 1u);
    p.set_program_name("prog");
    p.set_footer("files...");
    EXPECT_EQ(p.usage_text(),
              "usage: prog --req=string --req64=unsigned __int64 [options] ... files...\n"
              "options:\n"
              "      --i        d (int [=3])\n"
              "      --u        d (unsigned int [=4])\n"
              "      --ll       d (__int64 [=-5])\n"
              "      --ull      d (unsigned __int64 [=6])\n"
              "      --f        d (float [=0.333333])\n"
              "      --dbl      d (double [=1e+20])\n"
              "      --b        d (bool [=1])\n"
              "      --s        d (string [=x y])\n"
              "      --req      d (string)\n"
              "      --req64    d (unsigned __int64)\n");
}

TEST(CmdlineUsage, ReferenceExampleByteForByte) {
    cmdline::parser p;
    p.add_flag("verbose", 'v', "talk more");
    p.add_option<std::string>("input", 0, "input file", true, "");
    p.add_option<int>("count", 'c', "repeat", false, 3);
    run(p, {"tool"});
    EXPECT_EQ(p.usage_text(),
              "usage: tool --input=string [options] ... \n"
              "options:\n"
              "  -v, --verbose    talk more\n"
              "      --input      input file (string)\n"
              "  -c, --count      repeat (int [=3])\n");
}

TEST(CmdlineUsage, EmptyParser) {
    cmdline::parser p;
    EXPECT_EQ(p.usage_text(), "usage:  [options] ... \noptions:\n");
}

}  // namespace
