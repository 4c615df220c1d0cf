#pragma once
// Windows stand-in for the status macros the test helpers use: std::system there returns the
// program's exit code itself, or -1 when the command could not be run.

#define WIFEXITED(status) ((status) != -1)
#define WEXITSTATUS(status) (status)
