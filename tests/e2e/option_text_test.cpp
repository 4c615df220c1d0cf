// The one-argument form end to end: a protected or clear option text drives a real repair;
// the program keeps its protected texts out of sight.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypt/crypt.h"
#include "support/media_support.h"

namespace {

using namespace kinefix_test;

TEST(OptionTextTest, ProtectedAndClearTextsRepair) {
    Workspace ws;
    const std::string index = ws / "索引 file.idx";
    const std::string broken = ws.indexed_recording("录像 a.mp4", RecordingPlan(), {}, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());
    ASSERT_TRUE(destroy_moov(broken));
    for (const bool protected_text : {true, false}) {
        const std::string output = ws / (protected_text ? "protected.mp4" : "clear.mp4");
        const std::string text = "{\"broken_file\":\"" + broken + "\",\"moov_file\":\"" + index +
                                 "\",\"output_file\":\"" + output + "\"}";
        const RunResult r =
            ws.kinefix({protected_text ? zp::Crypt::instance()->protect_text(text) : text});
        ASSERT_EQ(r.exit_code, 0) << r.err;
        expect_repair_stdout(r.out, packet_lines(read_file(index)).size());
        EXPECT_EQ(packet_difference(original, frame_report(output, ws.dir()), Match::kExact), "");
        // The paths are logged before the engine runs, back to back.
        const std::string log = ws.log();
        const std::vector<std::string> lines =
            lines_of(log.substr(log.rfind("\"---------------------------------\"\n")));
        ASSERT_GE(lines.size(), 4u) << log;
        EXPECT_NE(lines[1].find("[E][zp] main.cpp "), std::string::npos) << lines[1];
        EXPECT_EQ(lines[1].substr(lines[1].find(": \"")), ": \"broken:" + broken + "\"");
        EXPECT_EQ(lines[2].substr(lines[2].find(": \"")), ": \"moov:" + index + "\"");
        EXPECT_EQ(lines[3].substr(lines[3].find(": \"")), ": \"out:" + output + "\"");
    }
}

// None of the product's protected texts may stand in the program's read-only data, nor the
// maker's address anywhere in the file (debug names may carry the option keys).
TEST(ProtectedTextTest, ProductCarriesNoClearProtectedText) {
    Workspace ws;
    const std::string program = bin_dir() + "/kinefix";
    const std::string image = read_file(program);
    ASSERT_GT(image.size(), 10000u);
    EXPECT_EQ(image.find("kinefix.example.org"), std::string::npos);
    const RunResult r =
        run("objcopy", {"-O", "binary", "--only-section=.rodata", program, ws / "rodata.bin"}, {},
            ws.dir());
    ASSERT_EQ(r.exit_code, 0) << r.err;
    const std::string data = read_file(ws / "rodata.bin");
    ASSERT_NE(data.find("release: %s\n"), std::string::npos) << "clear texts are found here";
    for (const char* text : {"broken_file", "moov_file", "output_file"})
        EXPECT_EQ(data.find(text), std::string::npos) << text;
}

// The tools' refusals: kinefix-crypt's quote in any of the three paths and a text that does not
// restore; kinefix-index's zero entries per line (recordings it refuses: index_tool_test).
TEST(ToolRefusalsTest, SayWhyAndFail) {
    TempDir dir;
    const struct {
        const char* tool;
        std::vector<std::string> args;
        int exit_code;
        std::string err;
    } cases[] = {
        {"kinefix-crypt",
         {"options", "a", "b", "c\"d"},
         1,
         "kinefix-crypt: a path may not contain '\"': c\"d\n"},
        {"kinefix-crypt", {"restore", "ZPX1~!!!"}, 1, "kinefix-crypt: the text does not restore\n"},
        {"kinefix-index", {"--entries-per-line", "0", "a", "b"}, 2, "usage: kinefix-index "},
    };
    for (const auto& c : cases) {
        const RunResult r = run(bin_dir() + "/" + c.tool, c.args, {}, dir);
        EXPECT_EQ(r.exit_code, c.exit_code) << c.err;
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
    }
}

}  // namespace
