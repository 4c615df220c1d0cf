// Header rewriting: protected arrays that restore the macro texts, conditional blocks, kept
// lines, the .~bak/.~tmp files and a second run that changes nothing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypt/crypt.h"
#include "crypt/header_rewriter.h"
#include "support/test_support.h"

namespace {

using kinefix_test::read_file;
using kinefix_test::TempDir;
using kinefix_test::write_file;
using kinefix_test::fs::exists;
using Texts = std::vector<std::string>;

const char kHeader[] =
    "//#define COMMENTED \"stays as it is\"\n"
    "#define PLAIN \"https://kinefix.example.org\"  // the maker\n"
    "#define ESCAPES \"a // \\\"q\\\" \\x41\\101\\\\\"\n"
    "#ifdef _WIN32\n"
    "#define SEP \"\\\\\"\n"
    "#else\n"
    "#define SEP \"/\"\n"
    "#endif\n"
    "#define NUMBER 42\n"
    "#define KEPT FData->decrypt(s_KEPT, \"x\")\n"
    "#define LONG "
    "\"qqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqq\"\n";

// The texts the arrays called `name` restore, in file order.
Texts restored(const std::string& text, const std::string& name) {
    Texts out;
    const std::string head = "const static uint16_t " + name + "[] = {";
    for (size_t at = text.find(head); at != std::string::npos; at = text.find(head, at + 1)) {
        std::vector<uint16_t> units;
        const size_t close = text.find("};", at);
        for (size_t u = text.find("0x", at); u < close; u = text.find("0x", u + 2))
            units.push_back(static_cast<uint16_t>(std::stoul(text.substr(u + 2, 4), nullptr, 16)));
        out.push_back(zp::Crypt::instance()->decrypt(units.data(), units.size()));
    }
    return out;
}

TEST(HeaderRewriterTest, MacrosBecomeArraysThatRestoreTheirTexts) {
    TempDir dir;
    const std::string path = dir / "texts.h";
    write_file(path, kHeader);
    ASSERT_TRUE(zp::Crypt::instance()->rewrite_header(path.c_str()));
    const std::string out = read_file(path);
    EXPECT_EQ(read_file(path + ".~bak"), kHeader);
    EXPECT_FALSE(exists(path + ".~tmp"));
    EXPECT_EQ(restored(out, "s_PLAIN"), Texts{"https://kinefix.example.org"});
    EXPECT_EQ(restored(out, "s_ESCAPES"), Texts{"a // \"q\" AA\\"});
    EXPECT_EQ(restored(out, "s_SEP"), (Texts{"\\", "/"}));
    EXPECT_EQ(restored(out, "s_LONG"), Texts{std::string(79, 'q')}) << "wrapped array";
    EXPECT_NE(out.find("#define PLAIN ZpTrDe(s_PLAIN)  // the maker\n\n"), std::string::npos);
    // A text ending in a backslash must not splice the array into its comment.
    EXPECT_NE(out.find("  // \"\\\\\"\nconst static"), std::string::npos);
    for (const char* kept : {"//#define COMMENTED \"stays as it is\"\n", "#define NUMBER 42\n",
                             "#define KEPT FData->decrypt(s_KEPT, \"x\")\n"})
        EXPECT_NE(out.find(kept), std::string::npos) << kept;
    // Both SEP arrays stay inside their own branches.
    const size_t first = out.find("s_SEP[]"), second = out.find("s_SEP[]", first + 1);
    EXPECT_TRUE(out.find("#ifdef") < first && first < out.find("#else") &&
                out.find("#else") < second && second < out.find("#endif"));
    ASSERT_TRUE(zp::Crypt::instance()->rewrite_header(path.c_str()));
    EXPECT_EQ(read_file(path), out) << "a second run changes nothing";
    write_file(path, kHeader);
    kinefix_test::fs::create_directory(path + ".~tmp");  // the temporary file cannot be made
    EXPECT_FALSE(zp::Crypt::instance()->rewrite_header(path.c_str()));
    EXPECT_EQ(read_file(path), kHeader) << "a failed run changes nothing";
}

}  // namespace
