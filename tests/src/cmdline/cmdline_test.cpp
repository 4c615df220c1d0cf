// Tests of cmdline::parser: argument vectors against values and exact error lists, conversions,
// labels and the usage text.

#include "cmdline/cmdline.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using Args = std::vector<std::string>;
using Errors = std::vector<std::string>;
using kinefix_test::parse_args;

// Splits "a|b|c"; the empty text gives no parts.
Args split(const std::string& text) {
    Args out;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, '|');) out.push_back(part);
    return out;
}

TEST(CmdlineParse, ArgumentVectorsAgainstValuesAndErrors) {
    // Arguments, errors, input, count, whether -v is set, what remains: lists split at '|'.
    const struct {
        const char *args, *errors, *input;
        int count;
        bool verbose;
        const char* rest;
    } cases[] = {
        {"t|x|--input=a|-v|-c|7|-|y", "", "a", 7, true, "x|y"},  // a lone "-" is dropped
        {"t|--input=a=b|--count=4", "", "a=b", 4, false, ""},
        {"t|--input=a|--verbose=1", "option value is invalid: --verbose=1", "a", 3, false, ""},
        {"t|--input|--count", "", "--count", 3, false, ""},
        {"t|--input=a|--count", "option needs value: --count", "a", 3, false, ""},
        {"t|--nope|-zv|x",
         "undefined option: --nope|undefined short option: -z|need option: --input", "", 3, true,
         "x"},
        {"t|-vc|9|--input=a", "", "a", 9, true, ""},
        {"t|-cv|--input=a", "option needs value: --count", "a", 3, true, ""},
        {"t|-v|9|--input=a|--input=b", "", "b", 3, true, "9"},
        {"t|--input=a|-c|\t+5", "", "a", 5, false, ""},
        {"t|--input=a|-c|2147483648", "option value is invalid: --count=2147483648", "a", 3, false,
         ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        cmdline::parser p;
        p.add_flag("verbose", 'v', "talk more");
        p.add_option<std::string>("input", 0, "input file", true, "");
        p.add_option<int>("count", 'c', "repeat", false, 3);
        const Errors errors = split(c.errors);
        EXPECT_EQ(parse_args(p, split(c.args)), errors.empty());
        EXPECT_EQ(p.error_list(), errors);
        EXPECT_EQ(p.get_value<std::string>("input"), c.input);
        EXPECT_EQ(p.get_value<int>("count"), c.count);
        EXPECT_EQ(p.is_set("verbose"), c.verbose);
        EXPECT_EQ(p.remaining_args(), split(c.rest));
        parse_args(p, {"again"});
        EXPECT_EQ(p.get_value<int>("count"), c.count) << "values survive a later parse";
    }
}

TEST(CmdlineDeclare, ErrorsStrictConversionsRefusedParsesAndUsage) {
    cmdline::parser p;
    p.add_option<int>("count", 'c', "repeat", false, 3);
    const std::string before = p.usage_text();
    try {
        p.add_flag("count", 'x', "");
        ADD_FAILURE();
    } catch (const cmdline::cmdline_error& e) {
        EXPECT_STREQ(e.what(), "multiple definition: count");
    }
    EXPECT_EQ(p.usage_text(), before);
    EXPECT_THROW(p.is_set("missing"), cmdline::cmdline_error);
    EXPECT_THROW(p.get_value<int64_t>("count"), cmdline::cmdline_error);
    // Every non-string type rejects trailing characters and out-of-range text.
    for (const char* bad : {"", "1.5", "0x10"})
        EXPECT_THROW(cmdline::default_reader<int>()(bad), std::bad_cast) << bad;
    EXPECT_EQ(cmdline::default_reader<uint64_t>()("18446744073709551615"), UINT64_MAX);
    EXPECT_THROW(cmdline::default_reader<unsigned>()("-1"), std::bad_cast);
    EXPECT_THROW(cmdline::default_reader<float>()("1e39"), std::bad_cast);
    EXPECT_THROW(cmdline::default_reader<bool>()("true"), std::bad_cast);
    // A shared short character and an empty vector fail before any argument is looked at.
    p.add_flag("one", 'o', "");
    p.add_flag("other", 'o', "");
    EXPECT_FALSE(parse_args(p, {"t", "--one"}));
    EXPECT_EQ(p.error_list(), Errors{"short option 'o' is ambiguous"});
    EXPECT_FALSE(p.is_set("one"));
    const char* none[] = {nullptr};
    EXPECT_FALSE(p.parse(0, none));
    EXPECT_EQ(p.error_list(), Errors{"argument number must be longer than 0"});

    cmdline::parser u;
    u.add_flag("v", 'v', "talk");
    u.add_option<int>("i", 'i', "d", false, 3);
    u.add_option<uint64_t>("req64", 0, "d", true, 1u);
    u.set_program_name("prog");
    u.set_footer("files...");
    EXPECT_EQ(u.usage_text(),
              "usage: prog --req64=unsigned __int64 [options] ... files...\n"
              "options:\n"
              "  -v, --v        talk\n"
              "  -i, --i        d (int [=3])\n"
              "      --req64    d (unsigned __int64)\n");
}

}  // namespace
