// A pipeline over time, collected from a log and drawn as an SVG picture or written as a trace.
//
// A log may be larger than memory. For each camera the newest rows are kept until it is decided which of them flicker.
// Of the older rows only those are kept that will be shown: around the worst flickers, or around the frame that was
// asked for. All others are only counted.

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

/// What to show. If the log is short enough, everything is shown.
struct Choice {
    size_t frames = 60;              ///< the greatest number of rows for each camera
    std::optional<uint32_t> around;  ///< show the rows around this frame, not those around the worst flickers
    std::vector<std::string> tags;   ///< show only these tags: numbers or names
    std::optional<int64_t> cam;
    std::optional<int64_t> pipe;
};

struct Mark {
    enum Shape : uint8_t { WAIT, TIMED_OUT, VALUE, READ };
    Shape shape;
    Answer answer = Answer::NOT_KNOWN;  ///< the answer to a read, or to the get that a wait belongs to
    bool synchronous = false;           ///< a synchronous set or get
    bool isLong = false;                ///< a wait whose length is in the log
    bool failed = false;                ///< nothing was copied
    bool flickers = false;
    size_t lane = 0;
    uint32_t other = 0;  ///< the other frame whose value was read; 0 if the log does not say
    uint32_t thread = 0;
    int64_t startUs = 0;
    int64_t endUs = 0;  ///< the same as the begin, except for waits
    uint64_t line = 0;  ///< line of the answer, or of the wait while there is no answer yet

    bool isWait() const { return shape == WAIT || shape == TIMED_OUT; }
    bool isFallBack() const { return failed || answer == Answer::EARLIER || answer == Answer::FRAME_0; }
    bool isLoud() const { return flickers || shape == TIMED_OUT || (synchronous && isFallBack()); }
};

/// What happened to one frame.
struct FrameRow {
    std::vector<Mark> marks;
    std::vector<Flicker> flickers;  ///< the worst one is the first
    Index touched = 0;              ///< the index of its newest event

    bool isBad() const { return !flickers.empty(); }
    /// When the frame got its first value; if it has none, the time of its first event.
    int64_t startUs() const;
};

/// Counts for a tag, or for a range of frames.
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

/// The number of a stream, from 0, and a frame of it. When a camera restarts, frame ids may begin again.
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
    /// All frames of the log in bins of 2^binShift frames, which limits their number.
    std::map<RowId, Tally> bins;
    int binShift = 0;
    RowId newest{0, 0};
    bool isOver = false;      ///< everything was erased, or the store was destroyed, and nothing was set since
    std::vector<RowId> ends;  ///< rows that are not frames: each announces the end of a stream
    size_t pruneAt = 1024;    ///< number of rows at which old rows are dropped
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
    const Tags* mTags = nullptr;  ///< valid while an event is processed
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
