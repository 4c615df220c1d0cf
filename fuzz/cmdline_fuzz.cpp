// Fuzz target: the option parser on arbitrary argument vectors (arguments split at NUL bytes).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "cmdline/cmdline.h"

namespace {

void Declare(cmdline::parser* p) {
    p->add_flag("verbose", 'v', "talk more");
    p->add_flag("help", 'h', "this text");
    p->add_option<std::string>("input", 'i', "input file", false, "");
    p->add_option<std::string>("output", 0, "output file", true, "");
    p->add_option<int>("count", 'c', "repeat", false, 3);
    p->add_option<unsigned int>("size", 's', "bytes", false, 0u);
    p->add_option<int64_t>("offset", 'o', "position", false, 0);
    p->add_option<uint64_t>("limit", 'l', "most", false, 0u);
    p->add_option<float>("ratio", 'r', "scale", false, 1.0f);
    p->add_option<double>("gain", 'g', "level", false, 0.5);
    p->add_option<bool>("loop", 0, "again", false, false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> args;
    std::string current;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            args.push_back(current);
            current.clear();
        } else {
            current += static_cast<char>(data[i]);
        }
    }
    if (size > 0) args.push_back(current);
    std::vector<const char*> argv;
    for (const auto& a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);

    cmdline::parser p;
    Declare(&p);
    const bool ok = p.parse(static_cast<int>(args.size()), argv.data());
    if (ok != p.error_list().empty()) abort();
    if (ok && !p.is_set("output")) abort();  // required: a clean parse must have it
    p.usage_text();

    p.get_value<std::string>("input");
    p.get_value<int>("count");
    p.get_value<unsigned int>("size");
    p.get_value<int64_t>("offset");
    p.get_value<uint64_t>("limit");
    p.get_value<float>("ratio");
    p.get_value<double>("gain");
    p.get_value<bool>("loop");
    p.is_set("verbose");
    p.is_set("help");

    // A second parse of the same vector reaches the same verdict.
    if (p.parse(static_cast<int>(args.size()), argv.data()) != ok) abort();
    return 0;
}
