// zp::same_file: one file behind different names, and the cases that must answer no.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/test_support.h"
#include "utils/same_file.h"

namespace {

namespace fs = std::filesystem;
using kinefix_test::TempDir;
using kinefix_test::write_file;

TEST(SameFileTest, OneFileUnderOtherNames) {
    TempDir dir;
    const std::string a = dir / "a.mp4";
    write_file(a, "media");
    fs::create_directory(dir.path() / "sub");
    EXPECT_TRUE(zp::same_file(a.c_str(), a.c_str()));
    EXPECT_TRUE(zp::same_file(a.c_str(), (dir.str() + "/sub/../a.mp4").c_str()));
    EXPECT_TRUE(zp::same_file(a.c_str(), (dir.str() + "//./a.mp4").c_str()));

    const std::string hard = dir / "hard.mp4";
    fs::create_hard_link(a, hard);
    EXPECT_TRUE(zp::same_file(hard.c_str(), a.c_str()));

    std::error_code ec;
    const std::string soft = dir / "soft.mp4";
    fs::create_symlink(a, soft, ec);
    if (!ec) {
        EXPECT_TRUE(zp::same_file(soft.c_str(), a.c_str()));
    }
}

TEST(SameFileTest, DifferentOrMissingFilesAreNotTheSame) {
    TempDir dir;
    const std::string a = dir / "a.mp4";
    const std::string b = dir / "b.mp4";
    write_file(a, "same bytes");
    write_file(b, "same bytes");  // equal content is not the same file
    EXPECT_FALSE(zp::same_file(a.c_str(), b.c_str()));
    EXPECT_FALSE(zp::same_file(a.c_str(), (dir / "missing.mp4").c_str()));
    EXPECT_FALSE(zp::same_file((dir / "missing.mp4").c_str(), (dir / "missing.mp4").c_str()));
    EXPECT_FALSE(zp::same_file(a.c_str(), nullptr));
    EXPECT_FALSE(zp::same_file(nullptr, a.c_str()));

    // A link whose target is gone leads nowhere.
    std::error_code ec;
    const std::string dangling = dir / "dangling.mp4";
    fs::create_symlink(dir / "gone.mp4", dangling, ec);
    if (!ec) {
        EXPECT_FALSE(zp::same_file(dangling.c_str(), dangling.c_str()));
    }
}

}  // namespace
