#pragma once
// Exclusive locks: a plain and a recursive mutex behind one interface.

#include <mutex>

namespace zp {

class AbstractMutex {
  public:
    virtual ~AbstractMutex() = default;
    // Blocks until acquired; system failures surface as std::system_error.
    virtual void lock() = 0;
    // True when acquired, false when another thread holds it.
    virtual bool try_lock() = 0;
    virtual void unlock() = 0;
};

// Non-recursive: locking it twice from one thread deadlocks.
class Mutex : public AbstractMutex {
  public:
    Mutex();
    ~Mutex() override;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() override;
    bool try_lock() override;
    void unlock() override;

  private:
    std::timed_mutex* m_;
};

// Recursive: the owner may lock again and must unlock as often.
class MutexRecursive : public AbstractMutex {
  public:
    MutexRecursive();
    ~MutexRecursive() override;
    MutexRecursive(const MutexRecursive&) = delete;
    MutexRecursive& operator=(const MutexRecursive&) = delete;

    void lock() override;
    bool try_lock() override;
    void unlock() override;

  private:
    std::recursive_timed_mutex* m_;
};

// Scoped holder for any AbstractMutex.
class MutexGuard {
  public:
    explicit MutexGuard(AbstractMutex& m) : m_(m) { m_.lock(); }
    ~MutexGuard() { m_.unlock(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

  private:
    AbstractMutex& m_;
};

}  // namespace zp
