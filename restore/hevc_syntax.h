#pragma once
// HevcSyntax: the H.265 parameter set and slice segment header fields the rescue scan needs,
// read per ITU-T H.265 7.3.2.2, 7.3.2.3 and 7.3.6.1 up to slice_pic_order_cnt_lsb.

#include <cstddef>
#include <cstdint>
#include <map>

#include "restore/picture_info.h"

namespace restore {

struct HevcSps {
    int id = 0;
    int chroma_format_idc = 1;
    bool separate_colour_plane = false;
    int width = 0;
    int height = 0;
    PocParams poc;
};

struct HevcPps {
    int id = 0;
    int sps_id = 0;
    bool dependent_slice_segments = false;
    bool output_flag_present = false;
    int extra_slice_header_bits = 0;
};

class HevcSyntax {
  public:
    // `payload` follows the two-byte NAL header.
    bool AddSps(const uint8_t* payload, size_t size);
    bool AddPps(const uint8_t* payload, size_t size);
    // Reads a slice segment header; false when it cannot belong to these parameter sets.
    // `first` tells whether the segment opens a picture; only then is `info` filled in full.
    bool ReadSlice(int nal_type, int temporal_id, const uint8_t* payload, size_t size,
                   PictureInfo* info, bool* first) const;
    const HevcSps* SpsFor(int pps_id) const;
    bool empty() const { return pps_.empty(); }

  private:
    std::map<int, HevcSps> sps_;
    std::map<int, HevcPps> pps_;
};

}  // namespace restore
