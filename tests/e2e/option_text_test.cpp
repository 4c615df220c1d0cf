// The one-argument form end to end: a protected or clear option text drives a real repair;
// kinefix-crypt makes such texts; the product keeps its protected texts out of sight.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypt/crypt.h"
#include "e2e/repair_workspace.h"

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

RunResult crypt_tool(const Workspace& ws, const std::vector<std::string>& args) {
    return run(bin_dir() + "/kinefix-crypt", args, isolated_env(ws.dir()), ws.dir());
}

// The four lines the form logs before the engine runs, in order and back to back.
void expect_option_lines(const std::string& log, const std::string& broken, const std::string& moov,
                         const std::string& out) {
    const std::string expected = "\"---------------------------------\"\n";
    const size_t at = log.find(expected);
    ASSERT_NE(at, std::string::npos) << log;
    const std::vector<std::string> lines = lines_of(log.substr(at));
    ASSERT_GE(lines.size(), 4u);
    EXPECT_NE(lines[1].find("[E][zp] main.cpp "), std::string::npos) << lines[1];
    EXPECT_EQ(lines[1].substr(lines[1].find(": \"")), ": \"broken:" + broken + "\"");
    EXPECT_EQ(lines[2].substr(lines[2].find(": \"")), ": \"moov:" + moov + "\"");
    EXPECT_EQ(lines[3].substr(lines[3].find(": \"")), ": \"out:" + out + "\"");
}

class OptionTextRepairTest : public ::testing::TestWithParam<bool> {};

TEST_P(OptionTextRepairTest, RepairsFromProtectedAndClearTexts) {
    const bool protected_text = GetParam();
    Workspace ws;
    const std::string index = ws / "索引 file.idx";
    RecordingPlan plan;
    const std::string broken = ws.damaged_recording("录像 a.mp4", plan, {}, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());
    ASSERT_TRUE(destroy_moov(broken));

    const std::string output = ws / "repaired b.mp4";
    const std::string text = option_text(broken, index, output);
    const RunResult r = ws.kinefix({protected_text ? protect(text) : text});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    expect_repair_stdout(r.out, packet_line_count(read_file(index)));
    expect_option_lines(ws.log(), broken, index, output);
    expect_same_packets(original, frame_report(output, ws.dir()), true, true);
}

INSTANTIATE_TEST_SUITE_P(Forms, OptionTextRepairTest, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "Protected" : "Clear");
                         });

TEST(OptionTextTest, MissingMembersReachTheEngineAsEmptyPaths) {
    Workspace ws;
    const std::string broken = ws / "no such.mp4";
    const RunResult r = ws.kinefix({protect("{\"broken_file\":\"" + broken + "\",\"x\":1}")});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.out.find("End\n"), std::string::npos);
    const std::string log = ws.log();
    expect_option_lines(log, broken, "", "");
    EXPECT_NE(log.find("\"无法打开mdata文件: " + broken + "\""), std::string::npos) << log;
}

TEST(OptionTextTest, DamagedProtectedTextRunsWithEmptyPaths) {
    Workspace ws;
    std::string text = protect(option_text("a.mp4", "a.idx", "b.mp4"));
    text.back() = text.back() == 'A' ? 'B' : 'A';
    const RunResult r = ws.kinefix({text});
    EXPECT_EQ(r.exit_code, 0);
    expect_option_lines(ws.log(), "", "", "");
}

TEST(CryptToolTest, OptionsProtectRestoreAndRewrite) {
    Workspace ws;
    RunResult r = crypt_tool(ws, {"options", "D:\\v\\a.mp4", "a b.idx", "out.mp4"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    ASSERT_FALSE(r.out.empty());
    const std::string made = r.out.substr(0, r.out.size() - 1);
    EXPECT_EQ(zp::Crypt::instance()->restore_text(made),
              option_text("D:\\v\\a.mp4", "a b.idx", "out.mp4"));

    r = crypt_tool(ws, {"restore", made});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out, option_text("D:\\v\\a.mp4", "a b.idx", "out.mp4") + "\n");
    r = crypt_tool(ws, {"protect", "无法打开"});
    EXPECT_EQ(zp::Crypt::instance()->restore_text(r.out.substr(0, r.out.size() - 1)), "无法打开");
    r = crypt_tool(ws, {"protect", ""});
    EXPECT_EQ(crypt_tool(ws, {"restore", r.out.substr(0, r.out.size() - 1)}).exit_code, 0);
    EXPECT_EQ(crypt_tool(ws, {"restore", std::string(zp::Crypt::text_marker()) + "@@"}).exit_code,
              1);
    EXPECT_EQ(crypt_tool(ws, {"options", "a\"b", "m", "o"}).exit_code, 1);
    EXPECT_EQ(crypt_tool(ws, {"bogus"}).exit_code, 2);
    EXPECT_EQ(crypt_tool(ws, {}).exit_code, 2);

    const std::string header = ws / "texts.h";
    write_file(header, "#define HELLO \"hello there\"\n");
    EXPECT_EQ(crypt_tool(ws, {"rewrite", header}).exit_code, 0);
    const std::string once = read_file(header);
    EXPECT_NE(once.find("#define HELLO ZpTrDe(s_HELLO)"), std::string::npos) << once;
    EXPECT_EQ(crypt_tool(ws, {"rewrite", header, ws / "missing.h"}).exit_code, 1);
    EXPECT_EQ(read_file(header), once);
}

// Protected texts of the product: none may stand in the program's read-only data, and the
// maker's address not anywhere in the file (debug names may carry the option keys).
TEST(ProtectedTextTest, ProductCarriesNoClearProtectedText) {
    Workspace ws;
    const std::string program = bin_dir() + "/kinefix";
    const std::string image = read_file(program);
    ASSERT_GT(image.size(), 10000u);
    EXPECT_EQ(image.find("kinefix.example.org"), std::string::npos);

    const std::string rodata = ws / "rodata.bin";
    const RunResult r =
        run("objcopy", {"-O", "binary", "--only-section=.rodata", program, rodata}, {}, ws.dir());
    ASSERT_EQ(r.exit_code, 0) << r.err;
    const std::string data = read_file(rodata);
    ASSERT_NE(data.find("release: %s\n"), std::string::npos) << "clear texts are found here";
    for (const char* text : {"kinefix.example.org", "broken_file", "moov_file", "output_file"})
        EXPECT_EQ(data.find(text), std::string::npos) << text;

    // And the banner still shows the address, restored at run time.
    const RunResult banner = ws.kinefix({"a", "b"});
    EXPECT_NE(banner.out.find("Kinefix (https://kinefix.example.org)\n"), std::string::npos)
        << banner.out;
}

}  // namespace
