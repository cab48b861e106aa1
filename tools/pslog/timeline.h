// A pipeline over time, collected from a log and drawn as an SVG picture or written as a trace.
//
// A log may be longer than memory. Of each camera the newest rows are kept, as long as it is not decided what flickers
// in them, and of the older ones those that will be shown: the surroundings of the worst flickers, or of the frame that
// was asked for. The rest is only counted.

#ifndef PSLOG_TIMELINE_H
#define PSLOG_TIMELINE_H

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "flicker_finder.h"

namespace pslog {

/// What to show. Everything of the log if it is short enough.
struct Choice {
    size_t frames = 60;              ///< the most rows of a camera
    std::optional<uint32_t> around;  ///< this frame and its surroundings, instead of the worst flickers'
    std::vector<std::string> tags;   ///< only these: numbers, or names
    std::optional<int64_t> cam;
    std::optional<int64_t> pipe;
};

struct Mark {
    enum Shape : uint8_t { WAIT, TIMED_OUT, VALUE, READ };
    Shape shape;
    Answer answer = Answer::NOT_KNOWN;  ///< of a read, or of the wait that was part of it
    bool synchronous = false;           ///< delivered, or a get that waits if need be
    bool isLong = false;                ///< a wait whose length the log tells
    bool failed = false;                ///< nothing was copied
    bool flickers = false;
    size_t lane = 0;
    uint32_t other = 0;  ///< the frame whose value was read, if not its own; 0 if the log does not say
    uint32_t thread = 0;
    int64_t startUs = 0;
    int64_t endUs = 0;  ///< the same but for waits
    uint64_t line = 0;  ///< of the answer, or of the wait as long as that is not known

    bool isWait() const { return shape == WAIT || shape == TIMED_OUT; }
    bool isFallBack() const { return failed || answer == Answer::EARLIER || answer == Answer::FRAME_0; }
    bool isLoud() const { return flickers || shape == TIMED_OUT || (synchronous && isFallBack()); }
};

/// What happened to one frame.
struct FrameRow {
    std::vector<Mark> marks;
    std::vector<Flicker> flickers;  ///< the worst one is the first
    Index touched = 0;              ///< the number of the newest event in it

    bool isBad() const { return !flickers.empty(); }
    /// When the frame was first given a value; else when anything happened to it.
    int64_t startUs() const;
};

/// How often something happened to a tag, or in some frames.
struct Tally {
    uint64_t timeOuts = 0;
    uint64_t fallBacks = 0;
    void add(const Tally& other) {
        timeOuts += other.timeOuts;
        fallBacks += other.fallBacks;
    }
};

/// A tag in a pipe of a camera.
struct Lane {
    Key key;
    Tally tally;
};

/// A stream's number, counted from 0, and a frame of it: a camera that starts anew may count its frames anew.
struct RowId {
    uint32_t stream;
    uint32_t frame;
    bool operator<(const RowId& o) const { return std::tie(stream, frame) < std::tie(o.stream, o.frame); }
    bool operator==(const RowId& o) const { return stream == o.stream && frame == o.frame; }
};

struct Camera {
    std::map<RowId, FrameRow> rows;
    uint64_t frames = 0;
    Tally tally;
    /// All frames of the log, 2 to the power of binShift to a bin, so that there are not too many.
    std::map<RowId, Tally> bins;
    int binShift = 0;
    RowId newest{0, 0};
    bool isOver = false;      ///< everything was erased, or the store has ended, and nothing was set since
    std::vector<RowId> ends;  ///< of the streams: no frames, but the word that there are no more
    size_t pruneAt = 1024;    ///< rows
};

class Timeline : public Listener {
public:
    explicit Timeline(Choice choice);
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    void take(const Event& event, const Tags& tags) override;
    void finish(const Tags& tags) override;

    /// Whether there is nothing to show.
    bool isEmpty() const;
    const std::map<int64_t, Camera>& cameras() const { return mCameras; }
    const std::vector<Lane>& lanes() const { return mLanes; }
    const FlickerFinder& finder() const { return mFinder; }

private:
    bool isChosen(const Key& key) const;
    size_t laneOf(const Key& key);
    void takeOf(Camera& camera, size_t lane, const Event& event);
    static void takeRead(FrameRow& row, Mark mark, const Event& event);
    static void takeWait(FrameRow& row, Mark mark, const Event& event);
    void count(Camera& camera, RowId id, size_t lane, const Tally& more);
    void takeFlicker(const Flicker& flicker);
    FrameRow* rowOf(Camera& camera, RowId id);
    void endStream(const Event& event);
    void meet(Camera& camera, RowId id) const;
    void prune(Camera& camera) const;
    std::set<RowId> shown(const Camera& camera) const;

    Choice mChoice;
    FlickerFinder mFinder;
    const Tags* mTags = nullptr;  ///< for the time of an event
    std::map<int64_t, Camera> mCameras;
    std::vector<Lane> mLanes;
    std::map<Key, size_t> mLaneNumbers;
    Index mEvents = 0;
};

void writeSvg(std::ostream& out, const Timeline& timeline, const Interpreter& log);

/// The JSON trace-event format.
void writeTrace(std::ostream& out, const Timeline& timeline, const Interpreter& log);

}  // namespace pslog

#endif  // PSLOG_TIMELINE_H
