// The recent past of a log: its newest events, thread by thread, and what became of the values of each tag. It reaches
// far enough back to tell why a read was not served, and does not grow with the log.
//
// Without thread ids, events are put to whoever delivers a tag by their order: a read belongs to the next delivery of
// its camera. That is right as long as a module delivers soon after it has read.

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

/// What became of a tag's value for a frame. Of several sets the first counts.
struct Value {
    Index plain = NEVER;
    Index delivered = NEVER;
    Index gone = NEVER;     ///< erased or trimmed
    bool notified = false;  ///< by the delivery
    uint32_t missed = 0;    ///< waits that timed out after the delivery

    Index firstSet() const { return plain < delivered ? plain : delivered; }
    /// The first of its sets that came after.
    Index setAfter(Index index) const;
};

/// What is known of a tag in a pipe.
struct KeyFacts {
    std::map<uint32_t, Value> values;  ///< by frame
    uint32_t newestSet = 0;
    uint32_t goneUpTo = 0;    ///< the values up to this frame are gone
    uint64_t nextFrames = 0;  ///< sets of the frame after the newest one
    uint64_t gaps = 0;        ///< sets of a later frame than that
    uint32_t thread = 0;      ///< that has set it last
    uint32_t number = 0;      ///< of the key
    bool isUnregistered = false;
    uint32_t saved = 0;  ///< the frame whose value an erase has saved to frame 0; 0 if none

    /// Whether it is set for each frame, by and large.
    bool isSetForEachFrame() const { return nextFrames >= 4 && nextFrames >= 4 * gaps; }
};

/// A part of a thread's time: a wait, or what lies between two of its events.
struct Stretch {
    Index begin;  ///< NEVER if the log does not have it
    Index end;
    bool isWait;
    int64_t us;
    int64_t usualUs;  ///< what others like it take
};

class Recent {
public:
    Index add(const Event& event);
    /// Everything so far belongs to another store, or another stream.
    void forget();

    /// Null if it is too long ago.
    const Event* at(Index index) const;
    /// Of the event; without thread ids whoever delivers the tag of the next delivery. 0 if not known.
    uint32_t threadOf(Index index) const;
    Index size() const { return mSize; }

    const KeyFacts* find(const Key& key) const;
    /// Nothing set and nothing gone if nothing is known of it.
    Value valueOf(const Key& key, uint32_t frame) const;

    /// What the thread of this event did until then, the latest first, back to a time.
    std::vector<Stretch> stretchesBefore(Index index, int64_t sinceUs) const;

    /// The least that this thread's waits for the tag last when they time out, and how many last no longer.
    struct TimeOut {
        int64_t ms = 0;
        uint32_t times = 0;
    };
    TimeOut timeOutOf(const Key& key, uint32_t thread) const;

    /// Erases of the pipe between two events.
    std::vector<Index> erasesBetween(const Key& key, Index begin, Index end) const;

    /// When the store was last destroyed; NEVER if it was not.
    Index storeEnded() const { return mStoreEnded; }

    /// The tag that a thread sets most often; null if none.
    const Key* mostSetBy(uint32_t thread) const;

private:
    static constexpr size_t CAPACITY = size_t{1} << 16;
    static constexpr size_t MOST_FRAMES = 2048;  ///< whose values are known, of each tag
    static constexpr size_t MOST_ERASES = 256;   ///< of each pipe
    static constexpr size_t MOST_THREADS = 4096;
    static constexpr uint32_t UNNAMED = 0x80000000;  ///< such threads are numbered by what they deliver

    struct Note {
        Event event;
        uint32_t thread = 0;
        Index before = NEVER;  ///< of the same thread
    };
    /// How long something takes, to a factor of two.
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
