// Kinefix: rebuilds a playable video from a damaged recording and its index file.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "cmdline/object_text.h"
#include "crypt/crypt.h"
#include "crypt/protected_strings.h"
#include "log/log.h"
#include "restore/repair_engine.h"
#include "zephra_init.h"

namespace {

void PrintBanner() {
    printf("==============================\n");
    printf("Kinefix (%s)\n", zp::maker_address());
    printf("version: %s\n", KINEFIX_VERSION);
    printf("release: %s\n", "2023.05.10");
    printf("==============================\n");
}

// A stopped copy has already put what it had in place; the exit code says why it stopped.
void ExitIfInterrupted(const restore::RepairEngine& engine) {
    if (engine.interrupt_signal() == 0) return;
    fflush(stdout);
    exit(128 + engine.interrupt_signal());
}

// The one-argument form: a flat object text naming the three paths. No member is required;
// an empty path surfaces as the engine's own failure.
void RunOptionText(const std::string& text) {
    zp::ObjectText options;
    if (!options.parse(text)) return;
    const std::string broken = options.get_string(ZP_KEY_BROKEN_FILE, "");
    const std::string moov = options.get_string(ZP_KEY_MOOV_FILE, "");
    const std::string output = options.get_string(ZP_KEY_OUTPUT_FILE, "");
    ZP_LOGE("---------------------------------");
    ZP_LOGE("broken:%s", broken.c_str());
    ZP_LOGE("moov:%s", moov.c_str());
    ZP_LOGE("out:%s", output.c_str());
    restore::RepairEngine engine;
    engine.Run(broken.c_str(), moov.c_str(), output.c_str());
    ExitIfInterrupted(engine);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 1;

    zp::InitFramework(argc, argv);
    zp::AddExitHook([] { zp::ShutdownFramework(); });
    PrintBanner();

    if (argc == 2) {
        // A front end may hand the text protected or in clear; restoring passes clear text on.
        auto run = [text = zp::Crypt::instance()->restore_text(argv[1])] { RunOptionText(text); };
        run();
    } else if (argc == 4) {
        char* broken = argv[1];
        char* moov = argv[2];
        char* output = argv[3];
        auto repair = [broken, moov, output] {
            restore::RepairEngine engine;
            engine.Run(broken, moov, output);
            ExitIfInterrupted(engine);
        };
        repair();
    }

    printf("End\n");
    return 0;
}
