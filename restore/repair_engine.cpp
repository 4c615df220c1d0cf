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
#include "restore/pending_output.h"
#include "restore/packet_entry.h"
#include "utils/file_guard.h"
#include "utils/file_offset.h"
#include "utils/file_safety.h"
#include "utils/interrupt.h"
#include "utils/same_file.h"
#include "utils/utils.h"

namespace restore {

namespace {

constexpr int kMaxStreamIndex = 4;
constexpr int kProgressEvery = 10;
// Errors late in a damaged file are expected; only earlier ones reach the front end.
constexpr double kQuietErrorProgress = 0.9;
// Growth of the packet buffer per read while the damaged file's length is unknown.
constexpr int64_t kUnknownLengthStep = 1 << 20;
// Per-packet error lines one run may log (each holds at most one index line, 8 KiB); a hostile
// index must not fill the disk with the log.
constexpr int64_t kLogBudget = 400;

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

// Codecs whose packets carry all a decoder needs: their descriptions have no `ev` to give.
bool TakesNoExtradata(const char* codec) {
    static const char* const kCodecs[] = {"mp3", "mp2", "ac3", "eac3"};
    if (strncmp(codec, "pcm_", 4) == 0) return true;
    for (const char* name : kCodecs)
        if (strcmp(codec, name) == 0) return true;
    return false;
}

// Video first; a description without extradata gets no stream at all, unless its codec has
// none to give.
bool Planned(const StreamDesc& desc, bool described) {
    if (desc.extradata && *desc.extradata) return true;
    return described && TakesNoExtradata(desc.codec);
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
    if (!InputsUsable(broken_file, moov_file, output_file)) return;
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

    zp::watch_interrupts();
    PendingOutput output(output_file);
    output_ = &output;
    int ret = 0;
    if (SetUpOutput(&output, parser, &ret)) {
        CopyPackets(output.context(), broken, &parser);
        ret = Finish(&output);
    }
    output_ = nullptr;
    if (ret < 0 && ret != AVERROR_EOF)
        fprintf(stderr, "Error occurred: %s\n", ErrorText(ret).c_str());
}

// Refusals that protect the inputs and keep a run from doing nothing without a word.
bool RepairEngine::InputsUsable(const char* broken_file, const char* moov_file,
                                const char* output_file) {
    // Checked before anything is opened for writing: the muxer would truncate an input first.
    if (OutputIsInput(output_file, broken_file, moov_file)) {
        ZP_LOGE("输出文件与输入文件相同，拒绝写入: %s", output_file);
        fprintf(stderr, "Refusing to write output over an input file: '%s'\n", output_file);
        ReportRefusal("the output file is one of the input files");
        return false;
    }
    // A pipe can be read only once, and both inputs are read more than once or out of order.
    for (const char* path : {moov_file, broken_file}) {
        if (!path || zp::file_kind(path) != zp::FileKind::kOther) continue;
        ZP_LOGE("输入文件不是普通文件（管道或设备），无法读取: %s", path);
        fprintf(stderr,
                "'%s' is not a regular file (a pipe or a device?); save it to a file first\n",
                path);
        ReportRefusal(std::string("input is not a regular file: ") + path);
        return false;
    }
    return true;
}

// Steps 4 to 8 of a repair: the container, its streams, the fresh file and the header. False
// ends the run; *ret then holds FFmpeg's error, if the failure had one.
bool RepairEngine::SetUpOutput(PendingOutput* output, const MoovParser& parser, int* ret) {
    AVFormatContext* context = output->CreateContext();
    if (!context) {
        fprintf(stderr, "Could not create output context\n");
        *ret = AVERROR_UNKNOWN;
        return false;
    }
    const std::pair<const StreamDesc*, bool> plan[] = {{&parser.video(), true},
                                                       {&parser.audio(), false}};
    for (const auto& slot : plan) {
        if (!Planned(*slot.first, slot.second ? parser.has_video() : parser.has_audio())) continue;
        AVStream* stream = avformat_new_stream(context, nullptr);
        if (!stream) {
            fprintf(stderr, "Failed allocating output stream\n");
            *ret = AVERROR_UNKNOWN;
            return false;
        }
        if (!DescribeStream(stream, *slot.first, slot.second)) return false;
    }
    av_dump_format(context, 0, output->path().c_str(), 1);
    *ret = output->Open();
    if (*ret < 0) {
        fprintf(stderr, "Could not open output file '%s'", output->path().c_str());
        return false;
    }
    *ret = avformat_write_header(context, nullptr);
    if (*ret < 0) {
        fprintf(stderr, "Error occurred when opening output file\n");
        return false;
    }
    return true;
}

// The trailer, the file put in place, and what the front end learns of it. A failure here is
// reported on standard output whatever the progress: the output would not play.
int RepairEngine::Finish(PendingOutput* output) {
    const int ret = output->Commit();
    if (ret < 0) {
        const std::string error = ErrorText(ret);
        ZP_LOGE("写入文件尾失败，输出文件未生成: %s (%s)", output->path().c_str(), error.c_str());
        fprintf(stderr, "Could not finish '%s': %s; an existing file of that name is kept\n",
                output->path().c_str(), error.c_str());
        printf("error:ret=%d,msg=could not finish the output file: %s\n", ret, error.c_str());
        fflush(stdout);
        return ret;
    }
    printf("summary:packets=%lld,ignored=%d,duration=%.3f,bytes=%lld\n",
           static_cast<long long>(packets_written_), ignored_lines_, end_seconds_,
           static_cast<long long>(output->size()));
    if (interrupt_signal_ != 0) {
        printf(
            "error:ret=%d,msg=interrupted by signal %d at index line %d; the packets copied "
            "so far were kept\n",
            AVERROR_EXIT, interrupt_signal_, interrupted_line_);
    }
    fflush(stdout);
    return ret;
}

void RepairEngine::ReportRefusal(const std::string& why) {
    printf("error:ret=%d,msg=%s\n", AVERROR(EINVAL), why.c_str());
    fflush(stdout);
}

bool RepairEngine::CopyPackets(AVFormatContext* output, FILE* broken, MoovParser* parser) {
    int since_progress = 0;
    int lines_seen = 0;
    int first_ignored = 0;
    while (const char* line = parser->NextLine()) {
        if (zp::interrupt_signal() != 0) {
            Interrupt(parser->line_number());
            return false;
        }
        if (!feof(broken)) {
            WriteLine(output, broken, parser, line);
            if (++since_progress >= kProgressEvery) {
                printf("progress:%.6lf\n", parser->Progress());
                fflush(stdout);
                since_progress = 0;
            }
        } else {
            if (ignored_lines_ == 0) {
                first_ignored = lines_seen;
                ZP_LOGE(">> 损坏视频已经读取到末尾了,第一个忽略行 ========> %s", line);
            }
            ++ignored_lines_;
        }
        ++lines_seen;
    }
    printf("progress:1.0\n");
    fflush(stdout);
    CloseLogBudget();
    ZP_LOGE(">> 执行完成 （忽略索引: [%d ~ %d) 共%d行）", first_ignored,
            first_ignored + ignored_lines_, ignored_lines_);
    return true;
}

void RepairEngine::Interrupt(int line_number) {
    interrupt_signal_ = zp::interrupt_signal();
    interrupted_line_ = line_number;
    CloseLogBudget();
    ZP_LOGE(">> 收到信号 %d，复制在索引第 %d 行停止，已复制的数据将被保存", interrupt_signal_,
            line_number);
    fprintf(stderr, "Interrupted by signal %d at index line %d; finishing the output\n",
            interrupt_signal_, line_number);
}

bool RepairEngine::LogBudget() {
    if (budget_used_ < kLogBudget) {
        ++budget_used_;
        return true;
    }
    ++budget_dropped_;
    return false;
}

void RepairEngine::CloseLogBudget() {
    if (budget_dropped_ > 0)
        ZP_LOGE(">> 另有 %lld 条逐包错误未写入日志", static_cast<long long>(budget_dropped_));
    budget_dropped_ = 0;
}

void RepairEngine::WriteLine(AVFormatContext* output, FILE* broken, MoovParser* parser,
                             const char* line) {
    if (!packet_) packet_ = av_packet_alloc();
    if (!packet_) return;
    kinefix_compat::reset_packet(packet_);

    const int version = parser->version();
    PacketLine walk(version, line, line + strlen(line));
    PacketEntry entry;  // version 1 carries unread fields over from the line's previous entry
    for (;;) {
        const EntryRead read = walk.Next(&entry);
        if (read == EntryRead::kBadVersion) {
            printf("[ERROR] version=%d, parse failed\n", version);
            if (output_) output_->Discard();  // exit skips destructors
            exit(10);
        }
        if (read == EntryRead::kEndOfLine) return;

        // An index 0..4 with no stream behind it is as unusable as one out of range.
        if (static_cast<unsigned>(entry.stream_index) > kMaxStreamIndex ||
            entry.stream_index >= static_cast<int>(output->nb_streams)) {
            if (LogBudget())
                ZP_LOGE("===> stream.idx=%d 不合法，moov已处理 %d 行(%.6lf)：%s",
                        entry.stream_index, parser->line_number(), parser->Progress(), line);
            return;
        }
        if (!WriteEntry(output, broken, parser, entry, walk.rest())) return;
    }
}

// Timestamps, bytes and the write of one entry; false drops the rest of its line.
bool RepairEngine::WriteEntry(AVFormatContext* output, FILE* broken, MoovParser* parser,
                              const PacketEntry& entry, const char* next) {
    AVStream* stream = output->streams[entry.stream_index];
    // The steps count even for a packet whose bytes cannot be read.
    const Times times = Advance(entry, *parser, *stream);
    if (!ReadPacketData(broken, entry.position, entry.size)) return false;
    AVPacket* pkt = FillPacket(entry, *parser, *stream, times);
    const int ret = av_write_frame(output, pkt);
    if (ret < 0) {
        ReportWriteError(stream, pkt, parser, ret, next);
        return false;
    }
    CountWritten(*stream, *pkt);
    return true;
}

// Accumulators follow the entry's index; an audio entry without a duration lasts one frame.
RepairEngine::Times RepairEngine::Advance(const PacketEntry& entry, const MoovParser& parser,
                                          const AVStream& stream) {
    const bool audio_entry = entry.stream_index == parser.audio().index;
    Times t;
    steps_.Apply(audio_entry, entry.pts_step, entry.dts_step, &t.pts, &t.dts);
    t.duration = entry.duration;
    if (audio_entry && t.duration == 0) t.duration = stream.codecpar->frame_size;
    return t;
}

// The packet over the buffer, its times rescaled from the time base of the stream's codec type.
AVPacket* RepairEngine::FillPacket(const PacketEntry& entry, const MoovParser& parser,
                                   const AVStream& stream, const Times& times) {
    AVPacket* pkt = packet_;
    kinefix_compat::reset_packet(pkt);
    pkt->data = buffer_;
    pkt->size = entry.size;
    pkt->stream_index = entry.stream_index;
    pkt->flags = entry.key ? AV_PKT_FLAG_KEY : 0;

    const bool audio_stream = stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
    const StreamDesc& desc = audio_stream ? static_cast<const StreamDesc&>(parser.audio())
                                          : static_cast<const StreamDesc&>(parser.video());
    const AVRational source_tb = {desc.tb_num, desc.tb_den};
    const auto rounding = static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX);
    pkt->pts = av_rescale_q_rnd(times.pts, source_tb, stream.time_base, rounding);
    pkt->dts = av_rescale_q_rnd(times.dts, source_tb, stream.time_base, rounding);
    pkt->duration = av_rescale_q(times.duration, source_tb, stream.time_base);
    pkt->pos = -1;
    return pkt;
}

void RepairEngine::CountWritten(const AVStream& stream, const AVPacket& pkt) {
    ++packets_written_;
    if (pkt.pts == AV_NOPTS_VALUE) return;
    // In floating point: a hostile index can put pts at the edge of the 64-bit range.
    const double end_time = av_q2d(stream.time_base) *
                            (static_cast<double>(pkt.pts) + static_cast<double>(pkt.duration));
    if (end_time > end_seconds_) end_seconds_ = end_time;
}

void RepairEngine::ReportWriteError(const AVStream* stream, const AVPacket* pkt,
                                    const MoovParser* parser, int ret, const char* next) {
    // KEPT: the three texts share one buffer, so the line shows the pts text in all places.
    char text[32];
    const char* duration_text = TimeText(text, sizeof(text), pkt->duration, stream->time_base);
    const char* dts_text = TimeText(text, sizeof(text), pkt->dts, stream->time_base);
    const char* pts_text = TimeText(text, sizeof(text), pkt->pts, stream->time_base);
    printf(
        "pts:%lld pts_time:%s dts:%lld dts_time:%s duration:%lld duration_time:%s "
        "stream_index:%d\n",
        static_cast<long long>(pkt->pts), pts_text, static_cast<long long>(pkt->dts), dts_text,
        static_cast<long long>(pkt->duration), duration_text, pkt->stream_index);
    fflush(stdout);
    const std::string error = ErrorText(ret);
    const double progress = parser->Progress();
    if (LogBudget())
        ZP_LOGE("@@ moov已处理 %d 行(%.6lf); write frame err: %s, next=%s", parser->line_number(),
                progress, error.c_str(), next ? next : "(null)");
    if (progress < kQuietErrorProgress) printf("error:ret=%d,msg=%s\n", ret, error.c_str());
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
        // A seek that fails (a negative position) is not checked: the read goes on from where
        // the file stands, which for an index with every position spelled out is the place.
        if (moved) read_position_ = position;
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
    if (LogBudget())
        ZP_LOGE("读取packet数据 %d < %d(需求)，该行索引处理结束 (eof=%d, fpos=%lld) err_code=%d",
                got, size, feof(broken) ? 1 : 0, static_cast<long long>(zp::file_tell(broken)),
                ferror(broken));
    return false;
}

}  // namespace restore
