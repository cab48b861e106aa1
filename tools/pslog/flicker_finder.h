// Finds the flickers of a log.
//
// A read that waits says itself that it wants its frame's own value. A plain get does not: an earlier frame's may be
// what it is after, as of a tag that is set now and then, or of a module that works on the frame before. So a plain get
// is judged by what its reader usually gets: see isPlainFlicker.

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
    /// So many events later it is decided whether a read flickered.
    static constexpr Index LOOK_AHEAD = Index{1} << 14;

    /// @param most   how many are kept: the worst ones
    /// @param found  is given each
    explicit FlickerFinder(size_t most = 10000, std::function<void(const Flicker&)> found = nullptr)
        : mMost(most), mFound(std::move(found)) {}

    /// Keeps those of one frame alone, and those that got its values.
    void keepOnly(int64_t cam, uint32_t frame) { mOnly = {cam, frame}; }

    void take(const Event& event, const Tags& tags) override;
    void finish(const Tags& tags) override;

    /// In time order. To be asked for when the log was read to its end, as what follows.
    const std::vector<Flicker>& flickers() const { return mFlickers; }
    /// Of all flickers by their roots, also of those that were not kept.
    const std::array<uint64_t, CAUSE_COUNT>& counts() const { return mCounts; }
    /// The tag that a thread sets most often, to name it by; null if none.
    const Key* mostSetBy(uint32_t thread) const { return mRecent.mostSetBy(thread); }
    /// Whether the log has the lines that tell causes.
    bool hasCauses() const { return mHasAnswers; }

private:
    /// A synchronous get that has begun.
    struct Open {
        Index asked = NEVER;
        Index timedOut = NEVER;
        Index waited = NEVER;
        int64_t needed = UNKNOWN;
    };
    /// A read that may be a flicker. What comes after it decides, and tells why.
    struct Candidate {
        Read read;
        Index answered = NEVER;  ///< or when it last timed out
        uint32_t frame = 0;      ///< that was asked for
        uint32_t answeredBy = 0;
        bool isPlain = false;
        int timeOuts = 0;
        int64_t waitMs = 0;
    };
    /// How many frames back a reader's plain gets of a tag are answered, and how often its own value came afterwards.
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
