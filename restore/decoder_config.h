#pragma once
// Decoder configuration records (avcC, hvcC): what an index needs to know of them.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace restore {

// The NAL units of an AVC (ISO/IEC 14496-15 5.3.3.1) or HEVC (8.3.3.1) decoder configuration
// record, and the size of the NAL length prefixes it announces. False for a damaged record.
bool ReadDecoderConfig(bool hevc, const uint8_t* data, size_t size,
                       std::vector<std::vector<uint8_t>>* units, int* length_size);

// The parameter sets of an AVC decoder configuration record as Annex B units, and the size of
// the NAL length prefixes the record announces. False for a damaged record.
bool AvcRecordToAnnexB(const uint8_t* data, size_t size, std::vector<uint8_t>* annexb,
                       int* length_size);

// The NAL length size an HEVC decoder configuration record announces; 0 when it is no record.
int HevcRecordLengthSize(const uint8_t* data, size_t size);

}  // namespace restore
