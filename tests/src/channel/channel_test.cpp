// zp::Blocking_IO and zp::Channel: order, time-outs, abort, 32-byte messages, named channels,
// and many producers and consumers on one queue.
#include "channel/channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
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

// Joins a future or ends the run: a consumer that never wakes must not hang the suite.
template <typename T>
T must_finish(std::future<T>& f) {
    if (f.wait_for(10s) != std::future_status::ready) {
        fputs("a consumer is still blocked\n", stderr);
        std::abort();
    }
    return f.get();
}

ChannelMessage message(uint32_t a, uint32_t b) {
    ChannelMessage m;
    memcpy(m.bytes, &a, 4);
    memcpy(m.bytes + 4, &b, 4);
    for (int i = 8; i < 32; ++i) m.bytes[i] = static_cast<uint8_t>(a + b + i);
    return m;
}

bool same(const ChannelMessage& x, const ChannelMessage& y) {
    return memcmp(x.bytes, y.bytes, 32) == 0;
}

TEST(BlockingIOTest, OrderAndTimedWaits) {
    zp::Blocking_IO q;
    for (const char* s : {"one", "", "three"}) EXPECT_TRUE(q.push(s));
    EXPECT_EQ(q.pop(), "one");
    EXPECT_EQ(q.pop_for(0), "");
    EXPECT_EQ(q.pop_for(100), "three");
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(q.pop_for(60), "");
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 60ms);
    auto consumer = std::async(std::launch::async, [&] { return q.pop_for(10000); });
    std::this_thread::sleep_for(20ms);
    ASSERT_TRUE(q.push("late"));
    EXPECT_EQ(must_finish(consumer), "late");
}

TEST(BlockingIOTest, AbortIsFinalAndWakesEveryWaitingConsumer) {
    zp::Blocking_IO q;
    std::atomic<int> started{0};
    std::vector<std::future<std::string>> waiting;
    for (int i = 0; i < 4; ++i)
        waiting.push_back(std::async(std::launch::async, [&, i] {
            ++started;
            return i % 2 ? q.pop() : q.pop_for(60000);
        }));
    while (started < 4) std::this_thread::yield();
    std::this_thread::sleep_for(30ms);  // let them reach the wait
    q.abort();
    for (auto& f : waiting) EXPECT_EQ(must_finish(f), "");
    EXPECT_FALSE(q.push("late"));
    EXPECT_EQ(q.pop(), "");
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
    EXPECT_FALSE(root.get("jobs")->send(message(1, 1)));
}

// Three senders and three receivers on one channel: every message arrives whole and exactly
// once, and each receiver sees every sender's messages in the order they were sent.
TEST(ChannelTest, ManySendersAndReceiversLoseAndDuplicateNothing) {
    constexpr uint32_t kSenders = 3, kReceivers = 3, kEach = 3000, kStop = 0xFFFFFFFFu;
    zp::Channel ch(nullptr);
    std::vector<std::future<std::vector<uint64_t>>> receivers;
    for (uint32_t r = 0; r < kReceivers; ++r) {
        receivers.push_back(std::async(std::launch::async, [&, r] {
            std::vector<uint64_t> got;
            int64_t last[kSenders] = {-1, -1, -1};
            ChannelMessage m;
            for (;;) {
                // Blocking and timed receivers mixed; a time-out just waits again.
                if ((r % 2 ? ch.receive(&m) : ch.receive_for(&m, 20)) != 1) continue;
                uint32_t a, b;
                memcpy(&a, m.bytes, 4);
                memcpy(&b, m.bytes + 4, 4);
                if (a == kStop) break;
                EXPECT_TRUE(same(m, message(a, b)));
                EXPECT_GT(int64_t{b}, last[a]);
                last[a] = b;
                got.push_back((uint64_t{a} << 32) | b);
            }
            return got;
        }));
    }
    std::vector<std::thread> senders;
    for (uint32_t s = 0; s < kSenders; ++s)
        senders.emplace_back([&, s] {
            for (uint32_t i = 0; i < kEach; ++i) EXPECT_TRUE(ch.send(message(s, i)));
        });
    for (auto& t : senders) t.join();
    for (uint32_t r = 0; r < kReceivers; ++r) ch.send(message(kStop, 0));
    std::set<uint64_t> all;
    size_t total = 0;
    for (auto& f : receivers) {
        auto got = must_finish(f);
        total += got.size();
        all.insert(got.begin(), got.end());
    }
    EXPECT_EQ(total, size_t{kSenders * kEach});
    EXPECT_EQ(all.size(), size_t{kSenders * kEach});
}

}  // namespace
