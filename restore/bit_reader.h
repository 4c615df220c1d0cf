#pragma once
// BitReader: reads the fixed-width and exp-Golomb fields of H.264/H.265 syntax from the raw
// bytes of a NAL unit, dropping emulation prevention bytes on the way.

#include <cstddef>
#include <cstdint>

namespace restore {

class BitReader {
  public:
    // `data` is NAL unit payload as stored (emulation prevention bytes included).
    BitReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint32_t Bits(int count);  // up to 32
    bool Flag() { return Bits(1) != 0; }
    void Skip(int count);
    // ue(v); values past 32 bits mark the reader failed.
    uint32_t Ue();
    int32_t Se();
    // False once a read ran past the end or met an impossible code.
    bool ok() const { return ok_; }
    // Bits read so far, emulation prevention bytes not counted.
    size_t position() const { return bits_read_; }

  private:
    int NextBit();
    bool LoadByte();

    const uint8_t* data_;
    size_t size_;
    size_t byte_ = 0;  // next stored byte to load
    int zeros_ = 0;    // zero bytes just loaded, for emulation prevention
    uint8_t current_ = 0;
    int left_ = 0;  // bits left in current_
    size_t bits_read_ = 0;
    bool ok_ = true;
};

}  // namespace restore
