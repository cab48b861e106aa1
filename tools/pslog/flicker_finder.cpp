// See flicker_finder.h.

#include "flicker_finder.h"

#include <algorithm>
#include <cstdlib>

#include "paramset.h"

namespace pslog {

namespace {

constexpr int64_t STATIC_TYPE = 1;

/// Bounds the number of open requests: a damaged log may never close them.
constexpr size_t MOST_OPEN = 4096;

/// How many candidates back to look for the same reader's last wait for the same value.
constexpr size_t NEAR = 64;

bool isStatic(const Event& event, const Tags& tags) {
    const auto info = tags.find(event.key.tag);
    return info != tags.end() && info->second.type == STATIC_TYPE;
}

bool isOwn(const Event& event) {
    return event.type == EventType::GET && (event.frame == 0 || event.answer == Answer::ITSELF);
}

/// Reading nothing is worst, then a value of an unknown frame, then a value by its distance in frames.
int64_t rankOf(const Flicker& flicker) {
    if (flicker.failed) return INT64_MAX;
    if (flicker.answer == Answer::NOT_KNOWN) return -1;
    const std::optional<int64_t> off = flicker.framesOff();
    return off ? std::abs(*off) : INT64_MAX - 1;
}

}  // namespace

bool isWorse(const Flicker& a, const Flicker& b) {
    if (rankOf(a) != rankOf(b)) return rankOf(a) > rankOf(b);
    if (a.waitMs != b.waitMs) return a.waitMs > b.waitMs;
    return a.line < b.line;
}

uint32_t FlickerFinder::Usual::median() const {
    uint32_t seen = 0;
    for (uint32_t frames = 0; frames < back.size(); ++frames) {
        if (2 * (seen += back[frames]) >= gets) return frames;
    }
    return 0;
}

void FlickerFinder::take(const Event& event, const Tags& tags) {
    if (event.type == EventType::STORE_MADE) {
        decideUntil(NEVER, tags);
        mRecent.forget();
    }
    const Index index = mRecent.add(event);
    switch (event.type) {
        case EventType::ASK: {
            if (mOpen.size() > MOST_OPEN) mOpen.clear();
            Open open;
            open.asked = index;
            mOpen[{event.key, event.frame, event.thread}].push_back(open);
            break;
        }
        case EventType::TIMEOUT:
        case EventType::WAIT: takeWait(index); break;
        case EventType::GET: takeAnswer(index, tags); break;
        case EventType::FAILURE:
            if (event.access == Access::READ && event.key.tag != UNKNOWN) takeAnswer(index, tags);
            break;
        case EventType::LATE: takeLate(event, tags); break;
        default: break;
    }
    mHasAnswers = mHasAnswers || event.type == EventType::GET || event.type == EventType::SET;
    if (index % 64 == 0 && index > LOOK_AHEAD) decideUntil(index - LOOK_AHEAD, tags);
}

void FlickerFinder::finish(const Tags& tags) {
    for (const auto& [of, opens] : mOpen) {
        for (const Open& open : opens) {
            if (mRecent.at(open.timedOut) != nullptr) mCandidates.push_back(candidateOf(open.timedOut, open));
        }
    }
    mOpen.clear();
    decideUntil(NEVER, tags);
    std::sort(mFlickers.begin(), mFlickers.end(), isWorse);
    if (mFlickers.size() > mMost) mFlickers.resize(mMost);
    std::sort(mFlickers.begin(), mFlickers.end(), [](const Flicker& a, const Flicker& b) { return a.line < b.line; });
}

/// A log without level 5 has only the lines of the wait.
void FlickerFinder::takeWait(Index index) {
    const Event& event = *mRecent.at(index);
    const bool isWait = event.type == EventType::WAIT;
    const auto opens = mOpen.find({event.key, event.frame, event.thread});
    if (opens != mOpen.end()) {
        for (Open& open : opens->second) {
            Index& ended = isWait ? open.waited : open.timedOut;
            if (ended != NEVER) continue;
            ended = index;
            return;
        }
    }
    if (!isWait) return mCandidates.push_back(candidateOf(index, {NEVER, index, NEVER, UNKNOWN}));
    Candidate* candidate = event.timedOut ? findCandidate(event) : nullptr;
    if (candidate != nullptr) candidate->waitMs = std::max<int64_t>(candidate->waitMs, 0) + event.count;
}

/// The get that this event answers: the first one that has waited, or else the one that has just begun.
FlickerFinder::Open FlickerFinder::takeOpen(const Event& event) {
    const auto found = mOpen.find({event.key, event.frame, event.thread});
    if (found == mOpen.end()) return {};
    std::vector<Open>& opens = found->second;
    auto open = std::find_if(opens.begin(), opens.end(), [](const Open& o) { return o.waited != NEVER; });
    if (open == opens.end()) --open;
    const Open taken = *open;
    opens.erase(open);
    if (opens.empty()) mOpen.erase(found);
    return taken;
}

void FlickerFinder::takeAnswer(Index index, const Tags& tags) {
    const Event& event = *mRecent.at(index);
    const bool isRead = event.type == EventType::GET;
    const Open open = event.synchronous ? takeOpen(event) : Open{};
    if (!event.synchronous && isRead) {
        if (event.frame == 0 || event.newest || event.answer == Answer::NOT_KNOWN || isStatic(event, tags)) return;
        Usual& usual = mUsual[{event.key, event.thread}];
        const uint32_t back = event.answer == Answer::ITSELF ? 0 : event.frame - event.other;
        ++usual.back[std::min<size_t>(back, usual.back.size() - 1)];
        ++usual.gets;
        if (event.answer == Answer::ITSELF) ++usual.own;
    }
    Candidate* earlier = event.synchronous ? findCandidate(event) : nullptr;
    if (isOwn(event) && open.timedOut == NEVER) {
        if (earlier != nullptr) earlier->read.answer = Answer::ITSELF;
        return;
    }
    Candidate candidate = candidateOf(index, open);
    if (earlier == nullptr) return mCandidates.push_back(candidate);
    candidate.read.begin = std::min(candidate.read.begin, earlier->read.begin);
    candidate.timeOuts += earlier->timeOuts;
    candidate.waitMs += std::max<int64_t>(earlier->waitMs, 0);
    *earlier = candidate;
}

FlickerFinder::Candidate FlickerFinder::candidateOf(Index answered, const Open& open) const {
    const Event& event = *mRecent.at(answered);
    Candidate candidate;
    Read& read = candidate.read;
    read.key = event.key;
    read.frame = event.frame;
    read.begin = open.asked != NEVER || open.timedOut != NEVER ? open.asked : answered;
    read.waited = open.waited != NEVER || open.timedOut != NEVER;
    read.timedOut = open.timedOut != NEVER;
    read.end = read.timedOut ? open.timedOut : answered;
    read.failed = event.type == EventType::FAILURE;
    read.failure = event.failure;
    read.erased = event.erased || open.needed != UNKNOWN;
    read.needed = open.needed != UNKNOWN ? open.needed : event.erased && event.count > 0 ? event.count : UNKNOWN;
    read.answer = event.type == EventType::GET && event.frame == 0 ? Answer::ITSELF : event.answer;
    read.found = event.other;
    candidate.answered = answered;
    candidate.frame = event.frame;
    candidate.isPlain = event.type != EventType::TIMEOUT && !event.synchronous;
    const KeyFacts* facts = read.answer == Answer::FRAME_0 ? mRecent.find(read.key) : nullptr;
    candidate.answeredBy = facts != nullptr ? facts->saved : read.answer == Answer::EARLIER ? event.other : 0;
    candidate.timeOuts = read.timedOut ? 1 : 0;
    const Event* waited = mRecent.at(open.waited);
    candidate.waitMs = waited != nullptr ? waited->count : read.timedOut ? UNKNOWN : 0;
    read.waitMs = std::max<int64_t>(candidate.waitMs, 0);
    return candidate;
}

/// An earlier candidate: a recent read of the same value by the same thread.
FlickerFinder::Candidate* FlickerFinder::findCandidate(const Event& event) {
    size_t looked = 0;
    for (auto candidate = mCandidates.rbegin(); candidate != mCandidates.rend() && looked < NEAR;
         ++candidate, ++looked) {
        const Event* answered = mRecent.at(candidate->answered);
        const bool isSame = candidate->frame == event.frame && candidate->read.key == event.key && !candidate->isPlain;
        if (isSame && answered != nullptr && answered->thread == event.thread) return &*candidate;
    }
    return nullptr;
}

/// A call at or below the erase point. It is a get if one has begun. A log without level 5 only has the tag's name.
void FlickerFinder::takeLate(const Event& event, const Tags& tags) {
    const auto opens = mOpen.find({event.key, event.frame, event.thread});
    if (opens != mOpen.end()) opens->second.back().needed = event.count;
    if (mHasAnswers || event.key.tag != UNKNOWN) return;
    const auto isNamed = [&event](const auto& tag) { return tag.second.name == event.text; };
    const auto tag = std::find_if(tags.begin(), tags.end(), isNamed);
    Flicker flicker;
    if (tag != tags.end()) flicker.key.tag = tag->first;
    flicker.frame = event.frame;
    flicker.timeUs = event.timeUs;
    flicker.line = event.line;
    flicker.thread = event.thread;
    flicker.answer = Answer::FRAME_0;
    Reason erased;
    erased.cause = Cause::ERASED;
    erased.key = flicker.key;
    erased.frame = event.frame;
    erased.retain = event.count;
    flicker.chain = {erased};
    keep(flicker);
}

/// Whether a plain get got what its reader usually gets.
bool FlickerFinder::isOrdinary(Candidate& candidate) {
    Read& read = candidate.read;
    const bool isGone = read.key.tag == METADATA_TAG && read.answer == Answer::FRAME_0 && read.found != 0;
    if (!candidate.isPlain || read.failed || read.erased || isGone) return false;
    const KeyFacts* facts = mRecent.find(read.key);
    if (facts == nullptr || facts->values.empty()) return true;
    Usual& usual = mUsual[{read.key, mRecent.at(candidate.answered)->thread}];
    const bool isLate = mRecent.valueOf(read.key, read.frame).setAfter(read.end) != NEVER;
    if (isLate) ++usual.late;
    if (!facts->isSetForEachFrame()) return !isLate || usual.own < usual.late;
    const uint32_t back = usual.median();
    if (read.frame <= back) return true;
    read.frame -= back;
    // Frames before the first one in the log may have been set before the log began.
    return read.found >= read.frame || read.frame < facts->values.begin()->first;
}

void FlickerFinder::decideUntil(Index limit, const Tags& tags) {
    while (!mCandidates.empty() && mCandidates.front().answered < limit) {
        if (mRecent.at(mCandidates.front().answered) != nullptr) decide(mCandidates.front(), tags);
        mCandidates.pop_front();
    }
}

void FlickerFinder::decide(Candidate& candidate, const Tags& tags) {
    if (isOrdinary(candidate)) return;
    const Event& answered = *mRecent.at(candidate.answered);
    const Read& read = candidate.read;
    Flicker flicker;
    flicker.key = read.key;
    flicker.frame = candidate.frame;
    flicker.timeUs = answered.timeUs;
    flicker.line = answered.line;
    flicker.thread = mRecent.threadOf(candidate.answered);
    flicker.answer = read.answer;
    flicker.answeredBy = candidate.answeredBy;
    flicker.failed = read.failed;
    flicker.isPlain = candidate.isPlain;
    flicker.timeOuts = candidate.timeOuts;
    flicker.waitMs = candidate.waitMs;
    flicker.chain = reasonsOf(read, mRecent, tags);
    keep(std::move(flicker));
}

void FlickerFinder::keep(Flicker flicker) {
    ++mCounts[static_cast<size_t>(flicker.root().cause)];
    if (mFound) mFound(flicker);
    const bool isOther = mOnly && (flicker.key.cam != mOnly->first ||
                                   (flicker.frame != mOnly->second && flicker.answeredBy != mOnly->second));
    if (isOther) return;
    mFlickers.push_back(std::move(flicker));
    if (mFlickers.size() <= 2 * mMost) return;
    std::nth_element(mFlickers.begin(), mFlickers.begin() + static_cast<std::ptrdiff_t>(mMost), mFlickers.end(),
                     isWorse);
    mFlickers.resize(mMost);
}

}  // namespace pslog
