#pragma once
// TimestampSteps: the per-kind running timestamps that an index's pts and dts steps count
// against, in both directions: the repair applies steps, the index writers make them.

#include <cstdint>

namespace restore {

class TimestampSteps {
  public:
    // The repair's direction: one entry's steps give its pts and dts (a dts step of 0 means
    // "dts equals pts"). Steps from a damaged index wrap around instead of overflowing.
    void Apply(bool audio, int64_t pts_step, int64_t dts_step, int64_t* pts, int64_t* dts);

    // The writer's direction: the steps that make Apply give back pts and dts. A dts equal to
    // the running dts cannot be expressed (its step would read as "same as pts"); it is written
    // one tick earlier and false is returned.
    bool Make(bool audio, int64_t pts, int64_t dts, int64_t* pts_step, int64_t* dts_step);

  private:
    int64_t pts_[2] = {0, 0};  // [audio]
    int64_t dts_[2] = {0, 0};
};

}  // namespace restore
