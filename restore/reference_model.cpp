// ReferenceModel: a healthy recording read with libavformat, and its samples read again with
// the scan's own access unit reader to prove that the scan's timing rules give back its times.
#include "restore/reference_model.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "restore/access_unit_reader.h"
#include "restore/decoder_config.h"
#include "restore/ffmpeg_compat.h"
#include "restore/poc_counter.h"
#include "restore/scan_window.h"

namespace restore {

namespace {

int64_t MostCommon(const std::vector<int64_t>& values) {
    std::map<int64_t, int> count;
    for (int64_t v : values) ++count[v];
    int64_t best = 0;
    int best_count = 0;
    for (const auto& [v, n] : count)
        if (n > best_count) best = v, best_count = n;
    return best;
}

uint32_t Be32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

bool VideoStream(const AVStream* st, VideoModel* v, std::string* error) {
    const AVCodecParameters* par = st->codecpar;
    v->hevc = par->codec_id == AV_CODEC_ID_HEVC;
    v->decoder_config.assign(par->extradata, par->extradata + par->extradata_size);
    if (!ReadDecoderConfig(v->hevc, par->extradata, static_cast<size_t>(par->extradata_size),
                           &v->parameter_sets, &v->length_size)) {
        *error = "the reference's video carries no decoder configuration record";
        return false;
    }
    IndexStream& s = v->stream;
    s.video = true;
    s.codec = v->hevc ? "hevc" : "h264";
    const char* format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(par->format));
    s.format = format ? format : "yuv420p";
    s.tb_num = st->time_base.num;
    s.tb_den = st->time_base.den;
    s.width = par->width;
    s.height = par->height;
    if (v->hevc) {
        s.extradata = v->decoder_config;
    } else {
        for (const std::vector<uint8_t>& u : v->parameter_sets) {
            s.extradata.insert(s.extradata.end(), {0, 0, 0, 1});
            s.extradata.insert(s.extradata.end(), u.begin(), u.end());
        }
    }
    v->present = true;
    return true;
}

void AudioStream(const AVStream* st, AudioModel* a) {
    const AVCodecParameters* par = st->codecpar;
    IndexStream& s = a->stream;
    s.codec = avcodec_get_name(par->codec_id);
    const char* format = av_get_sample_fmt_name(static_cast<AVSampleFormat>(par->format));
    s.format = format ? format : "";
    s.tb_num = st->time_base.num;
    s.tb_den = st->time_base.den;
    s.channels = kinefix_compat::channels(par);
    s.sample_rate = par->sample_rate;
    a->pcm = s.codec.rfind("pcm_", 0) == 0;
    a->block_align = a->pcm ? s.channels * av_get_bits_per_sample(par->codec_id) / 8 : 0;
    s.frame_size = a->pcm ? 1 : (par->frame_size > 0 ? par->frame_size : 1024);
    s.extradata.assign(par->extradata, par->extradata + par->extradata_size);
    a->present = true;
}

// Packets in file order, enough to learn from.
void ReadPackets(AVFormatContext* in, int vi, int ai, std::vector<IndexPacket>* packets) {
    AVPacket* pkt = av_packet_alloc();
    while (pkt && packets->size() < 20000 && av_read_frame(in, pkt) >= 0) {
        if ((pkt->stream_index == vi || pkt->stream_index == ai) && pkt->pos >= 0 &&
            pkt->pts != AV_NOPTS_VALUE && pkt->dts != AV_NOPTS_VALUE)
            packets->push_back({pkt->stream_index, pkt->pos, pkt->size, pkt->pts, pkt->dts,
                                pkt->duration, (pkt->flags & AV_PKT_FLAG_KEY) != 0});
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    std::stable_sort(packets->begin(), packets->end(),
                     [](const IndexPacket& a, const IndexPacket& b) { return a.pos < b.pos; });
}

void FinishAudio(const std::vector<int64_t>& durations, const std::vector<int64_t>& sizes,
                 AudioModel* audio) {
    audio->frame_duration = MostCommon(durations);
    audio->usual_chunk = MostCommon(sizes);
    if (audio->pcm && audio->block_align > 0) audio->frame_duration = 1;  // per sample
}

// The distance between key pictures when it never changes, else 0.
int ConstantGap(const std::vector<int64_t>& keys) {
    if (keys.size() < 2) return 0;
    const int64_t gap = keys[1] - keys[0];
    for (size_t i = 2; i < keys.size(); ++i)
        if (keys[i] - keys[i - 1] != gap) return 0;
    return static_cast<int>(gap);
}

// The first video and audio tracks the scan can tell by content.
void ChooseStreams(const AVFormatContext* in, int* vi, int* ai) {
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVCodecParameters* par = in->streams[i]->codecpar;
        const bool video_codec =
            par->codec_id == AV_CODEC_ID_H264 || par->codec_id == AV_CODEC_ID_HEVC;
        if (*vi < 0 && video_codec) *vi = static_cast<int>(i);
        const std::string name = avcodec_get_name(par->codec_id);
        if (*ai < 0 && par->codec_type == AVMEDIA_TYPE_AUDIO &&
            (par->codec_id == AV_CODEC_ID_AAC || name.rfind("pcm_", 0) == 0))
            *ai = static_cast<int>(i);
    }
}

}  // namespace

bool FindMediaData(const std::string& path, int64_t* start, int64_t* end) {
    ScanWindow window(1 << 16);
    *start = -1;
    if (!window.Open(path.c_str())) return false;
    *end = window.size();
    int64_t pos = 0;
    size_t got = 0;
    // The walk over intact boxes.
    while (const uint8_t* p = window.At(pos, 16, &got)) {
        if (got < 8) break;
        int64_t size = Be32(p);
        int header = 8;
        if (size == 1 && got >= 16) {
            size = static_cast<int64_t>((uint64_t{Be32(p + 8)} << 32) | Be32(p + 12));
            header = 16;
        }
        const bool printable =
            std::all_of(p + 4, p + 8, [](uint8_t c) { return c >= 32 && c < 127; });
        if (!printable || (size != 0 && size < header)) break;
        if (memcmp(p + 4, "mdat", 4) == 0) {
            *start = pos + header;
            if (size != 0 && pos + size < *end) *end = pos + size;
            return true;
        }
        if (size == 0) break;
        pos += size;
    }
    // A damaged box on the way: look for the media data's own header further on.
    const int64_t kSearch = int64_t{64} << 20;
    for (int64_t at = pos; at < std::min(*end, pos + kSearch); at += 60000) {
        const uint8_t* p = window.At(at, 60008, &got);
        for (size_t i = 4; p && i + 4 <= got; ++i) {
            if (memcmp(p + i, "mdat", 4) != 0) continue;
            const int64_t size = Be32(p + i - 4);
            *start = at + static_cast<int64_t>(i) + 4;
            if (size > 8 && at + static_cast<int64_t>(i) - 4 + size < *end)
                *end = at + static_cast<int64_t>(i) - 4 + size;
            return true;
        }
    }
    return false;
}

bool ReferenceModel::Learn(const std::string& path, std::string* error) {
    AVFormatContext* in = nullptr;
    int ret = avformat_open_input(&in, path.c_str(), nullptr, nullptr);
    if (ret < 0 || avformat_find_stream_info(in, nullptr) < 0) {
        *error = "cannot read the reference '" + path + "'";
        avformat_close_input(&in);
        return false;
    }
    bool ok = LearnPackets(in, path, error);
    avformat_close_input(&in);
    int64_t end = 0;
    if (ok && !FindMediaData(path, &mdat_start, &end)) {
        *error = "the reference has no media data box ('mdat'): not an MP4/MOV recording";
        ok = false;
    }
    summary += ", media data at " + std::to_string(mdat_start);
    return ok;
}

bool ReferenceModel::LearnPackets(void* context, const std::string& path, std::string* error) {
    auto* in = static_cast<AVFormatContext*>(context);
    int vi = -1, ai = -1;
    ChooseStreams(in, &vi, &ai);
    if (vi < 0 && ai < 0) {
        *error = "the reference has neither H.264/HEVC video nor AAC/PCM audio";
        return false;
    }
    if (vi >= 0 && !VideoStream(in->streams[vi], &video, error)) return false;
    if (ai >= 0) AudioStream(in->streams[ai], &audio);
    audio.stream.index = video.present ? 1 : 0;

    std::vector<IndexPacket> packets;
    ReadPackets(in, vi, ai, &packets);

    std::vector<int64_t> vpos, vsize, vpts, vdts_steps, adurations, asizes, keys;
    int64_t vdts_last = 0;
    int64_t run = 0, total = 0, first_time = INT64_MAX, last_time = INT64_MIN;
    for (const IndexPacket& p : packets) {
        total += p.size;
        const AVRational tb = in->streams[p.stream]->time_base;
        first_time = std::min(first_time, av_rescale_q(p.pts, tb, AV_TIME_BASE_Q));
        last_time = std::max(last_time, av_rescale_q(p.pts + p.duration, tb, AV_TIME_BASE_Q));
        if (p.stream == vi) {
            if (vpos.empty()) video.first_dts = p.dts;
            if (!vpos.empty()) vdts_steps.push_back(p.dts - vdts_last);
            vdts_last = p.dts;
            if (p.key) {
                if (keys.size() < 2) video.later_key_delay = p.pts - p.dts;
                if (keys.empty()) video.key_delay = p.pts - p.dts;
                keys.push_back(static_cast<int64_t>(vpos.size()));
            }
            vpos.push_back(p.pos), vsize.push_back(p.size), vpts.push_back(p.pts);
            video.max_sample = std::max<int64_t>(video.max_sample, p.size);
            audio.max_run = std::max(audio.max_run, run);
            run = 0;
        } else {
            if (asizes.empty()) audio.first_pts = p.pts;
            adurations.push_back(p.duration);
            asizes.push_back(p.size);
            run += p.size;
        }
    }
    audio.max_run = std::max(audio.max_run, run);
    if (last_time > first_time) bytes_per_second = total * 1e6 / (last_time - first_time);
    if (video.present) {
        video.frame_duration = MostCommon(vdts_steps);
        if (vpos.size() < 2 || video.frame_duration <= 0 || keys.empty()) {
            *error = "the reference's video is too short to learn its frame rate from";
            return false;
        }
        video.gop = ConstantGap(keys);
        if (!CheckPictureOrder(path, vpos, vsize, vpts, error)) return false;
    }
    if (audio.present) FinishAudio(adurations, asizes, &audio);
    summary = "reference: " + std::to_string(packets.size()) + " packets, video " +
              (video.present ? video.stream.codec : "none") + ", audio " +
              (audio.present ? audio.stream.codec : "none");
    return true;
}

// The scan's rule for presentation times, tried on the reference: a key picture at decoding
// index s presents at first dts + s * duration + key delay, and every picture after it at its
// picture order count's distance from the key picture's, in steps of poc_step per frame.
bool ReferenceModel::CheckPictureOrder(const std::string& path,
                                       const std::vector<int64_t>& positions,
                                       const std::vector<int64_t>& sizes,
                                       const std::vector<int64_t>& pts, std::string* error) {
    ScanWindow window(1 << 20);
    AccessUnitReader reader;
    if (!window.Open(path.c_str()) ||
        !reader.Setup(video.hevc, video.length_size, video.parameter_sets, error))
        return false;
    PocCounter counter;
    int64_t seq_poc = 0, seq_pts = 0;
    std::vector<std::pair<int64_t, int64_t>> pictures;  // (poc - seq_poc, pts - seq_pts)
    for (size_t i = 0; i < positions.size(); ++i) {
        AccessUnit unit;
        if (!reader.Read(&window, positions[i], positions[i] + sizes[i], false, &unit) ||
            unit.size != sizes[i]) {
            *error = "the reference's video sample " + std::to_string(i) +
                     " is not a whole access unit of length-prefixed NAL units";
            return false;
        }
        bool reset = false;
        const int64_t poc =
            counter.Next(reader.poc_params(unit.picture.pps_id), unit.picture, &reset);
        if (reset) {
            seq_poc = poc;
            seq_pts =
                video.first_dts + static_cast<int64_t>(i) * video.frame_duration + video.key_delay;
        }
        pictures.emplace_back(poc - seq_poc, pts[i] - seq_pts);
    }
    const int64_t d = video.frame_duration;
    for (const auto& [dpoc, dpts] : pictures)
        if (dpoc != 0 && dpts != 0 && (dpoc * d) % dpts == 0) {
            video.poc_step = dpoc * d / dpts;
            break;
        }
    for (const auto& [dpoc, dpts] : pictures) {
        if (video.poc_step <= 0 || dpoc % video.poc_step != 0 ||
            dpoc / video.poc_step * d != dpts) {
            *error =
                "the reference's presentation times do not follow its picture order counts "
                "at a constant frame rate";
            return false;
        }
    }
    return true;
}

}  // namespace restore
