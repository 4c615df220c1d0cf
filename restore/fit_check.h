#pragma once
// FitCheck: decodes the first video samples found by the scan with the reference's decoder
// configuration; a recording made with other settings (size, profile) does not decode cleanly.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "restore/reference_model.h"

namespace restore {

class FitCheck {
  public:
    // False with a message when a sample fails to decode or decodes to another frame size.
    static bool VideoDecodes(const VideoModel& video, const std::string& path,
                             const std::vector<std::pair<int64_t, int64_t>>& samples,
                             std::string* error);
};

}  // namespace restore
