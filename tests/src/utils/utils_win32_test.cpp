// Utils on Windows against the real system calls: code pages, both path spellings,
// GetTempPathW and the registry under the current user. CI runs it under wine in the
// ANSI code pages 1252 and 936.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/test_support.h"
#include "utils/registry.h"
#include "utils/utils.h"

namespace {

using kinefix_test::TempDir;

zp::Utils* U() {
    return zp::Utils::instance();
}

// A non-ASCII name the ANSI code page can spell, in UTF-8 and in that page; empty if none.
struct AnsiName {
    std::string utf8, ansi;
};
AnsiName ansi_name() {
    if (GetACP() == 1252) return {"vid\xC3\xA9o", "vid\xE9o"};
    if (GetACP() == 936)
        return {"\xE8\xA7\x86\xE9\xA2\x91 vid\xC3\xA9o", "\xCA\xD3\xC6\xB5 vid\xA8\xA6o"};
    return {};
}

const char kEmoji[] = "\xF0\x9F\x98\x80";  // U+1F600: no ANSI code page has it

std::string read_all(const std::string& path) {
    FILE* f = U()->open_file(path.c_str(), "rb");
    std::string out;
    for (int c; f != nullptr && (c = fgetc(f)) != EOF;) out.push_back(static_cast<char>(c));
    if (f != nullptr) fclose(f);
    return out;
}

bool write_all(const std::string& path, const std::string& data) {
    FILE* f = U()->open_file(path.c_str(), "wb");
    return f != nullptr && fwrite(data.data(), 1, data.size(), f) == data.size() && fclose(f) == 0;
}

// Plain concatenation: std::filesystem would re-encode an ANSI spelling.
std::string in(const TempDir& dir, const std::string& name) {
    return dir.str() + "\\" + name;
}

std::wstring wide(const std::string& utf8) {
    const std::u16string w = U()->to_wide(utf8);
    return std::wstring(w.begin(), w.end());
}

bool exists(const std::string& utf8) {
    return GetFileAttributesW(wide(utf8).c_str()) != INVALID_FILE_ATTRIBUTES;
}

TEST(Win32CodePage, AnsiSpellingsReachTheSameNames) {
    const AnsiName name = ansi_name();
    if (name.utf8.empty()) GTEST_SKIP() << "code page " << GetACP();
    EXPECT_EQ(U()->utf8_to_ansi(name.utf8), name.ansi);
    EXPECT_EQ(U()->ansi_to_utf8(name.ansi), name.utf8);
    // What the code page cannot spell becomes the system's default character.
    const std::string lost = U()->utf8_to_ansi(kEmoji);
    EXPECT_FALSE(lost.empty());
    EXPECT_EQ(lost.find_first_not_of('?'), std::string::npos) << lost;
    EXPECT_EQ(U()->to_narrow(U()->to_wide(kEmoji)), kEmoji);

    // GetTempPathW's answer in UTF-8; _putenv takes the ANSI spelling.
    TempDir scratch;
    ASSERT_TRUE(U()->make_dir(in(scratch, name.utf8).c_str()));
    const std::string saved = getenv("TMP") ? getenv("TMP") : "";
    setenv("TMP", (scratch.str() + "//" + name.ansi).c_str(), 1);
    const std::string expected = U()->normalize_path(scratch.str()) + "\\" + name.utf8 + "\\";
    EXPECT_EQ(U()->temp_dir(), expected);
    EXPECT_EQ(zp::local_data_dir(), expected + "/../");
    setenv("TMP", saved.c_str(), 1);

    // A file made under one spelling is reached under the other.
    const std::string dir = in(scratch, name.utf8);
    ASSERT_TRUE(U()->make_dir(dir.c_str()));
    EXPECT_TRUE(exists(dir)) << "made under its UTF-8 name";

    const std::string utf8 = dir + "\\" + name.utf8 + ".bin";
    const std::string ansi = in(scratch, name.ansi) + "\\" + name.ansi + ".bin";
    const std::string data("a\r\nb\0c", 6);
    ASSERT_TRUE(write_all(utf8, data));
    EXPECT_EQ(read_all(ansi), data) << "the ANSI spelling falls back to fopen";
    EXPECT_EQ(U()->file_size(ansi.c_str()), 6);

    const std::string copy = dir + "\\copy " + kEmoji + ".bin";
    EXPECT_EQ(U()->copy_file(ansi.c_str(), copy.c_str()), 0);
    EXPECT_EQ(read_all(copy), data);
    EXPECT_EQ(U()->remove_file(copy.c_str()), 0);  // remove() cannot spell the emoji
    EXPECT_FALSE(exists(copy));
    EXPECT_TRUE(U()->is_dir_writable(dir.c_str(), "~test_writeable~.tmp"));
    EXPECT_FALSE(exists(dir + "\\~test_writeable~.tmp"));
}

TEST(Win32Registry, ValuesAreUtf16StringsUnderTheCurrentUser) {
    const std::string key = "Software\\KinefixTest\\" + U()->random_string(12);
    const char name[] = "\xE6\x9C\x80\xE8\xBF\x91";                       // 最近
    const char value[] = "D:\\\xE8\xA7\x86\xE9\xA2\x91\\a \xC3\xA9.mp4";  // D:\视频\a é.mp4
    ASSERT_EQ(zp::reg_set(key.c_str(), name, value), 0);
    // Stored as UTF-16: in code page 1252 the name would not survive the ANSI calls.
    char buf[64] = {};
    EXPECT_EQ(zp::reg_get(key.c_str(), name, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, value);
    EXPECT_EQ(zp::reg_delete(key.c_str(), name), 0);
    RegDeleteTreeW(HKEY_CURRENT_USER, wide(key).c_str());
}

}  // namespace
