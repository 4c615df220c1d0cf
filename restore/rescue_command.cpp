// RescueCommand: the rescue path's checks, messages and summary.
#include "restore/rescue_command.h"

#include <cinttypes>
#include <cstdio>

#include "log/log.h"
#include "restore/fit_check.h"
#include "restore/index_writer.h"
#include "restore/media_scan.h"
#include "restore/reference_model.h"

extern "C" {
#include <libavutil/log.h>
}

namespace restore {

namespace {

int Fail(const std::string& message) {
    fprintf(stderr, "kinefix-index: %s; no index written\n", message.c_str());
    ZP_LOGE("rescue failed: %s", message.c_str());
    return 1;
}

std::string Describe(const ReferenceModel& ref) {
    std::string text;
    if (ref.video.present)
        text += "video " + ref.video.stream.codec + " " + std::to_string(ref.video.stream.width) +
                "x" + std::to_string(ref.video.stream.height);
    if (ref.audio.present)
        text += std::string(text.empty() ? "" : ", ") + "audio " + ref.audio.stream.codec;
    return text;
}

// What the scan found against what a usable rescue needs.
std::string Misfit(const ReferenceModel& ref, const MediaScan& scan, const ScanReport& report,
                   const std::string& damaged) {
    if (!scan.misfit().empty()) return scan.misfit();
    const int64_t data = report.data_end - report.data_start;
    const double share = data > 0 ? 100.0 * static_cast<double>(report.attributed_bytes) / data : 0;
    if (ref.video.present && report.video_samples == 0)
        return "no sample of the recording is video of the reference's kind (" + Describe(ref) +
               ")";
    if (share < 90.0) {
        char text[256];
        snprintf(text, sizeof(text),
                 "only %.1f%% of the media data fits the reference's tracks (%s); the reference "
                 "does not describe this recording",
                 share, Describe(ref).c_str());
        return text;
    }
    std::string error;
    if (ref.video.present &&
        !FitCheck::VideoDecodes(ref.video, damaged, report.first_video, &error))
        return error;
    return std::string();
}

}  // namespace

int RescueCommand::Run(const RescueOptions& o) {
    av_log_set_level(AV_LOG_QUIET);
    ReferenceModel ref;
    std::string error;
    if (!ref.Learn(o.reference, &error)) return Fail("the reference does not fit: " + error);
    ZP_LOGE("%s", ref.summary.c_str());

    std::vector<IndexStream> streams;
    if (ref.video.present) streams.push_back(ref.video.stream);
    if (ref.audio.present) streams.push_back(ref.audio.stream);
    IndexWriter writer(o.version, o.entries_per_line);
    if (!writer.Begin(o.index, streams, &error)) return Fail(error);

    MediaScan scan(ref, &writer);
    ScanReport report;
    auto progress = [&o](double share) {
        if (o.progress) printf("progress:%.6lf\n", share), fflush(stdout);
    };
    auto skipped = [](int64_t offset, int64_t length) {
        fprintf(stderr,
                "kinefix-index: skipped damaged data at offset %" PRId64 ", %" PRId64 " bytes\n",
                offset, length);
        ZP_LOGE("skipped damaged data at offset %lld, %lld bytes", static_cast<long long>(offset),
                static_cast<long long>(length));
    };
    if (!scan.Run(o.damaged, progress, skipped, &report, &error)) {
        writer.Abandon();
        return Fail(error);
    }
    const std::string misfit = Misfit(ref, scan, report, o.damaged);
    if (!misfit.empty()) {
        writer.Abandon();
        return Fail("the reference does not fit: " + misfit);
    }
    if (!writer.Finish(&error)) return Fail(error);
    if (o.progress) printf("progress:1.0\n");
    char summary[320];
    snprintf(summary, sizeof(summary),
             "rescued: video %" PRId64 " samples, audio %" PRId64 " samples, %" PRId64
             " bytes skipped, %" PRId64 " damaged samples dropped, duration %.3f s",
             report.video_samples, report.audio_samples, report.skipped_bytes, report.dropped,
             report.duration);
    fprintf(stderr, "kinefix-index: %s\n", summary);
    ZP_LOGE("%s", summary);
    return 0;
}

}  // namespace restore
