// Reader/writer locks built on one guard mutex and two condition variables.
#include "sync/read_write_mutex.h"

#include <cstdio>

#include "sync/thread_id.h"

namespace zp {

ReadWriteMutex::ReadWriteMutex() : st_(new State) {}
ReadWriteMutex::~ReadWriteMutex() {
    delete st_;
}

void ReadWriteMutex::wait_read(std::unique_lock<Mutex>& held) {
    while (st_->writer != 0 || st_->waiting_writers != 0) {
        ++st_->waiting_readers;
        st_->readers_cv.wait(held);
        --st_->waiting_readers;
    }
    ++st_->active_readers;
}

void ReadWriteMutex::wait_write(std::unique_lock<Mutex>& held) {
    while (st_->active_readers != 0 || st_->writer != 0) {
        ++st_->waiting_writers;
        st_->writers_cv.wait(held);
        --st_->waiting_writers;
    }
}

void ReadWriteMutex::wake() {
    if (st_->waiting_readers != 0 && st_->waiting_writers == 0) st_->readers_cv.notify_all();
    if (st_->waiting_writers != 0) st_->writers_cv.notify_one();
}

void ReadWriteMutex::lock_read() {
    std::unique_lock<Mutex> held(st_->guard);
    wait_read(held);
}

void ReadWriteMutex::lock_write() {
    std::unique_lock<Mutex> held(st_->guard);
    wait_write(held);
    st_->writer = 1;
}

void ReadWriteMutex::unlock() {
    std::unique_lock<Mutex> held(st_->guard);
    if (st_->writer == 0) {
        --st_->active_readers;
        if (st_->active_readers != 0) return;
    } else {
        st_->writer = 0;
    }
    wake();
}

void ReadWriteMutexRecursive::lock_write() {
    const uint32_t me = current_thread_id();
    std::unique_lock<Mutex> held(st_->guard);
    if (write_owner_ == me) {
        ++st_->writer;
        return;
    }
    wait_write(held);
    st_->writer = 1;
    write_owner_ = me;
}

void ReadWriteMutexRecursive::lock_read() {
    const uint32_t me = current_thread_id();
    std::unique_lock<Mutex> held(st_->guard);
    auto it = readers_.find(me);
    if (it != readers_.end()) {
        // A nested read never waits, or it would deadlock behind a waiting writer.
        ++it->second;
        return;
    }
    wait_read(held);
    readers_.emplace(me, 1u);
}

void ReadWriteMutexRecursive::unlock() {
    const uint32_t me = current_thread_id();
    std::unique_lock<Mutex> held(st_->guard);
    if (write_owner_ != 0 && write_owner_ == me) {
        if (--st_->writer == 0) {
            write_owner_ = 0;
            wake();
        }
        return;
    }
    auto it = readers_.find(me);
    if (it == readers_.end()) {
        fputs("[Warnning]: unlocking from a thread that did not lock", stderr);
        return;
    }
    if (--it->second == 0) {
        readers_.erase(it);
        --st_->active_readers;
        if (st_->active_readers == 0) wake();
    }
}

}  // namespace zp
