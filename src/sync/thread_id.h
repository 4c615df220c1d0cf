#pragma once
// The system id of the calling thread (GetCurrentThreadId / gettid).

#include <cstdint>

namespace zp {

uint32_t current_thread_id();

}  // namespace zp
