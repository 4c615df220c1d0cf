// BitReader: H.26x RBSP fields over stored NAL bytes.
#include "restore/bit_reader.h"

namespace restore {

bool BitReader::LoadByte() {
    if (byte_ < size_ && zeros_ >= 2 && data_[byte_] == 3) {
        ++byte_;
        zeros_ = 0;
    }
    if (byte_ >= size_) {
        ok_ = false;
        return false;
    }
    current_ = data_[byte_++];
    zeros_ = current_ == 0 ? zeros_ + 1 : 0;
    left_ = 8;
    return true;
}

int BitReader::NextBit() {
    if (left_ == 0 && !LoadByte()) return 0;
    --left_;
    ++bits_read_;
    return (current_ >> left_) & 1;
}

uint32_t BitReader::Bits(int count) {
    uint32_t value = 0;
    for (int i = 0; i < count && ok_; ++i) value = (value << 1) | static_cast<uint32_t>(NextBit());
    return ok_ ? value : 0;
}

void BitReader::Skip(int count) {
    for (int i = 0; i < count && ok_; ++i) NextBit();
}

uint32_t BitReader::Ue() {
    int leading = 0;
    while (ok_ && NextBit() == 0) {
        if (++leading > 31) {
            ok_ = false;
            return 0;
        }
    }
    if (!ok_) return 0;
    const uint64_t value = (uint64_t{1} << leading) - 1 + Bits(leading);
    if (value > 0xffffffffu) ok_ = false;
    return ok_ ? static_cast<uint32_t>(value) : 0;
}

int32_t BitReader::Se() {
    const uint32_t k = Ue();
    const int64_t magnitude = (static_cast<int64_t>(k) + 1) / 2;
    return static_cast<int32_t>(k & 1 ? magnitude : -magnitude);
}

}  // namespace restore
