// TimestampSteps: both directions of the index's timestamp steps.
#include "restore/timestamp_steps.h"

namespace restore {

namespace {

int64_t WrappingAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

int64_t WrappingSub(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

}  // namespace

void TimestampSteps::Apply(bool audio, int64_t pts_step, int64_t dts_step, int64_t* pts,
                           int64_t* dts) {
    const int kind = audio ? 1 : 0;
    *pts = WrappingAdd(pts_[kind], pts_step);
    *dts = dts_step != 0 ? WrappingAdd(dts_[kind], dts_step) : *pts;
    pts_[kind] = *pts;
    dts_[kind] = *dts;
}

bool TimestampSteps::Make(bool audio, int64_t pts, int64_t dts, int64_t* pts_step,
                          int64_t* dts_step) {
    const int kind = audio ? 1 : 0;
    bool exact = true;
    *pts_step = WrappingSub(pts, pts_[kind]);
    *dts_step = 0;
    if (dts != pts) {
        *dts_step = WrappingSub(dts, dts_[kind]);
        if (*dts_step == 0) {
            *dts_step = -1;
            exact = false;
        }
    }
    int64_t applied_pts = 0;
    int64_t applied_dts = 0;
    Apply(audio, *pts_step, *dts_step, &applied_pts, &applied_dts);
    return exact;
}

}  // namespace restore
