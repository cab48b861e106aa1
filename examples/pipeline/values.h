// What the modules say to one another: the tags of the pipeline, the pipes that they live in, and the values.
// A value is plain bytes and says itself which frame it was delivered for.

#ifndef PIPELINE_VALUES_H
#define PIPELINE_VALUES_H

#include <cstdint>

#include "paramset_typed.h"

namespace pipeline {

class Staging;

/// Frame buffers of a camera. Fewer than the frames that an ordinary value is kept, so that what frees a buffer is
/// never erased while the sensor still waits for it.
constexpr uint32_t BUFFER_COUNT = 4;

/// How far exposure looks back, and how much of its history is kept for that.
constexpr uint32_t LOOK_BACK = 20;
constexpr int HISTORY_RETAIN = 30;

/// Gains live longer than other values: a gain that exposure delivers late must still lie above the erase point, or it
/// would bring back an erased frame.
constexpr int GAIN_RETAIN = 30;

/// Greatest stall of a module: with it, a gain is late by half of GAIN_RETAIN frames at most.
constexpr int MAX_STALL_MS = 1000;

constexpr zarn::Pipe FRAME_PIPE{0};       ///< from the sensor, with the metadata; erased by the ISP
constexpr zarn::Pipe STATISTICS_PIPE{1};  ///< from statistics; erased by exposure
constexpr zarn::Pipe EXPOSURE_PIPE{2};    ///< from exposure; erased by the ISP
constexpr zarn::Pipe ISP_PIPE{3};         ///< from the ISP; erased by the ISP

/// First member of every value. Frame 0 starts out with values of frame id 0.
struct Stamp {
    uint32_t frame;
    int64_t deliveredNs;  ///< steady clock, just before the value was handed to the store
};

/// Frame @p stamp.frame has begun: its pixels are in a buffer of the pool. The last one carries no pixels.
struct FrameReady {
    Stamp stamp;
    uint32_t buffer;
    uint32_t end;  ///< nonzero: there is no such frame, the stream has ended
};

struct Statistics {
    Stamp stamp;
    float meanY, meanU, meanV;
    uint32_t histogram[256];  ///< of luma
};

struct Gain {
    Stamp stamp;
    float gain;
};

struct HistoryEntry {
    Stamp stamp;
    float meanY;  ///< of the scene, before the gain
    float gain;
};

/// The ISP has no more use for the frame's buffer.
struct Released {
    Stamp stamp;
    uint32_t abort;  ///< nonzero: the output is gone, more frames are of no use
};

/// Staged only: a tag that is kept for a shorter time than the gain in its pipe.
struct Marker {
    Stamp stamp;
};

struct Tuning {
    Stamp stamp;
    float targetLuma;
    float damping;           ///< part of the way to the wanted gain that one frame goes, on a logarithmic scale
    float minGain, maxGain;  ///< limits of the gain
    float tolerance;         ///< the gain is held while mean luma is this near its target and the scene is steady
};

/// A frame's metadata record. Not a tag: the store has calls of its own for it.
struct FrameMetadata {
    uint32_t frame;
    uint32_t exposureUs;
    float sensorGain;
    int64_t timestampNs;  ///< steady clock, when the sensor had the frame
};

/// A parameter, and the pipe that it lives in.
template <typename Value>
struct Tag : zarn::Parameter<Value> {
    zarn::Pipe pipe;
};

constexpr Tag<FrameReady> FRAME_READY{{0x1001, "frame ready", zarn::dynamicKind()}, FRAME_PIPE};
constexpr Tag<Statistics> STATISTICS{{0x1002, "statistics", zarn::dynamicKind()}, STATISTICS_PIPE};
constexpr Tag<Gain> GAIN{{0x1003, "gain", zarn::dynamicKind<GAIN_RETAIN>()}, EXPOSURE_PIPE};
constexpr Tag<HistoryEntry> HISTORY{{0x1004, "history", zarn::queueKind<HISTORY_RETAIN>()}, EXPOSURE_PIPE};
constexpr Tag<Tuning> TUNING{{0x1005, "tuning", zarn::staticKind()}, EXPOSURE_PIPE};
constexpr Tag<Released> RELEASED{{0x1006, "released", zarn::dynamicKind()}, ISP_PIPE};

constexpr Tag<Marker> MARKER{{0x1007, "marker", zarn::dynamicKind()}, EXPOSURE_PIPE};

constexpr Tuning DEFAULT_TUNING{{}, 118.0f, 0.25f, 0.25f, 8.0f, 0.75f};

/// Registers all tags, as it is staged; before any thread uses the store. Throws std::runtime_error if one is
/// registered otherwise.
void registerTags(const Staging& staging);

}  // namespace pipeline

#endif  // PIPELINE_VALUES_H
