#pragma once
// MoovParser: reads an index file's header (version, stream descriptions) and hands out its
// packet lines one at a time, with the byte-offset progress through the file.

#include <cstdint>
#include <cstdio>
#include <string>

namespace zp {
class ObjectText;
}

namespace restore {

struct StreamDesc {
    int index = 0;
    char codec[16] = {0};
    char format[16] = {0};      // pixel format (video) or sample format (audio) name
    char* extradata = nullptr;  // the `ev` text, owned; null when absent or empty
    int tb_num = 0;
    int tb_den = 0;
};

struct AudioDesc : StreamDesc {
    int sample_rate = 0;
    int channels = 0;
    int frame_size = 0;
};

struct VideoDesc : StreamDesc {
    int width = 0;
    int height = 0;
};

class MoovParser {
  public:
    static constexpr int kLineMax = 8192;
    static constexpr size_t kBlockSize = 1 << 16;

    MoovParser();
    virtual ~MoovParser();
    MoovParser(const MoovParser&) = delete;
    MoovParser& operator=(const MoovParser&) = delete;

    void Reset();
    // Reads the header part; false (with an [E] line) when the file is unusable.
    bool Parse(const char* path);
    // Rewrites the video `ev` into an AVC decoder configuration record (base64).
    bool BuildAvcConfig();
    // The next packet line (valid until the next call), or null at the end.
    const char* NextLine();
    // Byte offset of the line last handed out over the file size; 0.0 for an empty file.
    double Progress() const;

    int version() const { return version_; }
    int header_lines() const { return header_lines_; }
    int line_number() const { return line_number_; }
    const AudioDesc& audio() const { return audio_; }
    const VideoDesc& video() const { return video_; }
    // Whether a description of that type was read (with or without extradata).
    bool has_audio() const { return has_audio_; }
    bool has_video() const { return has_video_; }

  private:
    void ReadDescription(const zp::ObjectText& obj);
    // One line as fgets reads it (at most kLineMax - 1 bytes, '\n' kept); false at the end.
    bool ReadLine();

    char* line_ = nullptr;
    int header_lines_ = 0;
    char* path_ = nullptr;
    FILE* file_ = nullptr;
    int version_ = 0;
    AudioDesc audio_;
    VideoDesc video_;
    int64_t total_size_ = 0;
    int64_t position_ = 0;
    int line_number_ = 0;
    bool has_audio_ = false;
    bool has_video_ = false;
    // Packet lines are cut from blocks read here; the offset of the next unread byte is kept
    // so that no line costs a tell call.
    char* block_ = nullptr;
    size_t block_len_ = 0;
    size_t block_pos_ = 0;
    int64_t offset_ = 0;
};

}  // namespace restore
