// Bad inputs, end to end: each row damages one thing about a real repair and checks what a
// user gets (exit code, the explaining line on stdout, stderr or in the log) and that nothing
// worse happens: no crash, no reservation of what a hostile size claims, inputs untouched.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/media_support.h"

namespace {

using namespace kinefix_test;

// A real recording's header ("#version=2\n" and two descriptions) and packet lines, shared
// by every row. 16 s: the muxer's output buffer must fill before a full disk shows.
struct Recording {
    TempDir dir;
    std::string media = dir / "recording.mp4";
    std::string header;
    std::vector<std::string> lines;
    // Address space a run may reserve, in KiB (a clean one needs about 250 MiB); sanitizers
    // reserve vast shadow areas of their own.
    std::string address_space_kb = "524288";
};
Recording* g_rec = nullptr;  // never freed: shared by every row

// Deterministic bytes, every value included.
std::string junk(size_t n, uint32_t seed) {
    std::mt19937 gen(seed);
    std::string s(n, '\0');
    for (auto& c : s) c = static_cast<char>(gen());
    return s;
}

const char kPrecious[] = "an earlier repair the user kept";

// One run's world: a copy of the recording, its index and where the output goes.
struct Case {
    TempDir dir;
    std::string broken = dir / "damaged.mp4";
    std::string index = dir / "index.idx";
    std::string output = dir / "out.mp4";
    long file_size_kb = 0;  // a limit on every file the run writes, when set

    Case() {
        fs::copy_file(g_rec->media, broken);
        set_lines(g_rec->lines);
        write_file(output, kPrecious);  // what a failed run must leave as it was
    }
    void set_lines(const std::vector<std::string>& lines, std::string text = "") const {
        text = text.empty() ? g_rec->header : text;
        for (const auto& l : lines) text += l + "\n";
        write_file(index, text);
    }
    // A file-size limit holds for the log file too: log lines go to standard output instead.
    void log_to_stdout() const {
        fs::create_directories(dir.path() / "state/kinefix/conf");
        write_file(dir / "state/kinefix/conf/Admin.conf",
                   "log.level : 2\nlog.stdout : true\nlog.tag : \n");
    }
    // kinefix under the limits; standard output through a pipe, which no file-size limit cuts.
    RunResult repair() const {
        // From the scratch folder, so relative output names land there.
        std::string script =
            "cd " + shell_quote(dir.str()) + "; (ulimit -v " + g_rec->address_space_kb;
        if (file_size_kb > 0)
            script += "; ulimit -f " + std::to_string(file_size_kb) + "; trap '' XFSZ";
        script += "; exec \"$0\" \"$@\") | cat; exit ${PIPESTATUS[0]}";
        return run("bash", {"-c", script, bin_dir() + "/kinefix", broken, index, output},
                   isolated_env(dir), dir);
    }
};

// Texts a run must show, each prefixed with its channel: "o:" stdout, "e:" stderr, "l:" log.
struct BadInput {
    std::string name;
    std::function<void(Case&)> setup;
    std::vector<std::string> texts;
    int exit_code = 0;
    // What becomes of an existing output: replaced only by a run that finished its file.
    enum { kAuto, kKept, kReplaced } output = kAuto;
};

void PrintTo(const BadInput& row, std::ostream* os) {
    *os << row.name;
}

// Packet line `n` with one of its fields (0..6) replaced.
std::function<void(Case&)> field(size_t n, int f, const std::string& value) {
    return [=](Case& c) {
        std::vector<std::string> lines = g_rec->lines;
        size_t start = 0;
        for (int i = 0; i < f; ++i) start = lines[n].find(',', start) + 1;
        lines[n].replace(start, lines[n].find_first_of(",;", start) - start, value);
        c.set_lines(lines);
    };
}
// The header with a text replaced, in the description of that type when one is named.
std::function<void(Case&)> edit(const std::string& type, const std::string& from,
                                const std::string& to) {
    return [=](Case& c) {
        std::string header = g_rec->header;
        const size_t at =
            header.find(from, type.empty() ? 0 : header.find("{\"type\":\"" + type + "\""));
        c.set_lines(g_rec->lines, header.replace(at, from.size(), to));
    };
}
std::function<void(Case&)> directory_at(std::string Case::*file) {
    return [=](Case& c) {
        fs::remove(c.*file);
        fs::create_directory(c.*file);
    };
}

const std::vector<BadInput>& Table() {
    const std::string done = "o:progress:1.0\n";
    const std::string at_end = "l:第一个忽略行";
    const std::string none_ignored = "l:\">> 执行完成 （忽略索引: [0 ~ 0) 共0行）\"";
    const std::vector<std::string> refusal = {
        "e:Refusing to write output over an input file: '{output}'\n",
        "l:[E][zp] repair_engine.cpp", "l:\"输出文件与输入文件相同，拒绝写入: {output}\""};
    // clang-format off
    static const std::vector<BadInput> rows = {
        {"IndexLinesOfBinaryJunk", [](Case& c) {
             std::vector<std::string> lines = g_rec->lines;
             for (uint32_t i = 0; i < 40; ++i)
                 lines.insert(lines.begin() + 5 + i, junk(i == 0 ? 1 << 20 : 300, 77 + i));
             c.set_lines(lines);
         }, {done}},
        {"HeaderOfBinaryJunk", [](Case& c) { write_file(c.index, "\x01" + junk(20000, 7)); },
         {"l:\"未找到有效的音视频流: {index}\""}},
        {"MissingFields", [](Case& c) {
             std::vector<std::string> lines = g_rec->lines;
             lines.insert(lines.begin() + 2, {"0,48", "0", ",", ";", "1,,"});
             c.set_lines(lines);
         }, {done, none_ignored}},
        // Met with what is left of the file, which then counts as read to its end.
        {"SizeIntMax", field(2, 2, "2147483647"),
         {done, "l: < 2147483647(需求)，该行索引处理结束 (eof=1", at_end}},
        {"SizeNegative", field(2, 2, "-5"), {done, "l: < -5(需求)，该行索引处理结束 (eof=1", at_end}},
        {"PositionPastTheEnd", field(2, 1, "999999999"), {done, "l:\"读取packet数据 0 < ", at_end}},
        // The failed seek is not checked: the read goes on from the right place.
        {"PositionNegative", field(2, 1, "-5"), {done, "o:summary:packets={packets},", none_ignored}},
        // Without extradata a description gets no output stream.
        {"AudioWithoutExtradata", edit("audio", "\"ev\"", "\"xx\""),
         {done, "l:\"===> stream.idx=1 不合法，moov已处理 "}},
        {"VideoWithoutExtradata", edit("video", "\"ev\"", "\"xx\""), {done, "l:\"没有检测到视频流\""}},
        {"VideoExtradataUndecodable", edit("video", "\"ev\":\"", "\"ev\":\"!"),
         {"l:\"未找到extradata\""}},
        {"UnknownCodec", edit("audio", "\"aac\"", "\"nocodec\""), {"l:\"---> 找不到编码器：nocodec\""}},
        {"UnknownVersion", edit("", "#version=2", "#version=7"),
         {"o:\n[ERROR] version=7, parse failed\n", "l:\"Done!\""}, 10},
        {"VideoWidthZero", edit("video", "\"w\":320", "\"w\":0"),
         {"e:Error occurred when opening output file\n"}},
        {"AudioSampleRateZero", edit("audio", "\"sample_rate\":48000", "\"sample_rate\":0"),
         {"e:Error occurred"}},
        {"NoVersionLine", edit("", "#version=2\n", ""),
         {"o:\n[ERROR] version=0, parse failed\n"}, 10},
        // A directory opens like a file on some systems.
        {"DamagedFileIsADirectory", directory_at(&Case::broken), {"l:\"无法打开mdata文件: {broken}\""}},
        {"IndexIsADirectory", directory_at(&Case::index), {"l:\"无法打开moov文件: {index}\""}},
        {"OutputDirectoryMissing", [](Case& c) { c.output = c.dir / "no-dir/out.mp4"; },
         {"e:Could not open output file '{output}'Error occurred: No such file or directory\n"}},
        {"OutputOfUnknownType", [](Case& c) { c.output = c.dir / "out.unknownext"; },
         {"e:Could not create output context\nError occurred: "}},
        {"DiskFullDuringTheWrite", [](Case& c) {
             c.file_size_kb = 16;
             c.log_to_stdout();
         }, {"o:error:ret=-27,msg=File too large\n", done, "e:Error occurred: File too large\n",
             "o:; write frame err: File too large, next=", "o:\">> 执行完成",
             "o:error:ret=-27,msg=could not finish the output file: File too large\n",
             "e:Could not finish '{output}': File too large; an existing file of that name is kept"},
         0, BadInput::kKept},
        // Room for every packet but not for the trailer: still no file passes for a repair.
        {"DiskFullAtTheTrailer", [](Case& c) {
             c.file_size_kb = static_cast<long>(fs::file_size(g_rec->media) -
                                                find_top_box(g_rec->media, "moov").second) / 1024 + 1;
             c.log_to_stdout();
         }, {done, "o:error:ret=-27,msg=could not finish the output file: File too large\n",
             "o:\"写入文件尾失败，输出文件未生成: "}, 0, BadInput::kKept},
        // Protocol names are file names: nothing but a plain file beside the others is written.
        {"OutputNamedLikeTheTeeProtocol", [](Case& c) { c.output = "tee:damaged.mp4|x.mp4"; },
         {done, none_ignored}, 0, BadInput::kReplaced},
        {"OutputNamedLikeAProtocolWithDigits", [](Case& c) { c.output = "12:30.mp4"; },
         {done, none_ignored}, 0, BadInput::kReplaced},
        {"IndexIsADevice", [](Case& c) { c.index = "/dev/null"; },
         {"e:'{index}' is not a regular file (a pipe or a device?); save it to a file first\n",
          "o:error:ret=-22,msg=input is not a regular file: {index}\n",
          "l:\"输入文件不是普通文件（管道或设备），无法读取: {index}\""}},
        // The output names an input: refused before anything is opened for writing.
        {"OutputIsTheIndexSpelledOtherwise", [](Case& c) {
             fs::create_directory(c.dir / "sub");
             c.output = c.dir.str() + "/sub/..//./index.idx";
         }, refusal},
        {"OutputIsAHardLinkToTheDamagedFile", [](Case& c) {
             c.output = c.dir / "link.mp4";
             fs::create_hard_link(c.broken, c.output);
         }, refusal},
        {"LogFloodedByBadEntries", [](Case& c) {
             std::vector<std::string> lines = g_rec->lines;
             lines.insert(lines.begin() + 1, 20000, "9,48,100,,,,1;" + std::string(4000, ' '));
             c.set_lines(lines);
         }, {done, "l:\">> 另有 19600 条逐包错误未写入日志\"", "l:\"Done!\""}},
        {"OutputIsTheDamagedFileAsAnFFmpegUrl", [](Case& c) { c.output = "file:" + c.broken; },
         refusal},
    };
    // clang-format on
    return rows;
}

class BadInputTest : public ::testing::TestWithParam<BadInput> {
  public:
    static void SetUpTestSuite() {
        if (g_rec) return;
        g_rec = new Recording;
        const std::string program = read_file(bin_dir() + "/kinefix");
        if (program.find("__asan_init") != std::string::npos ||
            program.find("__tsan_init") != std::string::npos)
            g_rec->address_space_kb = "unlimited";
        RecordingPlan plan;
        plan.seconds = 16.0;
        ASSERT_EQ(make_recording(g_rec->media, plan, g_rec->dir), "");
        const std::string index = g_rec->dir / "recording.idx";
        const RunResult r = run(bin_dir() + "/kinefix-index", {g_rec->media, index},
                                isolated_env(g_rec->dir), g_rec->dir);
        ASSERT_EQ(r.exit_code, 0) << r.err;
        g_rec->lines = packet_lines(read_file(index));
        for (const std::string& line : lines_of(read_file(index)))
            if (line[0] == '#' || line[0] == '{') g_rec->header += line + "\n";
        ASSERT_EQ(g_rec->header.rfind("#version=2\n{\"type\":\"video\"", 0), 0u);
        ASSERT_GT(g_rec->lines.size(), 100u);
    }
};

TEST_P(BadInputTest, EndsAsDesigned) {
    ASSERT_NE(g_rec, nullptr);
    const BadInput& row = GetParam();
    Case c;
    row.setup(c);
    const std::string broken_before = read_file(c.broken);
    const std::string index_before = read_file(c.index);

    const RunResult r = c.repair();
    const std::string log = program_log(c.dir);

    EXPECT_LT(log.size(), 4u << 20) << "the log of one run stays bounded";
    // A crash shows as 128 plus the signal.
    ASSERT_EQ(r.exit_code, row.exit_code) << r.out << r.err;
    bool progress = false;
    for (std::string text : row.texts) {
        for (const auto& [key, value] :
             std::map<std::string, std::string>{{"{broken}", c.broken},
                                                {"{index}", c.index},
                                                {"{output}", c.output},
                                                {"{packets}", std::to_string(g_rec->lines.size())}})
            for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at))
                text.replace(at, key.size(), value);
        const std::string& where = text[0] == 'o' ? r.out : text[0] == 'e' ? r.err : log;
        EXPECT_NE(where.find(text.substr(2)), std::string::npos) << text << "\n" << where;
        progress |= text == "o:progress:1.0\n";
    }
    // Only a repair that reaches its packets shows progress; "End" closes every normal exit.
    EXPECT_EQ(r.out.find("progress:") != std::string::npos, progress) << r.out;
    EXPECT_EQ(r.out.find("\nEnd\n") != std::string::npos, row.exit_code == 0) << r.out;
    EXPECT_TRUE(read_file(c.broken) == broken_before);
    EXPECT_TRUE(read_file(c.index) == index_before);

    // An existing output survives every run that did not finish a file; no scratch file stays.
    const bool finished = row.output == BadInput::kAuto ? progress && row.exit_code == 0
                                                        : row.output == BadInput::kReplaced;
    const fs::path output = fs::path(c.dir.path()) / c.output;
    if (c.output == c.dir / "out.mp4") {
        EXPECT_EQ(read_file(c.output) == kPrecious, !finished);
    } else if (finished) {
        EXPECT_GT(fs::file_size(output), 1000u) << output;
    }
    expect_no_scratch_files(c.dir.path());
}

INSTANTIATE_TEST_SUITE_P(Table, BadInputTest, ::testing::ValuesIn(Table()), kRowName);

}  // namespace
