// AvcSyntax: H.264 SPS, PPS and slice header fields.
#include "restore/avc_syntax.h"

#include "restore/bit_reader.h"

namespace restore {

namespace {

bool HighProfile(int profile) {
    switch (profile) {
        case 100:
        case 110:
        case 122:
        case 244:
        case 44:
        case 83:
        case 86:
        case 118:
        case 128:
        case 138:
        case 139:
        case 134:
        case 135:
            return true;
        default:
            return false;
    }
}

void SkipScalingList(BitReader* r, int size) {
    int last = 8;
    int next = 8;
    for (int j = 0; j < size && r->ok(); ++j) {
        if (next != 0) next = (last + r->Se() + 256) % 256;
        last = next == 0 ? last : next;
    }
}

bool ReadChromaAndScaling(BitReader* r, AvcSps* sps) {
    sps->chroma_format_idc = static_cast<int>(r->Ue());
    if (sps->chroma_format_idc > 3) return false;
    if (sps->chroma_format_idc == 3) sps->separate_colour_plane = r->Flag();
    if (r->Ue() > 6 || r->Ue() > 6) return false;  // bit depths
    r->Skip(1);                                    // qpprime_y_zero_transform_bypass_flag
    if (r->Flag()) {
        const int lists = sps->chroma_format_idc != 3 ? 8 : 12;
        for (int i = 0; i < lists; ++i)
            if (r->Flag()) SkipScalingList(r, i < 6 ? 16 : 64);
    }
    return r->ok();
}

bool ReadPocFields(BitReader* r, PocParams* poc) {
    poc->log2_max_frame_num = static_cast<int>(r->Ue()) + 4;
    poc->poc_type = static_cast<int>(r->Ue());
    if (poc->log2_max_frame_num > 16 || poc->poc_type > 2) return false;
    if (poc->poc_type == 0) {
        poc->log2_max_poc_lsb = static_cast<int>(r->Ue()) + 4;
        if (poc->log2_max_poc_lsb > 16) return false;
    } else if (poc->poc_type == 1) {
        poc->delta_pic_order_always_zero = r->Flag();
        poc->offset_for_non_ref_pic = r->Se();
        poc->offset_for_top_to_bottom_field = r->Se();
        const uint32_t cycle = r->Ue();
        if (cycle > 255) return false;
        for (uint32_t i = 0; i < cycle && r->ok(); ++i)
            poc->offsets_for_ref_frame.push_back(r->Se());
    }
    return r->ok();
}

}  // namespace

bool AvcSyntax::AddSps(const uint8_t* payload, size_t size) {
    BitReader r(payload, size);
    AvcSps sps;
    sps.profile_idc = static_cast<int>(r.Bits(8));
    r.Skip(16);  // constraint flags, level
    sps.id = static_cast<int>(r.Ue());
    if (sps.id > 31) return false;
    if (HighProfile(sps.profile_idc) && !ReadChromaAndScaling(&r, &sps)) return false;
    if (!ReadPocFields(&r, &sps.poc)) return false;
    r.Ue();     // max_num_ref_frames
    r.Skip(1);  // gaps_in_frame_num_value_allowed_flag
    sps.width_mbs = static_cast<int>(r.Ue()) + 1;
    sps.height_map_units = static_cast<int>(r.Ue()) + 1;
    sps.frame_mbs_only = r.Flag();
    if (!r.ok()) return false;
    sps_[sps.id] = sps;
    return true;
}

bool AvcSyntax::AddPps(const uint8_t* payload, size_t size) {
    BitReader r(payload, size);
    AvcPps pps;
    pps.id = static_cast<int>(r.Ue());
    pps.sps_id = static_cast<int>(r.Ue());
    pps.entropy_coding = r.Flag();
    pps.bottom_field_pic_order_present = r.Flag();
    if (!r.ok() || pps.id > 255 || sps_.count(pps.sps_id) == 0) return false;
    pps_[pps.id] = pps;
    return true;
}

const AvcSps* AvcSyntax::SpsFor(int pps_id) const {
    const auto pps = pps_.find(pps_id);
    if (pps == pps_.end()) return nullptr;
    const auto sps = sps_.find(pps->second.sps_id);
    return sps == sps_.end() ? nullptr : &sps->second;
}

bool AvcSyntax::ReadSlice(int nal_header, const uint8_t* payload, size_t size, PictureInfo* info,
                          uint32_t* first_mb) const {
    BitReader r(payload, size);
    info->nal_type = nal_header & 0x1f;
    info->reference = (nal_header & 0x60) != 0;
    info->idr = info->nal_type == 5;
    *first_mb = r.Ue();
    info->slice_type = static_cast<int>(r.Ue());
    info->pps_id = static_cast<int>(r.Ue());
    const AvcSps* sps = r.ok() ? SpsFor(info->pps_id) : nullptr;
    if (!sps || info->slice_type > 9) return false;
    if (info->idr && info->slice_type % 5 != 2 && info->slice_type % 5 != 4) return false;
    const int map_units = sps->height_map_units * (sps->frame_mbs_only ? 1 : 2);
    if (*first_mb >= static_cast<uint32_t>(sps->width_mbs * map_units)) return false;
    const AvcPps& pps = pps_.at(info->pps_id);
    if (sps->separate_colour_plane) r.Skip(2);
    info->frame_num = r.Bits(sps->poc.log2_max_frame_num);
    if (!sps->frame_mbs_only) {
        info->field = r.Flag();
        if (info->field) info->bottom_field = r.Flag();
    }
    if (info->idr && r.Ue() > 65535) return false;
    if (sps->poc.poc_type == 0) {
        info->poc_lsb = r.Bits(sps->poc.log2_max_poc_lsb);
        if (pps.bottom_field_pic_order_present && !info->field) info->delta_poc_bottom = r.Se();
    } else if (sps->poc.poc_type == 1 && !sps->poc.delta_pic_order_always_zero) {
        info->delta_poc[0] = r.Se();
        if (pps.bottom_field_pic_order_present && !info->field) info->delta_poc[1] = r.Se();
    }
    return r.ok();
}

}  // namespace restore
