// What happened to one frame, in time order.

#ifndef PSLOG_FRAME_STORY_H
#define PSLOG_FRAME_STORY_H

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "interpreter.h"

namespace pslog {

class FrameStory : public Listener {
public:
    struct Happening {
        int64_t timeUs;
        uint32_t thread;
        uint64_t line;
        int64_t pipe;
        bool isTimeout;
        std::string text;
    };

    /// @param pipe  UNKNOWN for all pipes
    FrameStory(int64_t cam, int64_t pipe, uint32_t frame) : mCam(cam), mPipe(pipe), mFrame(frame) {}

    void take(const Event& event, const Tags& tags) override;
    /// Returns false if the log has nothing about the frame.
    bool print(std::FILE* out, const Interpreter& interpreter) const;

    /// What happened, in time order.
    std::vector<Happening> happenings() const;

private:
    std::string tell(const Event& event, const Tags& tags);

    int64_t mCam, mPipe;
    uint32_t mFrame;
    std::set<Key> mHeld;  ///< values that the frame has at present
    std::vector<Happening> mHappenings;
};

}  // namespace pslog

#endif  // PSLOG_FRAME_STORY_H
