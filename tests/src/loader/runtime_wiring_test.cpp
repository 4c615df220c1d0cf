// The root's runtime components: the Admin's uninit wakes every thread blocked on a channel.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

#include "channel/channel.h"
#include "loader/admin.h"
#include "support/test_support.h"
#include "zephra_init.h"

namespace {

using namespace std::chrono_literals;

TEST(RuntimeWiringTest, RootHoldsTheRuntimeComponentsAndUninitAbortsItsChannels) {
    kinefix_test::TempDir home;
    for (const auto& kv : kinefix_test::isolated_env(home))
        setenv(kv.first.c_str(), kv.second.c_str(), 1);
    static char arg0[] = "runtime_wiring";
    static char* argv[] = {arg0, nullptr};
    testing::internal::CaptureStderr();
    zp::InitFramework(1, argv);
    zp::Admin* root = zp::ppCD;
    ASSERT_NE(root, nullptr);

    // Receivers on the root's channel and on a named one, both blocked.
    std::shared_ptr<zp::Channel> named = root->channel->get("work");
    zp::Channel* shared = root->channel;
    const auto receive = [](auto channel) {
        zp::ChannelMessage m;
        return channel->receive(&m);
    };
    auto on_root = std::async(std::launch::async, receive, shared);
    auto on_named = std::async(std::launch::async, receive, named);
    std::this_thread::sleep_for(30ms);
    root->uninit();
    const bool woke = on_root.wait_for(10s) == std::future_status::ready &&
                      on_named.wait_for(10s) == std::future_status::ready;
    if (!woke) {  // release them anyway so that the test can end
        shared->abort();
        named->abort();
    }
    EXPECT_TRUE(woke) << "a receiver stayed blocked through uninit";
    EXPECT_EQ(on_root.get(), 0);
    EXPECT_EQ(on_named.get(), 0);
    zp::ShutdownFramework();
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(named->is_aborted());
}

}  // namespace
