// kinefix-crypt: developer command for protected texts, the option text of the one-argument
// form and the header rewriting.
#include <cstdio>
#include <cstring>
#include <string>

#include "crypt/crypt.h"
#include "crypt/protected_strings.h"

namespace {

int Usage() {
    fprintf(stderr,
            "usage: kinefix-crypt protect <text>\n"
            "       kinefix-crypt restore <text>\n"
            "       kinefix-crypt options <broken_file> <moov_file> <output_file>\n"
            "       kinefix-crypt rewrite <header>...\n"
            "  protect  prints the protected text form of <text>\n"
            "  restore  prints the clear text of a protected text (a clear text as it is)\n"
            "  options  prints the protected option text that `kinefix <text>` takes\n"
            "  rewrite  turns the header's quoted #define texts into protected arrays\n");
    return 2;
}

// The reader of the option text knows no escapes: a double quote cannot be carried.
int PrintOptions(char** paths) {
    for (int i = 0; i < 3; ++i) {
        if (strchr(paths[i], '"')) {
            fprintf(stderr, "kinefix-crypt: a path may not contain '\"': %s\n", paths[i]);
            return 1;
        }
    }
    const std::string text = std::string("{\"") + ZP_KEY_BROKEN_FILE + "\":\"" + paths[0] +
                             "\",\"" + ZP_KEY_MOOV_FILE + "\":\"" + paths[1] + "\",\"" +
                             ZP_KEY_OUTPUT_FILE + "\":\"" + paths[2] + "\"}";
    printf("%s\n", zp::Crypt::instance()->protect_text(text).c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage();
    const std::string command = argv[1];
    zp::Crypt* crypt = zp::Crypt::instance();
    if (command == "protect" && argc == 3) {
        printf("%s\n", crypt->protect_text(argv[2]).c_str());
        return 0;
    }
    if (command == "restore" && argc == 3) {
        const std::string clear = crypt->restore_text(argv[2]);
        if (clear.empty() && argv[2][0] != '\0' && crypt->protect_text("") != argv[2]) {
            fprintf(stderr, "kinefix-crypt: the text does not restore\n");
            return 1;
        }
        printf("%s\n", clear.c_str());
        return 0;
    }
    if (command == "options" && argc == 5) return PrintOptions(argv + 2);
    if (command == "rewrite" && argc >= 3) {
        int failed = 0;
        for (int i = 2; i < argc; ++i) {
            if (!crypt->rewrite_header(argv[i])) {
                fprintf(stderr, "kinefix-crypt: cannot rewrite %s\n", argv[i]);
                ++failed;
            }
        }
        return failed ? 1 : 0;
    }
    return Usage();
}
