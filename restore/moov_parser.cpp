// MoovParser: the index file's header (version, stream descriptions) and its packet lines.
#include "restore/moov_parser.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "cmdline/object_text.h"
#include "crypt/crypt.h"
#include "log/log.h"
#include "utils/c_text.h"
#include "utils/file_guard.h"
#include "utils/file_offset.h"
#include "utils/utils.h"

namespace restore {

namespace {

int to_int(const std::string& text) {
    long v = strtol(text.c_str(), nullptr, 10);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<int>(v);
}

// Fills the fields both kinds share.
void read_common(const zp::ObjectText& obj, StreamDesc* desc) {
    desc->index = to_int(obj.get_string("index", ""));
    snprintf(desc->codec, sizeof(desc->codec), "%s", obj.get_string("codec", "").c_str());
    snprintf(desc->format, sizeof(desc->format), "%s", obj.get_string("format", "").c_str());
    desc->tb_num = to_int(obj.get_string("tb.num", ""));
    desc->tb_den = to_int(obj.get_string("tb.den", ""));
    const std::string ev = obj.get_string("ev", "");
    // No text means no extradata: the engine then gives the stream no output at all.
    if (!ev.empty()) desc->extradata = zp::copy_text(ev.c_str());
}

}  // namespace

MoovParser::MoovParser() {
    line_ = static_cast<char*>(calloc(kLineMax, 1));
    block_ = static_cast<char*>(malloc(kBlockSize));
    Reset();
}

MoovParser::~MoovParser() {
    Reset();
    free(line_);
    free(block_);
}

void MoovParser::Reset() {
    free(path_);
    path_ = nullptr;
    if (file_) fclose(file_);
    file_ = nullptr;
    header_lines_ = 0;
    free(audio_.extradata);
    free(video_.extradata);
    audio_ = AudioDesc();
    video_ = VideoDesc();
    has_audio_ = false;
    has_video_ = false;
    version_ = 0;
    total_size_ = 0;
    position_ = 0;
    line_number_ = 0;
}

bool MoovParser::Parse(const char* path) {
    Reset();
    if (!line_ || !block_) return false;
    FILE* f = path ? zp::Utils::instance()->open_file(path, "rt") : nullptr;
    if (!f) {
        ZP_LOGE("无法打开moov文件: %s", path ? path : "");
        return false;
    }
    zp::FileGuard guard(f);

    int line_no = 0;
    zp::ObjectText obj;
    while (fgets(line_, kLineMax, f)) {
        ++line_no;
        if (line_[0] == '#') {
            ++header_lines_;
            if (line_no == 1) {
                const char* v = strstr(line_, "version=");
                if (v) version_ = to_int(v + strlen("version="));
            }
        } else if (line_[0] == '{') {
            ++header_lines_;
            obj.parse(line_);
            ReadDescription(obj);
        } else {
            break;
        }
    }

    if (!has_audio_ && !has_video_) {
        ZP_LOGE("未找到有效的音视频流: %s", path);
        return false;
    }
    if (!BuildAvcConfig()) {
        ZP_LOGE("未找到extradata");
        return false;
    }

    path_ = zp::copy_text(path);
    if (!path_ || zp::file_seek(f, 0, SEEK_END) != 0) return false;
    total_size_ = zp::file_tell(f);
    return true;
}

// A later description of the same type replaces an earlier one.
void MoovParser::ReadDescription(const zp::ObjectText& obj) {
    const std::string type = obj.get_string("type", "");
    if (type == "audio") {
        free(audio_.extradata);
        audio_ = AudioDesc();
        read_common(obj, &audio_);
        audio_.sample_rate = to_int(obj.get_string("sample_rate", ""));
        audio_.channels = to_int(obj.get_string("channels", ""));
        audio_.frame_size = to_int(obj.get_string("frame_size", ""));
        has_audio_ = true;
    } else if (type == "video") {
        free(video_.extradata);
        video_ = VideoDesc();
        read_common(obj, &video_);
        video_.width = to_int(obj.get_string("w", ""));
        video_.height = to_int(obj.get_string("h", ""));
        has_video_ = true;
    }
}

bool MoovParser::BuildAvcConfig() {
    if (!video_.extradata) {
        ZP_LOGE("没有检测到视频流");
        return true;
    }
    // Other codecs' `ev` is already what their muxers take (an HEVC record, for instance).
    if (strcmp(video_.codec, "h264") != 0) return true;
    zp::Crypt* crypt = zp::Crypt::instance();
    std::vector<uint8_t> bytes, sps, pps;
    if (!crypt->decode_text(video_.extradata, &bytes) ||
        !crypt->split_sps_pps(bytes.data(), bytes.size(), &sps, &pps))
        return false;
    // Profile, compatibility and level come from SPS bytes 1..3; lengths are 16-bit.
    if (sps.size() < 4 || pps.empty() || sps.size() > 0xffff || pps.size() > 0xffff) return false;

    std::vector<uint8_t> record;
    record.reserve(11 + sps.size() + pps.size());
    record.push_back(1);
    record.insert(record.end(), sps.begin() + 1, sps.begin() + 4);
    record.push_back(0xff);
    record.push_back(0xe1);
    record.push_back(static_cast<uint8_t>(sps.size() >> 8));
    record.push_back(static_cast<uint8_t>(sps.size() & 0xff));
    record.insert(record.end(), sps.begin(), sps.end());
    record.push_back(1);
    record.push_back(static_cast<uint8_t>(pps.size() >> 8));
    record.push_back(static_cast<uint8_t>(pps.size() & 0xff));
    record.insert(record.end(), pps.begin(), pps.end());

    std::vector<char> dump(record.size() * 3 + 1, '\0');
    for (size_t i = 0; i < record.size(); ++i) snprintf(&dump[i * 3], 4, "%02x,", record[i]);
    ZP_LOGD("===> ext_result: %s\n", dump.data());

    char* text = zp::copy_text(crypt->encode_bytes(record.data(), record.size()).c_str());
    if (!text) return false;
    free(video_.extradata);
    video_.extradata = text;
    return true;
}

const char* MoovParser::NextLine() {
    if (!path_) return nullptr;
    if (!file_) {
        file_ = zp::Utils::instance()->open_file(path_, "rb");
        if (!file_) return nullptr;
        block_len_ = block_pos_ = 0;
        offset_ = 0;
        for (int i = 0; i < header_lines_; ++i) {
            if (!ReadLine()) break;
        }
        line_number_ = header_lines_;
    }
    position_ = offset_;
    if (ReadLine()) {
        ++line_number_;
        return line_;
    }
    position_ = total_size_;
    return nullptr;
}

bool MoovParser::ReadLine() {
    size_t n = 0;
    const size_t limit = kLineMax - 1;
    while (n < limit) {
        if (block_pos_ == block_len_) {
            block_len_ = fread(block_, 1, kBlockSize, file_);
            block_pos_ = 0;
            if (block_len_ == 0) break;
        }
        const char* start = block_ + block_pos_;
        const size_t avail = std::min(block_len_ - block_pos_, limit - n);
        const char* end = static_cast<const char*>(memchr(start, '\n', avail));
        const size_t take = end ? static_cast<size_t>(end - start) + 1 : avail;
        memcpy(line_ + n, start, take);
        n += take;
        block_pos_ += take;
        offset_ += static_cast<int64_t>(take);
        if (end) break;
    }
    line_[n] = '\0';
    return n > 0;
}

double MoovParser::Progress() const {
    if (total_size_ <= 0) return 0.0;
    return static_cast<double>(position_) / static_cast<double>(total_size_);
}

}  // namespace restore
