// Lock kinds: recursion, writer preference, shared reads, stranger unlock, and exclusion and
// wake-ups under contention (the "tsan" label runs these under ThreadSanitizer).
#include <gtest/gtest.h>

#include <atomic>
#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "sync/mutex.h"
#include "support/test_support.h"
#include "sync/read_write_mutex.h"

namespace {

using namespace std::chrono_literals;
using RWR = zp::ReadWriteMutexRecursive;

// Takes a lock on a thread, given time to block, then leaves; `at` orders entries, 0: waiting.
template <typename Lock>
struct Taker {
    Taker(Lock& rw, void (Lock::*take)())
        : t([this, &rw, take] {
              (rw.*take)();
              at = ++seq;
              rw.unlock();
          }) {
        std::this_thread::sleep_for(50ms);
    }
    ~Taker() { t.join(); }
    static inline std::atomic<int> seq{0};
    std::atomic<int> at{0};
    std::thread t;
};

TEST(ReadWriteMutexTest, RecursionSharedReadsAndStrangerUnlocks) {
    zp::MutexRecursive m;
    m.lock();
    EXPECT_TRUE(m.try_lock());
    m.unlock();
    Taker<zp::MutexRecursive> other(m, &zp::MutexRecursive::lock);
    EXPECT_EQ(other.at, 0) << "still held once";
    m.unlock();
    RWR rw;
    rw.lock_read();
    {
        Taker<RWR> writer(rw, &RWR::lock_write);
        rw.lock_read();  // must not deadlock behind the waiting writer
        rw.unlock();
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(writer.at, 0) << "one read hold remains";
        rw.unlock();
    }
    rw.lock_write();
    rw.lock_write();
    rw.unlock();
    Taker<RWR> reader(rw, &RWR::lock_read);
    EXPECT_EQ(reader.at, 0) << "the write is still held once";
    rw.unlock();
    // Readers share; an unlock from a stranger only warns.
    RWR shared;
    shared.lock_read();
    Taker<RWR> second(shared, &RWR::lock_read);
    EXPECT_NE(second.at, 0) << "readers share";
    std::string warning;
    std::thread([&] {
        testing::internal::CaptureStderr();
        shared.unlock();
        warning = testing::internal::GetCapturedStderr();
    }).join();
    EXPECT_EQ(warning, "[Warnning]: unlocking from a thread that did not lock");
    Taker<RWR> blocked(shared, &RWR::lock_write);
    EXPECT_EQ(blocked.at, 0) << "the real reader's hold is intact";
    shared.unlock();
}

template <typename Lock>
class ReadWriteContention : public testing::Test {};
using LockKinds = testing::Types<zp::ReadWriteMutex, RWR>;
TYPED_TEST_SUITE(ReadWriteContention, LockKinds);

// A reader holds the lock and a writer waits: new readers queue behind the writer, and all of
// them come in once it leaves.
TYPED_TEST(ReadWriteContention, WaitingWriterGoesBeforeNewReaders) {
    using Lock = TypeParam;
    Lock rw;
    rw.lock_read();
    Taker<Lock> writer(rw, &Lock::lock_write);
    Taker<Lock> reader1(rw, &Lock::lock_read), reader2(rw, &Lock::lock_read);
    EXPECT_EQ(writer.at + reader1.at + reader2.at, 0) << "nobody passes the first reader";
    rw.unlock();
    for (int i = 0; i < 2000 && (reader1.at == 0 || reader2.at == 0); ++i)
        std::this_thread::sleep_for(1ms);
    EXPECT_LT(writer.at, std::min(reader1.at.load(), reader2.at.load()));
}

// Exposes the queue of waiting readers, so a test can wait until they are all blocked.
template <typename Lock>
struct Probe : Lock {
    uint32_t waiting_readers() {
        std::unique_lock<zp::Mutex> held(this->st_->guard);
        return this->st_->waiting_readers;
    }
};

// Plain ints, so that any overlap is a race ThreadSanitizer reports; the yields widen the
// window in which a missing exclusion shows as a torn pair in an ordinary build too.
TYPED_TEST(ReadWriteContention, WritersExcludeReadersAndEachOther) {
    TypeParam rw;
    int a = 0, b = 0;
    std::atomic<int> torn{0};
    kinefix_test::on_threads(4, [&](int) {
        for (int i = 0; i < 1000; ++i) {
            {
                zp::WriteGuard g(rw);
                ++a;
                std::this_thread::yield();
                ++b;
            }
            zp::ReadGuard g(rw);
            const int seen = a;
            std::this_thread::yield();
            if (seen != b) ++torn;
        }
    });
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(std::make_pair(a, b), std::make_pair(4000, 4000));
}

// Readers queued behind a writer must all come in when it leaves, not one after another.
TYPED_TEST(ReadWriteContention, LeavingWriterLetsEveryQueuedReaderInAtOnce) {
    constexpr int kReaders = 4;
    Probe<TypeParam> rw;
    std::atomic<int> inside{0}, together{0};
    rw.lock_write();
    std::vector<std::thread> readers;
    for (int r = 0; r < kReaders; ++r)
        readers.emplace_back([&] {
            zp::ReadGuard g(rw);
            ++inside;
            for (int i = 0; i < 3000 && inside < kReaders; ++i) std::this_thread::sleep_for(1ms);
            together = std::max(together.load(), inside.load());
            --inside;
        });
    while (rw.waiting_readers() < kReaders) std::this_thread::sleep_for(1ms);
    rw.unlock();
    for (auto& t : readers) t.join();
    EXPECT_EQ(together, kReaders);
}

}  // namespace
