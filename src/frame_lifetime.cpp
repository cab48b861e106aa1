// The explicit erase of a pipe's old frames. It saves the newest erased value of each tag into frame 0 and wakes the
// gets that wait for what it erases. (Trimming, by which a new value removes old ones, is PipeStore::autoErase.) The
// entry takes ParamSet::mMutex; everything that it calls runs with mMutex held.

#include "src/hold.h"
#include "src/pipes.h"
#include "src/store_lock.h"
#include "src/trace.h"

namespace zarn {

struct ParamSet::Erasure {
    uint32_t result;
    std::vector<Woken> woken;  // to be notified again after mMutex is released
};

namespace {

constexpr uint32_t kLowestErasableFrame = 8;
constexpr uint32_t kMetadataRetainNum = 6;

// What an erase request means for one tag: its values at or below the limit are removed.
struct EraseLimit {
    bool skipped;
    bool counts;       // the log line at the end of the erase shows the last limit that counts
    uint32_t frameID;  // the limit
};

EraseLimit eraseLimitOf(const PipeStore::Tag& tag, uint32_t frameID) {
    if (frameID == THE_LAST) return {false, true, THE_LAST};
    if (tag.id == METADATA_TAG) return {false, true, frameID - kMetadataRetainNum};
    const tag_info_t* info = tag.registered != nullptr ? &tag.registered->info : nullptr;
    if (info != nullptr && info->mTagType == kTagTypeQueue) return {true, false, 0};
    const uint32_t limit = frameID - static_cast<uint32_t>(info != nullptr ? info->mRetainNum : 0);
    return {static_cast<int32_t>(limit) < 1, true, limit};
}

}  // namespace

ParamSet::Erasure ParamSet::_erase(uint32_t camID, int pipe, uint32_t frameID) {
    // Only for the lines that a frame logs when it is built and destroyed: they enclose the erase in the log.
    const ParamFrame scratch(camID, frameID, this, &gTagInfo);
    if (frameID < kLowestErasableFrame) return {PS_OK, {}};

    if (loadRelaxed(ps_log_erase) != 0) storeRelaxed(ps_log, 1);
    PS_TRACE("E cam[%d] pipe[%d] frame[%d] and oldest will be erased", camID, pipe, frameID);
    PipeStore& store = pipeStore(camID, pipe);
    PipeStore::Sweep sweep = store.beginSweep();
    if (frameID == THE_LAST && store.frameCount() != 0) {
        PS_LOG(4, "erase all : cam %u pipe %d total %u", camID, pipe, static_cast<uint32_t>(store.frameCount()));
        store.resetFrame0(sweep);
    }

    uint32_t result = PS_OK;
    uint32_t lastErased = frameID;
    for (const uint32_t id : sweep.tags) {
        PipeStore::Tag& tag = store.tag(id);
        const EraseLimit limit = eraseLimitOf(tag, frameID);
        if (limit.counts) lastErased = limit.frameID;
        if (limit.skipped) continue;
        if (frameID == THE_LAST && id == METADATA_TAG) store.setErasePoint(tag, 0);
        const Checkpoints* checkpoints = store.checkpoints(tag);
        if (checkpoints != nullptr && !checkpoints->empty()) {
            PS_TRACE("tag:%d checkPoint size:%d", id, static_cast<int>(checkpoints->size()));
            const uint32_t newest = PipeStore::newestErased(*checkpoints, limit.frameID);
            if (newest != 0 && id != METADATA_TAG) {
                if (checkpoints->back() > limit.frameID) PS_LOG(5, "find checkPoint ID:%d", newest);
                result = saveToF0(camID, pipe, newest, id);
                if (result != PS_OK) PS_LOG(1, "fail to save data to F0");
            }
        }
        store.dropUpTo(limit.frameID, tag, sweep);
    }
    store.endSweep(sweep);
    if (frameID == THE_LAST) store.shrink();
    PS_TRACE("X:ret:%d, cam[%d] pipe[%d], and finaly frame[%d]save to frame[0]", result, camID, pipe, lastErased);
    storeRelaxed(ps_log, 0);
    return {result, std::move(sweep.woken)};
}

uint32_t ParamSet::saveToF0(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag) {
    const Answer read = getParamInternal(camID, pipe, frameID, tag, 0);
    if (read.value == nullptr) return saveNothingToF0(camID, pipe, tag);
    // A program's own creator may make frame 0's buffer, and may remove the frame that is read.
    const bool mayBeRemoved = read.registered != nullptr && !read.registered->hasLibraryCreator();
    const Buffer kept = mayBeRemoved ? read.value : nullptr;
    return _setParam(camID, pipe, 0, tag, read.value.get());
}

// For example, the tag was registered after it was set. The write copies nothing, so a buffer of the library that it
// makes is zeroed: no later read may return uninitialised memory.
uint32_t ParamSet::saveNothingToF0(uint32_t camID, int pipe, uint32_t tag) {
    const Request request = requestFor(camID, pipe, 0, tag, 1);
    const bool isNew = request.pipe.value(request.pipe.frame0(), request.tag) == nullptr;
    const uint32_t result = _setParam(camID, pipe, 0, tag, nullptr);
    const Buffer* value = request.pipe.value(request.pipe.frame0(), request.tag);
    if (isNew && value != nullptr) PipeStore::zero(*value, request.tag);
    return result;
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
    StoreLock lock(store->mMutex);
    const Erasure erasure = store->_erase(camID, pipe, frameID);
    lock.unlock();
    for (const Woken& woken : erasure.woken) woken.wakeAgain();
    return erasure.result;
}

}  // namespace zarn

uint32_t erasePs(uint32_t cam, int32_t pipe, uint32_t frame) {
    return zarn::ParamSet::erase(cam, pipe, frame);
}
