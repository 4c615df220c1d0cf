#pragma once
// The few FFmpeg calls whose shape changed between libavformat 58 and 61, behind one name each.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
}

// ch_layout arrived with libavcodec 59.24 and the old fields left with libavutil 59.
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(59, 24, 100)
#define KINEFIX_HAVE_CH_LAYOUT 1
#else
#define KINEFIX_HAVE_CH_LAYOUT 0
#endif

namespace kinefix_compat {

// Registration is automatic from libavformat 59 on; before that it must be asked for.
inline void register_all() {
#if LIBAVFORMAT_VERSION_MAJOR < 59
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    av_register_all();
#pragma GCC diagnostic pop
#endif
}

// Back to an empty packet with default fields (no data, size 0, no timestamps, pos -1).
// The packet must not own data it is reset from; ours only ever borrows the engine buffer.
inline void reset_packet(AVPacket* pkt) {
#if LIBAVCODEC_VERSION_INT < AV_VERSION_INT(58, 133, 100)
    av_init_packet(pkt);
    pkt->data = nullptr;
    pkt->size = 0;
#else
    av_packet_unref(pkt);
#endif
}

// Channel count plus the default layout for that many channels.
inline void set_channels(AVCodecParameters* par, int channels) {
#if KINEFIX_HAVE_CH_LAYOUT
    av_channel_layout_uninit(&par->ch_layout);
    av_channel_layout_default(&par->ch_layout, channels);
#else
    par->channels = channels;
    par->channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(channels));
#endif
}

inline int channels(const AVCodecParameters* par) {
#if KINEFIX_HAVE_CH_LAYOUT
    return par->ch_layout.nb_channels;
#else
    return par->channels;
#endif
}

}  // namespace kinefix_compat
