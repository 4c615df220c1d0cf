#pragma once
// PendingOutput: the repaired container, written under a fresh name beside the output and put in
// the output's place only once complete, so a failed or stopped run never harms what was there.

#include <cstdint>
#include <string>

struct AVFormatContext;

namespace restore {

class PendingOutput {
  public:
    explicit PendingOutput(const char* path);
    // Closes and frees everything; a file never committed is removed.
    ~PendingOutput();
    PendingOutput(const PendingOutput&) = delete;
    PendingOutput& operator=(const PendingOutput&) = delete;

    // The muxer chosen from the output's own name; null when no container fits that name.
    AVFormatContext* CreateContext();
    // Opens the fresh file for writing, through FFmpeg's file protocol only: the output's name
    // is never read as a protocol. Returns FFmpeg's result.
    int Open();
    // Writes the trailer, flushes and closes, then puts the file in the output's place.
    // Returns FFmpeg's result, or a negative errno when the rename fails.
    int Commit();
    // Drops the fresh file (for exits that skip destructors).
    void Discard();

    AVFormatContext* context() const { return context_; }
    const std::string& path() const { return path_; }
    int64_t size() const { return size_; }

  private:
    void CloseIo();

    std::string path_;
    std::string temp_path_;
    AVFormatContext* context_ = nullptr;
    bool committed_ = false;
    int64_t size_ = 0;
};

}  // namespace restore
