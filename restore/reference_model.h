#pragma once
// ReferenceModel: what a healthy recording of the same camera teaches the rescue scan: track
// descriptions, parameter sets, frame durations, first timestamps, how its chunks follow one
// another and where its media data starts.

#include <cstdint>
#include <string>
#include <vector>

#include "restore/index_writer.h"

namespace restore {

struct VideoModel {
    bool present = false;
    bool hevc = false;
    IndexStream stream;
    int length_size = 4;
    std::vector<std::vector<uint8_t>> parameter_sets;  // NAL units, no start codes
    std::vector<uint8_t> decoder_config;               // avcC / hvcC as stored
    int64_t frame_duration = 0;
    int64_t first_dts = 0;
    int64_t key_delay = 0;        // pts - dts of the first key picture
    int64_t later_key_delay = 0;  // of the next (an open GOP's leading pictures come before it)
    int64_t poc_step = 2;         // picture order count per frame duration
    int gop = 0;                  // frames between key pictures when constant, else 0
    int64_t max_sample = 0;
};

struct AudioModel {
    bool present = false;
    bool pcm = false;
    IndexStream stream;
    int64_t first_pts = 0;
    int64_t frame_duration = 0;  // per frame (compressed) or per sample (PCM)
    int block_align = 0;         // PCM bytes per sample of all channels
    int64_t usual_chunk = 0;     // PCM: the most common packet size
    int64_t max_run = 0;         // the longest run of audio bytes between video samples
};

class ReferenceModel {
  public:
    // False with a message when the reference cannot teach the scan.
    bool Learn(const std::string& path, std::string* error);

    VideoModel video;
    AudioModel audio;
    int64_t mdat_start = -1;
    double bytes_per_second = 0;
    std::string summary;  // one line for the log

  private:
    bool LearnPackets(void* format_context, const std::string& path, std::string* error);
    bool CheckPictureOrder(const std::string& path, const std::vector<int64_t>& positions,
                           const std::vector<int64_t>& sizes, const std::vector<int64_t>& pts,
                           std::string* error);
};

// The offset and end of the first top-level 'mdat' payload of an ISO media file; -1 when the
// box walk does not reach one. `end` is the file size when the box says "to the end" or runs
// past it.
bool FindMediaData(const std::string& path, int64_t* start, int64_t* end);

}  // namespace restore
