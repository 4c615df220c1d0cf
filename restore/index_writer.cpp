// IndexWriter: a plain writer of the index format, enough for the rescue scan until the shared
// writer lands.
#include "restore/index_writer.h"

#include <cstdio>

extern "C" {
#include <libavutil/base64.h>
}

#include "restore/timestamp_steps.h"
#include "utils/utils.h"

namespace restore {

struct IndexWriter::State {
    int version = 2;
    int per_line = 1;
    std::string path;
    std::string temp;
    FILE* file = nullptr;
    int audio_index = -1;
    TimestampSteps steps;
    int on_line = 0;
    int64_t next_read = -1;
    std::string line;
};

namespace {

std::string Base64(const std::vector<uint8_t>& bytes) {
    if (bytes.empty()) return std::string();
    std::vector<char> text(AV_BASE64_SIZE(bytes.size()));
    if (!av_base64_encode(text.data(), static_cast<int>(text.size()), bytes.data(),
                          static_cast<int>(bytes.size())))
        return std::string();
    return text.data();
}

std::string Describe(const IndexStream& s) {
    auto q = [](const char* k, const std::string& v) {
        return std::string("\"") + k + "\":\"" + v + "\"";
    };
    auto n = [](const char* k, int64_t v) {
        return std::string("\"") + k + "\":" + std::to_string(v);
    };
    std::string line = "{" + q("type", s.video ? "video" : "audio") + "," + n("index", s.index) +
                       "," + q("codec", s.codec) + "," + q("format", s.format) + "," +
                       n("tb.num", s.tb_num) + "," + n("tb.den", s.tb_den) + ",";
    if (s.video)
        line += n("w", s.width) + "," + n("h", s.height) + ",";
    else
        line += n("channels", s.channels) + "," + n("sample_rate", s.sample_rate) + "," +
                n("frame_size", s.frame_size) + ",";
    return line + q("ev", Base64(s.extradata)) + "}\n";
}

void Field(std::string* out, int64_t value, bool compact, char separator) {
    if (!(compact && value == 0)) *out += std::to_string(value);
    *out += separator;
}

}  // namespace

IndexWriter::IndexWriter(int version, int entries_per_line) : state_(new State) {
    state_->version = version;
    state_->per_line = entries_per_line;
}

IndexWriter::~IndexWriter() {
    Abandon();
    delete state_;
}

int IndexWriter::MaxEntriesPerLine(int version) {
    return (kMaxLineBytes - 1) / (version == 1 ? 120 : 110);
}

bool IndexWriter::Begin(const std::string& path, const std::vector<IndexStream>& streams,
                        std::string* error) {
    state_->path = path;
    state_->temp = path + ".part";
    state_->file = zp::Utils::instance()->open_file(state_->temp.c_str(), "wb");
    if (!state_->file) {
        *error = "cannot write '" + state_->temp + "'";
        return false;
    }
    std::string header = "#version=" + std::to_string(state_->version) + "\n";
    for (const IndexStream& s : streams) {
        header += Describe(s);
        if (!s.video && state_->audio_index < 0) state_->audio_index = s.index;
    }
    fputs(header.c_str(), state_->file);
    return true;
}

void IndexWriter::Add(const IndexPacket& p) {
    State& s = *state_;
    if (!s.file) return;
    int64_t pts_step = 0;
    int64_t dts_step = 0;
    if (!s.steps.Make(p.stream == s.audio_index, p.pts, p.dts, &pts_step, &dts_step)) ++inexact_;
    const bool compact = s.version == 2;
    const bool first_on_line = s.on_line == 0;
    Field(&s.line, p.stream, compact, ',');
    Field(&s.line, first_on_line || p.pos != s.next_read ? p.pos : 0, compact, ',');
    Field(&s.line, p.size, compact, ',');
    Field(&s.line, pts_step, compact, ',');
    Field(&s.line, dts_step, compact, ',');
    Field(&s.line, p.duration, compact, ',');
    Field(&s.line, p.key ? 1 : 0, compact, ';');
    s.next_read = p.pos + p.size;
    ++packets_;
    if (++s.on_line == s.per_line) {
        s.line += '\n';
        fputs(s.line.c_str(), s.file);
        s.line.clear();
        s.on_line = 0;
    }
}

bool IndexWriter::Finish(std::string* error) {
    State& s = *state_;
    if (!s.file) return false;
    if (!s.line.empty()) fputs((s.line + "\n").c_str(), s.file);
    const bool written = fflush(s.file) == 0 && !ferror(s.file);
    const bool closed = fclose(s.file) == 0;
    s.file = nullptr;
    if (!written || !closed || std::rename(s.temp.c_str(), s.path.c_str()) != 0) {
        std::remove(s.temp.c_str());
        *error = "cannot write '" + s.path + "'";
        return false;
    }
    return true;
}

void IndexWriter::Abandon() {
    if (!state_->file) return;
    fclose(state_->file);
    state_->file = nullptr;
    std::remove(state_->temp.c_str());
}

}  // namespace restore
