#pragma once
// RecordingIndexer: writes the index of a healthy recording, so that kinefix can rebuild it
// from its media bytes should its own index ever be lost.

#include <string>

namespace restore {

class RecordingIndexer {
  public:
    // `entries_per_line` above what the reader takes is capped (IndexWriter).
    RecordingIndexer(int version, int entries_per_line);

    // Indexes one H.264 or HEVC video track and one audio track whose packets are whole frames
    // or fixed-size chunks. Every track left out is named on standard error with the reason.
    // Returns the exit code: 0 when `index` was written; otherwise `index` is left as it was.
    int Run(const std::string& recording, const std::string& index);

  private:
    int version_;
    int entries_per_line_;
};

}  // namespace restore
