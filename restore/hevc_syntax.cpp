// HevcSyntax: H.265 SPS, PPS and slice segment header fields.
#include "restore/hevc_syntax.h"

#include "restore/bit_reader.h"

namespace restore {

namespace {

// profile_tier_level(1, max_sub_layers_minus1): fixed-width fields only.
void SkipProfileTierLevel(BitReader* r, int max_sub_layers_minus1) {
    r->Skip(88 + 8);  // general profile (88 bits) and general_level_idc
    bool profile[8] = {false};
    bool level[8] = {false};
    for (int i = 0; i < max_sub_layers_minus1; ++i) {
        profile[i] = r->Flag();
        level[i] = r->Flag();
    }
    if (max_sub_layers_minus1 > 0)
        for (int i = max_sub_layers_minus1; i < 8; ++i) r->Skip(2);
    for (int i = 0; i < max_sub_layers_minus1; ++i) {
        if (profile[i]) r->Skip(88);
        if (level[i]) r->Skip(8);
    }
}

}  // namespace

bool HevcSyntax::AddSps(const uint8_t* payload, size_t size) {
    BitReader r(payload, size);
    HevcSps sps;
    sps.poc.hevc = true;
    r.Skip(4);  // sps_video_parameter_set_id
    const int sub_layers = static_cast<int>(r.Bits(3));
    r.Skip(1);
    if (sub_layers > 6) return false;
    SkipProfileTierLevel(&r, sub_layers);
    sps.id = static_cast<int>(r.Ue());
    sps.chroma_format_idc = static_cast<int>(r.Ue());
    if (sps.id > 15 || sps.chroma_format_idc > 3) return false;
    if (sps.chroma_format_idc == 3) sps.separate_colour_plane = r.Flag();
    sps.width = static_cast<int>(r.Ue());
    sps.height = static_cast<int>(r.Ue());
    if (r.Flag())
        for (int i = 0; i < 4; ++i) r.Ue();  // conformance window offsets
    r.Ue();                                  // bit depths
    r.Ue();
    sps.poc.log2_max_poc_lsb = static_cast<int>(r.Ue()) + 4;
    if (!r.ok() || sps.poc.log2_max_poc_lsb > 16) return false;
    sps_[sps.id] = sps;
    return true;
}

bool HevcSyntax::AddPps(const uint8_t* payload, size_t size) {
    BitReader r(payload, size);
    HevcPps pps;
    pps.id = static_cast<int>(r.Ue());
    pps.sps_id = static_cast<int>(r.Ue());
    pps.dependent_slice_segments = r.Flag();
    pps.output_flag_present = r.Flag();
    pps.extra_slice_header_bits = static_cast<int>(r.Bits(3));
    if (!r.ok() || pps.id > 63 || sps_.count(pps.sps_id) == 0) return false;
    pps_[pps.id] = pps;
    return true;
}

const HevcSps* HevcSyntax::SpsFor(int pps_id) const {
    const auto pps = pps_.find(pps_id);
    if (pps == pps_.end()) return nullptr;
    const auto sps = sps_.find(pps->second.sps_id);
    return sps == sps_.end() ? nullptr : &sps->second;
}

bool HevcSyntax::ReadSlice(int nal_type, int temporal_id, const uint8_t* payload, size_t size,
                           PictureInfo* info, bool* first) const {
    BitReader r(payload, size);
    info->nal_type = nal_type;
    info->temporal_id = temporal_id;
    info->irap = nal_type >= 16 && nal_type <= 23;
    info->idr = nal_type == 19 || nal_type == 20;
    info->rasl = nal_type == 8 || nal_type == 9;
    // Sub-layer non-reference pictures: the even types below 16 (7.4.2.2).
    info->reference = !(nal_type < 16 && nal_type % 2 == 0);
    *first = r.Flag();
    if (info->irap) r.Skip(1);  // no_output_of_prior_pics_flag
    info->pps_id = static_cast<int>(r.Ue());
    const HevcSps* sps = r.ok() ? SpsFor(info->pps_id) : nullptr;
    if (!sps) return false;
    if (!*first) return true;
    const HevcPps& pps = pps_.at(info->pps_id);
    r.Skip(pps.extra_slice_header_bits);
    info->slice_type = static_cast<int>(r.Ue());
    if (info->slice_type > 2) return false;
    if (info->irap && info->slice_type != 2) return false;
    if (pps.output_flag_present) r.Skip(1);
    if (sps->separate_colour_plane) r.Skip(2);
    if (!info->idr) info->poc_lsb = r.Bits(sps->poc.log2_max_poc_lsb);
    return r.ok();
}

}  // namespace restore
