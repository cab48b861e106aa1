// Reads that wait for a value and writes that deliver one. A get and a set meet in the FrameStatus record of their
// (frame, tag). Its state changes under ParamSet::mMutex; its own mutex is held by a waiting get alone.
// A set never takes the record's mutex, so that it cannot block on a reader. A notification that falls between a get's
// release of mMutex and its wait is therefore lost, by design: the wait is bounded, and the value is found after it.
// Two things make that rare: the get looks at the state once more before it waits, and the set notifies once more after
// it has released mMutex.

#include <pthread.h>
#include <time.h>

#include <chrono>

#include "src/hold.h"
#include "src/store.h"

namespace zarn {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

timespec toTimespec(steady_clock::time_point time) {
    const nanoseconds sinceBoot = time.time_since_epoch();
    return {static_cast<time_t>(sinceBoot / seconds(1)), static_cast<long>((sinceBoot % seconds(1)).count())};
}

// One wait on a record, begun and ended with the store's mutex held. Tells whether it timed out.
struct TimedWait {
    uint32_t camID;
    int pipe;
    uint32_t frameID;
    uint32_t tag;
    uint32_t timeout;  // milliseconds

    bool operator()(FrameStatus& status, std::unique_lock<std::mutex>& storeLock) const {
        const int32_t state = status.mState;
        storeLock.unlock();
        const std::lock_guard<std::mutex> recordLock(status.mMutex);
        const steady_clock::time_point start = steady_clock::now();
        storeRelaxed(ps_log, 0);
        const timespec deadline = toTimespec(start + milliseconds(timeout));
        // In another state by now, it was notified before this wait could begin. From here to the wait there is as
        // little as can be. Some C++ libraries would wait on the wall clock, which can be set.
        if (loadRelaxed(status.mState) == state) {
            pthread_cond_clockwait(status.mCond.native_handle(), status.mMutex.native_handle(), CLOCK_MONOTONIC,
                                   &deadline);
        }
        const steady_clock::duration spent = steady_clock::now() - start;
        const double elapsed = static_cast<double>(std::chrono::duration_cast<milliseconds>(spent).count());
        const bool timedOut = spent >= milliseconds(timeout);
        if (timedOut) {
            PS_LOG(2, "cam %d pipe %d sof %d tag %d, wait timeout", camID, pipe, frameID, tag);
        }
        storeRelaxed(ps_log, isTracedTag(tag));
        PS_LOG(4, "cam %d pipe %d sof %d tag %d, wait: %f ms.", camID, pipe, frameID, tag, elapsed);
        storeLock.lock();
        return timedOut;
    }
};

}  // namespace

uint32_t ParamSet::_getParamSyn(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data,
                                uint32_t timeout) {
    storeRelaxed(ps_log, isTracedTag(tag));
    std::unique_lock<std::mutex> lock(mMutex);
    PS_TRACE("camID: %d, pipe: %d, frameID: %d, tag: %d,", camID, pipe, frameID, tag);
    if (!isPipe(pipe)) {
        PS_LOG(1, "pipe %d out of limit, please check tag %d", pipe, tag);
        return PS_OUT_OF_LIMIT;
    }
    Request request{camID, pipe, frameID, tag, 0, TagTable::find(tag), &pipeElem(camID, pipe)};
    uint32_t result = preproc(request);

    const uint32_t wait = timeout != 0 ? timeout : static_cast<uint32_t>(DEFAULT_WAIT_MS);
    std::shared_ptr<ParamFrame> held;  // an erase during the wait may take the frame out of the pipe
    const Buffer& value =
        frameID == 0 ? awaitF0(request, lock, wait, result) : awaitFrame(request, lock, wait, held, result);

    const uint32_t size = getSize(request.registered);
    if (size != 0 && data != nullptr && value != nullptr) {
        std::memcpy(data, value.get(), size);
        PS_LOG(5, "success  " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
    } else {
        PS_LOG(1, "fail " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
    }
    storeRelaxed(ps_log, 0);
    return result;
}

const ParamSet::Buffer& ParamSet::awaitF0(Request& request, std::unique_lock<std::mutex>& lock, uint32_t timeout,
                                          uint32_t& result) {
    const uint32_t tag = request.tag;
    FrameStatus& status = request.elem->mF0->mStatus[tag];
    if (status.mState != kDelivered) {
        storeRelaxed(status.mState, kWaitedFor);
        if (TimedWait{request.camID, request.pipe, request.frameID, tag, timeout}(status, lock)) result = PS_TIMED_OUT;
        request.registered = TagTable::find(tag);  // the tag may have been registered meanwhile
    }
    return getF0(request);
}

const ParamSet::Buffer& ParamSet::awaitFrame(Request& request, std::unique_lock<std::mutex>& lock, uint32_t timeout,
                                             std::shared_ptr<ParamFrame>& held, uint32_t& result) {
    const uint32_t frameID = request.frameID;
    const uint32_t tag = request.tag;
    std::shared_ptr<ParamFrame>& entry = request.elem->mFrames[frameID];
    if (entry == nullptr) entry.reset(new ParamFrame(request.camID, frameID, this, &gTagInfo));
    ParamFrame& frame = *entry;

    FrameStatus& status = frame.mStatus[tag];
    const auto own = frame.mTags.find(tag);
    if (own == frame.mTags.end()) {
        status.mFrameID = frameID;
        storeRelaxed(status.mState, kWaitedFor);
    } else if (status.mState == kDelivered) {
        return own->second;
    }
    held = entry;
    if (TimedWait{request.camID, request.pipe, frameID, tag, timeout}(status, lock)) result = PS_TIMED_OUT;
    request.registered = TagTable::find(tag);  // the tag may have been registered meanwhile

    // The frame may have been erased meanwhile, and even made again.
    const ParamFrame* now = request.lookUpFrame();
    if (now != nullptr && now->mTags.find(tag) != now->mTags.end()) return findBuffer(*held, tag);
    result = PS_NOT_OF_FRAME;
    return permiProc(request, nullptr);
}

uint32_t ParamSet::_setParamSyn(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data) {
    const bool traced = isTracedTag(tag);
    storeRelaxed(ps_log, traced);
    PS_LOG(traced ? 4 : 5, "camID: %d, pipe: %d, frameID: %d, tag: %d,", camID, pipe, frameID, tag);
    std::unique_lock<std::mutex> lock(mMutex);
    if (!isPipe(pipe)) {
        PS_LOG(1, "pipe %d out of limit, please check tag %d", pipe, tag);
        return PS_OUT_OF_LIMIT;
    }
    Request request{camID, pipe, frameID, tag, 1, TagTable::find(tag), &pipeElem(camID, pipe)};
    uint32_t result = preproc(request);

    const auto [value, woken] = _setParamSyn(request);

    const uint32_t size = getSize(request.registered);
    if (data != nullptr && value != nullptr && size != 0) {
        std::memcpy(value.get(), data, size);
        PS_LOG(5, "success " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
        result = PS_OK;
    } else {
        PS_LOG(1, "fail " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
    }
    storeRelaxed(ps_log, 0);
    lock.unlock();
    woken.wakeAgain();
    return result;
}

// The record's part: finds or makes the buffer, and wakes who waits for it. The woken gets retake mMutex before they
// read, so that they see what is copied in only after this.
ParamSet::Delivery ParamSet::_setParamSyn(Request& request) {
    const pipe_elem& elem = *request.elem;
    ParamFrame* frame = request.frameID == 0 ? elem.mF0.get() : request.lookUpFrame();
    const Buffer& value = request.frameID == 0 ? getF0(request)
                          : frame != nullptr   ? getDirectly(request, *frame)
                                               : createNew(request);
    const bool isNew = frame == nullptr;
    if (isNew) frame = request.framePlace->second.get();

    FrameStatus& status = frame->mStatus[request.tag];
    Woken woken;
    woken.state = kDelivered;
    if (status.mState == kWaitedFor) {
        // A line each for frame 0, for a frame that was there and for a new one: their numbers tell them apart.
        if (request.frameID == 0) PS_LOG(5, "set notify all");
        if (request.frameID != 0 && !isNew) PS_LOG(5, "set notify all");
        if (isNew) PS_LOG(5, "set notify all");
        status.mCond.notify_all();
        if (request.frameID != 0) woken.frame = request.framePlace->second;
        woken.status = &status;
    }
    storeRelaxed(status.mState, kDelivered);
    return {value, std::move(woken)};
}

// ---- entries

uint32_t ParamSet::getParamSyn(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data) {
    const Hold store;
    if (data == nullptr || !store) return PS_NO_DATA;
    if (cam >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, tag %d get failed", cam, tag);
        return PS_OUT_OF_LIMIT;
    }
    return store->_getParamSyn(cam, pipe, frame, tag, data, 0);
}

uint32_t ParamSet::getParamSynTimeout(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data,
                                      uint32_t timeout) {
    const Hold store;
    if (data == nullptr || !store) return PS_NO_DATA;
    if (cam >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, tag %d get failed", cam, tag);
        return PS_OUT_OF_LIMIT;
    }
    return store->_getParamSyn(cam, pipe, frame, tag, data, timeout);
}

uint32_t ParamSet::setParamSyn(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data) {
    const Hold store;
    if (data == nullptr || !store) return PS_NO_DATA;
    if (cam >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, tag %d set failed", cam, tag);
        return PS_OUT_OF_LIMIT;
    }
    return store->_setParamSyn(cam, pipe, frame, tag, data);
}

}  // namespace zarn

uint32_t getPsParamSyn(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data) {
    return zarn::ParamSet::getParamSyn(cam, pipe, frame, tag, data);
}

uint32_t getPsParamSynTimeout(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data, uint32_t timeout) {
    return zarn::ParamSet::getParamSynTimeout(cam, pipe, frame, tag, data, timeout);
}

uint32_t setPsParamSyn(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data) {
    return zarn::ParamSet::setParamSyn(cam, pipe, frame, tag, data);
}
