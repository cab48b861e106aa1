// See controller.h.

#include "controller.h"

#include <algorithm>
#include <cmath>

#include "image.h"

namespace pipeline {

// Computes from the histogram which mean a gain gives, so that clipped pixels are accounted for. If the mean is near
// the target and the scene is as bright as some frames ago, the gain stays: following the noise would look like
// flicker.
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
