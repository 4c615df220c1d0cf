// Header rewriting: protected arrays that restore the macro texts, conditional blocks, kept
// lines, the .~bak/.~tmp files and a second run that changes nothing.
#include <gtest/gtest.h>

#include <map>
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

const char kHeader[] =
    "#pragma once\n"
    "// Texts of the product.\n"
    "//#define COMMENTED \"stays as it is\"\n"
    "#include <cstdint>\n"
    "\n"
    "#define PLAIN \"https://kinefix.example.org\"  // the maker\n"
    "#define SLASHES \"a // b\" // not the comment\n"
    "#define ESCAPES \"tab\\there \\\"quoted\\\" \\x41\\101\\\\\"\n"
    "#define CHINESE \"无法打开moov文件: %s\"\n"
    "#define EMPTY \"\"\n"
    "#ifdef _WIN32\n"
    "#define SEP \"\\\\\"\n"
    "#else\n"
    "#ifndef SEP_OVERRIDE\n"
    "#define SEP \"/\"\n"
    "#endif\n"
    "#endif\n"
    "#define NUMBER 42\n"
    "#define CALL(x) \"x\"\n"
    "#define JOINED \"a\" \"b\"\n"
    "#define KEPT FData->decrypt(s_KEPT, \"x\")\n"
    "#define HEXED ZP->hex_decrypt(\"00ff\")\n"
    "  #  define INDENTED \"in\"\n";

// Array name -> units, read back from a rewritten header.
std::multimap<std::string, std::vector<uint16_t>> arrays_of(const std::string& text) {
    std::multimap<std::string, std::vector<uint16_t>> out;
    const std::string type = "const static uint16_t ";
    for (size_t at = text.find(type); at != std::string::npos; at = text.find(type, at + 1)) {
        const size_t name = at + type.size();
        const size_t open = text.find("[] = {", name);
        const size_t close = text.find("};", name);
        if (open == std::string::npos || close == std::string::npos || close < open) break;
        std::vector<uint16_t> units;
        for (size_t u = text.find("0x", open); u < close; u = text.find("0x", u + 2))
            units.push_back(static_cast<uint16_t>(std::stoul(text.substr(u + 2, 4), nullptr, 16)));
        out.emplace(text.substr(name, open - name), units);
    }
    return out;
}

std::vector<std::string> restored(const std::string& text, const std::string& name) {
    std::vector<std::string> out;
    const auto arrays = arrays_of(text);
    auto range = arrays.equal_range(name);
    for (auto it = range.first; it != range.second; ++it)
        out.push_back(zp::Crypt::instance()->decrypt(it->second.data(), it->second.size()));
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

    EXPECT_EQ(restored(out, "s_PLAIN"), std::vector<std::string>{"https://kinefix.example.org"});
    EXPECT_EQ(restored(out, "s_SLASHES"), std::vector<std::string>{"a // b"});
    EXPECT_EQ(restored(out, "s_ESCAPES"), std::vector<std::string>{"tab\there \"quoted\" AA\\"});
    EXPECT_EQ(restored(out, "s_CHINESE"), std::vector<std::string>{"无法打开moov文件: %s"});
    EXPECT_EQ(restored(out, "s_EMPTY"), std::vector<std::string>{""});
    EXPECT_EQ(restored(out, "s_SEP"), (std::vector<std::string>{"\\", "/"}));
    EXPECT_EQ(restored(out, "s_INDENTED"), std::vector<std::string>{"in"});
    EXPECT_EQ(arrays_of(out).size(), 8u);

    EXPECT_NE(out.find("  // \"https://kinefix.example.org\"\n"
                       "const static uint16_t s_PLAIN[] = {"),
              std::string::npos);
    EXPECT_NE(out.find("#define PLAIN ZpTrDe(s_PLAIN)  // the maker\n\n"), std::string::npos);
    EXPECT_NE(out.find("#define SLASHES ZpTrDe(s_SLASHES) // not the comment\n"),
              std::string::npos);
    EXPECT_NE(out.find("  #  define INDENTED ZpTrDe(s_INDENTED)\n"), std::string::npos);
    EXPECT_EQ(out.find("#define PLAIN \""), std::string::npos);
    // A text ending in a backslash must not splice the array into its comment.
    EXPECT_NE(out.find("  // \"\\\\\"\nconst static"), std::string::npos);
    // Lines that are not quoted macros pass through.
    for (const char* kept : {"//#define COMMENTED \"stays as it is\"\n", "#define NUMBER 42\n",
                             "#define CALL(x) \"x\"\n", "#define JOINED \"a\" \"b\"\n",
                             "#define KEPT FData->decrypt(s_KEPT, \"x\")\n",
                             "#define HEXED ZP->hex_decrypt(\"00ff\")\n"})
        EXPECT_NE(out.find(kept), std::string::npos) << kept;
    // Both SEP arrays stay inside their own branches.
    const size_t ifdef = out.find("#ifdef _WIN32"), els = out.find("#else"),
                 inner = out.find("#ifndef SEP_OVERRIDE");
    const size_t first = out.find("s_SEP[]"), second = out.find("s_SEP[]", first + 1);
    EXPECT_TRUE(ifdef < first && first < els && inner < second && second < out.find("#endif"));
}

TEST(HeaderRewriterTest, SecondRunGivesTheSameFile) {
    TempDir dir;
    const std::string path = dir / "texts.h";
    write_file(path, kHeader);
    ASSERT_TRUE(zp::rewrite_protected_header(path.c_str(), zp::Crypt::instance()));
    const std::string once = read_file(path);
    ASSERT_TRUE(zp::rewrite_protected_header(path.c_str(), zp::Crypt::instance()));
    EXPECT_EQ(read_file(path), once);
    EXPECT_EQ(read_file(path + ".~bak"), once);
    ASSERT_TRUE(zp::rewrite_protected_header(path.c_str(), zp::Crypt::instance()));
    EXPECT_EQ(read_file(path), once);
}

TEST(HeaderRewriterTest, EditedCommentRemakesItsArray) {
    TempDir dir;
    const std::string path = dir / "texts.h";
    const std::string long_text(100, 'q');
    write_file(path, "#define A \"old\"\r\n#define LONG \"" + long_text + "\"\r\n");
    ASSERT_TRUE(zp::Crypt::instance()->rewrite_header(path.c_str()));
    std::string text = read_file(path);
    EXPECT_NE(text.find("#define A ZpTrDe(s_A)\r\n\r\n"), std::string::npos) << "CRLF kept";
    EXPECT_EQ(restored(text, "s_LONG"), std::vector<std::string>{long_text}) << "wrapped array";
    EXPECT_NE(text.find("0x"), std::string::npos);
    text.replace(text.find("  // \"old\""), 10, "  // \"new\"");
    write_file(path, text);
    ASSERT_TRUE(zp::Crypt::instance()->rewrite_header(path.c_str()));
    EXPECT_EQ(restored(read_file(path), "s_A"), std::vector<std::string>{"new"});
}

TEST(HeaderRewriterTest, ArrayWithoutItsCommentIsKeptAsItIs) {
    TempDir dir;
    const std::string path = dir / "texts.h";
    const std::string text =
        "const static uint16_t s_X[] = {0x01,\n    0x02,};\n#define X ZpTrDe(s_X)\n";
    write_file(path, text);
    ASSERT_TRUE(zp::Crypt::instance()->rewrite_header(path.c_str()));
    EXPECT_EQ(read_file(path), text);
}

TEST(HeaderRewriterTest, UnopenableFilesChangeNothing) {
    TempDir dir;
    const std::string missing = dir / "missing.h";
    EXPECT_FALSE(zp::Crypt::instance()->rewrite_header(missing.c_str()));
    EXPECT_FALSE(exists(missing + ".~tmp"));
    EXPECT_FALSE(exists(missing + ".~bak"));

    const std::string path = dir / "texts.h";
    write_file(path, kHeader);
    kinefix_test::fs::create_directory(path + ".~tmp");  // the temporary file cannot be made
    EXPECT_FALSE(zp::Crypt::instance()->rewrite_header(path.c_str()));
    EXPECT_EQ(read_file(path), kHeader);
    EXPECT_FALSE(exists(path + ".~bak"));
    EXPECT_FALSE(zp::Crypt::instance()->rewrite_header(""));
    EXPECT_FALSE(zp::Crypt::instance()->rewrite_header(nullptr));
}

TEST(HeaderRewriterTest, DefineLineParts) {
    zp::DefineText d;
    ASSERT_TRUE(zp::parse_define_text("#define NAME \"a \\\" // b\"   // note\n", &d));
    EXPECT_EQ(d.head, "#define NAME");
    EXPECT_EQ(d.name, "NAME");
    EXPECT_EQ(d.literal, "a \\\" // b");
    EXPECT_EQ(d.tail, "   // note");
    EXPECT_FALSE(zp::parse_define_text("#define NAME \"open\n", &d));
    EXPECT_FALSE(zp::parse_define_text("#define 9X \"a\"\n", &d));
    EXPECT_FALSE(zp::parse_define_text("#defineX \"a\"\n", &d));
    EXPECT_FALSE(zp::parse_define_text("#define X \"a\" + 1\n", &d));
    EXPECT_FALSE(zp::parse_define_text("int x = \"#define X\";\n", &d));

    std::string s;
    EXPECT_TRUE(zp::unescape_literal("\\n\\t\\0\\x7f\\?", &s));
    EXPECT_EQ(s, std::string("\n\t\0\x7f?", 5));
    EXPECT_FALSE(zp::unescape_literal("\\q", &s));
    EXPECT_FALSE(zp::unescape_literal("end\\", &s));
    EXPECT_FALSE(zp::unescape_literal("\\xg", &s));
}

}  // namespace
