// A pipeline over time, collected from a log and drawn as an SVG picture or written as a trace.

#ifndef PSLOG_TIMELINE_H
#define PSLOG_TIMELINE_H

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "interpreter.h"

namespace pslog {

struct Mark {
    enum Shape { WAIT, TIMED_OUT, VALUE, EARLIER, FRAME_0 };
    Shape shape;
    int64_t startUs;
    int64_t endUs;   ///< the same but for waits
    uint32_t other;  ///< EARLIER: the frame that answered
};

/// What happened to one frame.
struct FrameRow {
    int64_t startUs;  ///< of whatever happened first
    std::map<Key, std::vector<Mark>> lanes;
};

class Timeline : public Listener {
public:
    /// Keeps the newest frames up to a last one, so many for each camera.
    Timeline(size_t frames, uint32_t last) : mFrames(frames), mLast(last) {}

    void take(const Event& event, const Tags& tags) override;

    /// By camera and frame.
    const std::map<int64_t, std::map<uint32_t, FrameRow>>& cameras() const { return mCameras; }
    /// The lanes that a camera's frames have, in order.
    std::vector<Key> lanesOf(int64_t cam) const;

private:
    size_t mFrames;
    uint32_t mLast;
    std::map<int64_t, std::map<uint32_t, FrameRow>> mCameras;
};

void writeSvg(std::ostream& out, const Timeline& timeline, const Interpreter& log);

/// The JSON trace-event format.
void writeTrace(std::ostream& out, const Timeline& timeline, const Interpreter& log);

}  // namespace pslog

#endif  // PSLOG_TIMELINE_H
