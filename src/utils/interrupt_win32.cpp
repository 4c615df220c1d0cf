// Interruption requests on Windows: a console control handler that only records the event.
#include "utils/interrupt.h"

#include "core/win32_support.h"

namespace zp {

namespace {

volatile LONG g_signal = 0;

BOOL WINAPI Record(DWORD event) {
    // Ctrl+C and Ctrl+Break read as SIGINT, closing the console as SIGHUP, as on POSIX.
    const LONG signo = (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) ? 2 : 1;
    InterlockedCompareExchange(&g_signal, signo, 0);
    return TRUE;
}

}  // namespace

void watch_interrupts() {
    SetConsoleCtrlHandler(Record, TRUE);
}

int interrupt_signal() {
    return static_cast<int>(g_signal);
}

}  // namespace zp
