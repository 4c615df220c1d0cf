// zp::Blocking_IO and zp::Channel: order, time-outs, abort, whole messages, named channels.
#include "channel/channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "channel/blocking_io.h"
#include "support/test_support.h"

namespace {

using namespace std::chrono_literals;
using zp::ChannelMessage;

// A consumer that never wakes must end the run, not hang it.
template <typename T>
T must_finish(std::future<T>& f) {
    if (f.wait_for(10s) != std::future_status::ready) std::abort();
    return f.get();
}

ChannelMessage message(uint32_t a, uint32_t b) {
    ChannelMessage m;
    for (int i = 0; i < 32; ++i) m.bytes[i] = static_cast<uint8_t>(a * 7 + b + i);
    memcpy(m.bytes, &a, 4);
    memcpy(m.bytes + 4, &b, 4);
    return m;
}

TEST(ChannelTest, QueueOrderTimedWaitsAbortWholeMessagesAndNamedChannels) {
    zp::Blocking_IO q;
    for (const char* s : {"one", "", "three"}) EXPECT_TRUE(q.push(s));
    EXPECT_EQ(q.pop(), "one");
    EXPECT_EQ(q.pop_for(0), "");
    EXPECT_EQ(q.pop_for(100), "three");
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(q.pop_for(60), "");
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 60ms);

    // Abort wakes every waiting consumer and is final.
    std::vector<std::future<std::string>> waiting;
    for (int i = 0; i < 4; ++i)
        waiting.push_back(
            std::async(std::launch::async, [&, i] { return i % 2 ? q.pop() : q.pop_for(60000); }));
    std::this_thread::sleep_for(50ms);  // let them reach the wait
    q.abort();
    for (auto& f : waiting) EXPECT_EQ(must_finish(f), "");
    EXPECT_FALSE(q.push("late"));

    // A channel takes whole messages only; named channels are shared and go with the root.
    zp::Channel root(nullptr);
    ChannelMessage got;
    ASSERT_TRUE(root.send(message(1, 2)));
    ASSERT_EQ(root.receive(&got), 1);
    EXPECT_EQ(memcmp(got.bytes, message(1, 2).bytes, 32), 0);
    ASSERT_TRUE(root.io().push(std::string(31, 'x')));
    EXPECT_EQ(root.receive(&got), 0);
    ASSERT_TRUE(root.io().push(std::string(33, 'x')));
    EXPECT_EQ(root.receive_for(&got, 100), 0);
    EXPECT_EQ(memcmp(got.bytes, message(1, 2).bytes, 32), 0) << "left untouched";
    std::vector<std::future<zp::Channel*>> askers;
    for (int i = 0; i < 8; ++i)
        askers.push_back(std::async(std::launch::async, [&] { return root.get("jobs").get(); }));
    std::shared_ptr<zp::Channel> jobs = root.get("jobs");
    for (auto& f : askers) EXPECT_EQ(must_finish(f), jobs.get());
    EXPECT_NE(root.get("other"), jobs);
    auto receiver = std::async(std::launch::async, [&] { return jobs->receive(&got); });
    std::this_thread::sleep_for(20ms);
    root.abort();
    EXPECT_EQ(must_finish(receiver), 0);
}

// Three senders and three receivers: every message arrives whole and exactly once, and each
// receiver sees every sender's messages in the order they were sent.
TEST(ChannelTest, ManySendersAndReceiversLoseAndDuplicateNothing) {
    constexpr uint32_t kEach = 3000, kStop = 0xFFFFFFFFu;
    zp::Channel ch(nullptr);
    std::vector<std::atomic<int>> seen(3 * kEach);
    std::vector<std::future<void>> receivers;
    for (int r = 0; r < 3; ++r)
        receivers.push_back(std::async(std::launch::async, [&, r] {
            int64_t last[3] = {-1, -1, -1};
            ChannelMessage m;
            for (uint32_t a = 0, b = 0; a != kStop;) {
                // Blocking and timed receivers mixed; a time-out just waits again.
                if ((r % 2 ? ch.receive(&m) : ch.receive_for(&m, 20)) != 1) continue;
                memcpy(&a, m.bytes, 4);
                memcpy(&b, m.bytes + 4, 4);
                EXPECT_EQ(memcmp(m.bytes, message(a, b).bytes, 32), 0);
                if (a == kStop) break;
                EXPECT_GT(int64_t{b}, last[a]);
                last[a] = b;
                ++seen[a * kEach + b];
            }
        }));
    kinefix_test::on_threads(3, [&ch](uint32_t s) {
        for (uint32_t i = 0; i < kEach; ++i) EXPECT_TRUE(ch.send(message(s, i)));
    });
    for (int r = 0; r < 3; ++r) ch.send(message(kStop, 0));
    for (auto& f : receivers) must_finish(f);
    for (auto& n : seen) ASSERT_EQ(n.load(), 1);
}

}  // namespace
