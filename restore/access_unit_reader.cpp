// AccessUnitReader: access unit boundaries per H.264 7.4.1.2.3 and H.265 7.4.2.4.4.
#include "restore/access_unit_reader.h"

#include <algorithm>

#include "restore/scan_window.h"

namespace restore {

namespace {

// Enough of any NAL unit for its header fields, parameter sets included.
constexpr size_t kHeaderBytes = 4096;

int64_t BigEndian(const uint8_t* p, int bytes) {
    int64_t v = 0;
    for (int i = 0; i < bytes; ++i) v = (v << 8) | p[i];
    return v;
}

// sei_rbsp (H.264 7.3.2.3, H.265 7.3.2.4): messages whose declared sizes add up to the unit,
// then the stop bit. Random bytes almost never do.
bool SeiValid(const uint8_t* p, size_t size) {
    std::vector<uint8_t> rbsp;
    int zeros = 0;
    for (size_t i = 0; i < size; ++i) {
        if (zeros >= 2 && p[i] == 3) {
            zeros = 0;
            continue;
        }
        zeros = p[i] == 0 ? zeros + 1 : 0;
        rbsp.push_back(p[i]);
    }
    size_t i = 0;
    while (i + 1 < rbsp.size()) {
        for (int field = 0; field < 2; ++field) {
            size_t value = 0;
            while (i < rbsp.size() && rbsp[i] == 0xff) value += 255, ++i;
            if (i >= rbsp.size()) return false;
            value += rbsp[i++];
            if (field == 1) i += value;
        }
    }
    return i + 1 == rbsp.size() && rbsp.back() == 0x80;
}

}  // namespace

bool AccessUnitReader::Setup(bool hevc, int length_size,
                             const std::vector<std::vector<uint8_t>>& units, std::string* error) {
    hevc_ = hevc;
    length_size_ = length_size;
    for (const std::vector<uint8_t>& u : units) AddParameterSet(u.data(), u.size());
    if (hevc ? hevc_syntax_.empty() : avc_.empty()) {
        *error = "the reference's parameter sets cannot be read";
        return false;
    }
    return true;
}

const PocParams& AccessUnitReader::poc_params(int pps_id) const {
    static const PocParams kNone;
    if (hevc_) {
        const HevcSps* sps = hevc_syntax_.SpsFor(pps_id);
        return sps ? sps->poc : kNone;
    }
    const AvcSps* sps = avc_.SpsFor(pps_id);
    return sps ? sps->poc : kNone;
}

// A parameter set inside a sample is never taken in: the scan decodes with the reference's.
AccessUnitReader::Nal AccessUnitReader::NoteParameterSet(const uint8_t* nal, size_t size) {
    const std::vector<uint8_t> bytes(nal, nal + size);
    if (std::find(known_.begin(), known_.end(), bytes) != known_.end()) return Nal::kPrefix;
    if (key_only_) return Nal::kInvalid;
    unlike_ = true;
    return Nal::kPrefix;
}

bool AccessUnitReader::AddParameterSet(const uint8_t* nal, size_t size) {
    const std::vector<uint8_t> bytes(nal, nal + size);
    if (std::find(known_.begin(), known_.end(), bytes) != known_.end()) return true;
    const int header = hevc_ ? 2 : 1;
    if (size <= static_cast<size_t>(header)) return false;
    const int type = hevc_ ? (nal[0] >> 1) & 0x3f : nal[0] & 0x1f;
    bool ok = true;
    if (hevc_)
        ok = type == 32 || (type == 33 ? hevc_syntax_.AddSps(nal + 2, size - 2)
                                       : hevc_syntax_.AddPps(nal + 2, size - 2));
    else
        ok = type == 7 ? avc_.AddSps(nal + 1, size - 1) : avc_.AddPps(nal + 1, size - 1);
    if (!ok) return false;
    known_.push_back(bytes);
    return true;
}

AccessUnitReader::Nal AccessUnitReader::Classify(const uint8_t* nal, size_t size, bool whole,
                                                 PictureInfo* info, bool* first_slice) {
    // Units other than slices and parameter sets are checked where their syntax allows; a key
    // picture sought after damage takes nothing unchecked.
    const auto checked = [&](bool valid) {
        if (whole) return valid ? Nal::kPrefix : Nal::kInvalid;
        return key_only_ ? Nal::kInvalid : Nal::kPrefix;
    };
    if (nal[0] & 0x80) return Nal::kInvalid;
    if (hevc_) {
        const int type = (nal[0] >> 1) & 0x3f;
        const int layer = ((nal[0] & 1) << 5) | (nal[1] >> 3);
        const int tid = (nal[1] & 7) - 1;
        if (layer != 0 || tid < 0) return Nal::kInvalid;
        if (type <= 9 || (type >= 16 && type <= 21))
            return hevc_syntax_.ReadSlice(type, tid, nal + 2, size - 2, info, first_slice)
                       ? Nal::kSlice
                       : Nal::kInvalid;
        if (type >= 32 && type <= 34) return NoteParameterSet(nal, size);
        if (type == 35) return size == 3 && (nal[2] & 0x1f) == 0x10 ? Nal::kPrefix : Nal::kInvalid;
        if (type == 39) return checked(SeiValid(nal + 2, size - 2));
        if (type == 36 || type == 37 || type == 38 || type == 40) return Nal::kSuffix;
        return Nal::kInvalid;
    }
    const int type = nal[0] & 0x1f;
    const int ref = (nal[0] >> 5) & 3;
    switch (type) {
        case 1:
        case 5: {
            uint32_t first_mb = 0;
            if (type == 5 && ref == 0) return Nal::kInvalid;
            if (!avc_.ReadSlice(nal[0], nal + 1, size - 1, info, &first_mb)) return Nal::kInvalid;
            *first_slice = first_mb == 0;
            return Nal::kSlice;
        }
        case 7:
        case 8:
            return ref != 0 ? NoteParameterSet(nal, size) : Nal::kInvalid;
        case 6:
            return ref == 0 ? checked(SeiValid(nal + 1, size - 1)) : Nal::kInvalid;
        case 9:
            return ref == 0 && size == 2 && (nal[1] & 0x1f) == 0x10 ? Nal::kPrefix : Nal::kInvalid;
        case 10:
        case 11:
        case 12:
            return ref == 0 ? Nal::kSuffix : Nal::kInvalid;
        default:
            return Nal::kInvalid;
    }
}

bool AccessUnitReader::Read(ScanWindow* window, int64_t pos, int64_t limit, bool key_only,
                            AccessUnit* unit) {
    const int64_t start = pos;
    key_only_ = key_only;
    unlike_ = false;
    const int64_t min_nal = hevc_ ? 3 : 2;
    bool have_slice = false;
    while (pos < limit) {
        size_t got = 0;
        const uint8_t* p = window->At(pos, static_cast<size_t>(length_size_) + kHeaderBytes, &got);
        if (!p || got < static_cast<size_t>(length_size_) + min_nal) break;
        const int64_t len = BigEndian(p, length_size_);
        if (len < min_nal || len > max_nal_size || pos + length_size_ + len > limit) break;
        const size_t head = static_cast<size_t>(std::min<int64_t>(len, got - length_size_));
        PictureInfo info;
        bool first = false;
        const bool unlike_before = unlike_;
        const Nal kind =
            Classify(p + length_size_, head, static_cast<int64_t>(head) == len, &info, &first);
        if (kind == Nal::kInvalid || (kind == Nal::kPrefix && have_slice)) {
            unlike_ = unlike_before;  // not part of this unit
            break;
        }
        if (kind == Nal::kSuffix && !have_slice) return false;
        if (kind == Nal::kSlice) {
            if (first && have_slice) break;
            if (!first && (!have_slice || info.pps_id != unit->picture.pps_id)) {
                if (!have_slice) return false;
                break;
            }
            if (first) unit->picture = info;
            have_slice = true;
        }
        pos += length_size_ + len;
    }
    if (!have_slice || (key_only && !(hevc_ ? unit->picture.irap : unit->picture.idr)))
        return false;
    if (unlike_ && foreign_.empty())
        foreign_ = std::string("the recording carries a ") + (hevc_ ? "VPS/SPS/PPS" : "SPS/PPS") +
                   " unlike the reference's (other resolution, profile or encoder settings)";
    unit->size = pos - start;
    unit->key = hevc_ ? unit->picture.irap : unit->picture.idr;
    return true;
}

}  // namespace restore
