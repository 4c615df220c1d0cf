#pragma once
// PocCounter: picture order counts in decoding order, per H.264 8.2.1 (all three types) and
// H.265 8.3.1. Memory management operation 5 is not followed (the scan does not read the
// reference picture marking).

#include <cstdint>

#include "restore/picture_info.h"

namespace restore {

class PocCounter {
  public:
    // The picture's order count; *reset says that it starts a new sequence (counts restart).
    int64_t Next(const PocParams& params, const PictureInfo& picture, bool* reset);
    // Forgets the previous pictures: the next one is taken as the first of the stream.
    void Restart() { first_ = true; }

  private:
    int64_t AvcType0(const PocParams& p, const PictureInfo& pic);
    int64_t AvcFromFrameNum(const PocParams& p, const PictureInfo& pic);
    int64_t Hevc(const PocParams& p, const PictureInfo& pic);

    bool first_ = true;
    int64_t prev_msb_ = 0;
    int64_t prev_lsb_ = 0;
    int64_t prev_frame_num_ = 0;
    int64_t prev_frame_num_offset_ = 0;
};

}  // namespace restore
