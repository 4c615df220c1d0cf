// Kinefix: rebuilds a playable video from a damaged recording and its index file.
#include <cstdio>
#include <functional>

#include "restore/repair_engine.h"
#include "zephra_init.h"

namespace {

void PrintBanner() {
    printf("==============================\n");
    printf("Kinefix (%s)\n", zp::maker_address());
    printf("version: %s\n", "1.1.0");
    printf("release: %s\n", "2023.05.10");
    printf("==============================\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 1;

    zp::InitFramework(argc, argv);
    zp::AddExitHook([] { zp::ShutdownFramework(); });
    PrintBanner();

    if (argc == 2) {
        // Option-text form: arrives with the index-file reader.
    } else if (argc == 4) {
        char* broken = argv[1];
        char* moov = argv[2];
        char* output = argv[3];
        auto repair = [broken, moov, output] {
            RepairEngine engine;
            engine.Run(broken, moov, output);
        };
        repair();
    }

    printf("End\n");
    return 0;
}
