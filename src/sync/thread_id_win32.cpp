// Thread ids on Windows.
#include "core/win32_support.h"
#include "sync/thread_id.h"

namespace zp {

uint32_t current_thread_id() {
    return static_cast<uint32_t>(GetCurrentThreadId());
}

}  // namespace zp
