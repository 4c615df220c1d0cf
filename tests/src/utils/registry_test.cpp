// Registry helpers on POSIX: values as files under a temporary home, and their failure lines.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/test_support.h"
#include "utils/registry.h"
#include "utils_test_env.h"

namespace {

namespace fs = std::filesystem;
using utils_test::ScopedEnv;

#ifndef _WIN32

class Registry : public testing::Test {
  protected:
    Registry() : home_("HOME", dir.str().c_str()), config_("XDG_CONFIG_HOME", nullptr) {}

    template <typename Op>
    std::string err_of(Op op) {
        testing::internal::CaptureStderr();
        op();
        return testing::internal::GetCapturedStderr();
    }
    std::string key_dir() const { return dir / ".config/zephra-registry/Software/Org/App"; }

    kinefix_test::TempDir dir;
    ScopedEnv home_, config_;
    char buf[64] = {};
};

TEST_F(Registry, ValuesAreFilesUnderTheKey) {
    const char* path = "Software\\Org\\App";
    ASSERT_EQ(zp::reg_set(path, "last_dir", "first"), 0);
    ASSERT_EQ(zp::reg_set(path, "last_dir", "abc\xE4\xB8\xAD"), 0);
    EXPECT_EQ(kinefix_test::read_file(key_dir() + "/last_dir"), "abc\xE4\xB8\xAD");
    ASSERT_EQ(zp::reg_get("Software/Org/App", "last_dir", buf, sizeof buf), 0);  // either separator
    EXPECT_STREQ(buf, "abc\xE4\xB8\xAD");
    char small[6];  // too small for the last character: cut before it
    ASSERT_EQ(zp::reg_get(path, "last_dir", small, sizeof small), 0);
    EXPECT_STREQ(small, "abc");
    EXPECT_EQ(std::distance(fs::directory_iterator(key_dir()), fs::directory_iterator()), 1)
        << "writes leave no temporary files behind";
    EXPECT_EQ(zp::reg_delete(path, "last_dir"), 0);
    EXPECT_FALSE(fs::exists(key_dir() + "/last_dir"));

    ScopedEnv config("XDG_CONFIG_HOME", (dir / "cfg").c_str());
    ASSERT_EQ(zp::reg_set(path, "k", "v"), 0);
    EXPECT_TRUE(fs::exists(dir / "cfg/zephra-registry/Software/Org/App/k"));
}

TEST_F(Registry, FailureLines) {
    buf[0] = 'x';
    EXPECT_EQ(err_of([this] { EXPECT_EQ(zp::reg_get("Software\\No", "k", buf, sizeof buf), -1); }),
              "[zp] Error: RegOpenKeyExA() can't open path='Software\\No'\n");
    EXPECT_EQ(buf[0], '\0');
    ASSERT_EQ(zp::reg_set("Software\\Org\\App", "present", "1"), 0);
    EXPECT_EQ(err_of([] { EXPECT_EQ(zp::reg_delete("Software\\Org\\App", "absent"), -1); }),
              "[zp] Error: RegDeleteValueA() can't delete key='absent'\n");
    EXPECT_EQ(err_of([] { EXPECT_EQ(zp::reg_set("Software\\Org\\App", "a/b", "v"), -1); }),
              "[zp] Error: RegSetValueExA() can't write 'a/b'--->'v'\n");
    // A key that must not be made, here one that climbs out of the registry: no line break.
    EXPECT_EQ(err_of([] { EXPECT_EQ(zp::reg_set("Software\\..\\..\\escape", "k", "v"), -1); }),
              "[zp] Error: RegCreateKeyExA() can't create path='Software\\..\\..\\escape'");
    EXPECT_FALSE(fs::exists(dir / ".config/escape"));
}

#endif

}  // namespace
