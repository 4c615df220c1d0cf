// kinefix-index: writes the index file of a healthy H.264/AAC recording, so that kinefix can
// rebuild the recording from its media bytes should its own index ever be lost.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/base64.h>
#include <libavutil/mem.h>
}

#include "restore/ffmpeg_compat.h"
#include "restore/rescue_command.h"
#include "utils/file_offset.h"
#include "utils/utils.h"
#include "zephra_init.h"

namespace {

const char kUsage[] =
    "usage: kinefix-index [--index-version 1|2] [--entries-per-line N] RECORDING INDEX\n"
    "       kinefix-index --reference HEALTHY [--progress] DAMAGED INDEX\n"
    "Writes the index file kinefix needs to rebuild RECORDING (H.264 and/or AAC) should its\n"
    "own index be lost. Version 2 (the default) leaves zero fields empty; version 1 spells\n"
    "every field. With --reference, the index of a recording that lost its own is rebuilt\n"
    "by scanning it with what HEALTHY (a recording of the same camera) teaches.\n";

struct Options {
    int version = 2;
    int per_line = 1;
    const char* input = nullptr;
    const char* output = nullptr;
    std::string reference;
    bool progress = false;
};

// One packet as the index lists it, in the source stream's own time base.
struct Packet {
    int out_index = 0;
    int64_t pos = 0;
    int size = 0;
    int64_t pts = 0;
    int64_t dts = 0;
    int64_t duration = 0;
    bool key = false;
};

struct Chosen {
    int source = -1;  // stream number in the recording, -1 when absent
    int out = -1;     // stream number in the repaired file
};

bool ParseOptions(int argc, char** argv, Options* o) {
    std::vector<const char*> paths;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        std::string value;
        std::string name = arg;
        const size_t eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
        } else if ((arg == "--index-version" || arg == "--entries-per-line" ||
                    arg == "--reference") &&
                   i + 1 < argc) {
            value = argv[++i];
        }
        if (name == "--index-version") {
            o->version = atoi(value.c_str());
            if (o->version != 1 && o->version != 2) return false;
        } else if (name == "--entries-per-line") {
            o->per_line = atoi(value.c_str());
            if (o->per_line < 1) return false;
        } else if (name == "--reference") {
            o->reference = value;
            if (value.empty()) return false;
        } else if (arg == "--progress") {
            o->progress = true;
        } else if (arg.rfind("--", 0) == 0 && arg.size() > 2) {
            return false;
        } else {
            paths.push_back(argv[i]);
        }
    }
    if (paths.size() != 2) return false;
    o->input = paths[0];
    o->output = paths[1];
    return true;
}

std::string Base64(const std::vector<uint8_t>& bytes) {
    if (bytes.empty()) return std::string();
    std::vector<char> text(AV_BASE64_SIZE(bytes.size()));
    if (!av_base64_encode(text.data(), static_cast<int>(text.size()), bytes.data(),
                          static_cast<int>(bytes.size())))
        return std::string();
    return text.data();
}

// The SPS/PPS of an AVC decoder configuration record as Annex B units. kinefix reads either
// form, but Annex B is the one every reader of such indexes understands.
bool AvccToAnnexB(const uint8_t* data, size_t size, std::vector<uint8_t>* out, int* length_size) {
    if (size < 7 || data[0] != 1) return false;
    *length_size = (data[4] & 3) + 1;
    size_t p = 5;
    for (int group = 0; group < 2; ++group) {
        if (p >= size) return false;
        int count = group == 0 ? data[p] & 0x1f : data[p];
        ++p;
        for (; count > 0; --count) {
            if (p + 2 > size) return false;
            const size_t len = (static_cast<size_t>(data[p]) << 8) | data[p + 1];
            p += 2;
            if (p + len > size) return false;
            static const uint8_t kStart[4] = {0, 0, 0, 1};
            out->insert(out->end(), kStart, kStart + 4);
            out->insert(out->end(), data + p, data + p + len);
            p += len;
        }
    }
    return !out->empty();
}

std::string Quoted(const char* key, const std::string& value) {
    return std::string("\"") + key + "\":\"" + value + "\"";
}

std::string Number(const char* key, int64_t value) {
    return std::string("\"") + key + "\":" + std::to_string(value);
}

bool VideoLine(const AVStream* st, int out, std::string* line) {
    const AVCodecParameters* par = st->codecpar;
    std::vector<uint8_t> annexb;
    int length_size = 4;
    if (par->extradata_size > 0 && par->extradata[0] == 1) {
        if (!AvccToAnnexB(par->extradata, static_cast<size_t>(par->extradata_size), &annexb,
                          &length_size)) {
            fprintf(stderr, "kinefix-index: the H.264 decoder configuration is damaged\n");
            return false;
        }
    } else if (par->extradata_size > 0) {
        annexb.assign(par->extradata, par->extradata + par->extradata_size);
        fprintf(stderr,
                "kinefix-index: warning: H.264 stored in Annex B form; an MP4/MOV repair "
                "expects length-prefixed packets\n");
    } else {
        fprintf(stderr, "kinefix-index: the H.264 stream carries no SPS/PPS\n");
        return false;
    }
    if (length_size != 4)
        fprintf(stderr, "kinefix-index: warning: NAL length size %d, kinefix writes 4\n",
                length_size);
    const char* format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(par->format));
    *line = "{" + Quoted("type", "video") + "," + Number("index", out) + "," +
            Quoted("codec", avcodec_get_name(par->codec_id)) + "," +
            Quoted("format", format ? format : "") + "," + Number("tb.num", st->time_base.num) +
            "," + Number("tb.den", st->time_base.den) + "," + Number("w", par->width) + "," +
            Number("h", par->height) + "," + Quoted("ev", Base64(annexb)) + "}\n";
    return true;
}

bool AudioLine(const AVStream* st, int out, std::string* line) {
    const AVCodecParameters* par = st->codecpar;
    if (par->extradata_size <= 0) {
        fprintf(stderr, "kinefix-index: the AAC stream carries no AudioSpecificConfig\n");
        return false;
    }
    const std::vector<uint8_t> config(par->extradata, par->extradata + par->extradata_size);
    const char* format = av_get_sample_fmt_name(static_cast<AVSampleFormat>(par->format));
    const int frame_size = par->frame_size > 0 ? par->frame_size : 1024;
    *line = "{" + Quoted("type", "audio") + "," + Number("index", out) + "," +
            Quoted("codec", avcodec_get_name(par->codec_id)) + "," +
            Quoted("format", format ? format : "") + "," + Number("tb.num", st->time_base.num) +
            "," + Number("tb.den", st->time_base.den) + "," +
            Number("channels", kinefix_compat::channels(par)) + "," +
            Number("sample_rate", par->sample_rate) + "," + Number("frame_size", frame_size) + "," +
            Quoted("ev", Base64(config)) + "}\n";
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
void FillDecodingTimes(std::vector<Packet>* packets, int out_index) {
    std::vector<Packet*> stream;
    bool missing = false;
    for (Packet& p : *packets) {
        if (p.out_index != out_index) continue;
        stream.push_back(&p);
        missing = missing || p.dts == AV_NOPTS_VALUE;
    }
    if (!missing) return;
    std::vector<int64_t> sorted;
    for (const Packet* p : stream) sorted.push_back(p->pts);
    std::sort(sorted.begin(), sorted.end());
    int64_t shift = 0;
    for (size_t i = 0; i < stream.size(); ++i) shift = std::max(shift, sorted[i] - stream[i]->pts);
    for (size_t i = 0; i < stream.size(); ++i) stream[i]->dts = sorted[i] - shift;
}

bool ReadPackets(AVFormatContext* in, FILE* file, const Chosen& video, const Chosen& audio,
                 std::vector<Packet>* packets) {
    AVPacket* pkt = av_packet_alloc();
    std::vector<uint8_t> window;
    bool ok = pkt != nullptr;
    while (ok && av_read_frame(in, pkt) >= 0) {
        const Chosen* chosen = pkt->stream_index == video.source   ? &video
                               : pkt->stream_index == audio.source ? &audio
                                                                   : nullptr;
        if (chosen && pkt->size > 0) {
            Packet p;
            p.out_index = chosen->out;
            p.size = pkt->size;
            p.pts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
            p.dts = pkt->dts;
            p.duration = pkt->duration;
            p.key = (pkt->flags & AV_PKT_FLAG_KEY) != 0;
            if (p.pts == AV_NOPTS_VALUE) {
                fprintf(stderr, "kinefix-index: a packet of stream %d has no timestamp\n",
                        pkt->stream_index);
                ok = false;
            } else if (!LocatePacket(file, pkt, &window, &p.pos)) {
                fprintf(stderr,
                        "kinefix-index: a packet of stream %d (%d bytes) is not stored as one "
                        "piece in the file; this container cannot be indexed\n",
                        pkt->stream_index, pkt->size);
                ok = false;
            } else {
                packets->push_back(p);
            }
        }
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    if (video.out >= 0) FillDecodingTimes(packets, video.out);
    if (audio.out >= 0) FillDecodingTimes(packets, audio.out);
    // The order the muxer laid the bytes down, which is the order kinefix reads and writes.
    std::stable_sort(packets->begin(), packets->end(),
                     [](const Packet& a, const Packet& b) { return a.pos < b.pos; });
    return ok;
}

void AppendField(std::string* out, int64_t value, bool compact, char separator) {
    if (!(compact && value == 0)) *out += std::to_string(value);
    *out += separator;
}

// Steps against the same per-kind accumulators kinefix keeps, updated as kinefix updates them,
// so the repair gives back these very timestamps. A decoding time equal to the accumulator
// cannot be written (a zero step means "same as pts"); that happens only for a kind's first
// packet decoding at 0, which is moved one tick earlier. Returns how many packets the format
// cannot express exactly.
int WritePackets(FILE* out, const std::vector<Packet>& packets, const Options& o, int audio_index,
                 int audio_out, int audio_frame_size) {
    int64_t acc[2][2] = {{0, 0}, {0, 0}};  // [audio kind][pts, dts]
    int64_t next_read = 0;
    int inexact = 0;
    const bool compact = o.version == 2;
    std::string line;
    int on_line = 0;
    for (const Packet& p : packets) {
        int64_t* kind = acc[p.out_index == audio_index ? 1 : 0];
        int64_t dts_step = 0;
        if (p.dts != p.pts) {
            dts_step = p.dts - kind[1];
            if (dts_step == 0) {
                dts_step = -1;
                ++inexact;
            }
        }
        if (p.out_index == audio_out && p.duration == 0 && audio_frame_size != 0) ++inexact;
        AppendField(&line, p.out_index, compact, ',');
        AppendField(&line, p.pos == next_read ? 0 : p.pos, compact, ',');
        AppendField(&line, p.size, compact, ',');
        AppendField(&line, p.pts - kind[0], compact, ',');
        AppendField(&line, dts_step, compact, ',');
        AppendField(&line, p.duration, compact, ',');
        AppendField(&line, p.key ? 1 : 0, compact, ';');
        kind[0] = p.pts;
        kind[1] = dts_step != 0 ? kind[1] + dts_step : p.pts;
        next_read = p.pos + p.size;
        if (++on_line == o.per_line) {
            line += '\n';
            fputs(line.c_str(), out);
            line.clear();
            on_line = 0;
        }
    }
    if (!line.empty()) {
        line += '\n';
        fputs(line.c_str(), out);
    }
    return inexact;
}

int Export(const Options& o) {
    AVFormatContext* in = nullptr;
    int ret = avformat_open_input(&in, o.input, nullptr, nullptr);
    if (ret < 0 || (ret = avformat_find_stream_info(in, nullptr)) < 0) {
        char text[64] = {0};
        av_strerror(ret, text, sizeof(text));
        fprintf(stderr, "kinefix-index: cannot read '%s': %s\n", o.input, text);
        avformat_close_input(&in);
        return 1;
    }
    Chosen video, audio;
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVCodecParameters* par = in->streams[i]->codecpar;
        if (video.source < 0 && par->codec_id == AV_CODEC_ID_H264)
            video.source = static_cast<int>(i);
        if (audio.source < 0 && par->codec_id == AV_CODEC_ID_AAC)
            audio.source = static_cast<int>(i);
    }
    if (video.source < 0 && audio.source < 0) {
        fprintf(stderr, "kinefix-index: '%s' has neither an H.264 nor an AAC stream\n", o.input);
        avformat_close_input(&in);
        return 1;
    }
    // Video first, as kinefix numbers its output streams.
    if (video.source >= 0) video.out = 0;
    if (audio.source >= 0) audio.out = video.source >= 0 ? 1 : 0;

    std::string header = "#version=" + std::to_string(o.version) + "\n";
    std::string description;
    bool ok = true;
    if (video.source >= 0) {
        ok = VideoLine(in->streams[video.source], video.out, &description);
        header += description;
    }
    if (ok && audio.source >= 0) {
        ok = AudioLine(in->streams[audio.source], audio.out, &description);
        header += description;
    }

    std::vector<Packet> packets;
    FILE* file = ok ? zp::Utils::instance()->open_file(o.input, "rb") : nullptr;
    if (ok && !file) fprintf(stderr, "kinefix-index: cannot open '%s'\n", o.input);
    ok = ok && file && ReadPackets(in, file, video, audio, &packets);
    if (file) fclose(file);
    const int audio_frame_size =
        audio.source >= 0 ? std::max(in->streams[audio.source]->codecpar->frame_size, 0) : 0;
    avformat_close_input(&in);
    if (!ok) return 1;

    FILE* out = zp::Utils::instance()->open_file(o.output, "wb");
    if (!out) {
        fprintf(stderr, "kinefix-index: cannot write '%s'\n", o.output);
        return 1;
    }
    fputs(header.c_str(), out);
    // kinefix takes an index equal to the audio description's (0 when there is none) as audio.
    const int audio_index = audio.out >= 0 ? audio.out : 0;
    const int inexact = WritePackets(out, packets, o, audio_index, audio.out,
                                     audio_frame_size > 0 ? audio_frame_size : 1024);
    const bool written = fflush(out) == 0 && !ferror(out);
    if (fclose(out) != 0 || !written) {
        fprintf(stderr, "kinefix-index: cannot write '%s'\n", o.output);
        return 1;
    }
    if (inexact > 0)
        fprintf(stderr,
                "kinefix-index: note: %d packet(s) get timestamps one tick off or a "
                "default duration (the index format cannot express theirs)\n",
                inexact);
    printf("kinefix-index: %llu packets indexed (video %s, audio %s), version %d\n",
           static_cast<unsigned long long>(packets.size()), video.source >= 0 ? "yes" : "no",
           audio.source >= 0 ? "yes" : "no", o.version);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, &options)) {
        fputs(kUsage, stderr);
        return 2;
    }
    kinefix_compat::register_all();
    if (!options.reference.empty()) {
        zp::InitFramework(argc, argv);
        zp::AddExitHook([] { zp::ShutdownFramework(); });
        restore::RescueOptions rescue;
        rescue.reference = options.reference;
        rescue.damaged = options.input;
        rescue.index = options.output;
        rescue.progress = options.progress;
        rescue.version = options.version;
        rescue.entries_per_line = options.per_line;
        return restore::RescueCommand::Run(rescue);
    }
    return Export(options);
}
