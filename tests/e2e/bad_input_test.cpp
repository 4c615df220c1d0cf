// Bad inputs, end to end: each row damages one thing about a real repair and checks what a
// user gets (exit code, the explaining line on stderr or in the log) and that nothing worse
// happens: no crash, memory within a fixed margin of a normal run, both inputs byte-identical.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/media_support.h"
#include "support/test_support.h"

namespace {

using namespace kinefix_test;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif
#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif

// Address space a run may reserve (a clean one needs about 250 MiB): a repair that reserved
// what a hostile index claims, instead of what the damaged file holds, would not fit. The
// sanitizers reserve vast shadow areas of their own, so they run without it.
constexpr int64_t kAddressSpaceLimit =
    (kAddressSanitizer || kThreadSanitizer) ? -1 : int64_t(512) << 20;

// Above a normal repair's peak, a run may use this much more at most, whatever the index says.
const long kRssMarginKb = kAddressSanitizer ? 96 * 1024 : 32 * 1024;

// One real recording and its index, shared by every row (read-only: rows copy what they use).
struct Recording {
    TempDir dir;
    std::string media;
    std::string header;              // "#version=2" and the two stream descriptions
    std::vector<std::string> lines;  // packet lines, without their line feeds
    long long first_position = 0;    // where the first packet's bytes start
    long baseline_rss_kb = 0;        // a clean repair's peak
};
Recording* g_rec = nullptr;  // deliberately never freed: the suites share it

std::string kinefix() {
    return bin_dir() + "/kinefix";
}

// Deterministic bytes, every value included, NULs and line ends too.
std::string junk(size_t n, uint32_t seed) {
    std::string s(n, '\0');
    for (auto& c : s) {
        seed ^= seed << 13;
        seed ^= seed >> 17;
        seed ^= seed << 5;
        c = static_cast<char>(seed);
    }
    return s;
}

// The packet line with one comma-separated field replaced (fields 0..6).
std::string with_field(const std::string& line, int field, const std::string& value) {
    std::vector<std::string> parts;
    std::string cur;
    for (char c : line) {
        if (c == ',' || c == ';') {
            parts.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    parts[static_cast<size_t>(field)] = value;
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) out += parts[i] + (i + 1 < parts.size() ? "," : ";");
    return out;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& l : lines) out += l + "\n";
    return out;
}

// One run's world: a copy of the recording, its index and where the output goes.
struct Case {
    TempDir dir;
    std::string broken = dir / "damaged.mp4";
    std::string index = dir / "index.idx";
    std::string output = dir / "out.mp4";
    std::vector<std::string> args;  // the command line when not the three paths
    ChildOptions options;

    Case() {
        fs::copy_file(g_rec->media, broken);
        write_file(index, g_rec->header + joined(g_rec->lines));
    }
    void set_lines(const std::vector<std::string>& lines) const {
        write_file(index, g_rec->header + joined(lines));
    }
    // The packet lines with line `n` changed.
    std::vector<std::string> changed(size_t n, int field, const std::string& value) const {
        std::vector<std::string> lines = g_rec->lines;
        lines[n] = with_field(lines[n], field, value);
        return lines;
    }
    void unprivileged() { options.unprivileged = true; }
    // Log lines go to standard output instead of the log file.
    void log_to_stdout() {
        const fs::path conf = dir.path() / "state" / "kinefix" / "conf";
        fs::create_directories(conf);
        write_file((conf / "Admin.conf").string(),
                   "log.level : 2\nlog.stdout : true\nlog.tag : \n");
        log_on_stdout = true;
    }
    bool log_on_stdout = false;
    // A recording of its own, for rows that need more media than the shared one holds.
    void record(double seconds) {
        RecordingPlan plan;
        plan.seconds = seconds;
        const std::string error = make_recording(broken, plan, dir);
        ASSERT_TRUE(error.empty()) << error;
        const RunResult r =
            run(bin_dir() + "/kinefix-index", {broken, index}, isolated_env(dir), dir);
        ASSERT_EQ(r.exit_code, 0) << r.err;
    }
};

struct Expect {
    int exit_code = 0;
    std::vector<std::string> out;  // texts standard output must hold ("{output}" etc. filled in)
    std::vector<std::string> err;
    std::vector<std::string> log;
    bool refused = false;  // the same-file refusal: nothing repaired, no progress
};

struct BadInput {
    std::string name;
    std::function<void(Case&)> setup;
    Expect expect;
};

// Test names in failure reports, not the row's bytes.
void PrintTo(const BadInput& row, std::ostream* os) {
    *os << row.name;
}

std::string fill(std::string text, const Case& c) {
    for (const auto& [key, value] : {std::pair<std::string, std::string>{"{broken}", c.broken},
                                     {"{index}", c.index},
                                     {"{output}", c.output}}) {
        for (size_t at = text.find(key); at != std::string::npos;
             at = text.find(key, at + value.size()))
            text.replace(at, key.size(), value);
    }
    return text;
}

std::string log_text(const Case& c) {
    std::string text;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(c.dir.path() / "state" / "kinefix" / "log", ec))
        if (e.path().extension() == ".log") text += read_file(e.path().string());
    return text;
}

// Identity of what a file holds, to prove it untouched (the 100 MB index included).
std::string fingerprint(const std::string& path) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return "(not a file)";
    const std::string bytes = read_file(path);
    return std::to_string(bytes.size()) + ":" + std::to_string(std::hash<std::string>()(bytes));
}

// What a row expects: a repair run to its end with these log texts, only log texts, only
// standard error texts, or the same-file refusal.
Expect repaired(std::vector<std::string> log) {
    return {0, {"progress:1.0\n"}, {}, std::move(log)};
}
Expect logged(std::vector<std::string> log) {
    return {0, {}, {}, std::move(log)};
}
Expect failed(std::vector<std::string> err) {
    return {0, {}, std::move(err), {}};
}
Expect refused() {
    Expect e;
    e.refused = true;
    return e;
}

// Setups: one field of packet line `n` changed; an input file missing, or a directory instead.
std::function<void(Case&)> field(size_t n, int f, const std::string& value) {
    return [=](Case& c) { c.set_lines(c.changed(n, f, value)); };
}
std::function<void(Case&)> missing(std::string Case::*file, bool as_directory) {
    return [=](Case& c) {
        fs::remove(c.*file);
        if (as_directory) fs::create_directory(c.*file);
    };
}
std::function<void(Case&)> output_at(const std::string& name) {
    return [=](Case& c) { c.output = c.dir / name; };
}

const std::vector<BadInput>& Table() {
    const std::string done = "\">> 执行完成";
    const std::string none_ignored = "\">> 执行完成 （忽略索引: [0 ~ 0) 共0行）\"";
    const std::string no_mdata = "\"无法打开mdata文件: {broken}\"";
    const std::string no_moov = "\"无法打开moov文件: {index}\"";
    const std::string cannot_open = "Could not open output file '{output}'";
    static const std::vector<BadInput> rows = {
        // ---- the index's packet lines
        {"IndexLinesOfBinaryJunk",
         [](Case& c) {
             std::vector<std::string> lines = g_rec->lines;
             for (uint32_t i = 0; i < 40; ++i) {
                 std::string j = junk(300, 0x9e3779b9u + i);
                 for (auto& ch : j)
                     if (ch == '\n') ch = ' ';
                 lines.insert(lines.begin() + 5 + i, j);
             }
             c.set_lines(lines);
         },
         repaired({done})},
        {"HeaderOfBinaryJunk", [](Case& c) { write_file(c.index, "\x01" + junk(20000, 7)); },
         logged({"\"未找到有效的音视频流: {index}\""})},
        {"LineOf100MB",
         [](Case& c) {
             std::vector<std::string> lines = g_rec->lines;
             lines.insert(lines.begin() + 3, std::string(100u << 20, 'x'));
             c.set_lines(lines);
         },
         repaired({none_ignored})},
        {"SizeZero", field(2, 2, "0"), repaired({done})},
        // Met with what is left of the file, which then counts as read to its end; nothing
        // near the claim is reserved (see kAddressSpaceLimit).
        {"SizeIntMax", field(2, 2, "2147483647"),
         repaired({" < 2147483647(需求)，该行索引处理结束 (eof=1", "第一个忽略行"})},
        {"PositionPastTheEnd", field(2, 1, "999999999"),
         repaired({"\"读取packet数据 0 < ", "第一个忽略行"})},
        {"PositionNegative", field(2, 1, "-5"),
         repaired({"\"packet数据 seek 失败 fpos=-5，该行索引处理结束\"", none_ignored})},
        {"PositionInsideAnotherPacket",
         [](Case& c) { field(3, 1, std::to_string(g_rec->first_position + 10))(c); },
         repaired({done})},
        {"StreamIndexWithoutOutputStream",
         [](Case& c) {
             // The audio description loses its extradata, so it gets no output stream.
             std::string header = g_rec->header;
             const size_t audio = header.find("{\"type\":\"audio\"");
             const size_t ev = header.find(",\"ev\":", audio);
             header.erase(ev, header.find('}', ev) - ev);
             write_file(c.index, header + joined(g_rec->lines));
         },
         repaired({"\"===> stream.idx=1 不合法，moov已处理 "})},
        {"MissingFields",
         [](Case& c) {
             std::vector<std::string> lines = g_rec->lines;
             lines.insert(lines.begin() + 2, {"0,48", "0", ",", ";", "1,,"});
             c.set_lines(lines);
         },
         repaired({done})},
        {"TimestampsGoingBackwards",
         [](Case& c) {
             // An early audio packet jumps far back: the muxer refuses it and the next few.
             size_t n = 20;
             while (g_rec->lines[n].rfind("1,", 0) != 0) ++n;
             field(n, 3, "-48000")(c);
         },
         {0,
          {"error:ret=-22,msg=Invalid argument\n", "progress:1.0\n"},
          {},
          {"; write frame err: Invalid argument, next="}}},
        {"UnknownVersion",
         [](Case& c) {
             std::string text = read_file(c.index);
             text.replace(0, text.find('\n'), "#version=7");
             write_file(c.index, text);
         },
         {10, {"[ERROR] version=7, parse failed\n"}, {}, {}}},

        // ---- the damaged file and the index as files
        {"DamagedFileEmpty", [](Case& c) { write_file(c.broken, ""); },
         repaired({"\"读取packet数据 0 < ", "第一个忽略行"})},
        {"DamagedFileIsADirectory", missing(&Case::broken, true), logged({no_mdata})},
        {"DamagedFileUnreadable",
         [](Case& c) {
             c.unprivileged();
             hand_to_nobody(c.dir.path());
             fs::permissions(c.broken, fs::perms::none);
         },
         logged({no_mdata})},
        {"DamagedFileMissing", missing(&Case::broken, false), logged({no_mdata})},
        {"IndexIsADirectory", missing(&Case::index, true), logged({no_moov})},
        {"IndexMissing", missing(&Case::index, false), logged({no_moov})},

        // ---- where the output goes
        {"OutputDirectoryMissing", output_at("no-such-dir/out.mp4"),
         failed({cannot_open, "Error occurred: No such file or directory\n"})},
        {"OutputDirectoryReadOnly",
         [](Case& c) {
             fs::create_directory(c.dir / "ro");
             c.output = c.dir / "ro/out.mp4";
             c.unprivileged();
             hand_to_nobody(c.dir.path());
             fs::permissions(c.dir / "ro", fs::perms::owner_read | fs::perms::owner_exec);
         },
         failed({cannot_open, "Error occurred: Permission denied\n"})},
        {"DiskFullAtOnce", [](Case& c) { fs::create_symlink("/dev/full", c.output); },
         failed({"Error occurred when opening output file\n",
                 "Error occurred: No space left on device\n"})},
        {"DiskFullDuringTheWrite",
         [](Case& c) {
             // The muxer's output buffer holds 256 KiB: the failing writes must come early.
             c.record(16.0);
             c.options.file_size_limit = 16 * 1024;
             c.log_to_stdout();  // the limit holds for the log file too
         },
         {0,
          {"error:ret=-27,msg=File too large\n", "progress:1.0\n"},
          {"Error occurred: File too large\n"},
          {"; write frame err: File too large, next=", done}}},

        // ---- the output names an input: refused before anything is opened for writing
        {"OutputIsTheDamagedFile", [](Case& c) { c.output = c.broken; }, refused()},
        {"OutputIsTheIndex", [](Case& c) { c.output = c.index; }, refused()},
        {"OutputIsTheIndexSpelledOtherwise",
         [](Case& c) {
             fs::create_directory(c.dir / "sub");
             c.output = c.dir.str() + "/sub/..//./index.idx";
         },
         refused()},
        {"OutputIsAHardLinkToTheDamagedFile",
         [](Case& c) {
             output_at("link.mp4")(c);
             fs::create_hard_link(c.broken, c.output);
         },
         refused()},
        {"OutputIsASymbolicLinkToTheIndex",
         [](Case& c) {
             output_at("link.mp4")(c);
             fs::create_symlink(c.index, c.output);
         },
         refused()},
        {"OutputIsTheDamagedFileAsAnFFmpegUrl", [](Case& c) { c.output = "file:" + c.broken; },
         refused()},
        {"OptionTextWithTheDamagedFileAsOutput",
         [](Case& c) {
             c.output = c.broken;
             c.args = {"{\"broken_file\":\"" + c.broken + "\",\"moov_file\":\"" + c.index +
                       "\",\"output_file\":\"" + c.broken + "\"}"};
         },
         refused()},
    };
    return rows;
}

class BadInputTest : public ::testing::TestWithParam<BadInput> {
  public:
    // Made once for both suites of this file, kept until the process ends.
    static void SetUpTestSuite() {
        if (g_rec) return;
        g_rec = new Recording;
        g_rec->media = g_rec->dir / "recording.mp4";
        RecordingPlan plan;
        plan.seconds = 4.0;  // past 64 KiB of media: the full-disk row needs two buffer flushes
        const std::string error = make_recording(g_rec->media, plan, g_rec->dir);
        ASSERT_TRUE(error.empty()) << error;
        const std::string index = g_rec->dir / "recording.idx";
        const RunResult r = run(bin_dir() + "/kinefix-index", {g_rec->media, index},
                                isolated_env(g_rec->dir), g_rec->dir);
        ASSERT_EQ(r.exit_code, 0) << r.err;
        for (const std::string& line : lines_of(read_file(index))) {
            if (!line.empty() && (line[0] == '#' || line[0] == '{'))
                g_rec->header += line + "\n";
            else
                g_rec->lines.push_back(line);
        }
        ASSERT_GT(g_rec->lines.size(), 100u);
        g_rec->first_position = std::stoll(g_rec->lines[0].substr(g_rec->lines[0].find(',') + 1));
        ASSERT_GT(g_rec->first_position, 0);

        Case clean;
        const ChildResult base = run_child(kinefix(), {clean.broken, clean.index, clean.output},
                                           {isolated_env(clean.dir)}, clean.dir);
        ASSERT_EQ(base.exit_code, 0) << base.err;
        ASSERT_TRUE(probe_reads(clean.output, clean.dir));
        g_rec->baseline_rss_kb = base.max_rss_kb;
    }
};

TEST_P(BadInputTest, EndsAsDesigned) {
    ASSERT_NE(g_rec, nullptr);
    const BadInput& row = GetParam();
    Case c;
    c.options.env = isolated_env(c.dir);
    c.options.address_space_limit = kAddressSpaceLimit;
    row.setup(c);
    const std::vector<std::string> args =
        c.args.empty() ? std::vector<std::string>{c.broken, c.index, c.output} : c.args;
    const std::string broken_before = fingerprint(c.broken);
    const std::string index_before = fingerprint(c.index);
    const bool output_existed = fs::exists(fs::symlink_status(c.output));

    const ChildResult r = run_child(kinefix(), args, c.options, c.dir);
    const std::string log = c.log_on_stdout ? r.out : log_text(c);
    const Expect& e = row.expect;

    EXPECT_EQ(r.signal, 0) << "killed by signal " << r.signal << "\n" << r.err;
    ASSERT_EQ(r.exit_code, e.exit_code) << r.out << r.err;
    if (e.exit_code == 0) {
        EXPECT_NE(r.out.find("\nEnd\n"), std::string::npos) << r.out;
        if (!c.log_on_stdout) {
            EXPECT_EQ(r.out.compare(r.out.size() - 4, 4, "End\n"), 0) << r.out;
        }
    } else {
        EXPECT_EQ(r.out.find("End\n"), std::string::npos) << r.out;
    }
    for (const auto& text : e.out)
        EXPECT_NE(r.out.find(fill(text, c)), std::string::npos) << fill(text, c) << "\n" << r.out;
    for (const auto& text : e.err)
        EXPECT_NE(r.err.find(fill(text, c)), std::string::npos) << fill(text, c) << "\n" << r.err;
    for (const auto& text : e.log)
        EXPECT_NE(log.find(fill(text, c)), std::string::npos) << fill(text, c) << "\n" << log;

    if (e.refused) {
        EXPECT_NE(r.err.find("Refusing to write output over an input file: '" + c.output + "'\n"),
                  std::string::npos)
            << r.err;
        EXPECT_NE(log.find("[E][zp] repair_engine.cpp"), std::string::npos);
        EXPECT_NE(log.find("\"输出文件与输入文件相同，拒绝写入: " + c.output + "\""),
                  std::string::npos)
            << log;
        EXPECT_EQ(r.out.find("progress:"), std::string::npos) << r.out;
        if (!output_existed && c.output.rfind("file:", 0) != 0) {
            EXPECT_FALSE(fs::exists(c.output));
        }
    } else {
        EXPECT_EQ(r.err.find("Refusing"), std::string::npos) << r.err;
    }

    // Never harmed: both inputs hold what they held before the run.
    EXPECT_EQ(fingerprint(c.broken), broken_before);
    EXPECT_EQ(fingerprint(c.index), index_before);

    EXPECT_LE(r.max_rss_kb, g_rec->baseline_rss_kb + kRssMarginKb)
        << "peak " << r.max_rss_kb << " KiB against " << g_rec->baseline_rss_kb
        << " KiB for a clean run";
    RecordProperty("peak_rss_kb", std::to_string(r.max_rss_kb));
}

INSTANTIATE_TEST_SUITE_P(Table, BadInputTest, ::testing::ValuesIn(Table()),
                         [](const ::testing::TestParamInfo<BadInput>& info) {
                             return info.param.name;
                         });

}  // namespace
