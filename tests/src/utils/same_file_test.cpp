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
    EXPECT_FALSE(zp::same_file((dir / "missing").c_str(), (dir / "missing").c_str()));
    EXPECT_FALSE(zp::same_file(a.c_str(), nullptr));
}

}  // namespace
