// Time stamps, clocks, environment, the registry, the once-hook, detached runs and the
// process-wide instance.
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
#include "utils/registry.h"
#include "utils/utils.h"

namespace {

namespace fs = std::filesystem;

void set_var(const char* name, const char* value) {
    value ? setenv(name, value, 1) : unsetenv(name);
}

// Sets (or with null removes) a variable for the scope.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const char* value) : name_(name), had_(getenv(name) != nullptr) {
        if (had_) old_ = getenv(name);
        set_var(name, value);
    }
    ~ScopedEnv() { set_var(name_.c_str(), had_ ? old_.c_str() : nullptr); }

  private:
    std::string name_;
    bool had_;
    std::string old_;
};

template <typename Op>
std::string stderr_of(Op op) {
    testing::internal::CaptureStderr();
    op();
    return testing::internal::GetCapturedStderr();
}

TEST(UtilsTime, RingOfEightBuffersAndAgreeingClocks) {
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
    int64_t last = u.now_ns(1);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_GE(u.now_ns(1), last);
        last = u.now_ns(1);
    }
}

TEST(UtilsEnv, PointersAsText) {
    zp::Utils u;
    ScopedEnv guard("ZP_UTILS_TEST_PTR", nullptr);
    u.set_env_ptr("ZP_UTILS_TEST_PTR", reinterpret_cast<void*>(static_cast<uintptr_t>(0x12AB)));
    EXPECT_STREQ(u.get_env("ZP_UTILS_TEST_PTR"), "00000000000012AB");
    const std::pair<const char*, uintptr_t> cases[] = {
        {"0x12ab", 0x12AB}, {"FFFFFFFFFFFFFFFF", UINTPTR_MAX}, {"00000000000000001", 0}};
    void* back = nullptr;
    for (const auto& c : cases) {
        u.set_env("ZP_UTILS_TEST_PTR", c.first, 0);  // overwrites whatever the flag says
        u.get_env_ptr("ZP_UTILS_TEST_PTR", &back);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(back), c.second) << c.first;
    }
    set_var("ZP_UTILS_TEST_PTR", nullptr);
    u.get_env_ptr("ZP_UTILS_TEST_PTR", &back);
    EXPECT_EQ(back, nullptr);
}

#ifndef _WIN32
TEST(UtilsEnv, SpecialDirectoriesOnPosix) {
    ScopedEnv home("HOME", "/h//u"), config("XDG_CONFIG_HOME", nullptr),
        state("XDG_STATE_HOME", "");
    EXPECT_EQ(zp::app_data_dir(), "/h/u/.config");
    EXPECT_EQ(zp::local_data_dir(), "/h/u/.local/state");
    set_var("XDG_CONFIG_HOME", "/c");
    set_var("XDG_STATE_HOME", "/s//t");
    EXPECT_EQ(zp::app_data_dir(), "/c");
    EXPECT_EQ(zp::local_data_dir(), "/s/t");
    set_var("XDG_CONFIG_HOME", nullptr);
    set_var("HOME", nullptr);
    EXPECT_EQ(zp::app_data_dir(), "");
}
#endif

#ifndef _WIN32
class Registry : public testing::Test {
  protected:
    Registry() : home_("HOME", dir.str().c_str()), config_("XDG_CONFIG_HOME", nullptr) {}

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
    EXPECT_EQ(
        stderr_of([this] { EXPECT_EQ(zp::reg_get("Software\\No", "k", buf, sizeof buf), -1); }),
        "[zp] Error: RegOpenKeyExA() can't open path='Software\\No'\n");
    EXPECT_EQ(buf[0], '\0');
    ASSERT_EQ(zp::reg_set("Software\\Org\\App", "present", "1"), 0);
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(zp::reg_delete("Software\\Org\\App", "absent"), -1); }),
              "[zp] Error: RegDeleteValueA() can't delete key='absent'\n");
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(zp::reg_set("Software\\Org\\App", "a/b", "v"), -1); }),
              "[zp] Error: RegSetValueExA() can't write 'a/b'--->'v'\n");
    // A key that must not be made, here one that climbs out of the registry: no line break.
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(zp::reg_set("Software\\..\\..\\escape", "k", "v"), -1); }),
              "[zp] Error: RegCreateKeyExA() can't create path='Software\\..\\..\\escape'");
    EXPECT_FALSE(fs::exists(dir / ".config/escape"));
}

#endif

int g_hook_calls = 0;
void count_hook(int code, void*, char* scratch) {
    g_hook_calls += code + scratch[0] + scratch[zp::kOnceHookScratch - 1];  // scratch is zeroed
}

TEST(UtilsProcess, HookFiresOnceAndDetachedRunsKeepTheirOwnCopy) {
    zp::Utils u;
    zp::set_once_hook(count_hook);
    u.fire_hook_once(nullptr);
    u.fire_hook_once(nullptr);
    EXPECT_EQ(g_hook_calls, 1);
    zp::set_once_hook(count_hook);
    zp::set_once_hook(nullptr);
    u.fire_hook_once(nullptr);
    EXPECT_EQ(g_hook_calls, 1);

    // The thread waits until run_detached has returned: it must run its own copy.
    auto ran = std::make_shared<std::promise<uint32_t>>();
    std::promise<void> go;
    u.run_detached([ran, wait = go.get_future().share()] {
        wait.wait();
        ran->set_value(zp::current_thread_id());
    });
    go.set_value();
    auto f = ran->get_future();
    ASSERT_EQ(f.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_NE(f.get(), u.thread_id());
}

TEST(UtilsProcess, InstanceIsCreatedAgainAfterDeletion) {
    zp::Utils* a = zp::Utils::instance();
    { zp::Utils other; }  // another object's end leaves the process-wide one alone
    EXPECT_EQ(zp::Utils::instance(), a);
    delete a;
    zp::Utils* b = zp::Utils::instance();
    EXPECT_EQ(zp::Utils::instance(), b);
    delete b;
}

}  // namespace
