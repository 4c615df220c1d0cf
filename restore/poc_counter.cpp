// PocCounter: H.264 and H.265 picture order counts.
#include "restore/poc_counter.h"

#include <algorithm>

namespace restore {

namespace {

// The most significant part that keeps lsb closest to the previous count (both standards).
int64_t NextMsb(int64_t prev_msb, int64_t prev_lsb, int64_t lsb, int64_t max_lsb) {
    if (lsb < prev_lsb && prev_lsb - lsb >= max_lsb / 2) return prev_msb + max_lsb;
    if (lsb > prev_lsb && lsb - prev_lsb > max_lsb / 2) return prev_msb - max_lsb;
    return prev_msb;
}

}  // namespace

int64_t PocCounter::Next(const PocParams& params, const PictureInfo& picture, bool* reset) {
    if (params.hevc) {
        *reset = picture.idr || (picture.irap && (first_ || picture.nal_type <= 18));
    } else {
        *reset = picture.idr;
    }
    if (first_ && !*reset) *reset = true;  // a stream cut in the middle of a sequence
    int64_t poc = 0;
    if (params.hevc)
        poc = Hevc(params, picture);
    else if (params.poc_type == 0)
        poc = AvcType0(params, picture);
    else
        poc = AvcFromFrameNum(params, picture);
    first_ = false;
    return poc;
}

int64_t PocCounter::AvcType0(const PocParams& p, const PictureInfo& pic) {
    if (pic.idr || first_) {
        prev_msb_ = 0;
        prev_lsb_ = pic.idr ? 0 : pic.poc_lsb;
    }
    const int64_t max_lsb = int64_t{1} << p.log2_max_poc_lsb;
    const int64_t msb = NextMsb(prev_msb_, prev_lsb_, pic.poc_lsb, max_lsb);
    const int64_t top = msb + pic.poc_lsb;
    const int64_t bottom = pic.field ? top : top + pic.delta_poc_bottom;
    if (pic.reference) {
        prev_msb_ = msb;
        prev_lsb_ = pic.poc_lsb;
    }
    return std::min(top, bottom);
}

int64_t PocCounter::AvcFromFrameNum(const PocParams& p, const PictureInfo& pic) {
    const int64_t max_frame_num = int64_t{1} << p.log2_max_frame_num;
    int64_t offset = 0;
    if (!pic.idr && !first_)
        offset = prev_frame_num_offset_ + (prev_frame_num_ > pic.frame_num ? max_frame_num : 0);
    prev_frame_num_ = pic.frame_num;
    prev_frame_num_offset_ = offset;
    if (pic.idr) return 0;
    if (p.poc_type == 2) return 2 * (offset + pic.frame_num) - (pic.reference ? 0 : 1);

    const int64_t cycle = static_cast<int64_t>(p.offsets_for_ref_frame.size());
    int64_t abs_frame = cycle != 0 ? offset + pic.frame_num : 0;
    if (!pic.reference && abs_frame > 0) --abs_frame;
    int64_t expected = 0;
    if (abs_frame > 0) {
        int64_t per_cycle = 0;
        for (int v : p.offsets_for_ref_frame) per_cycle += v;
        expected = (abs_frame - 1) / cycle * per_cycle;
        for (int64_t i = 0; i <= (abs_frame - 1) % cycle; ++i)
            expected += p.offsets_for_ref_frame[i];
    }
    if (!pic.reference) expected += p.offset_for_non_ref_pic;
    const int64_t top = expected + pic.delta_poc[0];
    const int64_t bottom = top + p.offset_for_top_to_bottom_field + pic.delta_poc[1];
    return pic.field ? (pic.bottom_field ? bottom : top) : std::min(top, bottom);
}

int64_t PocCounter::Hevc(const PocParams& p, const PictureInfo& pic) {
    const int64_t max_lsb = int64_t{1} << p.log2_max_poc_lsb;
    int64_t msb = 0;
    const bool no_rasl_output = pic.irap && (first_ || pic.idr || pic.nal_type <= 18);
    if (!no_rasl_output) msb = NextMsb(prev_msb_, prev_lsb_, pic.poc_lsb, max_lsb);
    const int64_t poc = msb + pic.poc_lsb;
    // prevTid0Pic: temporal layer 0, neither RASL, RADL nor a sub-layer non-reference picture.
    const bool radl = pic.nal_type == 6 || pic.nal_type == 7;
    if (pic.temporal_id == 0 && !pic.rasl && !radl && pic.reference) {
        prev_msb_ = msb;
        prev_lsb_ = pic.poc_lsb;
    }
    return poc;
}

}  // namespace restore
