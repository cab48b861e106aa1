// Measuring pictures, and applying a gain to them. Limited range: black is 16, white 235, and neutral chroma 128.

#ifndef PIPELINE_IMAGE_H
#define PIPELINE_IMAGE_H

#include <array>
#include <cstdint>

#include "frame.h"
#include "values.h"

namespace pipeline {

/// The result of a gain for each luma level and each chroma level. Chroma is scaled like luma, around its neutral
/// level, so that colours keep their saturation. Both are clipped.
class GainTable {
public:
    explicit GainTable(double gain);

    uint8_t luma(uint8_t level) const { return mLuma[level]; }
    uint8_t chroma(uint8_t level) const { return mChroma[level]; }

private:
    std::array<uint8_t, 256> mLuma;
    std::array<uint8_t, 256> mChroma;
};

/// Mean of each plane, and the histogram of luma.
Statistics measure(const Frame& frame);

/// Applies the gain to @p in and writes the result to @p out, which has the same format. Returns the mean luma of
/// @p out.
double applyGain(const GainTable& table, const Frame& in, Frame& out);

/// Mean luma that a picture with this histogram has after the gain is applied.
double meanAfterGain(const uint32_t (&histogram)[256], double gain);

}  // namespace pipeline

#endif  // PIPELINE_IMAGE_H
