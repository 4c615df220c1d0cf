#pragma once
// Framework start-up and shut-down: the root pointer, exit hooks and early root requests.

#include <functional>
#include <string>

namespace zp {

class Admin;

// The root; null before start-up and after shut-down.
extern Admin* ppCD;
// Set when shut-down begins; never cleared.
extern bool g_exiting;
// argv[0] in UTF-8, its directory (with the trailing separator) and its name cut at the
// first dot.
extern std::string g_programPath;
extern std::string g_programDir;
extern std::string g_programName;

// Builds, initialises, publishes and starts the root. A second call does nothing.
void InitFramework(int argc, char** argv);
// Runs the exit hooks and destroys the root, once.
void ShutdownFramework();
// Queues a hook for process exit; hooks run last-registered first.
void AddExitHook(std::function<void()> hook);
void RunExitHooks();
// For static initialisers: fills *slot with the root now or once it exists. -1 for null, and
// for a slot that finds the table of waiting slots (1024) full.
int AttachRoot(Admin** slot);

// The maker's address, published in EVZephra and shown in the banner.
const char* maker_address();

}  // namespace zp
