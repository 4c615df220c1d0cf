// Fuzz target: the base64 and hex decoders and the SPS/PPS split of what they decode.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "crypt/crypt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zp::Crypt* crypt = zp::Crypt::instance();
    const std::string text(reinterpret_cast<const char*>(data), size);

    std::vector<uint8_t> bytes;
    if (crypt->decode_text(text.c_str(), &bytes)) {
        // What decodes re-encodes to a text that decodes to the same bytes.
        const std::string again = crypt->encode_bytes(bytes.data(), bytes.size());
        std::vector<uint8_t> round;
        if (!crypt->decode_text(again.c_str(), &round) || round != bytes) abort();
    }

    std::vector<uint8_t> hex;
    if (crypt->hex_decode(text.c_str(), &hex)) {
        const std::string again = crypt->hex_encode(hex.data(), hex.size());
        std::vector<uint8_t> round;
        if (!crypt->hex_decode(again.c_str(), &round) || round != hex) abort();
    }

    // The raw bytes as extradata, Annex B or avcC alike.
    std::vector<uint8_t> sps;
    std::vector<uint8_t> pps;
    if (crypt->split_sps_pps(data, size, &sps, &pps)) {
        if (sps.empty() || pps.empty() || sps.size() > size || pps.size() > size) abort();
        // Annex B units are chosen by type; a configuration record's are taken as listed.
        if (data[0] != 1 && ((sps[0] & 0x1f) != 7 || (pps[0] & 0x1f) != 8)) abort();
    }
    return 0;
}
