// Paths and the file system: path pieces, directory walks, tree removal, stat, copy.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "utils/utils.h"
#include "utils/utils_sys.h"
#include "utils_test_env.h"

namespace {

namespace fs = std::filesystem;
using utils_test::ScratchDir;
using utils_test::write_text;

std::string sep(const std::string& posix_form) {
    std::string s = posix_form;
    std::replace(s.begin(), s.end(), '/', zp::sys::native_separator());
    return s;
}

TEST(UtilsPaths, NormaliseCollapsesRunsOfEitherSeparator) {
    zp::Utils u;
    EXPECT_EQ(u.normalize_path("C://data\\\\x/"), sep("C:/data/x/"));
    EXPECT_EQ(u.normalize_path("\\\\server\\share"), sep("/server/share"));
    EXPECT_EQ(u.normalize_path("./a/../b"), sep("./a/../b"));
    EXPECT_EQ(u.normalize_path("plain"), "plain");
    EXPECT_EQ(u.normalize_path(""), "");
}

TEST(UtilsPaths, PiecesTreatBothSeparatorsAlike) {
    zp::Utils u;
    EXPECT_EQ(u.file_name("a/b\\c.txt"), "c.txt");
    EXPECT_EQ(u.file_name("a\\b/c.txt"), "c.txt");
    EXPECT_EQ(u.file_name("bare"), "bare");
    EXPECT_EQ(u.file_name("dir/"), "");
    EXPECT_EQ(u.dir_name("a\\b/c"), "a\\b/");
    EXPECT_EQ(u.dir_name("a/b\\c"), "a/b\\");
    EXPECT_EQ(u.dir_name("bare"), "");
    EXPECT_EQ(u.file_stem("dir.old/name"), "name");
    EXPECT_EQ(u.file_stem("x.tar.gz"), "x");
    EXPECT_EQ(u.file_stem("C:\\v\\clip.mp4"), "clip");
    EXPECT_EQ(u.file_stem("a/.hidden"), "");
    EXPECT_EQ(u.file_stem(""), "");
}

class UtilsFs : public testing::Test {
  protected:
    // root/{f1, sub/{g1, deeper/{h1}}}
    void make_tree() {
        fs::create_directories(dir / "sub/deeper");
        write_text(dir / "f1", "1");
        write_text(dir / "sub/g1", "22");
        write_text(dir / "sub/deeper/h1", "333");
    }
    std::vector<std::pair<bool, std::string>> walk(const std::string& root, bool recursive,
                                                   size_t stop_at = 0) {
        std::vector<std::pair<bool, std::string>> seen;
        last_result = u.walk_dir(
            root.c_str(),
            [&seen, stop_at](bool is_dir, const zp::NativeString& p) {
                seen.emplace_back(is_dir, fs::path(p).lexically_normal().string());
                return seen.size() != stop_at;
            },
            recursive);
        return seen;
    }
    std::string norm(const std::string& p) { return fs::path(p).lexically_normal().string(); }

    zp::Utils u;
    ScratchDir dir;
    bool last_result = false;
};

TEST_F(UtilsFs, WalksArePostOrderFlatOnRequestAndStoppable) {
    make_tree();
    auto seen = walk(dir.str(), true);
    ASSERT_EQ(seen.size(), 6u);
    EXPECT_TRUE(last_result);
    auto at = [&](const std::string& p) {
        for (size_t i = 0; i < seen.size(); ++i)
            if (seen[i].second == norm(p)) return i;
        return seen.size();
    };
    EXPECT_EQ(at(dir.str()), 5u);
    EXPECT_LT(at(dir / "sub/deeper/h1"), at(dir / "sub/deeper"));
    EXPECT_LT(at(dir / "sub/deeper"), at(dir / "sub"));
    EXPECT_LT(at(dir / "sub/g1"), at(dir / "sub"));
    EXPECT_TRUE(seen[at(dir / "sub")].first);
    EXPECT_FALSE(seen[at(dir / "f1")].first);

    seen = walk(dir.str(), false);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen.back(), std::make_pair(true, norm(dir.str())));
    EXPECT_FALSE(seen[at(dir / "sub")].first) << "a flat walk reports a subdirectory as an entry";

    // Stopping deep inside stops every level above as well.
    for (size_t stop : {1u, 4u}) {
        EXPECT_EQ(walk(dir.str(), true, stop).size(), stop);
        EXPECT_FALSE(last_result);
    }
    EXPECT_TRUE(walk(dir / "missing", true).empty());
    EXPECT_FALSE(last_result);
}

TEST_F(UtilsFs, RemoveTree) {
    make_tree();
    fs::create_directories(dir / "keep");
    write_text(dir / "keep/precious", "x");
    std::error_code ec;
    fs::create_directory_symlink(dir / "keep", dir / "sub/link", ec);
    EXPECT_TRUE(u.remove_tree((dir / "sub").c_str()));
    EXPECT_FALSE(fs::exists(dir / "sub"));
    EXPECT_TRUE(fs::exists(dir / "keep/precious")) << "a link goes, not what it points at";
    EXPECT_TRUE(u.remove_tree((dir / "missing").c_str()));  // nothing to open counts as done
    // Files of the process information tree resist deletion even for the superuser.
    if (zp::sys::native_separator() == '/' && fs::is_directory("/proc/self/fdinfo")) {
        EXPECT_FALSE(u.remove_tree("/proc/self/fdinfo"));
    }
}

TEST_F(UtilsFs, DirectoryCreationAndRemoval) {
    const std::string a = dir / "a";
    EXPECT_TRUE(u.make_dir(a.c_str()));
    EXPECT_TRUE(u.make_dir(a.c_str()));                 // already there
    EXPECT_FALSE(u.make_dir((dir / "x/y/z").c_str()));  // one level only
    EXPECT_TRUE(zp::make_dirs((dir / "x/y/z").c_str()));
    EXPECT_TRUE(u.is_dir((dir / "x/y/z").c_str()));
    EXPECT_TRUE(zp::make_dirs((dir / "x/y/z").c_str()));
    write_text(dir / "file", "");
    EXPECT_FALSE(u.is_dir((dir / "file").c_str()));
    EXPECT_FALSE(zp::make_dirs((dir / "file/sub").c_str()));
    errno = 0;
    EXPECT_FALSE(u.is_dir(nullptr));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(u.is_dir(""));
    EXPECT_TRUE(u.remove_dir((dir / "missing").c_str()));  // missing counts as removed
    EXPECT_FALSE(u.remove_dir((dir / "x").c_str()));       // not empty
    EXPECT_TRUE(u.remove_dir((dir / "x/y/z").c_str()));
    EXPECT_FALSE(fs::exists(dir / "x/y/z"));
}

TEST_F(UtilsFs, StatAndItsFallbacks) {
    const std::string file = dir / "data.bin";
    write_text(file, std::string(1234, 'd'));
    zp::FileStat st = u.file_stat(file.c_str());
    EXPECT_EQ(st.size, 1234);
    EXPECT_NE(st.mtime, 0);
    EXPECT_EQ(u.file_size(file.c_str()), 1234);

    // When every stat call fails, the size still comes from opening the file; nothing else is set.
    auto failing_stat = [](const char*, zp::FileStat*) { return false; };
    testing::internal::CaptureStderr();
    st = zp::stat_with_fallback(u, file.c_str(), failing_stat);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(st.size, 1234);
    EXPECT_EQ(st.mtime, 0);
    EXPECT_EQ(st.mode, 0u);

    const std::string missing = dir / "missing.bin";
    testing::internal::CaptureStderr();
    st = u.file_stat(missing.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zp: [Error] _wstat64(..) < 0, path=" + missing + "\n");
    EXPECT_EQ(st.size, 0);
    EXPECT_EQ(st.ino, 0u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(u.file_size(missing.c_str()), 0);
    testing::internal::GetCapturedStderr();
}

TEST_F(UtilsFs, SizesBeyondFourGigabytes) {
    const std::string big = dir / "sparse.bin";
    write_text(big, "");
    std::error_code ec;
    fs::resize_file(big, (5ULL << 30) + 7, ec);
    if (ec) GTEST_SKIP() << "no sparse files here";
    EXPECT_EQ(u.file_size(big.c_str()), (5LL << 30) + 7);
    auto failing_stat = [](const char*, zp::FileStat*) { return false; };
    EXPECT_EQ(zp::stat_with_fallback(u, big.c_str(), failing_stat).size, (5LL << 30) + 7);
}

TEST_F(UtilsFs, CopyFileResults) {
    std::string payload;
    for (int i = 0; i < 25000; ++i) payload.push_back(static_cast<char>(i * 7));  // crosses chunks
    write_text(dir / "src", payload);
    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "dst").c_str()), 0);
    EXPECT_EQ(utils_test::read_text(dir / "dst"), payload);
    EXPECT_EQ(u.copy_file((dir / "none").c_str(), (dir / "dst2").c_str()), -1);
    EXPECT_FALSE(fs::exists(dir / "dst2"));
    EXPECT_EQ(u.copy_file((dir / "src").c_str(), (dir / "no/dir/dst").c_str()), -2);
}

TEST_F(UtilsFs, NonAsciiNamesReachTheSystem) {
    const std::string sub = dir.str() + "/\xE8\xA7\x86\xE9\xA2\x91";  // two CJK characters
    const std::string file = sub + "/\xE7\x89\x87 1.txt";
    ASSERT_TRUE(u.make_dir(sub.c_str()));
    EXPECT_TRUE(u.is_dir(sub.c_str()));
    FILE* f = u.open_file(file.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    fputs("abc", f);
    fclose(f);
    EXPECT_EQ(u.file_size(file.c_str()), 3);
    EXPECT_EQ(u.copy_file(file.c_str(), (sub + "/copy").c_str()), 0);
    std::vector<fs::path> names;
    EXPECT_TRUE(u.walk_dir(
        sub.c_str(),
        [&names](bool is_dir, const zp::NativeString& p) {
            if (!is_dir) names.push_back(fs::path(p).filename());
            return true;
        },
        true));
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[1], fs::u8path("\xE7\x89\x87 1.txt"));
    EXPECT_TRUE(u.remove_tree(sub.c_str()));
    EXPECT_FALSE(u.is_dir(sub.c_str()));
}

TEST_F(UtilsFs, FileCallsAndWriteabilityProbe) {
    const std::string a = dir / "a.txt";
    FILE* f = u.open_file(a.c_str(), "wt");
    ASSERT_NE(f, nullptr);
    fputs("hello", f);
    fclose(f);
    EXPECT_EQ(u.open_file((dir / "none/x").c_str(), "rb"), nullptr);
    EXPECT_EQ(u.rename_file(a.c_str(), (dir / "b.txt").c_str()), 0);
    EXPECT_NE(u.rename_file(a.c_str(), (dir / "c.txt").c_str()), 0);
    EXPECT_EQ(u.remove_file((dir / "b.txt").c_str()), 0);
    EXPECT_NE(u.remove_file((dir / "b.txt").c_str()), 0);

    EXPECT_TRUE(u.is_dir_writable(dir.str().c_str(), "~test_writeable~.tmp"));
    EXPECT_FALSE(fs::exists(dir / "~test_writeable~.tmp"));
    EXPECT_FALSE(u.is_dir_writable((dir / "none").c_str(), "~test_writeable~.tmp"));
}

}  // namespace
