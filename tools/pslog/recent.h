// The recent past of a log: its newest events by thread, and the values of each tag. It goes back far enough to explain
// a read, and its memory does not grow with the log.
//
// If there are no thread ids, events are attributed to the producers of tags by their order: a read belongs to the
// producer of the next delivery in its camera. That is right if a module delivers soon after it has read.

#ifndef PSLOG_RECENT_H
#define PSLOG_RECENT_H

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "interpreter.h"

namespace pslog {

/// An event's number in its log.
using Index = uint64_t;
constexpr Index NEVER = UINT64_MAX;

/// The history of a tag's value for a frame. Of several sets the first counts.
struct Value {
    Index plain = NEVER;
    Index delivered = NEVER;
    Index gone = NEVER;     ///< erased or trimmed
    bool notified = false;  ///< the delivery woke a get
    uint32_t missed = 0;    ///< waits that timed out after the delivery

    Index firstSet() const { return plain < delivered ? plain : delivered; }
    /// The first set of this value after an event; NEVER if there is none.
    Index setAfter(Index index) const;
};

/// What is known about a tag in a pipe.
struct KeyFacts {
    std::map<uint32_t, Value> values;  ///< by frame
    uint32_t newestSet = 0;
    uint32_t goneUpTo = 0;    ///< the values up to this frame were removed
    uint64_t nextFrames = 0;  ///< number of sets of the frame right after the newest one
    uint64_t gaps = 0;        ///< number of sets that skipped frames
    uint32_t thread = 0;      ///< the thread that set it last
    uint32_t number = 0;      ///< the key's number
    bool isUnregistered = false;
    uint32_t saved = 0;  ///< the frame whose value an erase saved to frame 0; 0 if none

    /// Whether the tag is set for nearly every frame.
    bool isSetForEachFrame() const { return nextFrames >= 4 && nextFrames >= 4 * gaps; }
};

/// A part of a thread's time: a wait, or the time between two of its events.
struct Stretch {
    Index begin;  ///< NEVER if it is not in the log
    Index end;
    bool isWait;
    int64_t us;
    int64_t usualUs;  ///< what similar stretches usually take
};

class Recent {
public:
    Index add(const Event& event);
    /// Call this when another store begins. Drops events, values and erases; keeps what threads usually do.
    void forget();

    /// The event; null if it is too long ago.
    const Event* at(Index index) const;
    /// The thread of the event; without thread ids, a number for the producer of the next delivery. 0 if not known.
    uint32_t threadOf(Index index) const;
    Index size() const { return mSize; }

    const KeyFacts* find(const Key& key) const;
    /// The history of the value; an empty one if nothing is known about it.
    Value valueOf(const Key& key, uint32_t frame) const;

    /// What the thread of this event did between a given time and the event, the latest first.
    std::vector<Stretch> stretchesBefore(Index index, int64_t sinceUs) const;

    /// The thread's time-out for the tag: its shortest wait that timed out, and how many were as short.
    struct TimeOut {
        int64_t ms = 0;
        uint32_t times = 0;
    };
    TimeOut timeOutOf(const Key& key, uint32_t thread) const;

    /// Erases of the pipe between two events, the earliest first.
    std::vector<Index> erasesBetween(const Key& key, Index begin, Index end) const;

    /// When the current store was destroyed; NEVER if it was not.
    Index storeEnded() const { return mStoreEnded; }

    /// The tag that a thread sets most often; null if none.
    const Key* mostSetBy(uint32_t thread) const;

private:
    static constexpr size_t CAPACITY = size_t{1} << 16;
    static constexpr size_t MOST_FRAMES = 2048;  ///< for each tag, the values of this many frames are known
    static constexpr size_t MOST_ERASES = 256;   ///< for each pipe
    static constexpr size_t MOST_THREADS = 4096;
    /// This bit marks numbers of threads that are known only by the tag that they deliver.
    static constexpr uint32_t UNNAMED = 0x80000000;

    struct Note {
        Event event;
        uint32_t thread = 0;
        Index before = NEVER;  ///< the event before it of the same thread
    };
    /// How long something usually takes, to a factor of two.
    struct Usual {
        std::array<uint32_t, 40> times{};
        uint64_t total = 0;
        void add(int64_t us);
        int64_t median() const;
    };
    struct Thread {
        Index last = NEVER;
        std::map<Key, uint64_t> sets;
    };

    KeyFacts& factsOf(const Key& key);
    Note& note(Index index) { return mNotes[index % CAPACITY]; }
    const Note* noteAt(Index index) const;
    void assign(Index index, uint32_t thread);
    void assignByOrder(Index index);
    void addSet(Index index);
    void addErase(Index index);
    void addWait(Index index);
    void addAnswer(Index index);
    Stretch stretchTo(Index index) const;

    std::vector<Note> mNotes = std::vector<Note>(CAPACITY);
    Index mSize = 0;
    Index mStoreEnded = NEVER;
    std::map<Key, KeyFacts> mKeys;
    std::map<std::pair<int64_t, int64_t>, std::deque<Index>> mErases;
    std::unordered_map<uint32_t, Thread> mThreads;
    std::unordered_map<uint64_t, Usual> mUsual;
    std::map<std::pair<Key, uint32_t>, TimeOut> mTimeOuts;
    std::vector<Index> mUnassigned;
};

}  // namespace pslog

#endif  // PSLOG_RECENT_H
