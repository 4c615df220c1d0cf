// Time stamps, clocks, environment, the registry and the process-wide instance.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "support/test_support.h"
#include "utils/registry.h"
#include "utils/utils.h"

namespace {

namespace fs = std::filesystem;

using kinefix_test::ScopedEnv;

TEST(UtilsTime, ClocksTheProcessInstanceEnvironmentDirectoriesAndRegistry) {
    zp::Utils u;
    const char* p[9];
    for (int i = 0; i < 9; ++i) p[i] = u.now_str("%H:%M");
    EXPECT_EQ(std::set<const char*>(p, p + 8).size(), 8u);
    EXPECT_EQ(p[8], p[0]);
    EXPECT_EQ(strlen(p[0]), 5u);
    EXPECT_STREQ(u.now_str(std::string(80, 'x').c_str()), "") << "too long: empty, not cut";

    const int64_t sys_us = u.now_us(0);
    EXPECT_LT(std::llabs(u.now_us(1) - sys_us), 2000000);       // anchored in whole seconds
    EXPECT_LT(std::llabs(u.now_ns(0) / 10 - sys_us), 1000000);  // raw 100-ns ticks
    for (int64_t i = 0, last = u.now_ns(1), now = 0; i < 1000; ++i, last = now)
        ASSERT_GE(now = u.now_ns(1), last);

    // The process-wide instance is created again after deletion.
    zp::Utils* a = zp::Utils::instance();
    { zp::Utils other; }  // another object's end leaves the process-wide one alone
    EXPECT_EQ(zp::Utils::instance(), a);
    delete a;
    zp::Utils* b = zp::Utils::instance();
    EXPECT_EQ(zp::Utils::instance(), b);
    delete b;
    ScopedEnv guard("ZP_UTILS_TEST_PTR", nullptr);  // pointers handed on as text
    zp::Utils().set_env_ptr("ZP_UTILS_TEST_PTR", reinterpret_cast<void*>(uintptr_t{0x12AB}));
    EXPECT_STREQ(getenv("ZP_UTILS_TEST_PTR"), "00000000000012AB");

#ifndef _WIN32
    // The registry lives under the application data directory, found from the environment.
    ScopedEnv home("HOME", "/h//u"), config("XDG_CONFIG_HOME", nullptr),
        state("XDG_STATE_HOME", "");
    EXPECT_EQ(zp::app_data_dir(), "/h/u/.config");
    EXPECT_EQ(zp::local_data_dir(), "/h/u/.local/state");
    ScopedEnv xdg_config("XDG_CONFIG_HOME", "/c"), xdg_state("XDG_STATE_HOME", "/s//t");
    EXPECT_EQ(zp::app_data_dir(), "/c");
    EXPECT_EQ(zp::local_data_dir(), "/s/t");
    ScopedEnv homeless("HOME", nullptr), no_config("XDG_CONFIG_HOME", nullptr);
    EXPECT_EQ(zp::app_data_dir(), "");
    kinefix_test::TempDir dir;
    ScopedEnv dir_home("HOME", dir.str().c_str());
    const std::string key_dir = dir / ".config/zephra-registry/Software/Org/App";
    char buf[64] = {};
    const char* path = "Software\\Org\\App";
    ASSERT_EQ(zp::reg_set(path, "last_dir", "first"), 0);
    ASSERT_EQ(zp::reg_set(path, "last_dir", "abc\xE4\xB8\xAD"), 0);
    EXPECT_EQ(kinefix_test::read_file(key_dir + "/last_dir"), "abc\xE4\xB8\xAD");
    ASSERT_EQ(zp::reg_get("Software/Org/App", "last_dir", buf, sizeof buf), 0);  // either separator
    EXPECT_STREQ(buf, "abc\xE4\xB8\xAD");
    char small[6];  // too small for the last character: cut before it
    ASSERT_EQ(zp::reg_get(path, "last_dir", small, sizeof small), 0);
    EXPECT_STREQ(small, "abc");
    EXPECT_EQ(std::distance(fs::directory_iterator(key_dir), fs::directory_iterator()), 1)
        << "writes leave no temporary files behind";
    EXPECT_EQ(zp::reg_delete(path, "last_dir"), 0);
    EXPECT_FALSE(fs::exists(key_dir + "/last_dir"));

    testing::internal::CaptureStderr();
    EXPECT_EQ(zp::reg_get(path, "last_dir", buf, sizeof buf), -1);
    EXPECT_EQ(zp::reg_set("Software\\..\\..\\escape", "k", "v"), -1);
    // The second line has never had a line break.
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[zp] Error: RegQueryValueExA() can't read key='last_dir'\n"
              "[zp] Error: RegCreateKeyExA() can't create path='Software\\..\\..\\escape'");
    EXPECT_EQ(buf[0], '\0');
    EXPECT_FALSE(fs::exists(dir / ".config/escape"));
#endif
}

}  // namespace
