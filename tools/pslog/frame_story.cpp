// See frame_story.h.

#include "frame_story.h"

#include <algorithm>
#include <cinttypes>

#include "names.h"

namespace pslog {

namespace {

std::string answerer(const Event& event) {
    switch (event.answer) {
        case Answer::ITSELF: return "the frame itself";
        case Answer::FRAME_0: return "frame 0";
        case Answer::EARLIER:
            return "frame " + std::to_string(event.other) + ", " + std::to_string(event.frame - event.other) + " back";
        default: return "a frame that the log does not name";
    }
}

std::string numberOf(uint32_t frame) {
    return frame == THE_LAST ? "everything" : "frame " + std::to_string(frame);
}

std::string erasureOf(const Event& event, const std::string& tag) {
    if (event.type == EventType::TRIM) {
        return tag + " is erased, to make room for the value of frame " + std::to_string(event.other);
    }
    std::string text = tag + " is erased by the erase of " + numberOf(event.other);
    if (event.key.tag == METADATA_TAG) return text;
    return text + "; frame 0 gets the value of frame " + std::to_string(event.frame);
}

}  // namespace

/// The text of an event; empty if the event is not about the frame.
std::string FrameStory::tell(const Event& event, const Tags& tags) {
    const std::string tag = labelOf(event.key.tag, tags);
    const bool own = event.frame == mFrame;
    if (event.type == EventType::GET && !own && event.other == mFrame && event.answer == Answer::EARLIER) {
        return "answers the get of " + tag + " for frame " + std::to_string(event.frame);
    }
    if (event.type == EventType::ERASE || event.type == EventType::TRIM) {
        return event.frame >= mFrame && mHeld.erase(event.key) != 0 ? erasureOf(event, tag) : "";
    }
    if (!own) return {};
    if (event.type == EventType::SET && event.newCheckpoint) mHeld.insert(event.key);
    switch (event.type) {
        case EventType::ASK: return "asks for " + tag + ", and waits if needed";
        case EventType::TIMEOUT: return "timed out waiting for " + tag;
        case EventType::WAIT:
            return "waited " + std::to_string(event.count) + " ms for " + tag +
                   (event.timedOut ? ", and timed out" : "");
        case EventType::GET: return "got " + tag + ", answered by " + answerer(event);
        case EventType::SET:
            return std::string(event.synchronous ? "delivered " : "set ") + tag +
                   (event.newCheckpoint ? ", a new checkpoint" : "") +
                   (event.notified ? "; wakes the waiting gets" : "");
        case EventType::LATE:
            return (event.access == Access::WRITE ? "set " : "asked for ") +
                   (event.key.tag == UNKNOWN ? std::string(event.text) : tag) + " after its erasure up to frame " +
                   std::to_string(event.other) + ": a retain number of " + std::to_string(event.count) +
                   " would have been enough";
        case EventType::FRAME_REMOVED: return "the frame is removed";
        case EventType::FAILURE: return "FAILED: " + tag + ": " + std::string(event.text);
        default: return {};
    }
}

void FrameStory::take(const Event& event, const Tags& tags) {
    const Key& key = event.key;
    if (key.cam != mCam || (key.pipe != UNKNOWN && mPipe != UNKNOWN && key.pipe != mPipe)) return;
    std::string text = tell(event, tags);
    // A wait that timed out has two lines. The second tells more, but a log without level 4 has only the first.
    const bool isTold = event.type == EventType::WAIT && event.timedOut && !mHappenings.empty();
    if (isTold && mHappenings.back().isTimeout) mHappenings.pop_back();
    if (!text.empty())
        mHappenings.push_back(
            {event.timeUs, event.thread, event.line, key.pipe, event.type == EventType::TIMEOUT, std::move(text)});
}

std::vector<FrameStory::Happening> FrameStory::happenings() const {
    std::vector<Happening> happenings = mHappenings;
    std::stable_sort(happenings.begin(), happenings.end(),
                     [](const Happening& a, const Happening& b) { return a.timeUs < b.timeUs; });
    return happenings;
}

bool FrameStory::print(std::FILE* out, const Interpreter& interpreter) const {
    std::fprintf(out, "camera %" PRId64 " pipe %" PRId64 " frame %u\n", mCam, mPipe, mFrame);
    const std::vector<Happening> story = happenings();
    if (story.empty()) return false;
    const int64_t startUs = story.front().timeUs;
    if (!interpreter.hasTimes())
        std::fprintf(out, "the log has no times: these are made up, as short as the waits allow\n");
    for (const Happening& happening : story) {
        std::fprintf(out, "%10.3f ms  line %-8" PRIu64, static_cast<double>(happening.timeUs - startUs) / 1e3,
                     happening.line);
        if (interpreter.hasThreads()) std::fprintf(out, " thread %-6u", happening.thread);
        std::fprintf(out, "  %s\n", happening.text.c_str());
    }
    return true;
}

}  // namespace pslog
