// Framework start-up and shut-down: the root, its waiting slots and the exit hooks; the log
// call's way to the root, which the log area cannot include.
#include "zephra_init.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>

#include "crypt/protected_strings.h"
#include "loader/admin.h"
#include "log/log.h"
#include "utils/utils.h"

namespace zp {

Admin* ppCD = nullptr;
bool g_exiting = false;
std::string g_programPath;
std::string g_programDir;
std::string g_programName;

namespace {

// KEPT: a fixed table, as the framework was built; the program registers only a handful of
// slots, and a slot beyond the table is refused rather than queued.
constexpr uint32_t kMaxWaitingSlots = 1024;

struct WaitingSlots {
    Admin** slots[kMaxWaitingSlots] = {};
    uint32_t count = 0;
    uint32_t served = 0;
};

WaitingSlots g_waitingSlots;
bool g_shuttingDown = false;
bool g_hooksStarted = false;
bool g_firstHook = true;

// Function-local so that static initialisers of other units may register hooks safely.
std::deque<std::function<void()>>& exit_hooks() {
    static std::deque<std::function<void()>> hooks;
    return hooks;
}

void set_program_paths(const char* argv0) {
    g_programPath = Utils::instance()->ansi_to_utf8(argv0 ? argv0 : "");
    const size_t sep = g_programPath.find_last_of("/\\");
    g_programDir = sep == std::string::npos ? "" : g_programPath.substr(0, sep + 1);
    std::string file = sep == std::string::npos ? g_programPath : g_programPath.substr(sep + 1);
    g_programName = file.substr(0, file.find('.'));
}

extern "C" void run_exit_hooks_at_exit() {
    RunExitHooks();
}

}  // namespace

int AttachRoot(Admin** slot) {
    if (slot == nullptr) return -1;
    if (*slot != nullptr) return 0;
    if (ppCD != nullptr) {
        *slot = ppCD;
        fprintf(stderr, "[INIT] ppCD=%016llX inited from Admin\n",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(slot)));
        return 0;
    }
    for (uint32_t i = 0; i < g_waitingSlots.count; ++i)
        if (g_waitingSlots.slots[i] == slot) return 0;
    if (g_waitingSlots.count >= kMaxWaitingSlots) {
        fprintf(stderr, "[INIT] ppCD=%016llX can't wait for init: all %u slots taken\n",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(slot)),
                static_cast<unsigned>(kMaxWaitingSlots));
        return -1;
    }
    g_waitingSlots.slots[g_waitingSlots.count++] = slot;
    fprintf(stderr, "[INIT] ppCD=%016llX waitting for init ...\n",
            static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(slot)));
    return 0;
}

void InitFramework(int argc, char** argv) {
    g_exiting = false;
    if (ppCD != nullptr) return;
    Utils* utils = Utils::instance();
    utils->set_env("EVZephra", maker_address(), 1);

    ppCD = new Admin;
    set_program_paths(argc > 0 && argv != nullptr ? argv[0] : "");
    ppCD->init();
    utils->set_env_ptr("Zephra_Main_CD", ppCD);

    for (uint32_t i = g_waitingSlots.served; i < g_waitingSlots.count; ++i) {
        Admin** slot = g_waitingSlots.slots[i];
        if (slot != nullptr && *slot == nullptr) *slot = ppCD;
    }
    g_waitingSlots.served = g_waitingSlots.count;
    ppCD->start();
}

void AddExitHook(std::function<void()> hook) {
    auto& hooks = exit_hooks();  // built before the runner is registered, so it outlives it
    if (g_firstHook) {
        g_firstHook = false;
        atexit(run_exit_hooks_at_exit);
    }
    hooks.push_back(std::move(hook));
}

void RunExitHooks() {
    if (!g_hooksStarted) {
        g_hooksStarted = true;
        auto& hooks = exit_hooks();
        while (!hooks.empty()) {
            std::function<void()> hook = hooks.back();
            hooks.pop_back();
            hook();
        }
    }
    ShutdownFramework();
}

void ShutdownFramework() {
    if (ppCD == nullptr || g_shuttingDown) return;
    g_exiting = true;
    g_shuttingDown = true;
    RunExitHooks();
    delete ppCD;
    ppCD = nullptr;
    g_shuttingDown = false;
}

Abstract_Logger* root_logger() {
    return ppCD != nullptr ? ppCD->logger : nullptr;
}

const char* log_time() {
    Abstract_Utils* u =
        (ppCD != nullptr && ppCD->utils != nullptr) ? ppCD->utils : Utils::instance();
    return u->now_str("%m%d-%H:%M:%S");
}

const char* maker_address() {
    static const std::string address = ZP_MAKER_ADDRESS;
    return address.c_str();
}

}  // namespace zp
