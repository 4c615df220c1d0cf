#pragma once
// zp::Blocking_IO: a first-in first-out queue of byte strings on which consumers block until
// a producer delivers or the queue is aborted for good.

#include <string>

namespace zp {

class Blocking_IO {
  public:
    Blocking_IO();
    // Aborts first, so that no consumer stays blocked on a queue that goes away.
    virtual ~Blocking_IO();
    Blocking_IO(const Blocking_IO&) = delete;
    Blocking_IO& operator=(const Blocking_IO&) = delete;

    // False once aborted. Wakes one waiting consumer.
    virtual bool push(const std::string& text);
    // The front string; the empty string once aborted.
    virtual std::string pop();
    // As pop, giving up with the empty string after `timeout_ms` milliseconds.
    virtual std::string pop_for(int timeout_ms);
    // Final: rejects every later push and wakes every waiting consumer.
    virtual void abort();
    virtual bool is_aborted();

  private:
    struct State;
    State* st_;
};

}  // namespace zp
