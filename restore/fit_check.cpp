// FitCheck: a strict decode of a few samples.
#include "restore/fit_check.h"

#include <cstring>

#include "restore/ffmpeg_compat.h"
#include "restore/scan_window.h"

namespace restore {

namespace {

bool Drain(AVCodecContext* ctx, AVFrame* frame, const VideoModel& video, std::string* error) {
    int ret = 0;
    while ((ret = avcodec_receive_frame(ctx, frame)) >= 0) {
        const bool same =
            frame->width == video.stream.width && frame->height == video.stream.height;
        const bool clean = frame->decode_error_flags == 0;
        av_frame_unref(frame);
        if (!same || !clean) {
            *error = same ? "the recording's pictures do not decode cleanly with the reference's "
                            "parameter sets"
                          : "the recording's pictures have another size than the reference's";
            return false;
        }
    }
    if (ret == AVERROR(EAGAIN) || ret == AVERROR_EOF) return true;
    *error =
        "the recording's video does not decode with the reference's parameter sets (other "
        "resolution, profile or encoder settings)";
    return false;
}

}  // namespace

bool FitCheck::VideoDecodes(const VideoModel& video, const std::string& path,
                            const std::vector<std::pair<int64_t, int64_t>>& samples,
                            std::string* error) {
    const AVCodec* codec = avcodec_find_decoder(video.hevc ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    if (!codec) return true;  // a build without this decoder cannot check; the scan stands
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    AVPacket* pkt = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    ScanWindow window(size_t{1} << 20);
    bool ok = ctx && pkt && frame && window.Open(path.c_str());
    if (ok) {
        const size_t n = video.decoder_config.size();
        ctx->extradata = static_cast<uint8_t*>(av_mallocz(n + AV_INPUT_BUFFER_PADDING_SIZE));
        memcpy(ctx->extradata, video.decoder_config.data(), n);
        ctx->extradata_size = static_cast<int>(n);
        ctx->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
        ctx->thread_count = 1;
        ok = avcodec_open2(ctx, codec, nullptr) >= 0;
        if (!ok) *error = "no decoder takes the reference's video configuration";
    }
    for (const auto& [pos, size] : samples) {
        if (!ok) break;
        size_t got = 0;
        const uint8_t* data = window.At(pos, static_cast<size_t>(size), &got);
        if (!data || got != static_cast<size_t>(size) ||
            av_new_packet(pkt, static_cast<int>(size)) < 0)
            break;
        memcpy(pkt->data, data, got);
        ok = avcodec_send_packet(ctx, pkt) >= 0;
        av_packet_unref(pkt);
        if (!ok)
            *error = "the recording's video does not decode with the reference's parameter sets";
        ok = ok && Drain(ctx, frame, video, error);
    }
    if (ok && avcodec_send_packet(ctx, nullptr) >= 0) ok = Drain(ctx, frame, video, error);
    av_frame_free(&frame);
    av_packet_free(&pkt);
    avcodec_free_context(&ctx);
    return ok;
}

}  // namespace restore
