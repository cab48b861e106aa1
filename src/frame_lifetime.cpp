// How values go: the trimming of a tag's checkpoints as new ones arrive, and the explicit erase of a pipe's old frames,
// which saves what survives into frame 0 and wakes the readers of what it erases.
// The entry takes ParamSet::mMutex; everything below it runs with mMutex held.

#include <algorithm>

#include "src/hold.h"
#include "src/store.h"

namespace zarn {

namespace {

constexpr uint32_t kLowestErasableFrame = 8;
constexpr uint32_t kMetadataRetainNum = 6;

// What an erase request means for one tag: everything at or below the limit goes.
struct EraseLimit {
    bool skipped;
    bool counts;  // whether the closing line may name it
    uint32_t frameID;
};

EraseLimit eraseLimitOf(uint32_t tag, const tag_info_t* info, uint32_t frameID) {
    if (frameID == THE_LAST) return {false, true, THE_LAST};
    if (tag == METADATA_TAG) return {false, true, frameID - kMetadataRetainNum};
    if (info != nullptr && info->mTagType == kTagTypeQueue) return {true, false, 0};
    const uint32_t limit = frameID - static_cast<uint32_t>(info != nullptr ? info->mRetainNum : 0);
    return {static_cast<int32_t>(limit) < 1, true, limit};
}

void wakeWaiters(FrameStatus& status) {
    if (status.mState == kWaitedFor) status.mCond.notify_all();
}

// Takes the tag out of every frame at or below the limit, and out of the pipe what holds no tag after that.
void eraseFromFrames(pipe_elem& elem, uint32_t tag, uint32_t limit) {
    const auto end = elem.mFrames.upper_bound(limit);
    if (elem.mFrames.begin() == end) return;
    for (auto it = elem.mFrames.begin(); it != end;) {
        ParamFrame* frame = it->second.get();
        if (frame != nullptr) {
            wakeWaiters(frame->mStatus[tag]);
            frame->mTags.erase(tag);
        }
        const bool isEmpty = frame == nullptr || frame->mTags.empty();
        it = isEmpty ? elem.mFrames.erase(it) : std::next(it);
    }
    elem.mErasePoint[tag] = static_cast<int32_t>(limit) >= 1 ? limit : 0;
}

// Makes frame 0 wait for deliveries again.
void resetF0(ParamFrame& f0) {
    for (auto& [tag, status] : f0.mStatus) {
        wakeWaiters(status);
        status.mState = 0;
    }
}

}  // namespace

void ParamSet::autoErase(const Request& request, std::vector<uint32_t>& queue) {
    const auto& [camID, pipe, frameID, tag, modifiable, found, elem] = request;
    const tag_info_t& info = found != nullptr ? *found : tagInfoOrNew(tag);
    const auto size = static_cast<uint32_t>(queue.size());
    uint64_t limit = kCheckpointBound;
    if (info.mTagType == kTagTypeQueue) {
        const uint32_t head = queue.empty() ? 0 : queue.front();
        PS_TRACE("pipe %d tag %d, head %u, queueSize %u", pipe, tag, head, size);
        limit = static_cast<uint64_t>(int64_t{info.mRetainNum});
    } else {
        if (size < kCheckpointBound) return;
        PS_TRACE("cam %d pipe %d tag %d, erased %u, cur sof %d", camID, pipe, tag, queue.front(), frameID);
    }

    // One entry less than the limit stays, to make room for the one that is about to be added.
    while (!queue.empty() && limit <= queue.size()) {
        const uint32_t head = queue.front();
        const auto it = elem->mFrames.find(head);
        if (it != elem->mFrames.end() && it->second != nullptr) {
            it->second->mTags.erase(tag);
            // The frame that is being written stays, though it may hold nothing yet.
            if (it->second->mTags.empty() && head != frameID) elem->mFrames.erase(it);
        }
        elem->mErasePoint[tag] = head;
        queue.erase(queue.begin());
    }
}

uint32_t ParamSet::_erase(uint32_t camID, int pipe, uint32_t frameID) {
    // Only for its two lines, which frame the erase in the log.
    const ParamFrame scratch(camID, frameID, this, &gTagInfo);
    if (frameID < kLowestErasableFrame) return PS_OK;

    if (loadSwitch(ps_log_erase) != 0) storeSwitch(ps_log, 1);
    PS_TRACE("E cam[%d] pipe[%d] frame[%d] and oldest will be erased", camID, pipe, frameID);
    pipe_elem& elem = pipeElem(camID, pipe);
    if (frameID == THE_LAST && !elem.mFrames.empty()) {
        PS_LOG(4, "erase all : cam %u pipe %d total %u", camID, pipe, static_cast<uint32_t>(elem.mFrames.size()));
        resetF0(*elem.mF0);
    }

    uint32_t result = PS_OK;
    uint32_t lastErased = frameID;
    for (const auto& [tag, checkpoints] : elem.mCheckPoint) {
        const tag_info_t* info = findTagInfo(gTagInfo, tag);
        const EraseLimit limit = eraseLimitOf(tag, info, frameID);
        if (limit.counts) lastErased = limit.frameID;
        if (limit.skipped) continue;
        if (frameID == THE_LAST && tag == METADATA_TAG) elem.mErasePoint[tag] = 0;
        if (checkpoints != nullptr && !checkpoints->empty()) {
            const Request request{camID, pipe, 0, tag, 0, info, &elem};
            _erase(request, *checkpoints, limit.frameID, result);
        }
        eraseFromFrames(elem, tag, limit.frameID);
    }
    PS_TRACE("X:ret:%d, cam[%d] pipe[%d], and finaly frame[%d]save to frame[0]", result, camID, pipe, lastErased);
    storeSwitch(ps_log, 0);
    return result;
}

// One tag's part: drops its checkpoints at or below the limit, the newest of them saved to frame 0. The result is that
// of the saving, if there is any.
void ParamSet::_erase(const Request& request, std::vector<uint32_t>& checkpoints, uint32_t limit, uint32_t& result) {
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
uint32_t ParamSet::saveToF0(const Request& request, uint32_t frameID) {
    Request read = request;
    read.frameID = frameID;
    const Buffer& value = getParamInternal(read);
    return _setParam(request.camID, request.pipe, 0, request.tag, value.get());
}

// ---- entry

uint32_t ParamSet::erase(uint32_t camID, int pipe, uint32_t frameID) {
    const Hold store;
    if (!store) return PS_NO_DATA;
    if (camID >= MAX_CAM_NUM || !isPipe(pipe)) {
        PS_LOG(1, "cam %d pipe %d out of limit, sof %u erase failed", camID, pipe, frameID);
        return PS_OUT_OF_LIMIT;
    }
    const std::lock_guard<std::mutex> lock(store->mMutex);
    return store->_erase(camID, pipe, frameID);
}

}  // namespace zarn

uint32_t erasePs(uint32_t cam, int32_t pipe, uint32_t frame) {
    return zarn::ParamSet::erase(cam, pipe, frame);
}
