#pragma once
// AvcSyntax: the H.264 parameter set and slice header fields the rescue scan needs, read per
// ITU-T H.264 7.3.2.1, 7.3.2.2 and 7.3.3 up to the picture order count fields.

#include <cstddef>
#include <cstdint>
#include <map>

#include "restore/picture_info.h"

namespace restore {

struct AvcSps {
    int id = 0;
    int profile_idc = 0;
    int chroma_format_idc = 1;
    bool separate_colour_plane = false;
    bool frame_mbs_only = true;
    int width_mbs = 0;
    int height_map_units = 0;
    PocParams poc;
};

struct AvcPps {
    int id = 0;
    int sps_id = 0;
    bool entropy_coding = false;
    bool bottom_field_pic_order_present = false;
};

class AvcSyntax {
  public:
    // `payload` follows the one-byte NAL header.
    bool AddSps(const uint8_t* payload, size_t size);
    bool AddPps(const uint8_t* payload, size_t size);
    // Reads a slice header; false when it cannot belong to these parameter sets.
    bool ReadSlice(int nal_header, const uint8_t* payload, size_t size, PictureInfo* info,
                   uint32_t* first_mb) const;
    // The parameter sets a slice with this PPS id uses; null when unknown.
    const AvcSps* SpsFor(int pps_id) const;
    bool empty() const { return pps_.empty(); }

  private:
    std::map<int, AvcSps> sps_;
    std::map<int, AvcPps> pps_;
};

}  // namespace restore
