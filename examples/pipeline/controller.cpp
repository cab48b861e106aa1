// See controller.h.

#include "controller.h"

#include <algorithm>
#include <cmath>

#include "image.h"

namespace pipeline {

// What a gain does to the mean is computed from the histogram, so that what clips is accounted for. Near the target the
// gain is held while the scene is as bright as it was some time ago: following the noise would show as flicker.
double ExposureController::update(const Tuning& tuning, const Statistics& statistics, const HistoryEntry& past) {
    if (statistics.stamp.frame == 0) return mGain;
    const double luma = meanAfterGain(statistics.histogram, mGain);
    const bool near = std::fabs(luma - tuning.targetLuma) <= tuning.tolerance;
    const bool steady = past.stamp.frame != 0 && std::fabs(statistics.meanY - past.meanY) <= tuning.tolerance;
    if (near && steady) return mGain;
    mGain *= std::pow(tuning.targetLuma / std::max(luma, 1.0), static_cast<double>(tuning.damping));
    mGain = std::clamp<double>(mGain, tuning.minGain, tuning.maxGain);
    return mGain;
}

}  // namespace pipeline
