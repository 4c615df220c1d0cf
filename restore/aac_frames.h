#pragma once
// AacFrames: the lengths of raw AAC frames stored back to back, found by FFmpeg's decoder (a
// raw frame does not state its own length; its syntax ends where decoding ends).

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "restore/index_writer.h"

namespace restore {

class AacFrames {
  public:
    AacFrames() = default;
    ~AacFrames();
    AacFrames(const AacFrames&) = delete;
    AacFrames& operator=(const AacFrames&) = delete;

    bool Open(const IndexStream& audio, std::string* error);
    // The frames that start at data[0] and follow one another, as many as decode cleanly
    // within `size` bytes; the last one's length is exact even when what follows it is not
    // audio.
    void Split(const uint8_t* data, size_t size, std::vector<int>* lengths);
    int64_t decoded() const { return decoded_; }

  private:
    // Frames decoded from data[0..size); lengths from the packet bytes left as each began.
    int Decode(const uint8_t* data, size_t size, std::vector<int>* remaining, bool* failed);
    int ExactLength(const uint8_t* data, int at_most);

    void* context_ = nullptr;  // AVCodecContext
    void* packet_ = nullptr;   // AVPacket
    void* frame_ = nullptr;    // AVFrame
    std::vector<uint8_t> buffer_;
    int frame_size_ = 1024;
    int64_t decoded_ = 0;
};

}  // namespace restore
