// Exclusive locks over the standard library's timed mutexes.
#include "sync/mutex.h"

namespace zp {

Mutex::Mutex() : m_(new std::timed_mutex) {}
Mutex::~Mutex() {
    delete m_;
}
void Mutex::lock() {
    m_->lock();
}
bool Mutex::try_lock() {
    return m_->try_lock();
}
void Mutex::unlock() {
    m_->unlock();
}

MutexRecursive::MutexRecursive() : m_(new std::recursive_timed_mutex) {}
MutexRecursive::~MutexRecursive() {
    delete m_;
}
void MutexRecursive::lock() {
    m_->lock();
}
bool MutexRecursive::try_lock() {
    return m_->try_lock();
}
void MutexRecursive::unlock() {
    m_->unlock();
}

}  // namespace zp
