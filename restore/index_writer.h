#pragma once
// IndexWriter: writes an index file in the format kinefix reads, from stream descriptions and
// packets in file order. Shared by the index of a healthy recording and the rescue scan.

#include <cstdint>
#include <string>
#include <vector>

namespace restore {

// One stream description line of the index.
struct IndexStream {
    bool video = false;
    int index = 0;       // stream number in packet entries (video first, as kinefix numbers)
    std::string codec;   // FFmpeg codec name: h264, hevc, aac, mp3, opus, ac3, pcm_s16le...
    std::string format;  // pixel or sample format name
    int tb_num = 1;
    int tb_den = 1;
    int width = 0;  // video
    int height = 0;
    int channels = 0;  // audio
    int sample_rate = 0;
    int frame_size = 0;
    std::vector<uint8_t> extradata;  // written as the `ev` text (base64)
};

// One packet, in its stream's time base, at its absolute position in the recording.
struct IndexPacket {
    int stream = 0;
    int64_t pos = 0;
    int size = 0;
    int64_t pts = 0;
    int64_t dts = 0;
    int64_t duration = 0;
    bool key = false;
};

class IndexWriter {
  public:
    // The longest packet line kinefix's reader takes, line feed included.
    static constexpr int kMaxLineBytes = 8191;

    IndexWriter(int version = 2, int entries_per_line = 1);
    ~IndexWriter();
    IndexWriter(const IndexWriter&) = delete;
    IndexWriter& operator=(const IndexWriter&) = delete;

    // The most entries per line that can never exceed kMaxLineBytes; more are capped to it.
    static int MaxEntriesPerLine(int version);

    // Starts writing to a temporary file beside `path`; nothing replaces `path` until Finish.
    bool Begin(const std::string& path, const std::vector<IndexStream>& streams,
               std::string* error);
    // Packets in the order of their bytes in the recording. Every line begins with an entry
    // that carries its absolute position.
    void Add(const IndexPacket& packet);
    // Flushes and renames the temporary file over `path`; on failure removes it.
    bool Finish(std::string* error);
    // Drops the temporary file; `path` is left as it was.
    void Abandon();

    // Packets whose timestamps the format could not express exactly.
    int inexact() const { return inexact_; }
    int64_t packets() const { return packets_; }

  private:
    void EndLine();

    struct State;
    const int version_;
    const int per_line_;
    State* state_ = nullptr;
    int inexact_ = 0;
    int64_t packets_ = 0;
};

}  // namespace restore
