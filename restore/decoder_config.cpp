// Decoder configuration records: avcC to Annex B, the length size of hvcC.
#include "restore/decoder_config.h"

namespace restore {

bool AvcRecordToAnnexB(const uint8_t* data, size_t size, std::vector<uint8_t>* annexb,
                       int* length_size) {
    if (size < 7 || data[0] != 1) return false;
    *length_size = (data[4] & 3) + 1;
    size_t p = 5;
    for (int group = 0; group < 2; ++group) {  // the SPS, then the PPS
        if (p >= size) return false;
        int count = group == 0 ? data[p] & 0x1f : data[p];
        ++p;
        for (; count > 0; --count) {
            if (p + 2 > size) return false;
            const size_t len = (static_cast<size_t>(data[p]) << 8) | data[p + 1];
            p += 2;
            if (p + len > size) return false;
            static const uint8_t kStart[4] = {0, 0, 0, 1};
            annexb->insert(annexb->end(), kStart, kStart + 4);
            annexb->insert(annexb->end(), data + p, data + p + len);
            p += len;
        }
    }
    return !annexb->empty();
}

int HevcRecordLengthSize(const uint8_t* data, size_t size) {
    // configurationVersion 1; lengthSizeMinusOne in the low bits of byte 21.
    if (size < 23 || data[0] != 1) return 0;
    return (data[21] & 3) + 1;
}

}  // namespace restore
