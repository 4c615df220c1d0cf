// AacFrames: frame lengths through the decoder's public interface. A packet that holds several
// raw frames is decoded frame by frame, and each frame's pkt_size tells how many of the
// packet's bytes were left when its decoding began.
#include "restore/aac_frames.h"

#include <cstring>

#include "restore/ffmpeg_compat.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace restore {

namespace {

AVCodecContext* Ctx(void* p) {
    return static_cast<AVCodecContext*>(p);
}

}  // namespace

AacFrames::~AacFrames() {
    AVCodecContext* ctx = Ctx(context_);
    avcodec_free_context(&ctx);
    AVPacket* pkt = static_cast<AVPacket*>(packet_);
    av_packet_free(&pkt);
    AVFrame* frame = static_cast<AVFrame*>(frame_);
    av_frame_free(&frame);
}

bool AacFrames::Open(const IndexStream& audio, std::string* error) {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    AVCodecContext* ctx = codec ? avcodec_alloc_context3(codec) : nullptr;
    context_ = ctx;
    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
    if (!ctx || !packet_ || !frame_ || audio.extradata.empty()) {
        *error = "no AAC decoder or no AudioSpecificConfig in the reference";
        return false;
    }
    ctx->extradata =
        static_cast<uint8_t*>(av_mallocz(audio.extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    memcpy(ctx->extradata, audio.extradata.data(), audio.extradata.size());
    ctx->extradata_size = static_cast<int>(audio.extradata.size());
    ctx->sample_rate = audio.sample_rate;
    ctx->thread_count = 1;
    frame_size_ = audio.frame_size > 0 ? audio.frame_size : 1024;
    if (avcodec_open2(ctx, codec, nullptr) < 0) {
        *error = "the AAC decoder does not take the reference's AudioSpecificConfig";
        return false;
    }
    return true;
}

int AacFrames::Decode(const uint8_t* data, size_t size, std::vector<int>* remaining, bool* failed) {
    AVCodecContext* ctx = Ctx(context_);
    AVPacket* pkt = static_cast<AVPacket*>(packet_);
    AVFrame* frame = static_cast<AVFrame*>(frame_);
    remaining->clear();
    *failed = false;
    buffer_.assign(data, data + size);
    buffer_.resize(size + AV_INPUT_BUFFER_PADDING_SIZE, 0);
    av_packet_unref(pkt);
    pkt->data = buffer_.data();
    pkt->size = static_cast<int>(size);
    avcodec_flush_buffers(ctx);
    if (avcodec_send_packet(ctx, pkt) < 0) {
        *failed = true;
        return 0;
    }
    int ret = 0;
    while ((ret = avcodec_receive_frame(ctx, frame)) >= 0) {
        const bool whole = frame->nb_samples == frame_size_;
        if (whole) remaining->push_back(frame->pkt_size);
        av_frame_unref(frame);
        if (!whole) {
            *failed = true;
            break;
        }
    }
    if (ret != AVERROR(EAGAIN) && ret != AVERROR_EOF) *failed = true;
    decoded_ += static_cast<int64_t>(remaining->size());
    return static_cast<int>(remaining->size());
}

// The shortest prefix that decodes as one whole frame: decoding needs every bit up to the
// frame's end element, so shorter prefixes fail.
int AacFrames::ExactLength(const uint8_t* data, int at_most) {
    std::vector<int> remaining;
    bool failed = false;
    int lo = 1, hi = at_most;
    if (Decode(data, static_cast<size_t>(hi), &remaining, &failed) < 1) return 0;
    while (lo < hi) {
        const int mid = lo + (hi - lo) / 2;
        if (Decode(data, static_cast<size_t>(mid), &remaining, &failed) >= 1)
            hi = mid;
        else
            lo = mid + 1;
    }
    return hi;
}

void AacFrames::Split(const uint8_t* data, size_t size, std::vector<int>* lengths) {
    lengths->clear();
    std::vector<int> remaining;
    bool failed = false;
    const int n = Decode(data, size, &remaining, &failed);
    if (n > 0 && remaining[0] != static_cast<int>(size)) {
        // A library that does not tell the bytes left: one frame at a time, by prefixes.
        for (size_t at = 0; at < size;) {
            const int len = ExactLength(data + at, static_cast<int>(size - at));
            if (len <= 0) break;
            lengths->push_back(len);
            at += static_cast<size_t>(len);
        }
        return;
    }
    for (int i = 0; i + 1 < n; ++i) {
        const int len = remaining[i] - remaining[i + 1];
        if (len <= 0) return;
        lengths->push_back(len);
    }
    if (n == 0) return;
    int last = remaining[n - 1];
    size_t start = size - static_cast<size_t>(last);
    if (failed) {
        // What follows the last good frame did not decode: find where that frame ends.
        last = ExactLength(data + start, last);
    } else {
        // A frame's end element leaves its last byte non-zero; zeros after it are not its own.
        while (last > 0 && data[start + static_cast<size_t>(last) - 1] == 0) --last;
    }
    if (last > 0) lengths->push_back(last);
}

}  // namespace restore
