// Paths and the file system: path pieces, walks, tree removal, stat, copy, same-file checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.h"
#include "utils/same_file.h"
#include "utils/utils.h"
#include "utils/utils_sys.h"

namespace {

namespace fs = std::filesystem;
using kinefix_test::TempDir;
using kinefix_test::write_file;

using Seen = std::vector<std::pair<bool, std::string>>;

class UtilsFs : public testing::Test {
  protected:
    Seen walk(bool recursive, size_t stop_at = 0) {
        Seen seen;
        last_result = u.walk_dir(
            dir.str().c_str(),
            [&seen, stop_at](bool is_dir, const zp::NativeString& p) {
                seen.emplace_back(is_dir, norm(p));
                return seen.size() != stop_at;
            },
            recursive);
        return seen;
    }
    static std::string norm(const fs::path& p) { return p.lexically_normal().string(); }

    zp::Utils u;
    TempDir dir;
    bool last_result = false;
};

TEST_F(UtilsFs, PathPiecesTakeEitherSeparatorAndTempDirIsTmpdirOrSlashTmp) {
    std::string expected = "C:/data/x/";
    std::replace(expected.begin(), expected.end(), '/', zp::sys::native_separator());
    EXPECT_EQ(u.normalize_path("C://data\\\\x/"), expected);
    EXPECT_EQ(u.dir_name("a/b\\c"), "a/b\\");
    EXPECT_EQ(u.dir_name("bare"), "");
    // The stem ends at the name's first dot, on purpose.
    EXPECT_EQ(u.file_stem("dir.old/x.tar.gz"), "x");
    EXPECT_EQ(u.file_stem(".hidden"), "");
#ifndef _WIN32  // Windows asks the system first (utils_win32_test.cpp)
    kinefix_test::ScopedEnv empty("TMPDIR", "");
    EXPECT_EQ(u.temp_dir(), "/tmp/");
    kinefix_test::ScopedEnv set("TMPDIR", "/var//cache/");
    EXPECT_EQ(u.temp_dir(), "/var/cache/");
#endif
}

TEST_F(UtilsFs, WalksTreesSizeCopyWriteabilityAndSameFile) {
    fs::create_directories(dir / "sub");
    write_file(dir / "sub/h1", "1");
    EXPECT_EQ(
        walk(true),
        (Seen{{false, norm(dir / "sub/h1")}, {true, norm(dir / "sub")}, {true, norm(dir.str())}}));
    EXPECT_TRUE(last_result);
    EXPECT_EQ(walk(false), (Seen{{false, norm(dir / "sub")}, {true, norm(dir.str())}}))
        << "a flat walk reports a subdirectory as an entry";
    EXPECT_EQ(walk(true, 1).size(), 1u) << "stopping deep inside stops every level above";
    EXPECT_FALSE(last_result);

    EXPECT_FALSE(u.make_dir((dir / "keep/x").c_str()));  // one level only
    EXPECT_TRUE(zp::make_dirs((dir / "keep/x/y").c_str()));
    EXPECT_FALSE(zp::make_dirs((dir / "sub/h1/z").c_str()));
    std::error_code ec;
    fs::create_directory_symlink(dir / "keep", dir / "sub/link", ec);
    EXPECT_TRUE(u.remove_tree((dir / "sub").c_str()));
    EXPECT_FALSE(fs::exists(dir / "sub"));
    EXPECT_TRUE(fs::exists(dir / "keep/x/y")) << "a link goes, not what it points at";
    EXPECT_TRUE(u.remove_dir((dir / "sub").c_str())) << "a missing directory counts as removed";

    write_file(dir / "src", std::string(25000, 'p'));  // crosses copy chunks
    // When stat fails the size still comes from opening the file.
    const auto failing = [](const char*, zp::FileStat*) { return false; };
    EXPECT_EQ(zp::stat_with_fallback(u, (dir / "src").c_str(), failing).size, 25000);
    testing::internal::CaptureStderr();
    EXPECT_EQ(u.file_size((dir / "none").c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zp: [Error] _wstat64(..) < 0, path=" + (dir / "none") + "\n");

    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "dst").c_str()), 0);
    EXPECT_EQ(kinefix_test::read_file(dir / "dst"), std::string(25000, 'p'));
    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "no/dir/dst").c_str()), -2);
    EXPECT_EQ(u.copy_file((dir / "none").c_str(), (dir / "dst2").c_str()), -1);
    EXPECT_FALSE(fs::exists(dir / "dst2"));

    EXPECT_TRUE(u.is_dir_writable(dir.str().c_str(), "~probe~.tmp"));
    EXPECT_FALSE(fs::exists(dir / "~probe~.tmp"));
    EXPECT_FALSE(u.is_dir_writable((dir / "none").c_str(), "~probe~.tmp"));

    // The same file is one file under other names, not a copy of it.
    const std::string src = dir / "src", hard = dir / "hard";
    fs::create_hard_link(src, hard);
    EXPECT_TRUE(zp::same_file(src.c_str(), (dir.str() + "//./src").c_str()));
    EXPECT_TRUE(zp::same_file(hard.c_str(), src.c_str()));
    EXPECT_FALSE(zp::same_file(src.c_str(), (dir / "dst").c_str()));
    EXPECT_FALSE(zp::same_file((dir / "none").c_str(), (dir / "none").c_str()));
    EXPECT_FALSE(zp::same_file(src.c_str(), nullptr));
}

}  // namespace
