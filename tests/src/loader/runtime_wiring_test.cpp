// The root's runtime components: created in place, and the Admin's uninit wakes every thread
// blocked on a channel.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

#include "channel/channel.h"
#include "loader/admin.h"
#include "pool/mem_pool.h"
#include "signal/signal.h"
#include "support/test_support.h"
#include "trace/func_tracer.h"
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

    ASSERT_NE(root->tracer, nullptr);
    EXPECT_FALSE(static_cast<zp::Func_Tracer*>(root->tracer)->enabled());  // default level 2
    EXPECT_NE(root->tracer->file_path().find("/log/Admin"), std::string::npos);
    ASSERT_NE(root->mem_pool, nullptr);
    EXPECT_EQ(static_cast<zp::Mem_Pool*>(root->mem_pool)->max_block_alloc(), 2048u);
    ASSERT_NE(root->signal, nullptr);
    ASSERT_NE(root->signal_borrowed, nullptr);
    EXPECT_NE(root->signal, root->signal_borrowed);
    ASSERT_NE(root->channel, nullptr);

    // Receivers on the root's channel and on a named one, both blocked.
    std::shared_ptr<zp::Channel> named = root->channel->get("work");
    zp::Channel* shared = root->channel;
    auto on_root = std::async(std::launch::async, [shared] {
        zp::ChannelMessage m;
        return shared->receive(&m);
    });
    auto on_named = std::async(std::launch::async, [named] {
        zp::ChannelMessage m;
        return named->receive(&m);
    });
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(on_root.wait_for(0ms), std::future_status::timeout);

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
    EXPECT_FALSE(shared->send(zp::ChannelMessage()));

    zp::ShutdownFramework();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(zp::ppCD, nullptr);
    EXPECT_TRUE(named->is_aborted());
}

}  // namespace
