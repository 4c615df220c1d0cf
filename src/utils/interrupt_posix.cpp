// Interruption requests on POSIX: signal handlers that only record the signal.
#include "utils/interrupt.h"

#include <signal.h>

#include <initializer_list>

namespace zp {

namespace {

volatile sig_atomic_t g_signal = 0;

void Record(int signo) {
    if (g_signal == 0) g_signal = signo;
}

}  // namespace

void watch_interrupts() {
    struct sigaction action = {};
    action.sa_handler = Record;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;  // reads and writes in progress finish; the loop then stops
    for (int signo : {SIGINT, SIGTERM, SIGHUP}) sigaction(signo, &action, nullptr);
}

int interrupt_signal() {
    return g_signal;
}

}  // namespace zp
