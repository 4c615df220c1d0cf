#pragma once
// Interruption requests (SIGINT, SIGTERM, SIGHUP; Ctrl+C and console close on Windows), turned
// into a flag that long work checks between steps instead of dying half-way.

namespace zp {

// From now on the requests set the flag instead of ending the process.
void watch_interrupts();
// The number of the signal that asked to stop (2 for Ctrl+C on Windows), 0 while none did.
int interrupt_signal();

}  // namespace zp
