// How values go: the trimming of a tag's checkpoints as new ones arrive, and the explicit erase of a pipe's old frames,
// which saves what survives into frame 0 and wakes the readers of what it erases.
// The entry takes ParamSet::mMutex; everything below it runs with mMutex held. Who was woken under it is woken again
// when the entry has released it.

#include <algorithm>
#include <utility>

#include "src/hold.h"
#include "src/store.h"

namespace zarn {

struct ParamSet::Erasure {
    uint32_t result = PS_OK;
    std::vector<Woken> woken;
};

namespace {

constexpr uint32_t kLowestErasableFrame = 8;
constexpr uint32_t kMetadataRetainNum = 6;

// What an erase request means for one tag: everything at or below the limit goes.
struct EraseLimit {
    bool skipped;
    bool counts;  // whether the closing line may name it
    uint32_t frameID;
};

EraseLimit eraseLimitOf(uint32_t tag, const RegisteredTag* registered, uint32_t frameID) {
    if (frameID == THE_LAST) return {false, true, THE_LAST};
    if (tag == METADATA_TAG) return {false, true, frameID - kMetadataRetainNum};
    if (registered != nullptr && registered->info.mTagType == kTagTypeQueue) return {true, false, 0};
    const uint32_t limit = frameID - static_cast<uint32_t>(registered != nullptr ? registered->info.mRetainNum : 0);
    return {static_cast<int32_t>(limit) < 1, true, limit};
}

// Whether anybody waited.
bool wakeWaiters(FrameStatus& status) {
    if (status.mState != kWaitedFor) return false;
    status.mCond.notify_all();
    return true;
}

// Looks up tags in ascending order: the entry after the one that was found last is usually the next.
template <class Map>
class AscendingLookUp {
public:
    explicit AscendingLookUp(Map& map) : mMap(map), mNext(map.begin()) {}

    // Null if the map does not have the tag.
    auto* find(uint32_t tag) {
        if (mNext == mMap.end() || mNext->first != tag) mNext = mMap.find(tag);
        return mNext != mMap.end() ? &(mNext++)->second : nullptr;
    }

private:
    Map& mMap;
    decltype(std::declval<Map&>().begin()) mNext;
};

// One tag's pass over the frames of an erase.
struct Pass {
    uint32_t tag;
    uint32_t limit;
};

// Each pass leaves a record of its tag in every frame that it reaches.
void recordPasses(ParamFrame& frame, uint32_t frameID, const std::vector<Pass>& passes) {
    for (const Pass& pass : passes) {
        if (frameID <= pass.limit) frame.mStatus.try_emplace(pass.tag);
    }
}

void recordPasses(pipe_elem& elem, const std::vector<Pass>& passes) {
    uint32_t limit = 0;
    for (const Pass& pass : passes) limit = std::max(limit, pass.limit);
    for (auto it = elem.mFrames.begin(); it != elem.mFrames.end() && it->first <= limit; ++it) {
        recordPasses(*it->second, it->first, passes);
    }
}

// The passes come in ascending order of their tags, so that the first tag left in a frame is usually the one.
void eraseTag(ParamFrame& frame, uint32_t tag) {
    auto own = frame.mTags.begin();
    if (own == frame.mTags.end()) return;
    if (own->first != tag) own = frame.mTags.find(tag);
    if (own != frame.mTags.end()) frame.mTags.erase(own);
}

// Takes the tag out of every frame at or below the limit, and out of the pipe what holds no tag after that. The records
// that the passes leave are made for those frames alone that live on, since most die in the same call.
bool eraseFromFrames(pipe_elem& elem, const Pass& pass, std::vector<Pass>& passes, std::vector<Woken>& woken) {
    auto it = elem.mFrames.begin();
    if (it == elem.mFrames.end() || it->first > pass.limit) return false;
    passes.push_back(pass);
    while (it != elem.mFrames.end() && it->first <= pass.limit) {
        ParamFrame* frame = it->second.get();
        FrameStatus* waitedFor = nullptr;
        if (frame != nullptr) {
            const auto status = frame->mStatus.find(pass.tag);
            if (status != frame->mStatus.end() && wakeWaiters(status->second)) waitedFor = &status->second;
            eraseTag(*frame, pass.tag);
        }
        const bool isEmpty = frame == nullptr || frame->mTags.empty();
        if (isEmpty && it->second.use_count() > 1) {
            recordPasses(*frame, it->first, passes);
            // Nobody begins to wait in a frame that has left its pipe.
            if (waitedFor != nullptr) woken.push_back({it->second, waitedFor, kWaitedFor});
        }
        it = isEmpty ? elem.mFrames.erase(it) : std::next(it);
    }
    return true;
}

// Makes frame 0 wait for deliveries again.
void resetF0(ParamFrame& f0, std::vector<Woken>& woken) {
    for (auto& [tag, status] : f0.mStatus) {
        if (wakeWaiters(status)) woken.push_back({nullptr, &status, 0});
        storeRelaxed(status.mState, 0);
    }
}

}  // namespace

// Not inlined, so that reads do without its stack frame.
[[gnu::noinline]] void ParamSet::autoErase(const Request& request, std::vector<uint32_t>& queue) {
    const uint32_t tag = request.tag;
    const tag_info_t& info = request.registered != nullptr ? request.registered->info : TagTable::findOrInsert(tag);
    const auto size = static_cast<uint32_t>(queue.size());
    uint64_t limit = kCheckpointBound;
    if (info.mTagType == kTagTypeQueue) {
        const uint32_t head = queue.empty() ? 0 : queue.front();
        PS_TRACE("pipe %d tag %d, head %u, queueSize %u", request.pipe, tag, head, size);
        limit = static_cast<uint64_t>(int64_t{info.mRetainNum});
    } else {
        if (size < kCheckpointBound) return;
        PS_TRACE("cam %d pipe %d tag %d, erased %u, cur sof %d", request.camID, request.pipe, tag, queue.front(), request.frameID);
    }

    // One entry less than the limit stays, to make room for the one that is about to be added.
    std::map<uint32_t, std::shared_ptr<ParamFrame>>& frames = request.elem->mFrames;
    while (!queue.empty() && limit <= queue.size()) {
        const uint32_t head = queue.front();
        const auto it = frames.find(head);
        if (it != frames.end() && it->second != nullptr) {
            it->second->mTags.erase(tag);
            // The frame that is being written stays, though it may hold nothing yet.
            if (it->second->mTags.empty() && head != request.frameID) frames.erase(it);
        }
        *request.erasePoint = head;
        queue.erase(queue.begin());
    }
}

ParamSet::Erasure ParamSet::_erase(uint32_t camID, int pipe, uint32_t frameID) {
    // Only for its two lines, which frame the erase in the log.
    const ParamFrame scratch(camID, frameID, this, &gTagInfo);
    Erasure erasure;
    if (frameID < kLowestErasableFrame) return erasure;

    if (loadRelaxed(ps_log_erase) != 0) storeRelaxed(ps_log, 1);
    PS_TRACE("E cam[%d] pipe[%d] frame[%d] and oldest will be erased", camID, pipe, frameID);
    pipe_elem& elem = pipeElem(camID, pipe);
    if (frameID == THE_LAST && !elem.mFrames.empty()) {
        PS_LOG(4, "erase all : cam %u pipe %d total %u", camID, pipe, static_cast<uint32_t>(elem.mFrames.size()));
        resetF0(*elem.mF0, erasure.woken);
    }

    uint32_t lastErased = frameID;
    std::vector<Pass> passes;
    AscendingLookUp erasePoints(elem.mErasePoint);
    for (const auto& [tag, checkpoints] : elem.mCheckPoint) {
        const RegisteredTag* registered = TagTable::find(tag);
        const EraseLimit limit = eraseLimitOf(tag, registered, frameID);
        if (limit.counts) lastErased = limit.frameID;
        if (limit.skipped) continue;
        Request request{camID, pipe, 0, tag, 0, registered, &elem, erasePoints.find(tag)};
        if (frameID == THE_LAST && tag == METADATA_TAG) request.lookUpErasePoint() = 0;
        if (checkpoints != nullptr && !checkpoints->empty())
            _erase(request, *checkpoints, limit.frameID, erasure.result);
        if (eraseFromFrames(elem, {tag, limit.frameID}, passes, erasure.woken)) {
            request.lookUpErasePoint() = static_cast<int32_t>(limit.frameID) >= 1 ? limit.frameID : 0;
        }
    }
    recordPasses(elem, passes);
    PS_TRACE("X:ret:%d, cam[%d] pipe[%d], and finaly frame[%d]save to frame[0]", erasure.result, camID, pipe, lastErased);
    storeRelaxed(ps_log, 0);
    return erasure;
}

// One tag's part: drops its checkpoints at or below the limit, the newest of them saved to frame 0. The result is that
// of the saving, if there is any.
void ParamSet::_erase(Request& request, std::vector<uint32_t>& checkpoints, uint32_t limit, uint32_t& result) {
    const uint32_t tag = request.tag;
    PS_TRACE("tag:%d checkPoint size:%d", tag, static_cast<int>(checkpoints.size()));
    const auto kept = std::upper_bound(checkpoints.begin(), checkpoints.end(), limit);
    if (kept == checkpoints.begin()) return;
    const uint32_t newest = *(kept - 1);
    if (tag != METADATA_TAG) {
        if (kept != checkpoints.end()) PS_LOG(5, "find checkPoint ID:%d", newest);
        result = saveToF0(request, newest);
        if (result != PS_OK) PS_LOG(1, "fail to save data to F0");
    }
    checkpoints.erase(checkpoints.begin(), kept);
}

// Copies what a read of the frame would see into frame 0.
uint32_t ParamSet::saveToF0(Request& request, uint32_t frameID) {
    request.frameID = frameID;
    request.modifiable = 0;
    const Buffer& value = getParamInternal(request);
    request.frameID = 0;
    request.modifiable = 1;
    return _setParam(request, value.get());
}

// ---- entry

uint32_t ParamSet::erase(uint32_t camID, int pipe, uint32_t frameID) {
    const Hold store;
    if (!store) return PS_NO_DATA;
    refreshLogLevel();
    if (camID >= MAX_CAM_NUM || !isPipe(pipe)) {
        PS_LOG(1, "cam %d pipe %d out of limit, sof %u erase failed", camID, pipe, frameID);
        return PS_OUT_OF_LIMIT;
    }
    std::unique_lock<std::mutex> lock(store->mMutex);
    const Erasure erasure = store->_erase(camID, pipe, frameID);
    lock.unlock();
    for (const Woken& woken : erasure.woken) woken.wakeAgain();
    return erasure.result;
}

}  // namespace zarn

uint32_t erasePs(uint32_t cam, int32_t pipe, uint32_t frame) {
    return zarn::ParamSet::erase(cam, pipe, frame);
}
