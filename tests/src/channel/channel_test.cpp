// zp::Blocking_IO and zp::Channel: order, time-outs, abort, 32-byte messages, named channels,
// and many producers and consumers on one queue.
#include "channel/channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "channel/blocking_io.h"

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

bool same(const ChannelMessage& x, const ChannelMessage& y) {
    return memcmp(x.bytes, y.bytes, 32) == 0;
}

TEST(BlockingIOTest, OrderTimedWaitsAndAbort) {
    zp::Blocking_IO q;
    for (const char* s : {"one", "", "three"}) EXPECT_TRUE(q.push(s));
    EXPECT_EQ(q.pop(), "one");
    EXPECT_EQ(q.pop_for(0), "");
    EXPECT_EQ(q.pop_for(100), "three");
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(q.pop_for(60), "");
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 60ms);
    auto late = std::async(std::launch::async, [&] { return q.pop_for(10000); });
    std::this_thread::sleep_for(20ms);
    ASSERT_TRUE(q.push("late"));
    EXPECT_EQ(must_finish(late), "late");

    // Abort wakes every waiting consumer and is final.
    std::vector<std::future<std::string>> waiting;
    for (int i = 0; i < 4; ++i)
        waiting.push_back(
            std::async(std::launch::async, [&, i] { return i % 2 ? q.pop() : q.pop_for(60000); }));
    std::this_thread::sleep_for(50ms);  // let them reach the wait
    q.abort();
    for (auto& f : waiting) EXPECT_EQ(must_finish(f), "");
    EXPECT_FALSE(q.push("late"));
}

TEST(ChannelTest, OnlyWholeMessagesAreReceived) {
    zp::Channel ch(nullptr);
    ChannelMessage got;
    ASSERT_TRUE(ch.send(message(1, 2)));
    ASSERT_EQ(ch.receive(&got), 1);
    EXPECT_TRUE(same(got, message(1, 2)));
    ASSERT_TRUE(ch.io().push(std::string(31, 'x')));
    EXPECT_EQ(ch.receive(&got), 0);
    ASSERT_TRUE(ch.io().push(std::string(33, 'x')));
    EXPECT_EQ(ch.receive_for(&got, 100), 0);
    EXPECT_EQ(ch.receive_for(&got, 0), 0);
    EXPECT_TRUE(same(got, message(1, 2))) << "left untouched";
}

TEST(ChannelTest, NamedChannelsAreSharedAndAbortedWithTheRoot) {
    zp::Channel root(nullptr);
    std::vector<std::future<zp::Channel*>> askers;
    for (int i = 0; i < 8; ++i)
        askers.push_back(std::async(std::launch::async, [&] { return root.get("jobs").get(); }));
    std::shared_ptr<zp::Channel> jobs = root.get("jobs");
    for (auto& f : askers) EXPECT_EQ(must_finish(f), jobs.get());
    EXPECT_NE(root.get("other"), jobs);
    auto receiver = std::async(std::launch::async, [&] {
        ChannelMessage m;
        return jobs->receive(&m);
    });
    std::this_thread::sleep_for(20ms);
    root.abort();
    EXPECT_EQ(must_finish(receiver), 0);
}

// Three senders and three receivers: every message arrives whole and exactly once, and each
// receiver sees every sender's messages in the order they were sent.
TEST(ChannelTest, ManySendersAndReceiversLoseAndDuplicateNothing) {
    constexpr uint32_t kSenders = 3, kEach = 3000, kStop = 0xFFFFFFFFu;
    zp::Channel ch(nullptr);
    std::vector<std::future<std::vector<uint64_t>>> receivers;
    for (uint32_t r = 0; r < 3; ++r)
        receivers.push_back(std::async(std::launch::async, [&, r] {
            std::vector<uint64_t> got;
            int64_t last[kSenders] = {-1, -1, -1};
            ChannelMessage m;
            uint32_t a = 0, b = 0;
            while (a != kStop) {
                // Blocking and timed receivers mixed; a time-out just waits again.
                if ((r % 2 ? ch.receive(&m) : ch.receive_for(&m, 20)) != 1) continue;
                memcpy(&a, m.bytes, 4);
                memcpy(&b, m.bytes + 4, 4);
                if (a == kStop) continue;
                EXPECT_TRUE(same(m, message(a, b)));
                EXPECT_GT(int64_t{b}, last[a]);
                last[a] = b;
                got.push_back((uint64_t{a} << 32) | b);
            }
            return got;
        }));
    std::vector<std::thread> senders;
    for (uint32_t s = 0; s < kSenders; ++s)
        senders.emplace_back([&, s] {
            for (uint32_t i = 0; i < kEach; ++i) EXPECT_TRUE(ch.send(message(s, i)));
        });
    for (auto& t : senders) t.join();
    for (size_t r = 0; r < receivers.size(); ++r) ch.send(message(kStop, 0));
    std::multiset<uint64_t> all;
    for (auto& f : receivers) {
        auto got = must_finish(f);
        all.insert(got.begin(), got.end());
    }
    EXPECT_EQ(all.size(), size_t{kSenders * kEach});
    EXPECT_EQ(std::set<uint64_t>(all.begin(), all.end()).size(), all.size());
}

}  // namespace
