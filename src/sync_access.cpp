// Reads that wait for a value and writes that deliver one. A get and a set meet in the FrameStatus record of their
// (frame, tag). Its state changes under ParamSet::mMutex; only a waiting get holds its own mutex.
// A set never takes the record's mutex, so that it cannot block on a reader. So if it notifies after a get has released
// mMutex but before that get waits, the notification is lost. This is accepted: the wait is bounded, and the get finds
// the value when it ends. Two things make it rare: the get looks at the state again just before it waits, and the set
// notifies again after it has released mMutex.

#include <pthread.h>
#include <time.h>

#include <chrono>
#include <cstring>
#include <optional>

#include "src/hold.h"
#include "src/pipes.h"
#include "src/store_lock.h"
#include "src/trace.h"

namespace zarn {

// What a synchronous get found, after its wait if it had to wait.
struct ParamSet::Awaited {
    Answer answer;
    std::optional<uint32_t> result = {};    // none: the result of preproc
    std::shared_ptr<ParamFrame> held = {};  // the frame of the wait, kept alive: an erase may remove it
};

// Where a synchronous set writes.
struct ParamSet::Writable {
    const Buffer& value;
    PipeStore::Frame& frame;
    bool isNew;
};

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

timespec toTimespec(steady_clock::time_point time) {
    const nanoseconds sinceBoot = time.time_since_epoch();
    return {static_cast<time_t>(sinceBoot / seconds(1)), static_cast<long>((sinceBoot % seconds(1)).count())};
}

// One wait on a record. Called with the store's mutex held; releases it for the wait and takes it again. Returns
// whether the wait timed out.
struct TimedWait {
    uint32_t camID;
    int pipe;
    uint32_t frameID;
    uint32_t tag;
    uint32_t timeout;  // milliseconds

    // Unchecked: clang cannot tell that this lock is the store's, and that it is held again at the end.
    bool operator()(FrameStatus& status, StoreLock& storeLock) const PARAMSET_LOCKS_UNCHECKED {
        const int32_t state = status.mState;
        storeLock.unlock();
        const std::lock_guard<std::mutex> recordLock(status.mMutex);
        const steady_clock::time_point start = steady_clock::now();
        storeRelaxed(ps_log, 0);
        const timespec deadline = toTimespec(start + milliseconds(timeout));
        // If the state has changed, the notification has come already: do not wait. There is as little code as possible
        // between this look and the wait. Not mCond.wait_until: some C++ libraries use the wall clock, which can be
        // set.
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
    StoreLock lock(mMutex);
    PS_TRACE("camID: %d, pipe: %d, frameID: %d, tag: %d,", camID, pipe, frameID, tag);
    if (!isPipe(pipe)) {
        PS_LOG(1, "pipe %d out of limit, please check tag %d", pipe, tag);
        return PS_OUT_OF_LIMIT;
    }
    const Request request = requestFor(camID, pipe, frameID, tag, 0);
    const uint32_t checked = preproc(request);

    const uint32_t wait = timeout != 0 ? timeout : static_cast<uint32_t>(DEFAULT_WAIT_MS);
    const Awaited awaited = frameID == 0 ? awaitF0(request, lock, wait) : awaitFrame(request, lock, wait);
    const auto& [value, registered] = awaited.answer;

    const uint32_t size = getSize(registered);
    if (size != 0 && data != nullptr && value != nullptr) {
        std::memcpy(data, value.get(), size);
        PS_LOG(5, "success  " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
    } else {
        PS_LOG(1, "fail " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
    }
    storeRelaxed(ps_log, 0);
    return awaited.result.value_or(checked);
}

ParamSet::Awaited ParamSet::awaitF0(const Request& request, StoreLock& lock, uint32_t timeout) {
    FrameStatus& status = request.pipe.record(request.pipe.frame0(), request.tag);
    if (status.mState == kDelivered) return {{getF0(request), request.tag.registered}};
    storeRelaxed(status.mState, kWaitedFor);
    const TimedWait wait = {request.pipe.camID(), request.pipe.pipe(), request.frameID, request.tag.id, timeout};
    const bool timedOut = wait(status, lock);
    // The mutex was released during the wait, so everything is looked up again.
    const Request now = requestFor(wait.camID, wait.pipe, wait.frameID, wait.tag, 0);
    Awaited awaited = {{getF0(now), now.tag.registered}};
    if (timedOut) awaited.result = PS_TIMED_OUT;
    return awaited;
}

ParamSet::Awaited ParamSet::awaitFrame(const Request& request, StoreLock& lock, uint32_t timeout) {
    PipeStore& pipe = request.pipe;
    PipeStore::Frame* frame = pipe.findFrame(request.frameID);
    if (frame == nullptr) frame = &pipe.addFrame(request.frameID);
    FrameStatus& status = pipe.record(*frame, request.tag);
    const Buffer* own = pipe.value(*frame, request.tag);
    if (own != nullptr && status.mState == kDelivered) return {{*own, request.tag.registered}};
    if (own == nullptr) {
        status.mFrameID = request.frameID;
        storeRelaxed(status.mState, kWaitedFor);
    }
    std::shared_ptr<ParamFrame> held = PipeStore::share(*frame);
    const TimedWait wait = {pipe.camID(), pipe.pipe(), request.frameID, request.tag.id, timeout};
    const bool timedOut = wait(status, lock);

    // The mutex was released during the wait, so everything is looked up again. The frame may have been erased, and
    // even made again.
    const Request now = requestFor(wait.camID, wait.pipe, wait.frameID, wait.tag, 0);
    PipeStore::Frame* frameNow = now.pipe.findFrame(wait.frameID);
    if (frameNow == nullptr || now.pipe.value(*frameNow, now.tag) == nullptr) {
        return {{permiProc(now), now.tag.registered}, PS_NOT_OF_FRAME, std::move(held)};
    }
    const auto value = held->mTags.find(wait.tag);
    Awaited awaited = {{value != held->mTags.end() ? value->second : kNoBuffer, now.tag.registered}};
    if (timedOut) awaited.result = PS_TIMED_OUT;
    awaited.held = std::move(held);
    return awaited;
}

uint32_t ParamSet::_setParamSyn(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data) {
    const bool traced = isTracedTag(tag);
    storeRelaxed(ps_log, traced);
    PS_LOG(traced ? 4 : 5, "camID: %d, pipe: %d, frameID: %d, tag: %d,", camID, pipe, frameID, tag);
    StoreLock lock(mMutex);
    if (!isPipe(pipe)) {
        PS_LOG(1, "pipe %d out of limit, please check tag %d", pipe, tag);
        return PS_OUT_OF_LIMIT;
    }
    const Request request = requestFor(camID, pipe, frameID, tag, 1);
    uint32_t result = preproc(request);

    const auto [value, frame, isNew] = findWritable(request);
    FrameStatus& status = request.pipe.record(frame, request.tag);
    Woken woken;
    if (status.mState == kWaitedFor) {
        // The line number in the log tells the three cases apart: frame 0, an existing frame, a new frame.
        if (frameID == 0) PS_LOG(5, "set notify all");
        if (frameID != 0 && !isNew) PS_LOG(5, "set notify all");
        if (isNew) PS_LOG(5, "set notify all");
        // The woken gets take mMutex again before they read, so they see the value that is copied below.
        status.mCond.notify_all();
        woken = {frameID != 0 ? PipeStore::share(frame) : nullptr, &status, kDelivered};
    }
    storeRelaxed(status.mState, kDelivered);

    const uint32_t size = getSize(request.tag.registered);
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

ParamSet::Writable ParamSet::findWritable(const Request& request) {
    PipeStore& pipe = request.pipe;
    if (request.frameID == 0) return {getF0(request), pipe.frame0(), false};
    PipeStore::Frame* frame = pipe.findFrame(request.frameID);
    const bool isNew = frame == nullptr;
    const Buffer& value = isNew ? createNew(request) : getDirectly(request, *frame);
    PipeStore::Frame* written = pipe.findFrame(request.frameID);
    // A program's own creator may have removed the frame.
    if (written == nullptr) written = &pipe.addFrame(request.frameID);
    return {value, *written, isNew};
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
