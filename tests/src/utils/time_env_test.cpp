// Time stamps, clocks, environment, hooks, detached runs and the process-wide instance.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <set>
#include <string>

#include "support/test_support.h"
#include "sync/thread_id.h"
#include "utils/utils.h"
#include "utils_test_env.h"

namespace {

using utils_test::ScopedEnv;

TEST(UtilsTime, RingOfEightBuffers) {
    zp::Utils u;
    const char* p[9];
    for (int i = 0; i < 9; ++i) p[i] = u.now_str("%H:%M");
    EXPECT_EQ(std::set<const char*>(p, p + 8).size(), 8u);
    EXPECT_EQ(p[8], p[0]);
    EXPECT_EQ(strlen(p[0]), 5u);
    // A text too long for its 64-byte buffer yields an empty string, not a cut one.
    EXPECT_STREQ(u.now_str(std::string(80, 'x').c_str()), "");
}

TEST(UtilsTime, ClocksAgree) {
    zp::Utils u;
    const int64_t sys_us = u.now_us(0);
    // The anchor is taken in whole seconds, so the two clocks may differ by up to one second.
    EXPECT_LT(std::llabs(u.now_us(1) - sys_us), 2000000);
    EXPECT_LT(std::llabs(u.now_ns(0) / 10 - sys_us), 1000000);  // raw 100-ns ticks
    int64_t last = u.now_ns(1);
    for (int i = 0; i < 1000; ++i) {
        const int64_t now = u.now_ns(1);
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(UtilsEnv, PointersAsText) {
    zp::Utils u;
    ScopedEnv guard("ZP_UTILS_TEST_PTR", nullptr);
    u.set_env_ptr("ZP_UTILS_TEST_PTR", reinterpret_cast<void*>(static_cast<uintptr_t>(0x12ABu)));
    EXPECT_STREQ(u.get_env("ZP_UTILS_TEST_PTR"), "00000000000012AB");
    const std::pair<const char*, uintptr_t> cases[] = {
        {"0x12ab", 0x12AB}, {"FFFFFFFFFFFFFFFF", UINTPTR_MAX}, {"zz", 0}, {"00000000000000001", 0}};
    void* back = nullptr;
    for (const auto& c : cases) {
        u.set_env("ZP_UTILS_TEST_PTR", c.first, 0);  // overwrites whatever the flag says
        back = reinterpret_cast<void*>(1);
        u.get_env_ptr("ZP_UTILS_TEST_PTR", &back);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(back), c.second) << c.first;
    }
    utils_test::set_var("ZP_UTILS_TEST_PTR", nullptr);
    u.get_env_ptr("ZP_UTILS_TEST_PTR", &back);
    EXPECT_EQ(back, nullptr);
}

#ifndef _WIN32
TEST(UtilsEnv, SpecialDirectoriesOnPosix) {
    zp::Utils u;
    {
        ScopedEnv tmp("TMPDIR", "/x//y/");
        EXPECT_EQ(u.temp_dir(), "/x/y/");
    }
    ScopedEnv tmp("TMPDIR", "");
    EXPECT_EQ(u.temp_dir(), "/tmp/");
    ScopedEnv home("HOME", "/h//u");
    ScopedEnv config("XDG_CONFIG_HOME", nullptr);
    ScopedEnv state("XDG_STATE_HOME", "");
    EXPECT_EQ(zp::app_data_dir(), "/h/u/.config");
    EXPECT_EQ(zp::local_data_dir(), "/h/u/.local/state");
    utils_test::set_var("XDG_CONFIG_HOME", "/c");
    utils_test::set_var("XDG_STATE_HOME", "/s//t");
    EXPECT_EQ(zp::app_data_dir(), "/c");
    EXPECT_EQ(zp::local_data_dir(), "/s/t");
    utils_test::set_var("XDG_CONFIG_HOME", nullptr);
    utils_test::set_var("HOME", nullptr);
    EXPECT_EQ(zp::app_data_dir(), "");
}
#endif

#if !defined(_WIN32) && !defined(__APPLE__)
TEST(UtilsProcess, ShowInFolderOpensTheDirectoryDetached) {
    zp::Utils u;
    kinefix_test::TempDir dir;
    // A stand-in opener that records what it was asked to open.
    const std::string record = dir / "opened";
    kinefix_test::write_file(dir / "xdg-open", "#!/bin/sh\nprintf '%s' \"$1\" > '" + record +
                                                   ".tmp' && mv '" + record + ".tmp' '" + record +
                                                   "'\n");
    std::filesystem::permissions(dir / "xdg-open", std::filesystem::perms::owner_all);
    const char* path_var = getenv("PATH");
    ScopedEnv path("PATH", (dir.str() + ":" + (path_var ? path_var : "/usr/bin:/bin")).c_str());
    u.show_in_folder((dir.str() + "//clips/a.mp4").c_str());
    for (int i = 0; i < 1000 && !std::filesystem::exists(record); ++i) u.sleep_ms(10);
    EXPECT_EQ(kinefix_test::read_file(record), dir.str() + "/clips/");
}
#endif

int g_hook_calls = 0;
bool g_scratch_zeroed = false;

void record_hook(int code, void*, char* scratch) {
    g_hook_calls += code;
    g_scratch_zeroed = scratch[0] == '\0' && scratch[zp::kOnceHookScratch - 1] == '\0';
}

TEST(UtilsProcess, HookFiresOnce) {
    zp::Utils u;
    zp::set_once_hook(record_hook);
    u.fire_hook_once(nullptr);
    u.fire_hook_once(nullptr);
    EXPECT_EQ(g_hook_calls, 1);
    EXPECT_TRUE(g_scratch_zeroed);
    zp::set_once_hook(record_hook);
    zp::set_once_hook(nullptr);
    u.fire_hook_once(nullptr);
    EXPECT_EQ(g_hook_calls, 1);
}

TEST(UtilsProcess, DetachedRunKeepsItsOwnCopy) {
    zp::Utils u;
    auto ran = std::make_shared<std::promise<uint32_t>>();
    std::promise<void> go;
    std::shared_future<void> go_signal = go.get_future().share();
    {
        auto payload = std::make_shared<std::string>("still here");
        std::function<void()> fn = [ran, go_signal, payload] {
            go_signal.wait();
            ran->set_value(*payload == "still here" ? zp::current_thread_id() : 0);
        };
        u.run_detached(fn);
    }  // the caller's callable is gone before the thread gets to use its copy
    go.set_value();
    auto f = ran->get_future();
    ASSERT_EQ(f.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    const uint32_t other = f.get();
    EXPECT_NE(other, 0u);
    EXPECT_NE(other, u.thread_id());
}

TEST(UtilsProcess, InstanceIsCreatedAgainAfterDeletion) {
    zp::Utils* a = zp::Utils::instance();
    { zp::Utils other; }  // another object's end leaves the process-wide one alone
    EXPECT_EQ(zp::Utils::instance(), a);
    delete a;
    zp::Utils* b = zp::Utils::instance();
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(zp::Utils::instance(), b);
    delete b;
}

}  // namespace
