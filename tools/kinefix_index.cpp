// kinefix-index: writes the index file of a healthy recording, so that kinefix can rebuild the
// recording from its media bytes should its own index ever be lost.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "restore/index_writer.h"
#include "restore/recording_index.h"
#include "restore/rescue_command.h"
#include "utils/same_file.h"
#include "zephra_init.h"

namespace {

void PrintUsage(FILE* to) {
    fprintf(to,
            "usage: kinefix-index [--index-version 1|2] [--entries-per-line N] RECORDING INDEX\n"
            "       kinefix-index --reference HEALTHY [--progress] DAMAGED INDEX\n"
            "Writes the index file kinefix needs to rebuild RECORDING should its own index be\n"
            "lost: one H.264 or HEVC video track and one AAC, MP3, Opus, AC-3 or PCM audio\n"
            "track; every other track is named on standard error and left out. Version 2 (the\n"
            "default) leaves zero fields empty; version 1 spells every field. At most %d\n"
            "entries fit on a line (the longest line kinefix reads); more are capped to that.\n"
            "INDEX is written beside its final name and replaces it only when complete; it may\n"
            "not be RECORDING itself. With --reference, the index of a recording that lost its\n"
            "own is rebuilt by scanning it with what HEALTHY (a recording of the same camera)\n"
            "teaches; nothing is written when HEALTHY does not fit.\n",
            restore::IndexWriter::MaxEntriesPerLine(2));
}

struct Options {
    int version = 2;
    int per_line = 1;
    bool help = false;
    std::vector<std::string> paths;
    std::string reference;
    bool progress = false;
};

bool ParseOptions(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        std::string value;
        std::string name = arg;
        const size_t eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
        } else if ((arg == "--index-version" || arg == "--entries-per-line" ||
                    arg == "--reference") &&
                   i + 1 < argc) {
            value = argv[++i];
        }
        if (name == "--help" || name == "-h") {
            o->help = true;
        } else if (name == "--index-version") {
            o->version = atoi(value.c_str());
            if (o->version != 1 && o->version != 2) return false;
        } else if (name == "--entries-per-line") {
            o->per_line = atoi(value.c_str());
            if (o->per_line < 1) return false;
        } else if (name == "--reference") {
            o->reference = value;
            if (value.empty()) return false;
        } else if (arg == "--progress") {
            o->progress = true;
        } else if (arg.rfind("--", 0) == 0 && arg.size() > 2) {
            return false;
        } else {
            o->paths.push_back(arg);
        }
    }
    return o->help || o->paths.size() == 2;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!ParseOptions(argc, argv, &o)) {
        PrintUsage(stderr);
        return 2;
    }
    if (o.help) {
        PrintUsage(stdout);
        return 0;
    }
    const std::string& recording = o.paths[0];
    const std::string& index = o.paths[1];
    // Any spelling or link of the recording: the index would replace it.
    if (zp::same_file(recording.c_str(), index.c_str())) {
        fprintf(stderr,
                "kinefix-index: refusing to write the index over the recording itself: '%s'\n",
                index.c_str());
        return 2;
    }
    if (!o.reference.empty() && zp::same_file(o.reference.c_str(), index.c_str())) {
        fprintf(stderr,
                "kinefix-index: refusing to write the index over the reference recording: '%s'\n",
                index.c_str());
        return 2;
    }
    const int max = restore::IndexWriter::MaxEntriesPerLine(o.version);
    if (o.per_line > max) {
        fprintf(stderr, "kinefix-index: note: %d entries per line capped to %d\n", o.per_line, max);
        o.per_line = max;
    }
    if (!o.reference.empty()) {
        zp::InitFramework(argc, argv);
        zp::AddExitHook([] { zp::ShutdownFramework(); });
        restore::RescueOptions rescue{o.reference, recording, index,
                                      o.progress,  o.version, o.per_line};
        return restore::RescueCommand::Run(rescue);
    }
    return restore::RecordingIndexer(o.version, o.per_line).Run(recording, index);
}
