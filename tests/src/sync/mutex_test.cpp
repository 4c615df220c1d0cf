// Lock kinds: recursion, writer preference, shared reads, stranger unlock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "sync/mutex.h"
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

TEST(MutexTest, RecursiveMutexNeedsOneUnlockPerLock) {
    zp::MutexRecursive m;
    m.lock();
    EXPECT_TRUE(m.try_lock());
    m.unlock();
    Taker<zp::MutexRecursive> other(m, &zp::MutexRecursive::lock);
    EXPECT_EQ(other.at, 0) << "still held once";
    m.unlock();
}

// A reader holds the lock and a writer waits: new readers queue behind the writer, and all of
// them come in once it leaves.
template <typename Lock>
void check_writer_preference() {
    Lock rw;
    rw.lock_read();
    Taker<Lock> writer(rw, &Lock::lock_write);
    Taker<Lock> reader1(rw, &Lock::lock_read), reader2(rw, &Lock::lock_read);
    EXPECT_EQ(writer.at + reader1.at + reader2.at, 0) << "nobody passes the first reader";
    rw.unlock();
    for (int i = 0; i < 2000 && (reader1.at == 0 || reader2.at == 0); ++i)
        std::this_thread::sleep_for(1ms);
    EXPECT_LT(writer.at, reader1.at);
    EXPECT_LT(writer.at, reader2.at);
}

TEST(ReadWriteMutexTest, WaitingWriterGoesBeforeNewReaders) {
    check_writer_preference<zp::ReadWriteMutex>();
    check_writer_preference<RWR>();
}

TEST(ReadWriteMutexTest, RecursiveHoldsNestAndPassAWaitingWriter) {
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
}

TEST(ReadWriteMutexTest, ReadersShareAndAStrangerUnlockOnlyWarns) {
    RWR rw;
    rw.lock_read();
    Taker<RWR> other(rw, &RWR::lock_read);
    EXPECT_NE(other.at, 0) << "readers share";
    std::string warning;
    std::thread([&] {
        testing::internal::CaptureStderr();
        rw.unlock();
        warning = testing::internal::GetCapturedStderr();
    }).join();
    EXPECT_EQ(warning, "[Warnning]: unlocking from a thread that did not lock");
    Taker<RWR> writer(rw, &RWR::lock_write);
    EXPECT_EQ(writer.at, 0) << "the real reader's hold is intact";
    rw.unlock();
}

}  // namespace
