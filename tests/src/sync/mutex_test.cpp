// Lock kinds: recursion, contention, writer preference, shared reads, stranger unlock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "sync/mutex.h"
#include "sync/read_write_mutex.h"

namespace {

using namespace std::chrono_literals;
using RWR = zp::ReadWriteMutexRecursive;

// Waits until `cond` holds or a generous deadline passes.
template <typename F>
bool eventually(F cond) {
    for (int i = 0; i < 2000 && !cond(); ++i) std::this_thread::sleep_for(1ms);
    return cond();
}

TEST(MutexTest, RecursiveMutexNeedsOneUnlockPerLockAndCountsStayExact) {
    zp::MutexRecursive m;
    auto other_gets_it = [&m] {
        bool got = false;
        std::thread([&] {
            got = m.try_lock();
            if (got) m.unlock();
        }).join();
        return got;
    };
    m.lock();
    EXPECT_TRUE(m.try_lock());
    m.unlock();
    EXPECT_FALSE(other_gets_it());
    m.unlock();
    EXPECT_TRUE(other_gets_it());

    zp::Mutex plain;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                zp::MutexGuard g(plain);
                ++counter;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(counter, 80000);
}

// Takes `rw` on a thread and releases it at once, given time to block first. `at` tells when
// it got in, counted over all of them; 0 while it is still waiting.
template <typename Lock>
struct Blocked {
    Blocked(Lock& rw, void (Lock::*take)())
        : t([this, &rw, take] {
              (rw.*take)();
              at = ++seq();
              rw.unlock();
          }) {
        std::this_thread::sleep_for(50ms);
    }
    ~Blocked() { t.join(); }
    static std::atomic<int>& seq() {
        static std::atomic<int> n{0};
        return n;
    }
    std::atomic<int> at{0};
    std::thread t;
};

// A reader holds the lock and a writer waits: a new reader must queue behind the writer.
template <typename Lock>
void check_writer_preference() {
    Lock rw;
    rw.lock_read();
    Blocked<Lock> writer(rw, &Lock::lock_write);
    Blocked<Lock> reader(rw, &Lock::lock_read);
    EXPECT_EQ(writer.at + reader.at, 0) << "nobody may pass while the first reader holds the lock";
    rw.unlock();
    ASSERT_TRUE(eventually([&] { return reader.at != 0; }));
    EXPECT_LT(writer.at, reader.at) << "the waiting writer goes before the later reader";
}

TEST(ReadWriteMutexTest, WaitingWriterGoesBeforeNewReader) {
    check_writer_preference<zp::ReadWriteMutex>();
    check_writer_preference<zp::ReadWriteMutexRecursive>();
}

TEST(ReadWriteMutexTest, ReadersShareAndReleasingWriterWakesThemAll) {
    zp::ReadWriteMutex rw;
    rw.lock_write();
    std::atomic<int> inside{0};
    std::atomic<bool> release{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            rw.lock_read();
            ++inside;
            while (!release) std::this_thread::sleep_for(1ms);
            rw.unlock();
        });
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(inside.load(), 0);
    rw.unlock();
    EXPECT_TRUE(eventually([&] { return inside == 3; }));
    release = true;
    for (auto& t : readers) t.join();
}

TEST(ReadWriteMutexTest, RecursiveHoldsNestAndPassAWaitingWriter) {
    zp::ReadWriteMutexRecursive rw;
    rw.lock_read();
    {
        Blocked<RWR> writer(rw, &RWR::lock_write);
        rw.lock_read();  // must not deadlock behind the waiting writer
        rw.unlock();
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(writer.at, 0) << "one read hold remains";
        rw.unlock();
    }
    rw.lock_write();
    rw.lock_write();
    rw.unlock();
    Blocked<RWR> reader(rw, &RWR::lock_read);
    EXPECT_EQ(reader.at, 0) << "the write is still held once";
    rw.unlock();
}

TEST(ReadWriteMutexTest, StrangerUnlockOnlyWarns) {
    zp::ReadWriteMutexRecursive rw;
    rw.lock_read();
    std::string warning;
    std::thread([&] {
        testing::internal::CaptureStderr();
        rw.unlock();
        warning = testing::internal::GetCapturedStderr();
    }).join();
    EXPECT_EQ(warning, "[Warnning]: unlocking from a thread that did not lock");
    Blocked<RWR> writer(rw, &RWR::lock_write);
    EXPECT_EQ(writer.at, 0) << "the real reader's hold is intact";
    rw.unlock();
}

}  // namespace
