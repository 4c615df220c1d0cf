// Runs that go wrong from the outside: stopped by a signal, two at once into one output, an
// index handed over as a pipe. Each must leave the inputs as they were and never leave a file
// that passes for a repair without being one.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "support/media_support.h"

namespace {

using namespace kinefix_test;

// A recording and an index that lists its packets many times over: long enough a copy that a
// signal always finds it running. Audio only, so the repeats still decode cleanly.
struct LongRepair {
    Workspace ws;
    std::string media;
    std::string index = ws / "long.idx";
    size_t lines = 0;

    LongRepair() {
        RecordingPlan plan;
        plan.video = false;
        plan.seconds = 8.0;
        media = ws.indexed_recording("rec.mp4", plan, {}, ws / "rec.idx");
        std::string header;
        std::string first;  // steps back over the encoder's priming: once only
        std::string body;
        for (const std::string& line : lines_of(read_file(ws / "rec.idx"))) {
            std::string& part = line[0] == '#' || line[0] == '{' ? header
                                : first.empty()                  ? first
                                                                 : body;
            part += line + "\n";
        }
        std::string text = header + first;
        for (int i = 0; i < 300; ++i) text += body;
        lines = packet_lines(text).size();
        write_file(index, text);
    }
};

struct Stop {
    const char* name;
    int signo;
};

class InterruptTest : public ::testing::TestWithParam<Stop> {};

// Standard output goes to a pipe that is read only up to the first progress lines, so the
// copy is held mid-way, wherever the machine's speed, when the signal comes.
TEST_P(InterruptTest, KeepsAPlayablePartialAndSaysWhere) {
    LongRepair rep;
    ASSERT_FALSE(rep.media.empty());
    const std::string media_md5 = read_file(rep.media);
    const std::string out = rep.ws / "out.mp4";
    write_file(out, "an earlier result");
    const std::string script =
        "cd \"$1\" && mkfifo pipe || exit 1; (\"$2\" \"$3\" \"$4\" \"$5\" > pipe 2> err.txt & echo "
        "$! > "
        "pid; wait $!; echo $? > rc) & exec 3< pipe; head -c 2000 <&3 > first.txt; sleep 0.5; "
        "kill -" +
        std::to_string(GetParam().signo) + " $(cat pid); cat <&3 > rest.txt; wait; cat rc";
    const RunResult r = run("bash",
                            {"-c", script, "bash", rep.ws.dir().str(), bin_dir() + "/kinefix",
                             rep.media, rep.index, out},
                            isolated_env(rep.ws.dir()), rep.ws.dir());
    ASSERT_EQ(r.out, std::to_string(128 + GetParam().signo) + "\n") << r.err;
    const std::string said = read_file(rep.ws / "first.txt") + read_file(rep.ws / "rest.txt");
    std::smatch m;
    ASSERT_TRUE(std::regex_search(
        said, m,
        std::regex("\nerror:ret=-?\\d+,msg=interrupted by signal " +
                   std::to_string(GetParam().signo) + " at index line (\\d+); the packets")))
        << said.substr(said.size() > 800 ? said.size() - 800 : 0);
    const size_t line = std::stoul(m[1]);
    EXPECT_GT(line, 10u);
    EXPECT_LT(line, rep.lines) << "stopped before the end";
    EXPECT_NE(said.find("\nsummary:packets="), std::string::npos);
    EXPECT_EQ(said.find("\nEnd\n"), std::string::npos);
    EXPECT_EQ(said.find("progress:1.0"), std::string::npos);
    EXPECT_NE(rep.ws.log().find("\">> 收到信号 " + std::to_string(GetParam().signo) +
                                "，复制在索引第 " + std::to_string(line) + " 行停止"),
              std::string::npos)
        << rep.ws.log();
    EXPECT_NE(rep.ws.log().find("\"Done!\""), std::string::npos);

    // What was copied plays: the partial decodes cleanly and begins with the recording's packets.
    EXPECT_EQ(decode_errors(out, rep.ws.dir()), "");
    const FrameReport original = frame_report(rep.media, rep.ws.dir());
    const FrameReport partial = frame_report(out, rep.ws.dir());
    EXPECT_EQ(packet_difference(original, partial, Match::kPrefix), "");
    EXPECT_GT(packet_count(partial), packet_count(original));
    EXPECT_EQ(read_file(rep.media), media_md5);
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptTest,
                         ::testing::Values(Stop{"Interrupt", 2}, Stop{"Terminate", 15},
                                           Stop{"HangUp", 1}),
                         kRowName);

TEST(SafetyTest, TwoRepairsIntoOneOutputNeverMixTheirBytes) {
    LongRepair rep;
    ASSERT_FALSE(rep.media.empty());
    const std::string out = rep.ws / "out.mp4";
    const std::string script =
        "\"$1\" \"$2\" \"$3\" \"$4\" > a.txt 2>&1 & \"$1\" \"$2\" \"$3\" \"$4\" > b.txt 2>&1; "
        "wait";
    const RunResult r = run("bash",
                            {"-c", "cd \"$0\" || exit 1; " + script, rep.ws.dir().str(),
                             bin_dir() + "/kinefix", rep.media, rep.index, out},
                            isolated_env(rep.ws.dir()), rep.ws.dir());
    ASSERT_EQ(r.exit_code, 0);
    for (const char* name : {"a.txt", "b.txt"}) {
        const std::string said = read_file(rep.ws / name);
        EXPECT_NE(said.find("progress:1.0\nsummary:"), std::string::npos)
            << name << ": " << said.substr(said.size() > 600 ? said.size() - 600 : 0);
    }
    // Whichever finished last, the output is one whole repair.
    EXPECT_EQ(decode_errors(out, rep.ws.dir()), "");
    const FrameReport whole = frame_report(out, rep.ws.dir());
    ASSERT_TRUE(whole.ok) << whole.error;
    EXPECT_EQ(packet_count(whole), rep.lines);
    expect_no_scratch_files(rep.ws.dir().path());
}

TEST(SafetyTest, AnIndexHandedOverAsAPipeIsRefusedWithoutReading) {
    Workspace ws;
    RecordingPlan plan;
    const std::string media = ws.indexed_recording("rec.mp4", plan, {}, ws / "rec.idx");
    ASSERT_FALSE(media.empty());
    // Nobody writes into the pipe: a program that opened it would hang until the timeout.
    const RunResult r = run("bash",
                            {"-c",
                             "cd \"$0\" && mkfifo idx.pipe && timeout 20 \"$1\" \"$2\" "
                             "idx.pipe out.mp4",
                             ws.dir().str(), bin_dir() + "/kinefix", media},
                            isolated_env(ws.dir()), ws.dir());
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_NE(r.err.find("'idx.pipe' is not a regular file (a pipe or a device?); save it to a "
                         "file first"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.out.find("\nerror:ret=-22,msg=input is not a regular file: idx.pipe\nEnd\n"),
              std::string::npos)
        << r.out;
    EXPECT_FALSE(fs::exists(ws / "out.mp4"));
}

}  // namespace
