// kinefix-index as a user meets it with unlucky arguments and unusual recordings: it never
// harms the recording or an existing index, names what it leaves out, and writes only lines
// that kinefix reads whole; and what an index entry that kinefix drops can still cost.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/media_support.h"

namespace {

using namespace kinefix_test;

const char kEarlierIndex[] = "an index the user kept";

// One run of kinefix-index on a fresh recording; `setup` may rewrite the paths and the plan.
struct IndexCase {
    Workspace ws;
    RecordingPlan plan;
    std::string recording = ws / "rec.mp4";
    std::string index = ws / "rec.idx";
    std::vector<std::string> options;
    std::string shell_prefix;  // limits for the run, as a shell would set them
};

struct IndexRow {
    std::string name;
    std::function<void(IndexCase&)> setup;
    int exit_code;
    std::vector<std::string> stderr_texts;
    bool index_written;
};

void PrintTo(const IndexRow& row, std::ostream* os) {
    *os << row.name;
}

// clang-format off
const IndexRow kRows[] = {
    {"IndexIsTheRecording", [](IndexCase& c) { c.index = c.recording; }, 2,
     {"refusing to write the index over the recording itself"}, false},
    {"IndexIsALinkToTheRecording", [](IndexCase& c) {
         fs::create_symlink(c.recording, c.index);
     }, 2, {"refusing to write the index over the recording itself"}, false},
    {"IndexIsAHardLinkToTheRecording", [](IndexCase& c) {
         write_file(c.recording, "");  // recorded over later, in place
         fs::create_hard_link(c.recording, c.index);
     }, 2, {"refusing to write the index over the recording itself"}, false},
    {"IndexIsTheReferenceRecording", [](IndexCase& c) {
         c.index = c.ws / "healthy.mp4";
         write_file(c.index, kEarlierIndex);  // refused before anything is read
         c.options = {"--reference", c.ws / "./healthy.mp4"};
     }, 2, {"refusing to write the index over the reference recording"}, false},
    {"NoTrackKinefixRepairs", [](IndexCase& c) {
         c.plan.video_encoder = "mpeg4";
         c.plan.bframes = false;
         c.plan.audio_encoder = "flac";
         c.recording = c.ws / "rec.mkv";
     }, 1, {"leaving out track 0 (video mpeg4): kinefix repairs H.264 and HEVC video only",
            "leaving out track 1 (audio flac): its packets are not whole frames",
            "has no track kinefix can repair; no index written"}, false},
    {"IndexCannotBeWrittenWhole", [](IndexCase& c) {
         c.shell_prefix = "ulimit -f 1; trap '' XFSZ; ";
     }, 1, {"cannot write '"}, false},
    {"TracksLeftOutAreNamed", [](IndexCase& c) {
         write_file(c.ws / "subs.srt", "1\n00:00:00,000 --> 00:00:01,000\nhello\n\n");
         c.plan.encode = {"-i", c.ws / "subs.srt", "-map", "0", "-map", "1", "-map", "1", "-map",
                          "2", "-c:v", "libx264", "-c:a", "aac", "-c:s", "mov_text"};
     }, 0, {"leaving out track 2 (audio aac): kinefix repairs one audio track",
            "leaving out track 3 (subtitle mov_text): kinefix repairs audio and video only"}, true},
    {"EntriesPerLineBeyondTheReader", [](IndexCase& c) {
         c.options = {"--entries-per-line", "500"};
     }, 0, {"note: 500 entries per line capped to 81"}, true},
};
// clang-format on

class IndexToolTest : public ::testing::TestWithParam<IndexRow> {};

TEST_P(IndexToolTest, KeepsTheRecordingAndAnyEarlierIndex) {
    const IndexRow& row = GetParam();
    IndexCase c;
    row.setup(c);
    ASSERT_EQ(make_recording(c.recording, c.plan, c.ws.dir()), "");
    if (!fs::exists(c.index)) write_file(c.index, kEarlierIndex);
    const std::string recording_before = read_file(c.recording);

    std::vector<std::string> args = {"-c", c.shell_prefix + "exec \"$0\" \"$@\"",
                                     bin_dir() + "/kinefix-index"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    args.insert(args.end(), {c.recording, c.index});
    const RunResult r = run("bash", args, isolated_env(c.ws.dir()), c.ws.dir());

    ASSERT_EQ(r.exit_code, row.exit_code) << r.err;
    for (const std::string& text : row.stderr_texts)
        EXPECT_NE(r.err.find(text), std::string::npos) << text << "\n" << r.err;
    EXPECT_TRUE(read_file(c.recording) == recording_before);
    EXPECT_TRUE(row.index_written || fs::equivalent(c.index, c.recording) ||
                read_file(c.index) == kEarlierIndex);
    expect_no_scratch_files(c.ws.dir().path());
    if (!row.index_written) return;

    // What was written is read whole, and repairs every packet.
    for (const std::string& line : packet_lines(read_file(c.index)))
        ASSERT_LT(line.size() + 1, 8192u);
    ASSERT_TRUE(destroy_moov(c.recording));
    const RunResult repair = c.ws.kinefix({c.recording, c.index, c.ws / "out.mp4"});
    ASSERT_EQ(repair.exit_code, 0) << repair.err;
    EXPECT_EQ(decode_errors(c.ws / "out.mp4", c.ws.dir()), "");
}

INSTANTIATE_TEST_SUITE_P(Table, IndexToolTest, ::testing::ValuesIn(kRows), kRowName);

// An entry kinefix cannot use costs its own line at most: the next line starts from an
// absolute position, so every later packet is still read from the right bytes.
TEST(DroppedEntryTest, CostsNothingBeyondItsLine) {
    Workspace ws;
    const std::string index = ws / "rec.idx";
    const std::string broken =
        ws.indexed_recording("rec.mp4", RecordingPlan(), {"--entries-per-line", "4"}, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());
    ASSERT_TRUE(destroy_moov(broken));
    std::vector<std::string> lines = lines_of(read_file(index));
    const size_t middle = lines.size() / 2;
    const struct {
        const char* name;
        std::function<void(std::string*)> damage;
    } damages[] = {
        {"stream index out of range", [](std::string* l) { (*l)[0] = '9'; }},
        {"a NUL byte", [](std::string* l) { (*l)[l->find(';') + 1] = '\0'; }},
    };
    for (const auto& d : damages) {
        SCOPED_TRACE(d.name);
        std::vector<std::string> damaged = lines;
        d.damage(&damaged[middle]);
        std::string text;
        for (const std::string& l : damaged) text += l + "\n";
        write_file(ws / "damaged.idx", text);
        const RunResult r = ws.kinefix({broken, ws / "damaged.idx", ws / "out.mp4"});
        ASSERT_EQ(r.exit_code, 0) << r.err;
        const FrameReport got = frame_report(ws / "out.mp4", ws.dir());
        ASSERT_TRUE(got.ok) << got.error;
        // Every packet written is the original's next one, and at most one line's are missing.
        size_t missing = 0;
        for (const auto& [stream, packets] : original.streams) {
            const auto& out = got.streams.at(stream);
            size_t j = 0;
            for (size_t i = 0; i < packets.size() && j < out.size(); ++i)
                j += packets[i].md5 == out[j].md5 ? 1 : 0;
            EXPECT_EQ(j, out.size()) << "stream " << stream << ": a packet from the wrong bytes";
            missing += packets.size() - out.size();
        }
        EXPECT_GE(missing, 1u);
        EXPECT_LE(missing, 4u);
    }
}

}  // namespace
