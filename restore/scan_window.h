#pragma once
// ScanWindow: a bounded read window over a file that the scan walks forward through; a read
// further back than the window holds goes back to the file.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace restore {

class ScanWindow {
  public:
    explicit ScanWindow(size_t capacity = size_t{4} << 20) : buffer_(capacity) {}
    ~ScanWindow();
    ScanWindow(const ScanWindow&) = delete;
    ScanWindow& operator=(const ScanWindow&) = delete;

    bool Open(const char* path);
    int64_t size() const { return size_; }
    // Up to `count` bytes at `pos` (fewer only at the end of the file); *got says how many.
    // Valid until the next call. `count` is capped at the capacity. Small reads before the
    // window or past its reach leave the window where it is.
    const uint8_t* At(int64_t pos, size_t count, size_t* got);
    size_t capacity() const { return buffer_.size(); }

  private:
    bool Load(int64_t pos, size_t count);
    const uint8_t* Probe(int64_t pos, size_t count, size_t* got);

    static constexpr size_t kProbeBytes = 8192;
    std::vector<uint8_t> probe_;
    FILE* file_ = nullptr;
    int64_t size_ = 0;
    std::vector<uint8_t> buffer_;
    int64_t base_ = 0;   // file offset of buffer_[0]
    size_t filled_ = 0;  // valid bytes in buffer_
    int64_t file_pos_ = 0;
};

}  // namespace restore
