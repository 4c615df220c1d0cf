// Utils on Windows against the real system calls: code pages, both path spellings, Find*File
// walks, GetTempPathW and the registry under the current user. CI runs it under wine in the
// ANSI code pages 1252 and 936.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "utils/registry.h"
#include "utils/utils.h"
#include "utils_test_env.h"

namespace {

using utils_test::ScopedEnv;
using utils_test::ScratchDir;

zp::Utils* U() {
    return zp::Utils::instance();
}

// A name with non-ASCII characters that the current ANSI code page can spell, in UTF-8 and in
// that code page's bytes.
struct AnsiName {
    std::string utf8;
    std::string ansi;
};

bool ansi_name(AnsiName* out) {
    switch (GetACP()) {
        case 1252:
            *out = {"vid\xC3\xA9o", "vid\xE9o"};
            return true;
        case 936:  // 视频 vidéo
            *out = {"\xE8\xA7\x86\xE9\xA2\x91 vid\xC3\xA9o", "\xCA\xD3\xC6\xB5 vid\xA8\xA6o"};
            return true;
        default:
            return false;
    }
}

const char kEmoji[] = "\xF0\x9F\x98\x80";  // U+1F600: no ANSI code page has it

std::string read_all(FILE* f) {
    std::string out;
    char buf[256];
    size_t n = 0;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    fclose(f);
    return out;
}

bool write_all(const std::string& path, const std::string& data) {
    FILE* f = U()->open_file(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = fwrite(data.data(), 1, data.size(), f) == data.size();
    return fclose(f) == 0 && ok;
}

// Plain concatenation: std::filesystem would re-encode an ANSI spelling.
std::string in(const ScratchDir& dir, const std::string& name) {
    return dir.str() + "\\" + name;
}

std::wstring wide_of(const std::string& utf8) {
    const std::u16string w = U()->to_wide(utf8);
    return std::wstring(w.begin(), w.end());
}

TEST(Win32CodePage, AnsiConversionsFollowTheSystemCodePage) {
    AnsiName name;
    if (!ansi_name(&name)) GTEST_SKIP() << "code page " << GetACP();
    EXPECT_EQ(U()->utf8_to_ansi(name.utf8), name.ansi);
    EXPECT_EQ(U()->ansi_to_utf8(name.ansi), name.utf8);
    EXPECT_EQ(U()->to_wide(name.ansi, false), U()->to_wide(name.utf8, true));
    EXPECT_EQ(U()->to_narrow(U()->to_wide(name.utf8), false), name.ansi);
    // What the code page cannot spell becomes the system's default character.
    const std::string lost = U()->utf8_to_ansi(kEmoji);
    EXPECT_FALSE(lost.empty());
    EXPECT_EQ(lost.find_first_not_of('?'), std::string::npos) << lost;
    // UTF-8 goes through UTF-16 surrogate pairs and back whatever the code page.
    EXPECT_EQ(U()->to_wide(kEmoji), std::u16string(u"\U0001F600"));
    EXPECT_EQ(U()->to_narrow(u"\U0001F600"), kEmoji);
}

TEST(Win32Files, BothSpellingsReachOneFile) {
    AnsiName name;
    if (!ansi_name(&name)) GTEST_SKIP() << "code page " << GetACP();
    ScratchDir scratch;
    const std::string dir = in(scratch, name.utf8);
    ASSERT_TRUE(U()->make_dir(dir.c_str()));
    EXPECT_NE(GetFileAttributesW(wide_of(dir).c_str()), INVALID_FILE_ATTRIBUTES)
        << "made under its UTF-8 name";

    const std::string utf8 = dir + "\\" + name.utf8 + ".bin";
    const std::string ansi = in(scratch, name.ansi) + "\\" + name.ansi + ".bin";
    const std::string data("a\r\nb\0c", 6);
    ASSERT_TRUE(write_all(utf8, data));

    FILE* f = U()->open_file(ansi.c_str(), "rb");
    ASSERT_NE(f, nullptr) << "the ANSI spelling falls back to fopen";
    EXPECT_EQ(read_all(f), data);
    EXPECT_EQ(U()->file_size(ansi.c_str()), 6);
    EXPECT_EQ(U()->file_size(utf8.c_str()), 6);
    EXPECT_EQ(U()->file_stat(ansi.c_str()).size, 6);
    EXPECT_TRUE(U()->is_dir(dir.c_str()));
    EXPECT_FALSE(U()->is_dir(utf8.c_str()));

    const std::string copy = dir + "\\copy " + kEmoji + ".bin";
    EXPECT_EQ(U()->copy_file(ansi.c_str(), copy.c_str()), 0);
    f = U()->open_file(copy.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(read_all(f), data);

    const std::string moved = dir + "\\moved " + kEmoji + ".bin";
    EXPECT_EQ(U()->rename_file(copy.c_str(), moved.c_str()), 0);
    EXPECT_EQ(U()->file_size(copy.c_str()), 0);
    EXPECT_EQ(U()->file_size(moved.c_str()), 6);
    // remove() cannot spell the emoji; _wremove can.
    EXPECT_EQ(U()->remove_file(moved.c_str()), 0);
    EXPECT_EQ(GetFileAttributesW(wide_of(moved).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(U()->remove_file(ansi.c_str()), 0);
    EXPECT_TRUE(U()->remove_dir(dir.c_str()));
    EXPECT_EQ(GetFileAttributesW(wide_of(dir).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Win32Files, WritabilityProbeInANonAsciiDirectory) {
    ScratchDir scratch;
    const std::string dir = in(scratch, std::string("w ") + kEmoji);
    ASSERT_TRUE(U()->make_dir(dir.c_str()));
    EXPECT_TRUE(U()->is_dir_writable(dir.c_str(), "~test_writeable~.tmp"));
    EXPECT_EQ(GetFileAttributesW(wide_of(dir + "\\~test_writeable~.tmp").c_str()),
              INVALID_FILE_ATTRIBUTES)
        << "the probe file is removed again";
    EXPECT_FALSE(U()->is_dir_writable((dir + "\\missing").c_str(), "~test_writeable~.tmp"));
}

TEST(Win32Walk, WideNamesBackslashesAndPostOrder) {
    ScratchDir scratch;
    const std::string root = in(scratch, "tree");
    const std::string sub = root + "\\sub \xC3\xA9";
    const std::string deeper = sub + "\\deeper";
    ASSERT_TRUE(U()->make_dir(root.c_str()));
    ASSERT_TRUE(U()->make_dir(sub.c_str()));
    ASSERT_TRUE(U()->make_dir(deeper.c_str()));
    const std::string emoji_file = root + "\\" + kEmoji + ".txt";
    const std::string inner_file = deeper + "\\x.txt";
    ASSERT_TRUE(write_all(emoji_file, "1"));
    ASSERT_TRUE(write_all(inner_file, "2"));

    std::vector<std::pair<bool, std::string>> seen;
    auto collect = [&](bool is_dir, const zp::NativeString& path) {
        seen.emplace_back(is_dir, U()->to_narrow(std::u16string(path.begin(), path.end())));
        return true;
    };
    ASSERT_TRUE(U()->walk_dir(root.c_str(), collect, true));
    auto at = [&](const std::string& p) {
        for (size_t i = 0; i < seen.size(); ++i)
            if (seen[i].second == p) return static_cast<int>(i);
        return -1;
    };
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_GE(at(emoji_file), 0);
    EXPECT_FALSE(seen[at(emoji_file)].first);
    EXPECT_LT(at(inner_file), at(deeper));
    EXPECT_LT(at(deeper), at(sub));
    EXPECT_EQ(at(root), 4) << "the root comes last";
    EXPECT_TRUE(seen[at(sub)].first);

    seen.clear();
    ASSERT_TRUE(U()->walk_dir(root.c_str(), collect, false));
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_FALSE(seen[at(sub)].first) << "a flat walk reports a subdirectory as an entry";

    EXPECT_TRUE(U()->remove_tree(root.c_str()));
    EXPECT_EQ(GetFileAttributesW(wide_of(root).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_FALSE(U()->walk_dir(root.c_str(), collect, true));
}

TEST(Win32Dirs, TempDirIsGetTempPathWInUtf8) {
    AnsiName name;
    if (!ansi_name(&name)) GTEST_SKIP() << "code page " << GetACP();
    ScratchDir scratch;
    ASSERT_TRUE(U()->make_dir(in(scratch, name.utf8).c_str()));
    {
        // _putenv takes the ANSI spelling and passes it on to the process environment.
        ScopedEnv tmp("TMP", in(scratch, name.ansi).c_str());
        const std::string expected = U()->normalize_path(scratch.str()) + "\\" + name.utf8 + "\\";
        EXPECT_EQ(U()->temp_dir(), expected);
        EXPECT_EQ(zp::local_data_dir(), expected + "/../");
    }
    {
        ScopedEnv tmp("TMP", (scratch.str() + "//" + name.ansi).c_str());
        EXPECT_EQ(U()->temp_dir(), U()->normalize_path(scratch.str()) + "\\" + name.utf8 + "\\");
    }
}

TEST(Win32Dirs, HomeAndAppDataAreNormalisedAsTheyStand) {
    {
        ScopedEnv home("HOMEPATH", "\\Users//k\\\\x");
        ScopedEnv app("APPDATA", "C:/Users/k/AppData/Roaming");
        EXPECT_EQ(zp::home_dir(), "\\Users\\k\\x");
        EXPECT_EQ(zp::app_data_dir(), "C:\\Users\\k\\AppData\\Roaming");
    }
    ScopedEnv home("HOMEPATH", nullptr);
    ScopedEnv app("APPDATA", nullptr);
    EXPECT_EQ(zp::home_dir(), "");
    EXPECT_EQ(zp::app_data_dir(), "");
}

class Win32Registry : public testing::Test {
  protected:
    Win32Registry() : key_("Software\\KinefixTest\\" + U()->random_string(12)) {}
    ~Win32Registry() override { RegDeleteTreeW(HKEY_CURRENT_USER, wide_of(key_).c_str()); }

    template <typename Op>
    std::string err_of(Op op) {
        testing::internal::CaptureStderr();
        op();
        return testing::internal::GetCapturedStderr();
    }

    const std::string key_;
    char buf[64] = {};
};

const char kName[] = "\xE6\x9C\x80\xE8\xBF\x91";                       // 最近
const char kValue[] = "D:\\\xE8\xA7\x86\xE9\xA2\x91\\a \xC3\xA9.mp4";  // D:\视频\a é.mp4

TEST_F(Win32Registry, ValuesAreUtf16StringsUnderTheCurrentUser) {
    ASSERT_EQ(zp::reg_set(key_.c_str(), kName, kValue), 0);

    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, wide_of(key_).c_str(), 0, KEY_READ, &key),
              ERROR_SUCCESS);
    wchar_t data[64] = {};
    DWORD bytes = sizeof data;
    DWORD type = 0;
    const LONG rc = RegQueryValueExW(key, wide_of(kName).c_str(), nullptr, &type,
                                     reinterpret_cast<BYTE*>(data), &bytes);
    RegCloseKey(key);
    ASSERT_EQ(rc, ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    const std::wstring expected = wide_of(kValue);
    // Written without the terminating NUL, which the system may add back.
    EXPECT_TRUE(bytes == expected.size() * 2 || bytes == (expected.size() + 1) * 2) << bytes;
    EXPECT_EQ(std::wstring(data), expected);

    ASSERT_EQ(zp::reg_get(key_.c_str(), kName, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, kValue);

    ASSERT_EQ(zp::reg_set(key_.c_str(), kName, "second"), 0);
    ASSERT_EQ(zp::reg_get(key_.c_str(), kName, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "second");
}

TEST_F(Win32Registry, DeleteAndTheFailureLines) {
    ASSERT_EQ(zp::reg_set(key_.c_str(), kName, kValue), 0);
    EXPECT_EQ(zp::reg_delete(key_.c_str(), kName), 0);

    int rc = 0;
    EXPECT_EQ(err_of([&] { rc = zp::reg_get(key_.c_str(), kName, buf, sizeof buf); }),
              std::string("[zp] Error: RegQueryValueExA() can't read key='") + kName + "'\n");
    EXPECT_NE(rc, 0);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(err_of([&] { rc = zp::reg_delete(key_.c_str(), kName); }),
              std::string("[zp] Error: RegDeleteValueA() can't delete key='") + kName + "'\n");
    EXPECT_NE(rc, 0);

    const std::string missing = key_ + "\\missing";
    EXPECT_EQ(err_of([&] { rc = zp::reg_get(missing.c_str(), "x", buf, sizeof buf); }),
              "[zp] Error: RegOpenKeyExA() can't open path='" + missing + "'\n");
    EXPECT_NE(rc, 0);
    EXPECT_EQ(
        err_of([&] { rc = zp::reg_delete(missing.c_str(), "x"); }),
        "[zp] Error: RegOpenKeyExA() can't open path='" + missing + "'  for delete key='x'\n");
    EXPECT_NE(rc, 0);
}

TEST_F(Win32Registry, LongValueIsCutAtACharacterBoundary) {
    // Eleven two-byte characters: 22 bytes of UTF-8.
    std::string value;
    for (int i = 0; i < 11; ++i) value += "\xC3\xA9";
    ASSERT_EQ(zp::reg_set(key_.c_str(), "long", value.c_str()), 0);
    char small[8] = {};
    ASSERT_EQ(zp::reg_get(key_.c_str(), "long", small, sizeof small), 0);
    EXPECT_EQ(std::string(small), value.substr(0, 6)) << "7 bytes would split a character";
}

}  // namespace
