// Registry helpers on POSIX: values as files under a temporary home, and their failure lines.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "utils/registry.h"
#include "utils_test_env.h"

namespace {

namespace fs = std::filesystem;
using utils_test::ScopedEnv;
using utils_test::ScratchDir;

#ifndef _WIN32

class Registry : public testing::Test {
  protected:
    Registry() : home_("HOME", dir.str().c_str()), config_("XDG_CONFIG_HOME", nullptr) {}

    // Runs op with standard error captured; returns what it printed.
    template <typename Op>
    std::string err_of(Op op) {
        testing::internal::CaptureStderr();
        op();
        return testing::internal::GetCapturedStderr();
    }
    std::string key_dir() const { return dir / ".config/zephra-registry/Software/Org/App"; }

    ScratchDir dir;
    ScopedEnv home_;
    ScopedEnv config_;
    char buf[64] = {};
};

TEST_F(Registry, RoundTripThroughFiles) {
    const char* path = "Software\\Org\\App";
    const std::string value = "\xE8\xA7\x86\xE9\xA2\x91 value";
    ASSERT_EQ(zp::reg_set(path, "last_dir", value.c_str()), 0);
    EXPECT_EQ(utils_test::read_text(key_dir() + "/last_dir"), value);
    ASSERT_EQ(zp::reg_get(path, "last_dir", buf, sizeof buf), 0);
    EXPECT_EQ(std::string(buf), value);

    ASSERT_EQ(zp::reg_set(path, "last_dir", "second"), 0);
    ASSERT_EQ(zp::reg_get("Software/Org/App", "last_dir", buf, sizeof buf), 0);  // either separator
    EXPECT_STREQ(buf, "second");
    ASSERT_EQ(zp::reg_set(path, "empty", ""), 0);
    ASSERT_EQ(zp::reg_get(path, "empty", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");

    // Writes leave no temporary files behind.
    size_t files = 0;
    for (const auto& e : fs::directory_iterator(key_dir())) files += e.is_regular_file() ? 1 : 0;
    EXPECT_EQ(files, 2u);

    EXPECT_EQ(zp::reg_delete(path, "last_dir"), 0);
    EXPECT_FALSE(fs::exists(key_dir() + "/last_dir"));
}

TEST_F(Registry, ConfigHomeWinsOverHome) {
    ScopedEnv config("XDG_CONFIG_HOME", (dir / "cfg").c_str());
    ASSERT_EQ(zp::reg_set("Software\\Org\\App", "k", "v"), 0);
    EXPECT_TRUE(fs::exists(dir / "cfg/zephra-registry/Software/Org/App/k"));
    EXPECT_FALSE(fs::exists(key_dir()));
}

TEST_F(Registry, LongValuesAreCutAtACharacterBoundary) {
    ASSERT_EQ(zp::reg_set("Software\\Org\\App", "k", "abc\xE4\xB8\xAD"), 0);
    char small[6];
    ASSERT_EQ(zp::reg_get("Software\\Org\\App", "k", small, sizeof small), 0);
    EXPECT_STREQ(small, "abc");
    char exact[7];
    ASSERT_EQ(zp::reg_get("Software\\Org\\App", "k", exact, sizeof exact), 0);
    EXPECT_STREQ(exact, "abc\xE4\xB8\xAD");
}

TEST_F(Registry, FailureMessages) {
    buf[0] = 'x';
    std::string err =
        err_of([this] { EXPECT_EQ(zp::reg_get("Software\\Nope", "k", buf, sizeof buf), -1); });
    EXPECT_EQ(err, "[zp] Error: RegOpenKeyExA() can't open path='Software\\Nope'\n");
    EXPECT_EQ(buf[0], '\0');

    ASSERT_EQ(zp::reg_set("Software\\Org\\App", "present", "1"), 0);
    err = err_of(
        [this] { EXPECT_EQ(zp::reg_get("Software\\Org\\App", "absent", buf, sizeof buf), -1); });
    EXPECT_EQ(err, "[zp] Error: RegQueryValueExA() can't read key='absent'\n");

    err = err_of([] { EXPECT_EQ(zp::reg_delete("Software\\Nope", "k"), -1); });
    EXPECT_EQ(err,
              "[zp] Error: RegOpenKeyExA() can't open path='Software\\Nope'  for delete key='k'\n");
    err = err_of([] { EXPECT_EQ(zp::reg_delete("Software\\Org\\App", "absent"), -1); });
    EXPECT_EQ(err, "[zp] Error: RegDeleteValueA() can't delete key='absent'\n");

    err = err_of([] { EXPECT_EQ(zp::reg_set("Software\\Org\\App", "a/b", "v"), -1); });
    EXPECT_EQ(err, "[zp] Error: RegSetValueExA() can't write 'a/b'--->'v'\n");

    // A key that cannot be created: the message has no line break.
    utils_test::write_text(dir / "blocker", "");
    ScopedEnv config("XDG_CONFIG_HOME", (dir / "blocker").c_str());
    err = err_of([] { EXPECT_EQ(zp::reg_set("Software\\X", "k", "v"), -1); });
    EXPECT_EQ(err, "[zp] Error: RegCreateKeyExA() can't create path='Software\\X'");
}

TEST_F(Registry, PathsStayInsideTheRegistry) {
    std::string err =
        err_of([] { EXPECT_EQ(zp::reg_set("Software\\..\\..\\escape", "k", "v"), -1); });
    EXPECT_EQ(err, "[zp] Error: RegCreateKeyExA() can't create path='Software\\..\\..\\escape'");
    EXPECT_FALSE(fs::exists(dir / ".config/escape"));
    err = err_of([] { EXPECT_EQ(zp::reg_set("Software\\Org", "..", "v"), -1); });
    EXPECT_EQ(err, "[zp] Error: RegSetValueExA() can't write '..'--->'v'\n");
    // No home at all: nowhere to keep values.
    ScopedEnv no_home("HOME", nullptr);
    err = err_of([this] { EXPECT_EQ(zp::reg_get("Software\\Org", "k", buf, sizeof buf), -1); });
    EXPECT_EQ(err, "[zp] Error: RegOpenKeyExA() can't open path='Software\\Org'\n");
}

#endif

}  // namespace
