#pragma once
// PictureInfo and PocParams: what the slice headers and sequence parameter sets of H.264 and
// H.265 tell about a picture's order, in one shape for both codecs.

#include <cstdint>
#include <vector>

namespace restore {

// The sequence-level fields the picture order count rules read.
struct PocParams {
    bool hevc = false;
    int poc_type = 0;  // H.264 pic_order_cnt_type
    int log2_max_poc_lsb = 4;
    int log2_max_frame_num = 4;
    bool delta_pic_order_always_zero = false;
    int offset_for_non_ref_pic = 0;
    int offset_for_top_to_bottom_field = 0;
    std::vector<int> offsets_for_ref_frame;
};

// The first slice of one picture.
struct PictureInfo {
    int nal_type = 0;
    bool reference = true;  // H.264 nal_ref_idc != 0; H.265 not a sub-layer non-reference
    bool idr = false;
    bool irap = false;  // H.265 random access point
    bool rasl = false;
    int temporal_id = 0;
    int pps_id = 0;
    int slice_type = 0;
    uint32_t frame_num = 0;
    uint32_t poc_lsb = 0;
    int32_t delta_poc_bottom = 0;
    int32_t delta_poc[2] = {0, 0};
    bool field = false;
    bool bottom_field = false;
};

}  // namespace restore
