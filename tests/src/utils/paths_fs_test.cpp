// Paths and the file system: path pieces, directory walks, tree removal, stat, copy.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.h"
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

class UtilsFs : public testing::Test {
  protected:
    // root/{f1, sub/{g1, deeper/{h1}}}
    void make_tree() {
        fs::create_directories(dir / "sub/deeper");
        write_file(dir / "f1", "1");
        write_file(dir / "sub/g1", "22");
        write_file(dir / "sub/deeper/h1", "333");
    }
    std::vector<std::pair<bool, std::string>> walk(bool recursive, size_t stop_at = 0) {
        std::vector<std::pair<bool, std::string>> seen;
        last_result = u.walk_dir(
            dir.str().c_str(),
            [&seen, stop_at](bool is_dir, const zp::NativeString& p) {
                seen.emplace_back(is_dir, fs::path(p).lexically_normal().string());
                return seen.size() != stop_at;
            },
            recursive);
        return seen;
    }

    zp::Utils u;
    TempDir dir;
    bool last_result = false;
};

TEST_F(UtilsFs, WalksArePostOrderFlatOnRequestAndStoppable) {
    make_tree();
    auto seen = walk(true);
    auto at = [&](const std::string& p) {
        const std::string n = fs::path(p).lexically_normal().string();
        for (size_t i = 0; i < seen.size(); ++i)
            if (seen[i].second == n) return i;
        return seen.size();
    };
    ASSERT_EQ(seen.size(), 6u);
    EXPECT_TRUE(last_result);
    EXPECT_EQ(at(dir.str()), 5u);
    EXPECT_LT(at(dir / "sub/deeper/h1"), at(dir / "sub/deeper"));
    EXPECT_LT(at(dir / "sub/deeper"), at(dir / "sub"));
    EXPECT_TRUE(seen[at(dir / "sub")].first);
    EXPECT_FALSE(seen[at(dir / "f1")].first);

    seen = walk(false);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_FALSE(seen[at(dir / "sub")].first) << "a flat walk reports a subdirectory as an entry";

    // Stopping deep inside stops every level above as well.
    EXPECT_EQ(walk(true, 1).size(), 1u);
    EXPECT_FALSE(last_result);
}

TEST_F(UtilsFs, DirectoriesAndTrees) {
    make_tree();
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

TEST_F(UtilsFs, StatFallsBackToOpeningTheFile) {
    const std::string big = dir / "sparse.bin";
    write_file(big, "");
    std::error_code ec;
    fs::resize_file(big, (5ULL << 30) + 7, ec);  // past what 32 bits hold
    const int64_t size = ec ? 0 : (5LL << 30) + 7;
    EXPECT_EQ(u.file_size(big.c_str()), size);
    auto failing_stat = [](const char*, zp::FileStat*) { return false; };
    const zp::FileStat st = zp::stat_with_fallback(u, big.c_str(), failing_stat);
    EXPECT_EQ(st.size, size);
    EXPECT_EQ(st.mtime, 0);

    const std::string missing = dir / "missing.bin";
    testing::internal::CaptureStderr();
    EXPECT_EQ(u.file_size(missing.c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zp: [Error] _wstat64(..) < 0, path=" + missing + "\n");
}

TEST_F(UtilsFs, CopyAndWriteabilityProbe) {
    std::string payload;
    for (int i = 0; i < 25000; ++i) payload.push_back(static_cast<char>(i * 7));  // crosses chunks
    write_file(dir / "src", payload);
    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "dst").c_str()), 0);
    EXPECT_EQ(kinefix_test::read_file(dir / "dst"), payload);
    EXPECT_EQ(u.copy_file((dir / "none").c_str(), (dir / "dst2").c_str()), -1);
    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "no/dir/dst").c_str()), -2);

    EXPECT_TRUE(u.is_dir_writable(dir.str().c_str(), "~probe~.tmp"));
    EXPECT_FALSE(fs::exists(dir / "~probe~.tmp"));
    EXPECT_FALSE(u.is_dir_writable((dir / "none").c_str(), "~probe~.tmp"));
}

}  // namespace
