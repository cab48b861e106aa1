// See image.h.

#include "image.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace pipeline {

namespace {

constexpr double BLACK = 16;
constexpr double WHITE = 235;
constexpr double NEUTRAL = 128;
constexpr double MAX_CHROMA = 240;

double gained(double level, double pivot, double gain, double max) {
    return std::clamp(pivot + (level - pivot) * gain, BLACK, max);
}

double mean(const uint8_t* plane, size_t size) {
    return static_cast<double>(std::accumulate(plane, plane + size, uint64_t{0})) / static_cast<double>(size);
}

}  // namespace

GainTable::GainTable(double gain) {
    for (size_t level = 0; level < mLuma.size(); ++level) {
        const double value = static_cast<double>(level);
        mLuma[level] = static_cast<uint8_t>(std::lround(gained(value, BLACK, gain, WHITE)));
        mChroma[level] = static_cast<uint8_t>(std::lround(gained(value, NEUTRAL, gain, MAX_CHROMA)));
    }
}

Statistics measure(const Frame& frame) {
    Statistics statistics{};
    const size_t size = frame.format.lumaSize();
    for (const uint8_t* pixel = frame.luma(); pixel != frame.luma() + size; ++pixel) ++statistics.histogram[*pixel];
    statistics.meanY = static_cast<float>(mean(frame.luma(), size));
    statistics.meanU = static_cast<float>(mean(frame.chroma(0), frame.format.chromaSize()));
    statistics.meanV = static_cast<float>(mean(frame.chroma(1), frame.format.chromaSize()));
    return statistics;
}

double applyGain(const GainTable& table, const Frame& in, Frame& out) {
    const size_t lumaSize = in.format.lumaSize();
    const auto gainLuma = [&table](uint8_t level) { return table.luma(level); };
    const auto gainChroma = [&table](uint8_t level) { return table.chroma(level); };
    std::transform(in.luma(), in.luma() + lumaSize, out.luma(), gainLuma);
    std::transform(in.chroma(0), in.chroma(0) + 2 * in.format.chromaSize(), out.chroma(0), gainChroma);
    out.parameters = in.parameters;
    return mean(out.luma(), lumaSize);
}

double meanAfterGain(const uint32_t (&histogram)[256], double gain) {
    double sum = 0;
    double count = 0;
    for (size_t level = 0; level < 256; ++level) {
        sum += gained(static_cast<double>(level), BLACK, gain, WHITE) * histogram[level];
        count += histogram[level];
    }
    return count > 0 ? sum / count : 0;
}

}  // namespace pipeline
