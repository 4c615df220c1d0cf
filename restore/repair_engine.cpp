// RepairEngine: output container set-up and the packet copy loop.
#include "restore/repair_engine.h"

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "crypt/crypt.h"
#include "log/log.h"
#include "restore/ffmpeg_compat.h"
#include "restore/packet_entry.h"
#include "utils/file_guard.h"
#include "utils/file_offset.h"
#include "utils/same_file.h"
#include "utils/utils.h"

namespace {

constexpr int kMaxStreamIndex = 4;
constexpr int kProgressEvery = 10;
// Errors late in a damaged file are expected; only earlier ones reach the front end.
constexpr double kQuietErrorProgress = 0.9;
// Growth of the packet buffer per read while the damaged file's length is unknown.
constexpr int64_t kUnknownLengthStep = 1 << 20;

// Like av_ts_make_time_string, into a caller's buffer that the three texts of one write-error
// line share (so that line shows the last text written in all three places).
const char* TimeText(char* buffer, size_t size, int64_t ts, AVRational tb) {
    if (ts == AV_NOPTS_VALUE)
        snprintf(buffer, size, "NOPTS");
    else
        snprintf(buffer, size, "%.6g", av_q2d(tb) * static_cast<double>(ts));
    return buffer;
}

std::string ErrorText(int code) {
    char text[64] = {0};
    av_strerror(code, text, sizeof(text));
    return text;
}

void SetVideoParameters(AVCodecParameters* par, const VideoDesc& desc) {
    par->codec_type = AVMEDIA_TYPE_VIDEO;
    par->width = desc.width;
    par->height = desc.height;
    const AVPixelFormat format = av_get_pix_fmt(desc.format);
    par->format = format == AV_PIX_FMT_NONE ? AV_PIX_FMT_YUV420P : format;
    par->bit_rate = 800000;
}

void SetAudioParameters(AVCodecParameters* par, const AudioDesc& desc) {
    par->codec_type = AVMEDIA_TYPE_AUDIO;
    kinefix_compat::set_channels(par, desc.channels);
    par->sample_rate = desc.sample_rate;
    par->bit_rate = 64000;
    const AVSampleFormat format = av_get_sample_fmt(desc.format);
    par->format = format == AV_SAMPLE_FMT_NONE ? AV_SAMPLE_FMT_FLTP : format;
    par->frame_size = desc.frame_size;
}

// Fills one output stream from its description; false only for an unknown codec name.
bool DescribeStream(AVStream* stream, const StreamDesc& desc, bool video) {
    AVCodecParameters* par = stream->codecpar;
    if (video)
        SetVideoParameters(par, static_cast<const VideoDesc&>(desc));
    else
        SetAudioParameters(par, static_cast<const AudioDesc&>(desc));

    std::vector<uint8_t> extradata;
    zp::Crypt::instance()->decode_text(desc.extradata, &extradata);

    const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(desc.codec);
    if (!codec) {
        ZP_LOGE("---> 找不到编码器：%s", desc.codec);
        return false;
    }
    par->codec_id = codec->id;
    if (!extradata.empty()) {
        auto* bytes =
            static_cast<uint8_t*>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (bytes) {
            memcpy(bytes, extradata.data(), extradata.size());
            av_freep(&par->extradata);
            par->extradata = bytes;
            par->extradata_size = static_cast<int>(extradata.size());
        }
    }
    par->codec_tag = 0;
    return true;
}

// Steps from a damaged index can be anything: they wrap around instead of overflowing.
int64_t WrappingAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

// Any spelling or link of an input counts, and so does FFmpeg's own "file:" form of a path.
bool OutputIsInput(const char* output, const char* broken, const char* moov) {
    if (!output) return false;
    const char* plain = strncmp(output, "file:", 5) == 0 ? output + 5 : output;
    for (const char* path : {output, plain})
        if (zp::same_file(path, broken) || zp::same_file(path, moov)) return true;
    return false;
}

}  // namespace

RepairEngine::RepairEngine() {
    kinefix_compat::register_all();
}

// The packet buffer goes with the engine rather than with the process, so leak checkers stay
// quiet; nothing reads it after Run.
RepairEngine::~RepairEngine() {
    av_packet_free(&packet_);
    av_free(buffer_);
}

void RepairEngine::Run(const char* broken_file, const char* moov_file, const char* output_file) {
    // Checked before anything is opened for writing: the muxer would truncate an input first.
    if (OutputIsInput(output_file, broken_file, moov_file)) {
        ZP_LOGE("输出文件与输入文件相同，拒绝写入: %s", output_file);
        fprintf(stderr, "Refusing to write output over an input file: '%s'\n", output_file);
        return;
    }
    FILE* broken = zp::Utils::instance()->open_file(broken_file, "rb");
    if (!broken) {
        ZP_LOGE("无法打开mdata文件: %s", broken_file);
        return;
    }
    zp::FileGuard broken_guard(broken);
    broken_size_ = -1;
    if (zp::file_seek(broken, 0, SEEK_END) == 0) broken_size_ = zp::file_tell(broken);
    zp::file_seek(broken, 0, SEEK_SET);
    read_position_ = 0;

    MoovParser parser;
    if (!parser.Parse(moov_file)) return;

    // Video first; a description without extradata gets no stream at all.
    struct Slot {
        const StreamDesc* desc;
        bool video;
    };
    std::vector<Slot> plan;
    if (parser.video().extradata && *parser.video().extradata)
        plan.push_back({&parser.video(), true});
    if (parser.audio().extradata && *parser.audio().extradata)
        plan.push_back({&parser.audio(), false});

    int ret = 0;
    AVFormatContext* output = nullptr;
    avformat_alloc_output_context2(&output, nullptr, nullptr, output_file);
    if (!output) {
        fprintf(stderr, "Could not create output context\n");
        ret = AVERROR_UNKNOWN;
    }
    bool ready = output != nullptr;
    for (size_t i = 0; ready && i < plan.size(); ++i) {
        AVStream* stream = avformat_new_stream(output, nullptr);
        if (!stream) {
            fprintf(stderr, "Failed allocating output stream\n");
            ret = AVERROR_UNKNOWN;
            ready = false;
        } else if (!DescribeStream(stream, *plan[i].desc, plan[i].video)) {
            ready = false;
        }
    }
    if (ready) {
        av_dump_format(output, 0, output_file, 1);
        if (!(output->oformat->flags & AVFMT_NOFILE)) {
            ret = avio_open(&output->pb, output_file, AVIO_FLAG_WRITE);
            if (ret < 0) {
                fprintf(stderr, "Could not open output file '%s'", output_file);
                ready = false;
            }
        }
    }
    if (ready) {
        ret = avformat_write_header(output, nullptr);
        if (ret < 0) {
            fprintf(stderr, "Error occurred when opening output file\n");
            ready = false;
        }
    }
    if (ready) {
        CopyPackets(output, broken, &parser);
        ret = av_write_trailer(output);
    }

    if (output) {
        if (!(output->oformat->flags & AVFMT_NOFILE)) avio_closep(&output->pb);
        avformat_free_context(output);
    }
    if (ret < 0 && ret != AVERROR_EOF)
        fprintf(stderr, "Error occurred: %s\n", ErrorText(ret).c_str());
}

bool RepairEngine::CopyPackets(AVFormatContext* output, FILE* broken, MoovParser* parser) {
    int since_progress = 0;
    int lines_seen = 0;
    int ignored = 0;
    int first_ignored = 0;
    while (const char* line = parser->NextLine()) {
        if (!feof(broken)) {
            WriteLine(output, broken, parser, line);
            if (++since_progress >= kProgressEvery) {
                printf("progress:%.6lf\n", parser->Progress());
                fflush(stdout);
                since_progress = 0;
            }
        } else {
            if (ignored == 0) {
                first_ignored = lines_seen;
                ZP_LOGE(">> 损坏视频已经读取到末尾了,第一个忽略行 ========> %s", line);
            }
            ++ignored;
        }
        ++lines_seen;
    }
    printf("progress:1.0\n");
    fflush(stdout);
    ZP_LOGE(">> 执行完成 （忽略索引: [%d ~ %d) 共%d行）", first_ignored, first_ignored + ignored,
            ignored);
    return true;
}

void RepairEngine::WriteLine(AVFormatContext* output, FILE* broken, MoovParser* parser,
                             const char* line) {
    if (!packet_) packet_ = av_packet_alloc();
    if (!packet_) return;
    AVPacket* pkt = packet_;
    kinefix_compat::reset_packet(pkt);

    const int version = parser->version();
    const char* cursor = line;
    const char* end = line + strlen(line);
    PacketEntry entry;  // version 1 carries unread fields over from the line's previous entry
    for (;;) {
        const EntryRead read = ReadPacketEntry(version, &cursor, end, &entry);
        if (read == EntryRead::kBadVersion) {
            printf("[ERROR] version=%d, parse failed\n", version);
            exit(10);
        }
        if (read == EntryRead::kEndOfLine) return;

        // An index 0..4 with no stream behind it is as unusable as one out of range.
        if (static_cast<unsigned>(entry.stream_index) > kMaxStreamIndex ||
            entry.stream_index >= static_cast<int>(output->nb_streams)) {
            ZP_LOGE("===> stream.idx=%d 不合法，moov已处理 %d 行(%.6lf)：%s", entry.stream_index,
                    parser->line_number(), parser->Progress(), line);
            return;
        }
        AVStream* stream = output->streams[entry.stream_index];
        kinefix_compat::reset_packet(pkt);

        // Accumulators follow the entry's index, the time base the stream's codec type.
        const bool audio_entry = entry.stream_index == parser->audio().index;
        int64_t& acc_pts = audio_entry ? audio_pts_ : video_pts_;
        int64_t& acc_dts = audio_entry ? audio_dts_ : video_dts_;
        const int64_t pts = WrappingAdd(acc_pts, entry.pts_step);
        const int64_t dts = entry.dts_step != 0 ? WrappingAdd(acc_dts, entry.dts_step) : pts;
        acc_pts = pts;
        acc_dts = dts;
        int64_t duration = entry.duration;
        if (audio_entry && duration == 0) duration = stream->codecpar->frame_size;

        const char* next = strchr(cursor, ';');

        if (!ReadPacketData(broken, entry.position, entry.size)) return;

        pkt->data = buffer_;
        pkt->size = entry.size;
        pkt->stream_index = entry.stream_index;
        pkt->flags = entry.key ? AV_PKT_FLAG_KEY : 0;

        const bool audio_stream = stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        const StreamDesc& desc = audio_stream ? static_cast<const StreamDesc&>(parser->audio())
                                              : static_cast<const StreamDesc&>(parser->video());
        const AVRational source_tb = {desc.tb_num, desc.tb_den};
        const auto rounding = static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX);
        pkt->pts = av_rescale_q_rnd(pts, source_tb, stream->time_base, rounding);
        pkt->dts = av_rescale_q_rnd(dts, source_tb, stream->time_base, rounding);
        pkt->duration = av_rescale_q(duration, source_tb, stream->time_base);
        pkt->pos = -1;

        const int ret = av_write_frame(output, pkt);
        if (ret < 0) {
            char text[32];
            const char* duration_text =
                TimeText(text, sizeof(text), pkt->duration, stream->time_base);
            const char* dts_text = TimeText(text, sizeof(text), pkt->dts, stream->time_base);
            const char* pts_text = TimeText(text, sizeof(text), pkt->pts, stream->time_base);
            printf(
                "pts:%lld pts_time:%s dts:%lld dts_time:%s duration:%lld duration_time:%s "
                "stream_index:%d\n",
                static_cast<long long>(pkt->pts), pts_text, static_cast<long long>(pkt->dts),
                dts_text, static_cast<long long>(pkt->duration), duration_text, pkt->stream_index);
            fflush(stdout);
            const std::string error = ErrorText(ret);
            const double progress = parser->Progress();
            ZP_LOGE("@@ moov已处理 %d 行(%.6lf); write frame err: %s, next=%s",
                    parser->line_number(), progress, error.c_str(), next ? next : "(null)");
            if (progress < kQuietErrorProgress) printf("error:ret=%d,msg=%s\n", ret, error.c_str());
            return;
        }

        if (!next) return;
        cursor = next + 1;
        if (cursor >= end) return;
    }
}

// Brings the packet's bytes into the buffer. A size the damaged file cannot supply (negative,
// or past its end) is not allocated: what is left is consumed, the end-of-file state is left
// behind for CopyPackets, and the line ends like any short read.
bool RepairEngine::ReadPacketData(FILE* broken, int64_t position, int size) {
    if (position != 0) {
        // Indexes that spell out every position mostly name the byte the last read ended at;
        // seeking there anyway would throw away the stream's buffer for nothing. A file of
        // unknown length (a pipe) is always asked, so it fails as it always has.
        const bool there = broken_size_ >= 0 && position == read_position_;
        const bool moved = there || zp::file_seek(broken, position, SEEK_SET) == 0;
        ZP_LOGD("packet数据 seek fpos=%lld", static_cast<long long>(position));
        if (!moved) {
            // Reading on from where the file stands would hand the muxer another packet's bytes.
            ZP_LOGE("packet数据 seek 失败 fpos=%lld，该行索引处理结束",
                    static_cast<long long>(position));
            return false;
        }
        read_position_ = position;
    }
    int64_t remaining = INT64_MAX;
    if (broken_size_ >= 0)
        remaining = broken_size_ > read_position_ ? broken_size_ - read_position_ : 0;

    int got = 0;
    if (size >= 0 && size <= remaining) {
        // A file of unknown length (a pipe) cannot bound the size up front: there the buffer
        // grows step by step, only as far as bytes actually arrive.
        const int64_t step = broken_size_ >= 0 ? size : kUnknownLengthStep;
        while (got < size) {
            const int target = static_cast<int>(std::min<int64_t>(size, got + step));
            if (target > capacity_) {
                void* grown = av_realloc(buffer_, static_cast<size_t>(target));
                if (!grown) break;
                buffer_ = static_cast<uint8_t*>(grown);
                capacity_ = target;
            }
            const int n = static_cast<int>(
                fread(buffer_ + got, 1, static_cast<size_t>(target - got), broken));
            got += n;
            read_position_ += n;
            if (got < target) break;
        }
        if (got == size) return true;
    } else {
        if (broken_size_ >= 0)
            got = static_cast<int>(remaining < INT32_MAX ? remaining : INT32_MAX);
        zp::file_seek(broken, 0, SEEK_END);
        read_position_ = broken_size_;
        fgetc(broken);  // sets the end-of-file indicator
    }
    ZP_LOGE("读取packet数据 %d < %d(需求)，该行索引处理结束 (eof=%d, fpos=%lld) err_code=%d", got,
            size, feof(broken) ? 1 : 0, static_cast<long long>(zp::file_tell(broken)),
            ferror(broken));
    return false;
}
