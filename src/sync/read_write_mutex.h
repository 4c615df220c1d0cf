#pragma once
// Writer-preferring reader/writer locks, plain and per-thread recursive.

#include <condition_variable>
#include <cstdint>
#include <unordered_map>

#include "sync/mutex.h"

namespace zp {

class AbstractReadWriteMutex {
  public:
    virtual ~AbstractReadWriteMutex() = default;
    virtual void lock_read() = 0;
    virtual void lock_write() = 0;
    // Releases whichever kind the caller holds.
    virtual void unlock() = 0;
};

// Not re-entrant. Waiting writers always go before new readers.
class ReadWriteMutex : public AbstractReadWriteMutex {
  public:
    ReadWriteMutex();
    ~ReadWriteMutex() override;
    ReadWriteMutex(const ReadWriteMutex&) = delete;
    ReadWriteMutex& operator=(const ReadWriteMutex&) = delete;

    void lock_read() override;
    void lock_write() override;
    void unlock() override;

  protected:
    struct State {
        uint32_t waiting_writers = 0;
        uint32_t waiting_readers = 0;
        uint32_t writer = 0;  // 1 while held (plain) or the nesting depth (recursive)
        uint32_t active_readers = 0;
        Mutex guard;
        std::condition_variable_any readers_cv;
        std::condition_variable_any writers_cv;
    };
    // Expects the guard held: waits until this thread may read, then counts it in.
    void wait_read(std::unique_lock<Mutex>& held);
    void wait_write(std::unique_lock<Mutex>& held);
    // Wakes writers first; readers only when no writer waits.
    void wake();

    State* st_;
};

// Read and write recursion per thread; mixing kinds on one thread deadlocks.
class ReadWriteMutexRecursive : public ReadWriteMutex {
  public:
    ReadWriteMutexRecursive() = default;
    ~ReadWriteMutexRecursive() override = default;

    void lock_read() override;
    void lock_write() override;
    void unlock() override;

  private:
    uint32_t write_owner_ = 0;
    std::unordered_map<uint32_t, uint32_t> readers_;
};

// Scoped read or write hold.
class ReadGuard {
  public:
    explicit ReadGuard(AbstractReadWriteMutex& m) : m_(m) { m_.lock_read(); }
    ~ReadGuard() { m_.unlock(); }
    ReadGuard(const ReadGuard&) = delete;
    ReadGuard& operator=(const ReadGuard&) = delete;

  private:
    AbstractReadWriteMutex& m_;
};

class WriteGuard {
  public:
    explicit WriteGuard(AbstractReadWriteMutex& m) : m_(m) { m_.lock_write(); }
    ~WriteGuard() { m_.unlock(); }
    WriteGuard(const WriteGuard&) = delete;
    WriteGuard& operator=(const WriteGuard&) = delete;

  private:
    AbstractReadWriteMutex& m_;
};

}  // namespace zp
