// What the modules exchange: the tags of the pipeline, the pipes that the tags are in, and the types of the values.
// A value is plain bytes and contains the id of the frame that it was delivered for.

#ifndef PIPELINE_VALUES_H
#define PIPELINE_VALUES_H

#include <cstdint>

#include "paramset_typed.h"

namespace pipeline {

class Staging;

/// Frame buffers of a camera. Fewer than the frames for which the store keeps a dynamic value. So the value that frees
/// a buffer is never erased while the sensor still waits for it.
constexpr uint32_t BUFFER_COUNT = 4;

/// How far exposure looks back, and how much of its history is kept for that.
constexpr uint32_t LOOK_BACK = 20;
constexpr int HISTORY_RETAIN = 30;

/// Gains are kept longer than other values: a gain that exposure delivers late must still be above the erase point, or
/// the delivery would make the erased frame again.
constexpr int GAIN_RETAIN = 30;

/// Longest stall of a module. After it, a gain comes at most GAIN_RETAIN / 2 frames late.
constexpr int MAX_STALL_MS = 1000;

constexpr zarn::Pipe FRAME_PIPE{0};       ///< from the sensor, with the metadata; erased by the ISP
constexpr zarn::Pipe STATISTICS_PIPE{1};  ///< from statistics; erased by exposure
constexpr zarn::Pipe EXPOSURE_PIPE{2};    ///< from exposure; erased by the ISP
constexpr zarn::Pipe ISP_PIPE{3};         ///< from the ISP; erased by the ISP

/// First member of every value. The first values of frame 0 have the frame id 0.
struct Stamp {
    uint32_t frame;
    int64_t deliveredNs;  ///< steady clock, just before the value was handed to the store
};

/// Frame stamp.frame has begun: its pixels are in a buffer of the pool. The last value has no pixels.
struct FrameReady {
    Stamp stamp;
    uint32_t buffer;
    uint32_t end;  ///< nonzero: the stream has ended, and there is no such frame
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

/// The ISP no longer needs the frame's buffer.
struct Released {
    Stamp stamp;
    uint32_t abort;  ///< nonzero: the output has failed, and the sensor must stop
};

/// Only for a staged fault: a tag in the gain's pipe that is kept for a shorter time than the gain.
struct Marker {
    Stamp stamp;
};

struct Tuning {
    Stamp stamp;
    float targetLuma;
    float damping;           ///< part of the way to the wanted gain that the gain moves in one frame; logarithmic
    float minGain, maxGain;  ///< limits of the gain
    float tolerance;         ///< the gain stays while mean luma is this close to its target and the scene is steady
};

/// A frame's metadata record. Not a tag: the store has separate calls for metadata.
struct FrameMetadata {
    uint32_t frame;
    uint32_t exposureUs;
    float sensorGain;
    int64_t timestampNs;  ///< steady clock, when the sensor had the frame
};

/// A parameter, and the pipe that it is in.
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

/// Registers all tags, with the faults that are staged. Call it before any thread uses the store. Throws
/// std::runtime_error if a tag is already registered with another size or kind.
void registerTags(const Staging& staging);

}  // namespace pipeline

#endif  // PIPELINE_VALUES_H
