// MediaScan: the sequential pass. Video samples are recognised first; the bytes up to the next
// video sample are audio if they decode as such; anything else is damage, skipped up to the
// next key picture (what comes before it cannot be decoded anyway).
#include "restore/media_scan.h"

#include <algorithm>
#include <cmath>

namespace restore {

namespace {

constexpr int64_t kMinAudioSearch = 64 << 10;

int64_t BigEndian32(const uint8_t* p) {
    return (int64_t{p[0]} << 24) | (int64_t{p[1]} << 16) | (int64_t{p[2]} << 8) | p[3];
}

}  // namespace

MediaScan::MediaScan(const ReferenceModel& reference, IndexWriter* writer)
    : ref_(reference), writer_(writer) {}

bool MediaScan::Run(const std::string& damaged, const Progress& progress, const SkipNote& skipped,
                    ScanReport* report, std::string* error) {
    report_ = report;
    skip_note_ = skipped;
    int64_t start = -1, end = 0;
    if (!Prepare(damaged, &start, &end, error)) return false;
    report->data_start = start;
    report->data_end = end;
    Walk(start, end, progress);
    if (!held_audio_.empty()) PlaceAfterGap(limit_);
    Flush();
    report->attributed_bytes = attributed_;
    report->duration = first_time_ >= 0 ? last_end_ - first_time_ : 0;
    return true;
}

// The media data's bounds and the readers set up from the reference.
bool MediaScan::Prepare(const std::string& damaged, int64_t* start, int64_t* end,
                        std::string* error) {
    if (!window_.Open(damaged.c_str())) {
        *error = "cannot read '" + damaged + "'";
        return false;
    }
    if (!FindMediaData(damaged, start, end)) {
        // No intact box header before the media: start where the reference's media starts.
        *start = ref_.mdat_start;
        *end = window_.size();
    }
    if (*start < 0 || *start >= *end) {
        *error = "no media data found in '" + damaged + "'";
        return false;
    }
    if (ref_.video.present &&
        !reader_.Setup(ref_.video.hevc, ref_.video.length_size, ref_.video.parameter_sets, error))
        return false;
    if (ref_.audio.present && !ref_.audio.pcm && !aac_.Open(ref_.audio.stream, error)) return false;
    reader_.max_nal_size = std::max<int64_t>(ref_.video.max_sample * 16, int64_t{16} << 20);
    audio_time_ = ref_.audio.first_pts;
    limit_ = *end;
    gap_from_ = *start;
    return true;
}

// One pass from start to end: video access units, audio runs between them, resync on damage.
void MediaScan::Walk(int64_t start, int64_t end, const Progress& progress) {
    int64_t pos = start;
    int64_t next_progress = start;
    const int64_t step = std::max<int64_t>((end - start) / 100, 1);
    while (pos < limit_) {
        if (progress && pos >= next_progress) {
            progress(static_cast<double>(pos - start) / static_cast<double>(end - start));
            next_progress = pos + step;
        }
        AccessUnit unit;
        if (ref_.video.present && ReadVideo(pos, &unit)) {
            AddVideo(pos, unit);
            pos += unit.size;
            continue;
        }
        int64_t next = pos;
        if (ref_.audio.present) {
            const int64_t bound =
                std::min(limit_, pos + std::max(ref_.audio.max_run * 4, kMinAudioSearch));
            const int64_t video = ref_.video.present ? NextVideo(pos + 1, bound) : bound;
            if (AddAudioRun(pos, video, &next) && next < video && video < bound) Skip(next, video);
            if (next > pos) {
                pos = std::max(next, next < video && video < bound ? video : next);
                continue;
            }
        }
        const int64_t resume = Resync(pos);
        if (resume > pos) pos = resume;
    }
}

bool MediaScan::ReadVideo(int64_t pos, AccessUnit* unit) {
    const bool key_only = !have_picture_ || after_gap_ || seeking_key_;
    return reader_.Read(&window_, pos, limit_, key_only, unit) && Continues(unit->picture);
}

// Whether a recognised picture can follow the previous one. After damage (or at the start)
// only a key picture can: what comes before it refers to pictures that are gone.
bool MediaScan::Continues(const PictureInfo& picture) const {
    if (!have_picture_ || after_gap_ || seeking_key_) {
        if (ref_.video.hevc) return picture.irap && picture.slice_type == 2;
        return picture.idr && picture.frame_num == 0;
    }
    if (picture.idr) return true;
    if (ref_.video.hevc) {
        // Neighbours in decoding order lie close in output order too.
        const int64_t max_lsb = int64_t{1} << reader_.poc_params(picture.pps_id).log2_max_poc_lsb;
        int64_t d = (static_cast<int64_t>(picture.poc_lsb) - prev_poc_lsb_) & (max_lsb - 1);
        if (d > max_lsb / 2) d -= max_lsb;
        return picture.irap || (d >= -64 && d <= 64);
    }
    const int bits = reader_.poc_params(picture.pps_id).log2_max_frame_num;
    return picture.frame_num == ((prev_ref_frame_num_ + 1) & ((1u << bits) - 1));
}

void MediaScan::AddVideo(int64_t pos, const AccessUnit& unit) {
    const bool resumed = after_gap_;
    if (after_gap_) PlaceAfterGap(pos);
    const VideoModel& v = ref_.video;
    bool reset = false;
    const int64_t poc = poc_.Next(reader_.poc_params(unit.picture.pps_id), unit.picture, &reset);
    const int64_t dts = v.first_dts + video_index_ * v.frame_duration;
    if (unit.picture.irap) skip_rasl_ = resumed && !unit.picture.idr;
    if (skip_rasl_ && unit.picture.rasl) {
        // Leading pictures of a random access point met after damage refer to pictures
        // before it: they do not decode, but kept their place in decoding order.
        ++video_index_;
        attributed_ += unit.size;
        prev_poc_lsb_ = unit.picture.poc_lsb;
        return;
    }
    if (reset) {
        seq_poc_ = poc;
        seq_pts_ = dts + (unit.picture.idr || !have_picture_ ? v.key_delay : v.later_key_delay);
    }
    const int64_t pts = seq_pts_ + (poc - seq_poc_) / v.poc_step * v.frame_duration;
    IndexPacket p;
    p.stream = 0;
    p.pos = pos;
    p.size = static_cast<int>(unit.size);
    p.pts = pts;
    p.dts = dts;
    p.duration = v.frame_duration;
    p.key = unit.key;
    const double tick = static_cast<double>(v.stream.tb_num) / v.stream.tb_den;
    Emit(p, static_cast<double>(std::max(pts, dts) + v.frame_duration) * tick);
    if (report_->first_video.size() < 2) report_->first_video.emplace_back(pos, unit.size);
    ++video_index_;
    attributed_ += unit.size;
    have_picture_ = true;
    if (unit.picture.reference) prev_ref_frame_num_ = unit.picture.frame_num;
    prev_poc_lsb_ = unit.picture.poc_lsb;
}

int64_t MediaScan::NextVideo(int64_t from, int64_t bound) {
    for (int64_t at = from; at < bound;) {
        size_t got = 0;
        const uint8_t* p = window_.At(at, static_cast<size_t>(bound - at) + 8, &got);
        if (!p || got < 8) return bound;
        for (size_t i = 0; i + 8 <= got && at + static_cast<int64_t>(i) < bound; ++i) {
            // Cheap tests first: a length that fits, a NAL header with its forbidden bit clear.
            if (p[i] != 0 || (p[i + 4] & 0x80) != 0) continue;
            if (BigEndian32(p + i) > limit_ - (at + static_cast<int64_t>(i))) continue;
            AccessUnit unit;
            const int64_t cand = at + static_cast<int64_t>(i);
            if (ReadVideo(cand, &unit)) return cand;
            p = window_.At(at, static_cast<size_t>(bound - at) + 8, &got);
        }
        at += static_cast<int64_t>(got) - 7;
    }
    return bound;
}

bool MediaScan::AddAudioRun(int64_t pos, int64_t end, int64_t* next) {
    *next = pos;
    size_t got = 0;
    const uint8_t* p = window_.At(pos, static_cast<size_t>(end - pos), &got);
    if (!p || got == 0) return false;
    if (ref_.audio.pcm) {
        const int64_t align = std::max(ref_.audio.block_align, 1);
        int64_t left = static_cast<int64_t>(got) / align * align;
        const int64_t chunk = std::max<int64_t>(ref_.audio.usual_chunk / align * align, align);
        while (left > 0) {
            const int64_t size = std::min(left, chunk);
            AddAudio(*next, size, size / align);
            *next += size;
            left -= size;
        }
        return *next > pos;
    }
    std::vector<int> lengths;
    aac_.Split(p, got, &lengths);
    for (int len : lengths) {
        AddAudio(*next, len, 1);
        *next += len;
    }
    return *next > pos;
}

void MediaScan::AddAudio(int64_t pos, int64_t size, int64_t samples) {
    const AudioModel& a = ref_.audio;
    IndexPacket p;
    p.stream = a.stream.index;
    p.pos = pos;
    p.size = static_cast<int>(size);
    p.duration = samples * a.frame_duration;
    p.key = true;
    attributed_ += size;
    if (after_gap_ && ref_.video.present) {
        held_audio_.push_back(p);
        return;
    }
    if (after_gap_) PlaceAfterGap(pos);
    p.pts = p.dts = audio_time_;
    audio_time_ += p.duration;
    const double tick = static_cast<double>(a.stream.tb_num) / a.stream.tb_den;
    Emit(p, static_cast<double>(audio_time_) * tick);
}

// One packet is held back until the next sample validates: the last sample before damage may
// have been overwritten past its intact length field, and is dropped with the damage.
void MediaScan::Emit(const IndexPacket& packet, double end_seconds) {
    Flush();
    pending_ = packet;
    has_pending_ = true;
    const double tick =
        packet.stream == 0 && ref_.video.present
            ? static_cast<double>(ref_.video.stream.tb_num) / ref_.video.stream.tb_den
            : static_cast<double>(ref_.audio.stream.tb_num) / ref_.audio.stream.tb_den;
    const double start = static_cast<double>(std::min(packet.pts, packet.dts)) * tick;
    if (first_time_ < 0 || start < first_time_) first_time_ = start;
    last_end_ = std::max(last_end_, end_seconds);
}

void MediaScan::Flush() {
    if (!has_pending_) return;
    writer_->Add(pending_);
    if (ref_.video.present && pending_.stream == 0)
        ++report_->video_samples;
    else
        ++report_->audio_samples;
    has_pending_ = false;
}

void MediaScan::Skip(int64_t from, int64_t to) {
    MarkGap(from);
    if (to <= from) return;
    report_->skipped_bytes += to - from;
    if (skip_note_) skip_note_(from, to - from);
}

void MediaScan::MarkGap(int64_t from) {
    if (after_gap_) return;
    after_gap_ = true;
    gap_from_ = from;
    poc_.Restart();
    if (has_pending_) {
        has_pending_ = false;
        ++report_->dropped;
    }
}

}  // namespace restore
