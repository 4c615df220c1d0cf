// Time stamps, clocks, sleeps, environment, hooks, detached runs and the process-wide instance.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "sync/thread_id.h"
#include "utils/utils.h"
#include "utils_test_env.h"

namespace {

using utils_test::ScopedEnv;

TEST(UtilsTime, RingOfEightBuffers) {
    zp::Utils u;
    const char* p[9];
    for (int i = 0; i < 9; ++i) p[i] = u.now_str("%H:%M");
    std::set<const char*> first_eight(p, p + 8);
    EXPECT_EQ(first_eight.size(), 8u);
    EXPECT_EQ(p[8], p[0]);
    EXPECT_EQ(strlen(p[0]), 5u);
    // A text too long for its 64-byte buffer yields an empty string, not a cut one.
    EXPECT_STREQ(u.now_str(std::string(80, 'x').c_str()), "");
}

TEST(UtilsTime, ClocksAgree) {
    zp::Utils u;
    const int64_t sys_us = u.now_us(0);
    const int64_t anchored_us = u.now_us(1);
    // The anchor is taken in whole seconds, so the two clocks may differ by up to one second.
    EXPECT_LT(std::llabs(anchored_us - sys_us), 2000000);
    EXPECT_LT(std::llabs(u.now_ns(0) / 10 - sys_us), 1000000);  // raw 100-ns ticks
    EXPECT_LT(std::llabs(u.now_ns(1) / 1000 - anchored_us), 1000000);
    int64_t last = u.now_ns(1);
    for (int i = 0; i < 1000; ++i) {
        const int64_t now = u.now_ns(1);
        ASSERT_GE(now, last);
        last = now;
    }
    zp::TimeOfDay tv;
    EXPECT_EQ(u.time_of_day(&tv), 0);
    EXPECT_GE(tv.usec, 0);
    EXPECT_LT(tv.usec, 1000000);
    EXPECT_LE(std::llabs(static_cast<int64_t>(tv.sec) - sys_us / 1000000), 1);
}

TEST(UtilsEnv, PointerText) {
    zp::Utils u;
    ScopedEnv guard("ZP_UTILS_TEST_PTR", nullptr);
    int object = 0;
    ASSERT_EQ(u.set_env_ptr("ZP_UTILS_TEST_PTR", &object), 0);
    void* back = nullptr;
    u.get_env_ptr("ZP_UTILS_TEST_PTR", &back);
    EXPECT_EQ(back, &object);
    u.set_env_ptr("ZP_UTILS_TEST_PTR", reinterpret_cast<void*>(static_cast<uintptr_t>(0x12ABu)));
    EXPECT_STREQ(u.get_env("ZP_UTILS_TEST_PTR"), "00000000000012AB");

    struct Case {
        const char* text;
        uintptr_t value;
    };
    const Case cases[] = {
        {"0x12ab", 0x12AB}, {"0X00FF", 0xFF}, {"FFFFFFFFFFFFFFFF", UINTPTR_MAX}, {"zz", 0}, {"", 0},
        {"0x", 0},          {"12 ", 0},       {"00000000000000001", 0}};
    for (const Case& c : cases) {
        u.set_env("ZP_UTILS_TEST_PTR", c.text);
        back = reinterpret_cast<void*>(1);
        u.get_env_ptr("ZP_UTILS_TEST_PTR", &back);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(back), c.value) << c.text;
    }
    utils_test::set_var("ZP_UTILS_TEST_PTR", nullptr);
    back = &object;
    u.get_env_ptr("ZP_UTILS_TEST_PTR", &back);
    EXPECT_EQ(back, nullptr);
    u.get_env_ptr("ZP_UTILS_TEST_PTR", nullptr);  // no destination: nothing happens
}

TEST(UtilsEnv, SetAlwaysOverwrites) {
    zp::Utils u;
    ScopedEnv guard("ZP_UTILS_TEST_VAR", "old");
    EXPECT_EQ(u.set_env("ZP_UTILS_TEST_VAR", "new", 0), 0);
    EXPECT_STREQ(u.get_env("ZP_UTILS_TEST_VAR"), "new");
    EXPECT_EQ(u.get_env("ZP_UTILS_TEST_SURELY_UNSET"), nullptr);
}

#ifndef _WIN32
TEST(UtilsEnv, SpecialDirectoriesOnPosix) {
    zp::Utils u;
    {
        ScopedEnv tmp("TMPDIR", "/x//y/");
        EXPECT_EQ(u.temp_dir(), "/x/y/");
    }
    {
        ScopedEnv tmp("TMPDIR", "");
        EXPECT_EQ(u.temp_dir(), "/tmp/");
    }
    ScopedEnv home("HOME", "/h//u");
    ScopedEnv config("XDG_CONFIG_HOME", nullptr);
    ScopedEnv state("XDG_STATE_HOME", "");
    EXPECT_EQ(zp::home_dir(), "/h/u");
    EXPECT_EQ(zp::app_data_dir(), "/h/u/.config");
    EXPECT_EQ(zp::local_data_dir(), "/h/u/.local/state");
    utils_test::set_var("XDG_CONFIG_HOME", "/c");
    utils_test::set_var("XDG_STATE_HOME", "/s//t");
    EXPECT_EQ(zp::app_data_dir(), "/c");
    EXPECT_EQ(zp::local_data_dir(), "/s/t");
    utils_test::set_var("XDG_CONFIG_HOME", nullptr);
    utils_test::set_var("XDG_STATE_HOME", nullptr);
    utils_test::set_var("HOME", nullptr);
    EXPECT_EQ(zp::home_dir(), "");
    EXPECT_EQ(zp::app_data_dir(), "");
    EXPECT_EQ(zp::local_data_dir(), "");
}
#endif

#if !defined(_WIN32) && !defined(__APPLE__)
TEST(UtilsProcess, ShowInFolderOpensTheDirectoryDetached) {
    zp::Utils u;
    utils_test::ScratchDir dir;
    // A stand-in opener that records what it was asked to open.
    const std::string record = dir / "opened";
    utils_test::write_text(dir / "xdg-open", "#!/bin/sh\nprintf '%s' \"$1\" > '" + record +
                                                 ".tmp' && mv '" + record + ".tmp' '" + record +
                                                 "'\n");
    std::filesystem::permissions(dir / "xdg-open", std::filesystem::perms::owner_all);
    const char* path_var = getenv("PATH");
    ScopedEnv path("PATH", (dir.str() + ":" + (path_var ? path_var : "/usr/bin:/bin")).c_str());
    u.show_in_folder((dir.str() + "//clips/a.mp4").c_str());
    for (int i = 0; i < 1000 && !std::filesystem::exists(record); ++i) u.sleep_ms(10);
    EXPECT_EQ(utils_test::read_text(record), dir.str() + "/clips/");
}
#endif

int g_hook_calls = 0;
void* g_hook_arg = nullptr;
bool g_scratch_zeroed = false;

void record_hook(int code, void* arg, char* scratch) {
    g_hook_calls += code;
    g_hook_arg = arg;
    g_scratch_zeroed = scratch[0] == '\0' && scratch[zp::kOnceHookScratch - 1] == '\0';
    scratch[zp::kOnceHookScratch - 1] = 'x';  // the buffer is the hook's to use
}

TEST(UtilsProcess, HookFiresOnce) {
    zp::Utils u;
    u.fire_hook_once(nullptr);  // nothing armed: nothing happens
    zp::set_once_hook(record_hook);
    int arg = 0;
    u.fire_hook_once(&arg);
    u.fire_hook_once(&arg);
    EXPECT_EQ(g_hook_calls, 1);
    EXPECT_EQ(g_hook_arg, &arg);
    EXPECT_TRUE(g_scratch_zeroed);
    zp::set_once_hook(record_hook);
    zp::set_once_hook(nullptr);
    u.fire_hook_once(&arg);
    EXPECT_EQ(g_hook_calls, 1);
}

TEST(UtilsProcess, DetachedRunKeepsItsOwnCopy) {
    zp::Utils u;
    auto ran = std::make_shared<std::promise<uint32_t>>();
    std::promise<void> go;
    std::shared_future<void> go_signal = go.get_future().share();
    auto payload = std::make_shared<std::string>("still here");
    {
        std::function<void()> fn = [ran, go_signal, payload] {
            go_signal.wait();
            ran->set_value(*payload == "still here" ? zp::current_thread_id() : 0);
        };
        u.run_detached(fn);
    }  // the caller's callable is gone before the thread gets to use its copy
    payload.reset();
    go.set_value();
    auto f = ran->get_future();
    ASSERT_EQ(f.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    const uint32_t other = f.get();
    EXPECT_NE(other, 0u);
    EXPECT_NE(other, u.thread_id());
    EXPECT_EQ(u.thread_id(), zp::current_thread_id());
    EXPECT_EQ(u.reserved(), 0);
}

TEST(UtilsProcess, InstanceIsCreatedAgainAfterDeletion) {
    zp::Utils* a = zp::Utils::instance();
    EXPECT_EQ(zp::Utils::instance(), a);
    { zp::Utils other; }  // another object's end leaves the process-wide one alone
    EXPECT_EQ(zp::Utils::instance(), a);
    delete a;
    zp::Utils* b = zp::Utils::instance();
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(zp::Utils::instance(), b);
    EXPECT_EQ(b->file_name("x/y"), "y");
    delete b;
}

}  // namespace
