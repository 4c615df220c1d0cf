// Thread ids on POSIX systems.
#include <sys/syscall.h>
#include <unistd.h>

#include "sync/thread_id.h"

namespace zp {

uint32_t current_thread_id() {
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

}  // namespace zp
