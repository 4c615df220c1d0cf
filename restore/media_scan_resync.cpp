// MediaScan after damage: finding where samples validate again, and placing what follows in
// time again.
#include <algorithm>
#include <cmath>

#include "restore/media_scan.h"

namespace restore {

namespace {

// AAC raw data blocks open with the element of the first channel: a single channel element
// (mono) or a channel pair element (stereo), instance tag 0 from cameras.
bool MaybeAacStart(uint8_t first, int channels) {
    return (first & 0xfe) == (channels == 2 ? 0x20 : 0x00);
}

}  // namespace

// The next position past `pos` where a key picture (or, without video, a few audio frames in a
// row) validates; the bytes before it that still hold audio are kept.
int64_t MediaScan::Resync(int64_t pos) {
    int64_t found = limit_;
    seeking_key_ = true;  // only a key picture will do
    for (int64_t at = pos + 1; at < limit_ && found == limit_;) {
        size_t got = 0;
        const uint8_t* p = window_.At(at, size_t{1} << 20, &got);
        if (!p || got < 8) break;
        size_t i = 0;
        for (; i + 8 <= got; ++i) {
            const int64_t cand = at + static_cast<int64_t>(i);
            if (ref_.video.present) {
                if (p[i] != 0 || (p[i + 4] & 0x80) != 0 || (p[i + 1] == 0 && p[i + 2] == 0))
                    continue;
                AccessUnit unit;
                if (ReadVideo(cand, &unit)) {
                    found = cand;
                    break;
                }
            } else if (!ref_.audio.pcm && MaybeAacStart(p[i], ref_.audio.stream.channels)) {
                const size_t n = std::min<size_t>(got - i, 16384);
                std::vector<int> lengths;
                aac_.Split(p + i, n, &lengths);
                if (lengths.size() >= 3) {
                    found = cand;
                    break;
                }
            }
            p = window_.At(at, size_t{1} << 20, &got);
        }
        at += static_cast<int64_t>(i) + (found == limit_ ? 1 : 0);
        if (i + 8 > got && found == limit_) at = std::max<int64_t>(at, pos + 1);
    }
    seeking_key_ = false;
    if (ref_.video.present && ref_.audio.present && !ref_.audio.pcm && found < limit_) {
        MarkGap(pos);
        RecoverAudioBefore(pos, found);
        return found;
    }
    // Nothing validates up to the end: a recording cut in the middle of its last sample keeps
    // every whole sample before the cut.
    if (found == limit_) {
        report_->skipped_bytes += found - pos;
        if (skip_note_) skip_note_(pos, found - pos);
        return found;
    }
    Skip(pos, found);
    return found;
}

// The longest run of whole audio frames that ends right at the key picture: it was recorded
// after the damage and belongs to the recording.
void MediaScan::RecoverAudioBefore(int64_t from, int64_t key) {
    const int64_t earliest = std::max(from, key - std::max<int64_t>(ref_.audio.max_run * 2, 4096));
    size_t got = 0;
    const uint8_t* p = window_.At(earliest, static_cast<size_t>(key - earliest), &got);
    int64_t run_start = key;
    std::vector<int> lengths;
    for (size_t i = 0; p && i < got; ++i) {
        if (!MaybeAacStart(p[i], ref_.audio.stream.channels)) continue;
        aac_.Split(p + i, got - i, &lengths);
        int64_t total = 0;
        for (int len : lengths) total += len;
        if (!lengths.empty() && total == static_cast<int64_t>(got - i)) {
            run_start = earliest + static_cast<int64_t>(i);
            break;
        }
        p = window_.At(earliest, static_cast<size_t>(key - earliest), &got);
    }
    Skip(from, run_start);
    int64_t next = run_start;
    if (run_start < key) AddAudioRun(run_start, key, &next);
}

// Times after damage. The lost span is measured in bytes and turned into time at the
// recording's byte rate; a key picture then lands on the key picture grid of the reference,
// and the audio just before it on the audio frame just before it (muxers interleave by time).
void MediaScan::PlaceAfterGap(int64_t key_pos) {
    after_gap_ = false;
    const double covered = last_end_ - std::max(first_time_, 0.0);
    double rate = ref_.bytes_per_second;
    if (covered > 1.0) rate = static_cast<double>(gap_from_ - report_->data_start) / covered;
    const double seconds = last_end_ + (rate > 0 ? (key_pos - gap_from_) / rate : 0);
    const VideoModel& v = ref_.video;
    const AudioModel& a = ref_.audio;
    double anchor = seconds;  // audio held back ends at this time
    if (v.present && key_pos < limit_) {
        const double tick = static_cast<double>(v.stream.tb_num) / v.stream.tb_den;
        const double frames = (seconds / tick - static_cast<double>(v.first_dts)) /
                              static_cast<double>(v.frame_duration);
        int64_t index = std::max<int64_t>(std::llround(frames), video_index_);
        if (v.gop > 0) {
            index = std::llround(static_cast<double>(index) / v.gop) * v.gop;
            while (index < video_index_) index += v.gop;
        }
        video_index_ = index;
        anchor = static_cast<double>(v.first_dts + index * v.frame_duration) * tick;
    }
    if (a.present) {
        const double tick = static_cast<double>(a.stream.tb_num) / a.stream.tb_den;
        int64_t held = 0;
        for (const IndexPacket& p : held_audio_) held += p.duration;
        const double grid = static_cast<double>(std::max<int64_t>(a.frame_duration, 1));
        // The last held frame starts before the anchor, the next frame at or after it.
        const double anchor_ticks = anchor / tick - static_cast<double>(a.first_pts);
        const int64_t after = static_cast<int64_t>(std::ceil(anchor_ticks / grid - 1e-9));
        int64_t start = a.first_pts + after * static_cast<int64_t>(grid) - held;
        if (!v.present)
            start = a.first_pts + std::llround(anchor_ticks / grid) * static_cast<int64_t>(grid);
        audio_time_ = std::max(audio_time_, start);
    }
    std::vector<IndexPacket> held;
    held.swap(held_audio_);
    for (IndexPacket& p : held) {
        p.pts = p.dts = audio_time_;
        audio_time_ += p.duration;
        Emit(p, static_cast<double>(audio_time_) * a.stream.tb_num / a.stream.tb_den);
    }
}

}  // namespace restore
