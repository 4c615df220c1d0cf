// Kinefix: rebuilds a playable video from a damaged recording and its index file.
#include <cstdio>
#include <functional>

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
        // Positional form: arrives with the repair engine.
    }

    printf("End\n");
    return 0;
}
