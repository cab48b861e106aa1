// What the subsystems share: the request that travels down from an entry point, the look-ups that insert nothing, and
// the trace switch.

#ifndef PARAMSET_STORE_H
#define PARAMSET_STORE_H

#include <algorithm>
#include <cinttypes>

#include "include/paramset.h"
#include "platform/log.h"
#include "src/tag_table.h"

// Text of the line that ends every get and set, after its first word.
#define PS_COPY_TEXT "camID: %d, pipe: %d, frameID: %d, tag: %d,intrData:%p,extrData:%p,tagSize:%d"

namespace zarn {

// Checkpoints that a tag not of type 2 may have.
constexpr uint64_t kCheckpointBound = 300;

constexpr int32_t kTagTypeStatic = 1;  // frame 0 only
constexpr int32_t kTagTypeQueue = 2;   // history trimmed to the retain number

constexpr int32_t kDelivered = 1;  // FrameStatus::mState
constexpr int32_t kWaitedFor = 2;

inline const std::shared_ptr<void> kNoBuffer;

using Values = std::map<uint32_t, std::shared_ptr<void>>;  // ParamFrame::mTags

// One access to a value, with what it looks up once. Lives for a stretch under ParamSet::mMutex.
struct ParamSet::Request {
    using Frames = std::map<uint32_t, std::shared_ptr<ParamFrame>>;

    uint32_t camID;
    int pipe;
    uint32_t frameID;
    uint32_t tag;
    int modifiable;                   // nonzero: a write
    const RegisteredTag* registered;  // null if the tag is not registered
    pipe_elem* elem = nullptr;
    uint32_t* erasePoint = nullptr;    // the tag's, in elem
    Frames::iterator framePlace = {};  // of the frame in elem; of the next newer one if it has none
    Values::iterator valuePlace = {};  // of the value in the frame; of the next tag's if it has none

    // Find-or-insert of the tag's erase point.
    uint32_t& lookUpErasePoint() {
        if (erasePoint == nullptr) erasePoint = &elem->mErasePoint.try_emplace(tag, 0).first->second;
        return *erasePoint;
    }

    // Null if the pipe does not have the frame.
    ParamFrame* lookUpFrame() {
        Frames& frames = elem->mFrames;
        // Most requests are for the newest frame, or for one that is still to come.
        framePlace = frames.end();
        if (frames.empty() || frames.rbegin()->first < frameID) return nullptr;
        framePlace = frames.lower_bound(frameID);
        return framePlace->first == frameID ? framePlace->second.get() : nullptr;
    }

    // Whether the frame has the tag.
    bool lookUpValue(ParamFrame& frame) {
        valuePlace = frame.mTags.lower_bound(tag);
        return valuePlace != frame.mTags.end() && valuePlace->first == tag;
    }
};

// Plain integers that threads share without a lock: the log switches, and FrameStatus::mState while a get is on its way
// into its wait.

inline int loadRelaxed(const int& value) {
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

inline void storeRelaxed(int& target, int value) {
    __atomic_store_n(&target, value, __ATOMIC_RELAXED);
}

// A record whose waiters were notified under ParamSet::mMutex. They are notified once more when it is released, since
// the first time misses a get that is still on its way into its wait.
struct Woken {
    std::shared_ptr<ParamFrame> frame;  // keeps the record alive; null for frame 0's, which lives as long as its store
    FrameStatus* status = nullptr;      // null: nobody waited
    int32_t state = 0;                  // that the waiters were woken to; in another one there are others

    void wakeAgain() const {
        if (status != nullptr && loadRelaxed(status->mState) == state) status->mCond.notify_all();
    }
};

// What a synchronous set has found: where to copy to, and whom it woke.
struct ParamSet::Delivery {
    const Buffer& value;
    Woken woken;
};

inline bool isTracedTag(uint32_t tag) {
    return static_cast<uint32_t>(loadRelaxed(ps_log_tag)) == tag;
}

inline int traceLevel() {
    return loadRelaxed(ps_log) != 0 ? 4 : 5;
}

// A tracing line: level 4 while ps_log is set, else 5.
#define PS_TRACE(...)                                                   \
    do {                                                                \
        if (zarn::isLogged(4)) PS_LOG(zarn::traceLevel(), __VA_ARGS__); \
    } while (false)

inline bool isPipe(int pipe) {
    return static_cast<uint32_t>(pipe) < MAX_PIPE_NUM;
}

inline ParamFrame* findFrame(const pipe_elem& elem, uint32_t frameID) {
    const auto it = elem.mFrames.find(frameID);
    return it == elem.mFrames.end() ? nullptr : it->second.get();
}

inline const std::shared_ptr<void>& findBuffer(const ParamFrame& frame, uint32_t tag) {
    const auto it = frame.mTags.find(tag);
    return it == frame.mTags.end() ? kNoBuffer : it->second;
}

// Where the ids after frameID begin in an ascending list. Most look-ups are for a frame that no checkpoint comes after.
inline std::vector<uint32_t>::const_iterator firstAfter(const std::vector<uint32_t>& ids, uint32_t frameID) {
    if (ids.empty() || ids.back() <= frameID) return ids.end();
    return std::upper_bound(ids.begin(), ids.end(), frameID);
}

// Greatest frame id of a pipe; frame 0 stands in for a pipe without frames.
inline uint32_t newestFrameID(const pipe_elem& elem) {
    return elem.mFrames.empty() ? 0 : elem.mFrames.rbegin()->first;
}

// ParamFrame::createTag for a tag that was looked up already: in the registry, and in the frame, where `place` is its
// own or the next tag's. The buffer stays where the frame holds it.
const std::shared_ptr<void>& createTag(ParamFrame& frame, Values::iterator place, uint32_t tag,
                                       const RegisteredTag* registered, void* src);

}  // namespace zarn

#endif  // PARAMSET_STORE_H
