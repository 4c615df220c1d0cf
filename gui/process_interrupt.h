#pragma once
// ProcessInterrupt: the Ctrl-C a console program gets, sent to a child by its process id.

#include <QtGlobal>

class ProcessInterrupt {
  public:
    // SIGINT on POSIX; false when the process is gone or the signal was refused.
    static bool send(qint64 pid);
};
