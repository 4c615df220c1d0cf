// The one-argument form end to end: a protected or clear option text drives a real repair;
// kinefix-crypt makes such texts; the program keeps its protected texts out of sight.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypt/crypt.h"
#include "support/media_support.h"

namespace {

using namespace kinefix_test;

std::string option_text(const std::string& broken, const std::string& moov,
                        const std::string& out) {
    return "{\"broken_file\":\"" + broken + "\",\"moov_file\":\"" + moov + "\",\"output_file\":\"" +
           out + "\"}";
}

std::string protect(const std::string& text) {
    return zp::Crypt::instance()->protect_text(text);
}

// The four lines the form logs before the engine runs, back to back.
void expect_option_lines(const std::string& log, const std::string& broken, const std::string& moov,
                         const std::string& out) {
    const size_t at = log.rfind("\"---------------------------------\"\n");
    ASSERT_NE(at, std::string::npos) << log;
    const std::vector<std::string> lines = lines_of(log.substr(at));
    ASSERT_GE(lines.size(), 4u);
    EXPECT_NE(lines[1].find("[E][zp] main.cpp "), std::string::npos) << lines[1];
    EXPECT_EQ(lines[1].substr(lines[1].find(": \"")), ": \"broken:" + broken + "\"");
    EXPECT_EQ(lines[2].substr(lines[2].find(": \"")), ": \"moov:" + moov + "\"");
    EXPECT_EQ(lines[3].substr(lines[3].find(": \"")), ": \"out:" + out + "\"");
}

TEST(OptionTextTest, ProtectedAndClearTextsRepair) {
    Workspace ws;
    const std::string index = ws / "索引 file.idx";
    const std::string broken = ws.indexed_recording("录像 a.mp4", RecordingPlan(), {}, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());
    ASSERT_TRUE(destroy_moov(broken));
    for (const bool protected_text : {true, false}) {
        const std::string output = ws / (protected_text ? "protected.mp4" : "clear.mp4");
        const std::string text = option_text(broken, index, output);
        const RunResult r = ws.kinefix({protected_text ? protect(text) : text});
        ASSERT_EQ(r.exit_code, 0) << r.err;
        expect_repair_stdout(r.out, packet_lines(read_file(index)).size());
        expect_option_lines(ws.log(), broken, index, output);
        expect_same_packets(original, frame_report(output, ws.dir()), true);
    }
}

TEST(OptionTextTest, DamagedProtectedTextRunsWithEmptyPaths) {
    Workspace ws;
    std::string text = protect(option_text("a.mp4", "a.idx", "b.mp4"));
    text.back() = text.back() == 'A' ? 'B' : 'A';
    const RunResult r = ws.kinefix({text});
    EXPECT_EQ(r.exit_code, 0);
    expect_option_lines(ws.log(), "", "", "");
}

TEST(CryptToolTest, MakesAndRestoresOptionTexts) {
    Workspace ws;
    RunResult r = ws.tool("kinefix-crypt", {"options", "D:\\v\\a.mp4", "a b.idx", "out.mp4"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    ASSERT_FALSE(r.out.empty());
    const std::string made = r.out.substr(0, r.out.size() - 1);
    EXPECT_EQ(zp::Crypt::instance()->restore_text(made),
              option_text("D:\\v\\a.mp4", "a b.idx", "out.mp4"));
    r = ws.tool("kinefix-crypt", {"restore", made});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out, option_text("D:\\v\\a.mp4", "a b.idx", "out.mp4") + "\n");
    EXPECT_EQ(ws.tool("kinefix-crypt", {"restore", std::string(zp::Crypt::text_marker()) + "@@"})
                  .exit_code,
              1);
    EXPECT_EQ(ws.tool("kinefix-crypt", {"options", "a\"b", "m", "o"}).exit_code, 1);
    EXPECT_EQ(ws.tool("kinefix-crypt", {"bogus"}).exit_code, 2);

    write_file(ws / "texts.h", "#define HELLO \"hello there\"\n");
    EXPECT_EQ(ws.tool("kinefix-crypt", {"rewrite", ws / "texts.h"}).exit_code, 0);
    EXPECT_NE(read_file(ws / "texts.h").find("#define HELLO ZpTrDe(s_HELLO)"), std::string::npos);
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
    // The banner still shows the address, restored at run time.
    EXPECT_NE(ws.kinefix({"a", "b"}).out.find("Kinefix (https://kinefix.example.org)\n"),
              std::string::npos);
}

}  // namespace
