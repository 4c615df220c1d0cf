// RecordingIndexer: the index of a healthy recording, read through libavformat.
#include "restore/recording_index.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "restore/decoder_config.h"
#include "restore/ffmpeg_compat.h"
#include "restore/index_writer.h"
#include "utils/file_guard.h"
#include "utils/file_offset.h"
#include "utils/utils.h"

namespace restore {

namespace {

struct Chosen {
    int source = -1;  // stream number in the recording, -1 when absent
    int out = -1;     // stream number in the repaired file
};

std::string ErrorText(int code) {
    char text[64] = {0};
    av_strerror(code, text, sizeof(text));
    return text;
}

bool IsPcm(AVCodecID id) {
    return strncmp(avcodec_get_name(id), "pcm_", 4) == 0;
}

// Audio whose packets are whole frames or fixed-size chunks, which any container takes back.
bool CopyableAudio(AVCodecID id) {
    switch (id) {
        case AV_CODEC_ID_AAC:
        case AV_CODEC_ID_MP3:
        case AV_CODEC_ID_MP2:
        case AV_CODEC_ID_OPUS:
        case AV_CODEC_ID_AC3:
        case AV_CODEC_ID_EAC3:
            return true;
        default:
            return IsPcm(id);
    }
}

// Why a track is left out, or null when it is taken.
const char* Choose(const AVStream* st, int i, Chosen* video, Chosen* audio) {
    const AVCodecParameters* par = st->codecpar;
    if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
        if (st->disposition & AV_DISPOSITION_ATTACHED_PIC) return "a cover picture";
        if (par->codec_id != AV_CODEC_ID_H264 && par->codec_id != AV_CODEC_ID_HEVC)
            return "kinefix repairs H.264 and HEVC video only";
        if (video->source >= 0) return "kinefix repairs one video track";
        video->source = i;
        return nullptr;
    }
    if (par->codec_type == AVMEDIA_TYPE_AUDIO) {
        if (!CopyableAudio(par->codec_id))
            return "its packets are not whole frames kinefix can copy (AAC, MP3, Opus, AC-3 "
                   "and PCM are)";
        if (audio->source >= 0) return "kinefix repairs one audio track";
        audio->source = i;
        return nullptr;
    }
    return "kinefix repairs audio and video only";
}

bool ChooseTracks(const AVFormatContext* in, Chosen* video, Chosen* audio) {
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVStream* st = in->streams[i];
        const char* why = Choose(st, static_cast<int>(i), video, audio);
        if (why)
            fprintf(stderr, "kinefix-index: leaving out track %u (%s %s): %s\n", i,
                    av_get_media_type_string(st->codecpar->codec_type)
                        ? av_get_media_type_string(st->codecpar->codec_type)
                        : "data",
                    avcodec_get_name(st->codecpar->codec_id), why);
    }
    // Video first, as kinefix numbers its output streams.
    if (video->source >= 0) video->out = 0;
    if (audio->source >= 0) audio->out = video->source >= 0 ? 1 : 0;
    return video->source >= 0 || audio->source >= 0;
}

bool DescribeVideo(const AVStream* st, int out, IndexStream* s) {
    const AVCodecParameters* par = st->codecpar;
    const bool hevc = par->codec_id == AV_CODEC_ID_HEVC;
    const uint8_t* data = par->extradata;
    const size_t size = par->extradata_size > 0 ? static_cast<size_t>(par->extradata_size) : 0;
    int length_size = 4;
    if (size == 0) {
        fprintf(stderr, "kinefix-index: the %s stream carries no parameter sets\n",
                hevc ? "HEVC" : "H.264");
        return false;
    }
    if (data[0] != 1) {
        s->extradata.assign(data, data + size);
        fprintf(stderr,
                "kinefix-index: warning: video stored in Annex B form; an MP4/MOV repair "
                "expects length-prefixed packets\n");
    } else if (hevc) {
        s->extradata.assign(data, data + size);  // handed to the muxer as it stands
        length_size = HevcRecordLengthSize(data, size);
    } else if (!AvcRecordToAnnexB(data, size, &s->extradata, &length_size)) {
        fprintf(stderr, "kinefix-index: the H.264 decoder configuration is damaged\n");
        return false;
    }
    if (length_size != 4)
        fprintf(stderr, "kinefix-index: warning: NAL length size %d, kinefix writes 4\n",
                length_size);
    const char* format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(par->format));
    s->video = true;
    s->index = out;
    s->codec = avcodec_get_name(par->codec_id);
    s->format = format ? format : "";
    s->tb_num = st->time_base.num;
    s->tb_den = st->time_base.den;
    s->width = par->width;
    s->height = par->height;
    return true;
}

bool DescribeAudio(const AVStream* st, int out, IndexStream* s) {
    const AVCodecParameters* par = st->codecpar;
    const bool needs_config = par->codec_id == AV_CODEC_ID_AAC || par->codec_id == AV_CODEC_ID_OPUS;
    if (needs_config && par->extradata_size <= 0) {
        fprintf(stderr, "kinefix-index: the %s stream carries no decoder configuration\n",
                avcodec_get_name(par->codec_id));
        return false;
    }
    if (par->extradata_size > 0)
        s->extradata.assign(par->extradata, par->extradata + par->extradata_size);
    const char* format = av_get_sample_fmt_name(static_cast<AVSampleFormat>(par->format));
    s->index = out;
    s->codec = avcodec_get_name(par->codec_id);
    s->format = format ? format : "";
    s->tb_num = st->time_base.num;
    s->tb_den = st->time_base.den;
    s->channels = kinefix_compat::channels(par);
    s->sample_rate = par->sample_rate;
    s->frame_size = par->frame_size > 0                ? par->frame_size
                    : par->codec_id == AV_CODEC_ID_AAC ? 1024
                                                       : 0;
    return true;
}

// Where the packet's bytes really start. Demuxers give a record's position, which for MP4/MOV
// is the sample itself and for Matroska, FLV or AVI the block or tag header a few bytes before
// it; a packet that is not stored contiguously cannot be indexed at all.
bool LocatePacket(FILE* file, const AVPacket* pkt, std::vector<uint8_t>* window, int64_t* pos) {
    constexpr int64_t kSlack = 256;
    if (pkt->pos < 0 || pkt->size <= 0) return false;
    const size_t want = static_cast<size_t>(pkt->size) + kSlack;
    window->resize(want);
    if (zp::file_seek(file, pkt->pos, SEEK_SET) != 0) return false;
    const size_t got = fread(window->data(), 1, want, file);
    const size_t size = static_cast<size_t>(pkt->size);
    for (size_t off = 0; off + size <= got; ++off) {
        if (memcmp(window->data() + off, pkt->data, size) == 0) {
            *pos = pkt->pos + static_cast<int64_t>(off);
            return true;
        }
    }
    return false;
}

// Containers such as Matroska keep presentation times only, and the demuxer's guesses for
// the rest do not always increase. A stream with any gap gets decoding times anew: its sorted
// presentation times, moved back just enough that no packet decodes after it is shown.
void FillDecodingTimes(std::vector<IndexPacket>* packets, int stream_index,
                       const std::vector<bool>& missing_dts) {
    std::vector<IndexPacket*> stream;
    bool missing = false;
    for (size_t i = 0; i < packets->size(); ++i) {
        if ((*packets)[i].stream != stream_index) continue;
        stream.push_back(&(*packets)[i]);
        missing = missing || missing_dts[i];
    }
    if (!missing) return;
    std::vector<int64_t> sorted;
    for (const IndexPacket* p : stream) sorted.push_back(p->pts);
    std::sort(sorted.begin(), sorted.end());
    int64_t shift = 0;
    for (size_t i = 0; i < stream.size(); ++i) shift = std::max(shift, sorted[i] - stream[i]->pts);
    for (size_t i = 0; i < stream.size(); ++i) stream[i]->dts = sorted[i] - shift;
}

// An audio packet's duration in its time base: the demuxer's, else what its size holds.
int64_t AudioDuration(const AVStream* st, const AVPacket* pkt) {
    if (pkt->duration > 0) return pkt->duration;
    const int samples = av_get_audio_frame_duration2(st->codecpar, pkt->size);
    if (samples <= 0 || st->codecpar->sample_rate <= 0) return 0;
    return av_rescale_q(samples, AVRational{1, st->codecpar->sample_rate}, st->time_base);
}

class PacketReader {
  public:
    PacketReader(AVFormatContext* in, FILE* file, const Chosen& video, const Chosen& audio)
        : in_(in), file_(file), video_(video), audio_(audio) {}

    bool Read(std::vector<IndexPacket>* packets) {
        AVPacket* pkt = av_packet_alloc();
        bool ok = pkt != nullptr;
        std::vector<bool> missing_dts;
        while (ok && av_read_frame(in_, pkt) >= 0) {
            ok = Take(pkt, packets, &missing_dts);
            av_packet_unref(pkt);
        }
        av_packet_free(&pkt);
        for (const Chosen* c : {&video_, &audio_})
            if (c->out >= 0) FillDecodingTimes(packets, c->out, missing_dts);
        // The order the muxer laid the bytes down, which is the order kinefix reads and writes.
        std::stable_sort(packets->begin(), packets->end(),
                         [](const IndexPacket& a, const IndexPacket& b) { return a.pos < b.pos; });
        return ok;
    }

  private:
    bool Take(const AVPacket* pkt, std::vector<IndexPacket>* packets,
              std::vector<bool>* missing_dts) {
        const Chosen* chosen = pkt->stream_index == video_.source   ? &video_
                               : pkt->stream_index == audio_.source ? &audio_
                                                                    : nullptr;
        if (!chosen || pkt->size <= 0) return true;
        IndexPacket p;
        p.stream = chosen->out;
        p.size = pkt->size;
        p.pts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
        p.dts = pkt->dts;
        p.duration =
            chosen == &audio_ ? AudioDuration(in_->streams[pkt->stream_index], pkt) : pkt->duration;
        p.key = (pkt->flags & AV_PKT_FLAG_KEY) != 0;
        if (p.pts == AV_NOPTS_VALUE) {
            fprintf(stderr, "kinefix-index: a packet of track %d has no timestamp\n",
                    pkt->stream_index);
            return false;
        }
        if (!LocatePacket(file_, pkt, &window_, &p.pos)) {
            fprintf(stderr,
                    "kinefix-index: a packet of track %d (%d bytes) is not stored as one piece "
                    "in the file; this container cannot be indexed\n",
                    pkt->stream_index, pkt->size);
            return false;
        }
        packets->push_back(p);
        missing_dts->push_back(pkt->dts == AV_NOPTS_VALUE);
        return true;
    }

    AVFormatContext* in_;
    FILE* file_;
    Chosen video_;
    Chosen audio_;
    std::vector<uint8_t> window_;
};

// The recording's tracks as index descriptions, video first.
bool Describe(const AVFormatContext* in, const Chosen& video, const Chosen& audio,
              std::vector<IndexStream>* streams) {
    if (video.source >= 0) {
        streams->emplace_back();
        if (!DescribeVideo(in->streams[video.source], video.out, &streams->back())) return false;
    }
    if (audio.source >= 0) {
        streams->emplace_back();
        if (!DescribeAudio(in->streams[audio.source], audio.out, &streams->back())) return false;
    }
    return true;
}

bool Write(const std::string& index, const std::vector<IndexStream>& streams,
           const std::vector<IndexPacket>& packets, IndexWriter* writer) {
    std::string error;
    if (!writer->Begin(index, streams, &error)) {
        fprintf(stderr, "kinefix-index: %s\n", error.c_str());
        return false;
    }
    for (const IndexPacket& p : packets) writer->Add(p);
    if (!writer->Finish(&error)) {
        fprintf(stderr, "kinefix-index: %s\n", error.c_str());
        return false;
    }
    return true;
}

}  // namespace

RecordingIndexer::RecordingIndexer(int version, int entries_per_line)
    : version_(version), entries_per_line_(entries_per_line) {}

int RecordingIndexer::Run(const std::string& recording, const std::string& index) {
    kinefix_compat::register_all();
    // Through the file protocol only: a recording named like "md5:..." is a file name.
    const std::string url = "file:" + recording;
    AVFormatContext* in = nullptr;
    int ret = avformat_open_input(&in, url.c_str(), nullptr, nullptr);
    if (ret < 0 || (ret = avformat_find_stream_info(in, nullptr)) < 0) {
        fprintf(stderr, "kinefix-index: cannot read '%s': %s\n", recording.c_str(),
                ErrorText(ret).c_str());
        avformat_close_input(&in);
        return 1;
    }
    Chosen video, audio;
    std::vector<IndexStream> streams;
    std::vector<IndexPacket> packets;
    bool ok = ChooseTracks(in, &video, &audio);
    if (!ok)
        fprintf(stderr, "kinefix-index: '%s' has no track kinefix can repair; no index written\n",
                recording.c_str());
    ok = ok && Describe(in, video, audio, &streams);
    FILE* file = ok ? zp::Utils::instance()->open_file(recording.c_str(), "rb") : nullptr;
    if (ok && !file) fprintf(stderr, "kinefix-index: cannot open '%s'\n", recording.c_str());
    if (file) {
        zp::FileGuard guard(file);
        ok = PacketReader(in, file, video, audio).Read(&packets);
    }
    avformat_close_input(&in);
    IndexWriter writer(version_, entries_per_line_);
    if (!file || !ok || !Write(index, streams, packets, &writer)) return 1;
    if (writer.inexact() > 0)
        fprintf(stderr,
                "kinefix-index: note: %d packet(s) get timestamps one tick off or a default "
                "duration (the index format cannot express theirs)\n",
                writer.inexact());
    printf("kinefix-index: %llu packets indexed (video %s, audio %s), version %d\n",
           static_cast<unsigned long long>(packets.size()),
           video.source >= 0 ? streams.front().codec.c_str() : "none",
           audio.source >= 0 ? streams.back().codec.c_str() : "none", version_);
    return 0;
}

}  // namespace restore
