#pragma once
// AccessUnitReader: recognises one stored H.264 or H.265 sample (an access unit of
// length-prefixed NAL units) at a position of a recording, from its NAL headers and its first
// slice header alone; the slice data is never read.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "restore/avc_syntax.h"
#include "restore/hevc_syntax.h"
#include "restore/picture_info.h"

namespace restore {

class ScanWindow;

struct AccessUnit {
    int64_t size = 0;
    bool key = false;
    PictureInfo picture;
};

class AccessUnitReader {
  public:
    // Parameter sets as NAL units without start codes or lengths.
    bool Setup(bool hevc, int length_size, const std::vector<std::vector<uint8_t>>& units,
               std::string* error);
    // The access unit at `pos`, ending no later than `limit`; false when the bytes there are
    // not one. `key_only` wants a key picture whose every unit checks out (after damage).
    bool Read(ScanWindow* window, int64_t pos, int64_t limit, bool key_only, AccessUnit* unit);
    const PocParams& poc_params(int pps_id) const;
    // Set when a sample carried a parameter set unlike the reference's.
    const std::string& foreign_parameter_set() const { return foreign_; }
    int64_t max_nal_size = int64_t{64} << 20;

  private:
    enum class Nal { kInvalid, kPrefix, kSlice, kSuffix, kEnd };
    Nal Classify(const uint8_t* nal, size_t size, bool whole, PictureInfo* info, bool* first_slice);
    Nal NoteParameterSet(const uint8_t* nal, size_t size);
    bool AddParameterSet(const uint8_t* nal, size_t size);

    bool hevc_ = false;
    int length_size_ = 4;
    AvcSyntax avc_;
    HevcSyntax hevc_syntax_;
    std::vector<std::vector<uint8_t>> known_;
    std::string foreign_;
    bool unlike_ = false;
    bool key_only_ = false;
};

}  // namespace restore
