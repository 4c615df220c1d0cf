// Lock kinds: recursion, try_lock across threads, writer preference, stranger unlock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "sync/mutex.h"
#include "sync/read_write_mutex.h"

namespace {

using namespace std::chrono_literals;

// Waits until `cond` holds or a generous deadline passes (the tests never depend on timing).
template <typename F>
bool eventually(F cond) {
    for (int i = 0; i < 2000; ++i) {
        if (cond()) return true;
        std::this_thread::sleep_for(1ms);
    }
    return cond();
}

bool try_from_other_thread(zp::AbstractMutex& m) {
    bool got = false;
    std::thread t([&] {
        got = m.try_lock();
        if (got) m.unlock();
    });
    t.join();
    return got;
}

TEST(MutexTest, RecursiveMutexNeedsOneUnlockPerLock) {
    zp::MutexRecursive m;
    m.lock();
    m.lock();
    EXPECT_TRUE(m.try_lock());
    m.unlock();
    m.unlock();
    EXPECT_FALSE(try_from_other_thread(m));
    m.unlock();
    EXPECT_TRUE(try_from_other_thread(m));
}

TEST(MutexTest, CounterStaysExactUnderContention) {
    zp::Mutex m;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                zp::MutexGuard g(m);
                ++counter;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(counter, 80000);
}

// A reader holds the lock and a writer waits: a new reader must queue behind the writer.
template <typename Lock>
void check_writer_preference() {
    Lock rw;
    std::atomic<int> step{0};
    std::vector<int> order;
    zp::Mutex order_lock;
    auto note = [&](int what) {
        zp::MutexGuard g(order_lock);
        order.push_back(what);
    };

    rw.lock_read();
    std::thread writer([&] {
        step = 1;
        rw.lock_write();
        note(1);
        rw.unlock();
    });
    ASSERT_TRUE(eventually([&] { return step == 1; }));
    std::this_thread::sleep_for(50ms);  // let the writer block in lock_write
    std::thread reader([&] {
        step = 2;
        rw.lock_read();
        note(2);
        rw.unlock();
    });
    ASSERT_TRUE(eventually([&] { return step == 2; }));
    std::this_thread::sleep_for(50ms);
    {
        zp::MutexGuard g(order_lock);
        EXPECT_TRUE(order.empty()) << "nobody may pass while the first reader holds the lock";
    }
    rw.unlock();
    writer.join();
    reader.join();
    ASSERT_EQ(order.size(), 2u);
    EXPECT_EQ(order[0], 1) << "the waiting writer goes before the later reader";
    EXPECT_EQ(order[1], 2);
}

TEST(ReadWriteMutexTest, WaitingWriterGoesBeforeNewReader) {
    check_writer_preference<zp::ReadWriteMutex>();
}

TEST(ReadWriteMutexTest, RecursiveWaitingWriterGoesBeforeNewReader) {
    check_writer_preference<zp::ReadWriteMutexRecursive>();
}

// Readers share the lock; a writer keeps them out until it leaves, then all come in at once.
TEST(ReadWriteMutexTest, ReadersShareAndReleasingWriterWakesThemAll) {
    zp::ReadWriteMutex rw;
    rw.lock_write();
    std::atomic<int> inside{0};
    std::atomic<int> max_inside{0};
    std::atomic<bool> release{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            rw.lock_read();
            int now = ++inside;
            int prev = max_inside.load();
            while (prev < now && !max_inside.compare_exchange_weak(prev, now)) {
            }
            while (!release) std::this_thread::sleep_for(1ms);
            --inside;
            rw.unlock();
        });
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(inside.load(), 0);
    rw.unlock();
    EXPECT_TRUE(eventually([&] { return max_inside.load() == 3; }));
    release = true;
    for (auto& t : readers) t.join();
}

TEST(ReadWriteMutexTest, RecursiveReadPassesAWaitingWriter) {
    zp::ReadWriteMutexRecursive rw;
    rw.lock_read();
    std::atomic<bool> writer_done{false};
    std::thread writer([&] {
        rw.lock_write();
        writer_done = true;
        rw.unlock();
    });
    std::this_thread::sleep_for(50ms);
    rw.lock_read();  // must not deadlock behind the waiting writer
    EXPECT_FALSE(writer_done.load());
    rw.unlock();
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(writer_done.load()) << "one read hold remains";
    rw.unlock();
    writer.join();
    EXPECT_TRUE(writer_done.load());

    // Writes nest as well: one unlock leaves the lock held.
    rw.lock_write();
    rw.lock_write();
    rw.unlock();
    std::atomic<bool> reader_in{false};
    std::thread r([&] {
        rw.lock_read();
        reader_in = true;
        rw.unlock();
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(reader_in.load()) << "still held once";
    rw.unlock();
    r.join();
}

TEST(ReadWriteMutexTest, StrangerUnlockOnlyWarns) {
    zp::ReadWriteMutexRecursive rw;
    rw.lock_read();
    std::string warning;
    std::thread stranger([&] {
        testing::internal::CaptureStderr();
        rw.unlock();
        warning = testing::internal::GetCapturedStderr();
    });
    stranger.join();
    EXPECT_EQ(warning, "[Warnning]: unlocking from a thread that did not lock");
    // The real reader's hold is intact: a writer still has to wait for it.
    std::atomic<bool> writer_in{false};
    std::thread writer([&] {
        rw.lock_write();
        writer_in = true;
        rw.unlock();
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(writer_in.load());
    rw.unlock();
    writer.join();
    EXPECT_TRUE(writer_in.load());
}

}  // namespace
