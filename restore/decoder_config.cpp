// Decoder configuration records: their NAL units, avcC to Annex B, the length size of hvcC.
#include "restore/decoder_config.h"

namespace restore {

bool ReadDecoderConfig(bool hevc, const uint8_t* d, size_t size,
                       std::vector<std::vector<uint8_t>>* units, int* length_size) {
    if (size < (hevc ? 23u : 7u) || d[0] != 1) return false;
    *length_size = ((hevc ? d[21] : d[4]) & 3) + 1;
    size_t p = hevc ? 23 : 5;
    const int groups = hevc ? d[22] : 2;
    for (int g = 0; g < groups; ++g) {
        if (p + (hevc ? 3 : 1) > size) return false;
        int count = hevc ? (d[p + 1] << 8) | d[p + 2] : (g == 0 ? d[p] & 0x1f : d[p]);
        p += hevc ? 3 : 1;
        for (; count > 0; --count) {
            if (p + 2 > size) return false;
            const size_t len = (static_cast<size_t>(d[p]) << 8) | d[p + 1];
            p += 2;
            if (p + len > size) return false;
            units->emplace_back(d + p, d + p + len);
            p += len;
        }
    }
    return !units->empty();
}

bool AvcRecordToAnnexB(const uint8_t* data, size_t size, std::vector<uint8_t>* annexb,
                       int* length_size) {
    std::vector<std::vector<uint8_t>> units;  // the SPS, then the PPS
    if (!ReadDecoderConfig(false, data, size, &units, length_size)) return false;
    static const uint8_t kStart[4] = {0, 0, 0, 1};
    for (const std::vector<uint8_t>& unit : units) {
        annexb->insert(annexb->end(), kStart, kStart + 4);
        annexb->insert(annexb->end(), unit.begin(), unit.end());
    }
    return true;
}

int HevcRecordLengthSize(const uint8_t* data, size_t size) {
    // configurationVersion 1; lengthSizeMinusOne in the low bits of byte 21.
    if (size < 23 || data[0] != 1) return 0;
    return (data[21] & 3) + 1;
}

}  // namespace restore
