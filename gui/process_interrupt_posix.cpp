// ProcessInterrupt on POSIX: kill(2) with SIGINT, which kinefix answers by finishing its
// output so that what was copied plays.
#include "process_interrupt.h"

#include <signal.h>
#include <sys/types.h>

bool ProcessInterrupt::send(qint64 pid) {
    if (pid <= 0) return false;
    return ::kill(static_cast<pid_t>(pid), SIGINT) == 0;
}
