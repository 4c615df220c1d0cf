#pragma once
// MediaScan: one sequential pass over a damaged recording's media data that tells every sample
// by its content (H.264/HEVC access units, AAC frames, PCM chunks), times it by the reference's
// rules and hands it to an IndexWriter in file order.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "restore/aac_frames.h"
#include "restore/access_unit_reader.h"
#include "restore/index_writer.h"
#include "restore/poc_counter.h"
#include "restore/reference_model.h"
#include "restore/scan_window.h"

namespace restore {

struct ScanReport {
    int64_t video_samples = 0;
    int64_t audio_samples = 0;
    int64_t dropped = 0;  // samples just before damage, which it may have reached into
    int64_t skipped_bytes = 0;
    int64_t data_start = 0;
    int64_t data_end = 0;
    double duration = 0;  // seconds from the first sample's time to the last one's end
    int64_t attributed_bytes = 0;
    std::vector<std::pair<int64_t, int64_t>> first_video;  // the first samples: offset, size
};

class MediaScan {
  public:
    using Progress = std::function<void(double)>;
    // A skipped range: offset and length.
    using SkipNote = std::function<void(int64_t, int64_t)>;

    MediaScan(const ReferenceModel& reference, IndexWriter* writer);
    bool Run(const std::string& damaged, const Progress& progress, const SkipNote& skipped,
             ScanReport* report, std::string* error);
    // Set when the recording's samples carry parameter sets unlike the reference's.
    const std::string& misfit() const { return reader_.foreign_parameter_set(); }

  private:
    bool Prepare(const std::string& damaged, int64_t* start, int64_t* end, std::string* error);
    void Walk(int64_t start, int64_t end, const Progress& progress);
    bool ReadVideo(int64_t pos, AccessUnit* unit);
    bool Continues(const PictureInfo& picture) const;
    void AddVideo(int64_t pos, const AccessUnit& unit);
    int64_t NextVideo(int64_t from, int64_t bound);
    bool AddAudioRun(int64_t pos, int64_t end, int64_t* next);
    void AddAudio(int64_t pos, int64_t size, int64_t samples);
    int64_t Resync(int64_t pos);
    void RecoverAudioBefore(int64_t from, int64_t key);
    void PlaceAfterGap(int64_t key_pos);
    void Skip(int64_t from, int64_t to);
    void MarkGap(int64_t from);
    void Flush();
    void Emit(const IndexPacket& packet, double end_seconds);

    const ReferenceModel& ref_;
    IndexWriter* writer_;
    ScanWindow window_;
    AccessUnitReader reader_;
    PocCounter poc_;
    AacFrames aac_;
    SkipNote skip_note_;
    ScanReport* report_ = nullptr;
    int64_t limit_ = 0;

    int64_t video_index_ = 0;  // decoding order, lost pictures counted
    int64_t audio_time_ = 0;   // next audio pts
    int64_t seq_poc_ = 0;
    int64_t seq_pts_ = 0;
    bool have_picture_ = false;
    uint32_t prev_ref_frame_num_ = 0;
    int64_t prev_poc_lsb_ = 0;
    bool skip_rasl_ = false;
    bool seeking_key_ = false;
    bool after_gap_ = false;  // damage seen, timing not yet placed again
    int64_t gap_from_ = 0;    // end of the last sample before the damage
    double last_end_ = 0;     // seconds: end of the latest sample so far
    double first_time_ = -1;
    int64_t attributed_ = 0;
    std::vector<IndexPacket> held_audio_;
    IndexPacket pending_;
    bool has_pending_ = false;  // audio between damage and the next key picture
};

}  // namespace restore
