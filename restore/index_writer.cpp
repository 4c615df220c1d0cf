// IndexWriter: index files in the format kinefix reads, written beside their final name.
#include "restore/index_writer.h"

#include <cstdio>

#include "crypt/crypt.h"
#include "restore/timestamp_steps.h"
#include "utils/file_safety.h"
#include "utils/utils.h"

namespace restore {

namespace {

// The widest entry either version can write: stream 0..4, six 64-bit numbers at most 20
// characters each (a 32-bit size fits in that), a key flag, six commas and the ";".
constexpr int kMaxEntryBytes = 1 + 20 + 11 + 20 + 20 + 20 + 1 + 7;

std::string Quoted(const char* key, const std::string& value) {
    return std::string("\"") + key + "\":\"" + value + "\"";
}

std::string Number(const char* key, int64_t value) {
    return std::string("\"") + key + "\":" + std::to_string(value);
}

std::string DescriptionLine(const IndexStream& s) {
    std::string line = "{" + Quoted("type", s.video ? "video" : "audio") + "," +
                       Number("index", s.index) + "," + Quoted("codec", s.codec) + "," +
                       Quoted("format", s.format) + "," + Number("tb.num", s.tb_num) + "," +
                       Number("tb.den", s.tb_den) + ",";
    if (s.video)
        line += Number("w", s.width) + "," + Number("h", s.height) + ",";
    else
        line += Number("channels", s.channels) + "," + Number("sample_rate", s.sample_rate) + "," +
                Number("frame_size", s.frame_size) + ",";
    const std::string ev = s.extradata.empty() ? std::string()
                                               : zp::Crypt::instance()->encode_bytes(
                                                     s.extradata.data(), s.extradata.size());
    return line + Quoted("ev", ev) + "}\n";
}

void AppendField(std::string* out, int64_t value, bool compact, char separator) {
    if (!(compact && value == 0)) *out += std::to_string(value);
    *out += separator;
}

}  // namespace

struct IndexWriter::State {
    std::string path;
    std::string temp_path;
    FILE* file = nullptr;
    TimestampSteps steps;
    int audio_index = 0;  // the entries kinefix counts as audio
    int audio_stream = -1;
    int audio_frame_size = 0;
    std::string line;
    int on_line = 0;
    int64_t next_read = 0;
};

IndexWriter::IndexWriter(int version, int entries_per_line)
    : version_(version),
      per_line_(entries_per_line < 1                            ? 1
                : entries_per_line > MaxEntriesPerLine(version) ? MaxEntriesPerLine(version)
                                                                : entries_per_line) {}

IndexWriter::~IndexWriter() {
    Abandon();
}

int IndexWriter::MaxEntriesPerLine(int /*version*/) {
    // Version 1 spells every field and version 2 leaves zeros out: the bound is the same.
    return (kMaxLineBytes - 1) / kMaxEntryBytes;
}

bool IndexWriter::Begin(const std::string& path, const std::vector<IndexStream>& streams,
                        std::string* error) {
    Abandon();
    state_ = new State;
    state_->path = path;
    state_->temp_path = zp::create_file_beside(path);
    if (!state_->temp_path.empty())
        state_->file = zp::Utils::instance()->open_file(state_->temp_path.c_str(), "wb");
    if (!state_->file) {
        *error = "cannot write in the directory of '" + path + "'";
        Abandon();
        return false;
    }
    std::string header = "#version=" + std::to_string(version_) + "\n";
    for (const IndexStream& s : streams) {
        header += DescriptionLine(s);
        if (!s.video && state_->audio_stream < 0) {
            state_->audio_stream = s.index;
            state_->audio_frame_size = s.frame_size;
        }
    }
    // kinefix counts the entries whose stream equals the audio description's index (0 when
    // there is none) as audio; the steps must follow the same split.
    state_->audio_index = state_->audio_stream >= 0 ? state_->audio_stream : 0;
    fputs(header.c_str(), state_->file);
    inexact_ = 0;
    packets_ = 0;
    return true;
}

void IndexWriter::Add(const IndexPacket& p) {
    if (!state_) return;
    State& s = *state_;
    int64_t pts_step = 0;
    int64_t dts_step = 0;
    if (!s.steps.Make(p.stream == s.audio_index, p.pts, p.dts, &pts_step, &dts_step)) ++inexact_;
    // kinefix gives an audio packet without a duration one frame; only an explicit one is exact.
    if (p.stream == s.audio_stream && p.duration == 0 && s.audio_frame_size != 0) ++inexact_;

    const bool compact = version_ == 2;
    // A line's first entry always carries its absolute position, so an entry that a reader
    // drops can shift nothing beyond its own line.
    const bool absolute = s.on_line == 0 || p.pos != s.next_read;
    AppendField(&s.line, p.stream, compact, ',');
    AppendField(&s.line, absolute ? p.pos : 0, compact, ',');
    AppendField(&s.line, p.size, compact, ',');
    AppendField(&s.line, pts_step, compact, ',');
    AppendField(&s.line, dts_step, compact, ',');
    AppendField(&s.line, p.duration, compact, ',');
    AppendField(&s.line, p.key ? 1 : 0, compact, ';');
    s.next_read = p.pos + p.size;
    ++packets_;
    if (++s.on_line == per_line_) EndLine();
}

void IndexWriter::EndLine() {
    if (!state_ || state_->line.empty()) return;
    state_->line += '\n';
    fputs(state_->line.c_str(), state_->file);
    state_->line.clear();
    state_->on_line = 0;
}

bool IndexWriter::Finish(std::string* error) {
    if (!state_) return false;
    EndLine();
    FILE* file = state_->file;
    state_->file = nullptr;
    const bool written = fflush(file) == 0 && !ferror(file);
    const bool closed = fclose(file) == 0;
    if (!written || !closed || !zp::replace_file(state_->temp_path.c_str(), state_->path.c_str())) {
        *error = "cannot write '" + state_->path + "'";
        Abandon();
        return false;
    }
    delete state_;
    state_ = nullptr;
    return true;
}

void IndexWriter::Abandon() {
    if (!state_) return;
    if (state_->file) fclose(state_->file);
    if (!state_->temp_path.empty()) zp::Utils::instance()->remove_file(state_->temp_path.c_str());
    delete state_;
    state_ = nullptr;
}

}  // namespace restore
