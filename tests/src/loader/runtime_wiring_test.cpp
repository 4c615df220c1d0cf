// The root's runtime components: the Admin's uninit wakes every thread blocked on a channel and
// says what it does; a message for an unknown module is answered.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "core/testing_hooks.h"
#include "channel/channel.h"
#include "loader/admin.h"
#include "log/logger.h"
#include "value/value.h"
#include "support/framework_support.h"
#include "zephra_init.h"

namespace {

using namespace std::chrono_literals;

// A bare module, so that uninit has another module to take down.
struct Plain : zp::Content {
    bool init() override { return true; }
    bool start() override { return true; }
    bool uninit() override { return uninits++ == 0; }
    zp::Value process(const char*, int, const zp::Value&, const zp::Reply&) override { return {}; }
    zp::Value send(const char*, int, const zp::Value&, const zp::Reply&) override { return {}; }
    zp::Value dispatch(const char*, const char*, int, const zp::Value&, const zp::Reply&) override {
        return {};
    }
    int uninits = 0;
};

TEST(RuntimeWiringTest, RootHoldsTheRuntimeComponentsAndUninitAbortsItsChannels) {
    Plain work;  // outlives the framework, whose shut-down still sees it
    zp::Channel own(nullptr);
    testing::internal::CaptureStderr();
    kinefix_test::StartedFramework framework("runtime_wiring");
    zp::Admin* root = zp::ppCD;
    ASSERT_NE(root, nullptr);

    // Receivers on the root's channel and on a named one, both blocked.
    std::shared_ptr<zp::Channel> named = root->channel->get("work");
    const auto receive = [](auto channel) {
        zp::ChannelMessage m;
        return channel->receive(&m);
    };
    auto on_root = std::async(std::launch::async, receive, root->channel);
    auto on_named = std::async(std::launch::async, receive, named);
    std::this_thread::sleep_for(30ms);

    std::string replied;
    const zp::Value answer = root->dispatch("Nobody", "test", 3, zp::Value(),
                                            [&](const zp::Value& v) { replied = v.write(); });
    EXPECT_EQ(answer.write(), "[str:16]module not exsit");
    EXPECT_EQ(replied, answer.write());

    work.channel = &own;
    zp::modules()["Work"] = &work;
    std::vector<std::string> said;  // the quoted message of each error-level line
    zp::testing_hooks::log_sink() = [&](int& level, const char*&, const char*& text) {
        std::cmatch m;
        if (level == zp::kLogError && std::regex_search(text, m, std::regex(R"re(: "(.*)"\n$)re")))
            said.push_back(m[1]);
    };
    root->uninit();
    zp::testing_hooks::log_sink() = nullptr;
    EXPECT_EQ(work.uninits, 1);
    EXPECT_TRUE(own.is_aborted()) << "a module's own channel is aborted too";
    EXPECT_EQ(said, (std::vector<std::string>{
                        "[Admin] ::uninit @==@", "set all abort success",
                        "[Admin] abort all thread success", "> before uninit cmp 'Work'",
                        "> uninit cmp 'Work' OK", "[Admin] ::uninit end @==@"}));
    for (auto* f : {&on_root, &on_named}) {  // one left blocked through uninit ends the run
        if (f->wait_for(10s) != std::future_status::ready) std::abort();
        EXPECT_EQ(f->get(), 0);
    }
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "=== Admin: module (Nobody) not exist !! ERROR !\n"),
              std::string::npos);
}

}  // namespace
