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

TEST(UtilsPaths, SeparatorsEitherWay) {
    zp::Utils u;
    std::string expected = "C:/data/x/";
    std::replace(expected.begin(), expected.end(), '/', zp::sys::native_separator());
    EXPECT_EQ(u.normalize_path("C://data\\\\x/"), expected);
    EXPECT_EQ(u.file_name("a\\b/c.txt"), "c.txt");
    EXPECT_EQ(u.dir_name("a/b\\c"), "a/b\\");
    EXPECT_EQ(u.dir_name("bare"), "");
    EXPECT_EQ(u.file_stem("dir.old\\x.tar.gz"), "x");
}

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

TEST_F(UtilsFs, WalksArePostOrderFlatOnRequestAndStoppable) {
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
}

TEST_F(UtilsFs, DirectoriesAndTrees) {
    fs::create_directories(dir / "sub/deeper");
    write_file(dir / "sub/deeper/h1", "1");
    write_file(dir / "f1", "1");
    EXPECT_FALSE(u.make_dir((dir / "x/y/z").c_str()));  // one level only
    EXPECT_TRUE(zp::make_dirs((dir / "x/y/z").c_str()));
    EXPECT_TRUE(u.is_dir((dir / "x/y/z").c_str()));
    EXPECT_FALSE(zp::make_dirs((dir / "f1/sub").c_str()));
    EXPECT_FALSE(u.remove_dir((dir / "x").c_str()));       // not empty
    EXPECT_TRUE(u.remove_dir((dir / "missing").c_str()));  // missing counts as removed

    fs::create_directories(dir / "keep");
    write_file(dir / "keep/precious", "x");
    std::error_code ec;
    fs::create_directory_symlink(dir / "keep", dir / "sub/link", ec);
    EXPECT_TRUE(u.remove_tree((dir / "sub").c_str()));
    EXPECT_FALSE(fs::exists(dir / "sub"));
    EXPECT_TRUE(fs::exists(dir / "keep/precious")) << "a link goes, not what it points at";
    // Files of the process information tree resist deletion even for the superuser.
    if (zp::sys::native_separator() == '/' && fs::is_directory("/proc/self/fdinfo")) {
        EXPECT_FALSE(u.remove_tree("/proc/self/fdinfo"));
    }
}

TEST_F(UtilsFs, SizeCopyAndWriteabilityProbe) {
    const std::string big = dir / "sparse.bin";
    write_file(big, "");
    std::error_code ec;
    fs::resize_file(big, (5ULL << 30) + 7, ec);  // past what 32 bits hold
    const int64_t size = ec ? 0 : (5LL << 30) + 7;
    EXPECT_EQ(u.file_size(big.c_str()), size);
    // When stat fails the size still comes from opening the file.
    auto failing_stat = [](const char*, zp::FileStat*) { return false; };
    EXPECT_EQ(zp::stat_with_fallback(u, big.c_str(), failing_stat).size, size);
    testing::internal::CaptureStderr();
    EXPECT_EQ(u.file_size((dir / "none").c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zp: [Error] _wstat64(..) < 0, path=" + (dir / "none") + "\n");

    const std::string payload(25000, 'p');  // crosses chunks
    write_file(dir / "src", payload);
    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "dst").c_str()), 0);
    EXPECT_EQ(kinefix_test::read_file(dir / "dst"), payload);
    EXPECT_EQ(u.copy_file((dir / "none").c_str(), (dir / "dst2").c_str()), -1);
    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "no/dir/dst").c_str()), -2);

    EXPECT_TRUE(u.is_dir_writable(dir.str().c_str(), "~probe~.tmp"));
    EXPECT_FALSE(fs::exists(dir / "~probe~.tmp"));
    EXPECT_FALSE(u.is_dir_writable((dir / "none").c_str(), "~probe~.tmp"));
}

TEST(SameFileTest, OneFileUnderOtherNamesOnly) {
    TempDir dir;
    const std::string a = dir / "a.mp4", b = dir / "b.mp4", hard = dir / "hard.mp4";
    write_file(a, "same bytes");
    write_file(b, "same bytes");
    fs::create_directory(dir.path() / "sub");
    fs::create_hard_link(a, hard);
    EXPECT_TRUE(zp::same_file(a.c_str(), (dir.str() + "/sub/../a.mp4").c_str()));
    EXPECT_TRUE(zp::same_file(hard.c_str(), a.c_str()));
    EXPECT_FALSE(zp::same_file(a.c_str(), b.c_str()));  // equal content is not the same file
    EXPECT_FALSE(zp::same_file((dir / "none").c_str(), (dir / "none").c_str()));
    EXPECT_FALSE(zp::same_file(a.c_str(), nullptr));
}

}  // namespace
