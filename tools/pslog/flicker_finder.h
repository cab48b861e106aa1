// Finds the flickers of a log.
//
// A synchronous get always wants its frame's own value. A plain get may want an earlier frame's value: the tag is set
// only now and then, or the module works on the frame before. So a plain get is compared with what its reader usually
// gets: see isOrdinary.

#ifndef PSLOG_FLICKER_FINDER_H
#define PSLOG_FLICKER_FINDER_H

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "cause.h"
#include "flicker.h"
#include "recent.h"

namespace pslog {

class FlickerFinder : public Listener {
public:
    /// A read is judged this many events later.
    static constexpr Index LOOK_AHEAD = Index{1} << 14;

    /// @param most   keeps this many flickers: the worst ones
    /// @param found  called with each flicker
    explicit FlickerFinder(size_t most = 10000, std::function<void(const Flicker&)> found = nullptr)
        : mMost(most), mFound(std::move(found)) {}

    /// Keeps only the flickers of one frame, and those that read its values.
    void keepOnly(int64_t cam, uint32_t frame) { mOnly = {cam, frame}; }

    void take(const Event& event, const Tags& tags) override;
    void finish(const Tags& tags) override;

    /// In time order. Call this, and the functions below, only after the whole log was read.
    const std::vector<Flicker>& flickers() const { return mFlickers; }
    /// Number of flickers by root cause, including those that were not kept.
    const std::array<uint64_t, CAUSE_COUNT>& counts() const { return mCounts; }
    /// The tag that a thread sets most often, used as the thread's name; null if none.
    const Key* mostSetBy(uint32_t thread) const { return mRecent.mostSetBy(thread); }
    /// Whether the log has the lines from which causes can be told.
    bool hasCauses() const { return mHasAnswers; }

private:
    /// A synchronous get that has begun.
    struct Open {
        Index asked = NEVER;
        Index timedOut = NEVER;
        Index waited = NEVER;
        int64_t needed = UNKNOWN;
    };
    /// A read that may be a flicker. The events after it decide that, and tell why.
    struct Candidate {
        Read read;
        Index answered = NEVER;  ///< the answer, or the last time-out
        uint32_t frame = 0;      ///< the frame that was asked for
        uint32_t answeredBy = 0;
        bool isPlain = false;
        int timeOuts = 0;
        int64_t waitMs = 0;
    };
    /// How many frames back the values of a reader's plain gets of a tag were, and how often the requested frame's own
    /// value came afterwards.
    struct Usual {
        std::array<uint32_t, 16> back{};
        uint32_t gets = 0;
        uint32_t own = 0;
        uint32_t late = 0;
        uint32_t median() const;
    };
    using ReadKey = std::tuple<Key, uint32_t, uint32_t>;  ///< frame, thread
    using ReaderKey = std::pair<Key, uint32_t>;           ///< thread

    void takeWait(Index index);
    void takeAnswer(Index index, const Tags& tags);
    void takeLate(const Event& event, const Tags& tags);
    Open takeOpen(const Event& event);
    Candidate candidateOf(Index answered, const Open& open) const;
    Candidate* findCandidate(const Event& event);
    bool isOrdinary(Candidate& candidate);
    void decideUntil(Index limit, const Tags& tags);
    void decide(Candidate& candidate, const Tags& tags);
    void keep(Flicker flicker);

    size_t mMost;
    std::optional<std::pair<int64_t, uint32_t>> mOnly;
    std::function<void(const Flicker&)> mFound;
    Recent mRecent;
    std::map<ReadKey, std::vector<Open>> mOpen;
    std::deque<Candidate> mCandidates;
    std::map<ReaderKey, Usual> mUsual;
    std::vector<Flicker> mFlickers;
    std::array<uint64_t, CAUSE_COUNT> mCounts{};
    bool mHasAnswers = false;
};

}  // namespace pslog

#endif  // PSLOG_FLICKER_FINDER_H
