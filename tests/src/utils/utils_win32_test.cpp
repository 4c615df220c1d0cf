// Utils on Windows against the real system calls: code pages, both path spellings, Find*File
// walks, GetTempPathW and the registry under the current user. CI runs it under wine in the
// ANSI code pages 1252 and 936.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

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

TEST(Win32CodePage, AnsiSpellingsFollowTheSystemCodePage) {
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
}

TEST(Win32Files, BothSpellingsReachOneFile) {
    const AnsiName name = ansi_name();
    if (name.utf8.empty()) GTEST_SKIP() << "code page " << GetACP();
    TempDir scratch;
    const std::string dir = in(scratch, name.utf8);
    ASSERT_TRUE(U()->make_dir(dir.c_str()));
    EXPECT_TRUE(exists(dir)) << "made under its UTF-8 name";

    const std::string utf8 = dir + "\\" + name.utf8 + ".bin";
    const std::string ansi = in(scratch, name.ansi) + "\\" + name.ansi + ".bin";
    const std::string data("a\r\nb\0c", 6);
    ASSERT_TRUE(write_all(utf8, data));
    EXPECT_EQ(read_all(ansi), data) << "the ANSI spelling falls back to fopen";
    EXPECT_EQ(U()->file_size(ansi.c_str()), 6);
    EXPECT_TRUE(U()->is_dir(dir.c_str()));

    const std::string copy = dir + "\\copy " + kEmoji + ".bin";
    const std::string moved = dir + "\\moved " + kEmoji + ".bin";
    EXPECT_EQ(U()->copy_file(ansi.c_str(), copy.c_str()), 0);
    EXPECT_EQ(U()->rename_file(copy.c_str(), moved.c_str()), 0);
    EXPECT_EQ(read_all(moved), data);
    EXPECT_EQ(U()->remove_file(moved.c_str()), 0);  // remove() cannot spell the emoji
    EXPECT_FALSE(exists(moved));
    EXPECT_TRUE(U()->is_dir_writable(dir.c_str(), "~test_writeable~.tmp"));
    EXPECT_FALSE(exists(dir + "\\~test_writeable~.tmp"));
}

TEST(Win32Walk, WideNamesBackslashesAndPostOrder) {
    TempDir scratch;
    const std::string root = in(scratch, "tree");
    const std::string sub = root + "\\sub \xC3\xA9";
    const std::string emoji_file = sub + "\\" + kEmoji + ".txt";
    ASSERT_TRUE(U()->make_dir(root.c_str()));
    ASSERT_TRUE(U()->make_dir(sub.c_str()));
    ASSERT_TRUE(write_all(emoji_file, "1"));

    std::vector<std::pair<bool, std::string>> seen;
    auto collect = [&](bool is_dir, const zp::NativeString& path) {
        seen.emplace_back(is_dir, U()->to_narrow(std::u16string(path.begin(), path.end())));
        return true;
    };
    ASSERT_TRUE(U()->walk_dir(root.c_str(), collect, true));
    using Seen = std::vector<std::pair<bool, std::string>>;
    EXPECT_EQ(seen, (Seen{{false, emoji_file}, {true, sub}, {true, root}}));
    seen.clear();
    ASSERT_TRUE(U()->walk_dir(root.c_str(), collect, false));
    EXPECT_EQ(seen, (Seen{{false, sub}, {true, root}})) << "a flat walk lists a directory as entry";

    EXPECT_TRUE(U()->remove_tree(root.c_str()));
    EXPECT_FALSE(exists(root));
}

TEST(Win32Registry, ValuesAreUtf16StringsUnderTheCurrentUser) {
    const std::string key = "Software\\KinefixTest\\" + U()->random_string(12);
    const char name[] = "\xE6\x9C\x80\xE8\xBF\x91";                       // 最近
    const char value[] = "D:\\\xE8\xA7\x86\xE9\xA2\x91\\a \xC3\xA9.mp4";  // D:\视频\a é.mp4
    ASSERT_EQ(zp::reg_set(key.c_str(), name, value), 0);
    wchar_t data[64] = {};
    DWORD bytes = sizeof data;
    EXPECT_EQ(RegGetValueW(HKEY_CURRENT_USER, wide(key).c_str(), wide(name).c_str(), RRF_RT_REG_SZ,
                           nullptr, data, &bytes),
              ERROR_SUCCESS);
    EXPECT_EQ(std::wstring(data), wide(value));

    char buf[64] = {};
    EXPECT_EQ(zp::reg_get(key.c_str(), name, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, value);
    EXPECT_EQ(zp::reg_delete(key.c_str(), name), 0);
    testing::internal::CaptureStderr();
    EXPECT_NE(zp::reg_get(key.c_str(), name, buf, sizeof buf), 0);
    testing::internal::GetCapturedStderr();
    RegDeleteTreeW(HKEY_CURRENT_USER, wide(key).c_str());
}

}  // namespace
