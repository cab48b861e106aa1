// Which buffer answers a request for (camera, pipe, frame, tag): the frame's own, the one of the newest earlier frame
// that was given a value, or the one of the pipe's frame 0. Also the plain get and set, which copy from and to it.
// Everything here runs with ParamSet::mMutex held by the caller.

#include <cstring>

#include "src/pipes.h"
#include "src/trace.h"

namespace zarn {

namespace {

// The smallest retain number with which the frame would be above the erase point; for the log.
int32_t neededLife(const tag_info_t& info, uint32_t frameID, uint32_t erasePoint) {
    return static_cast<int32_t>(erasePoint - frameID + static_cast<uint32_t>(info.mRetainNum) + 1);
}

bool isStatic(const RegisteredTag* registered) {
    return registered != nullptr && registered->info.mTagType == kTagTypeStatic;
}

}  // namespace

ParamSet::Answer ParamSet::getParamInternal(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, int modifiable) {
    if (!isPipe(pipe)) {
        PS_LOG(1, "pipe %d out of limit, please check tag %d", pipe, tag);
        return {kNoBuffer, tagReader().find(tag)};
    }
    PipeStore& store = pipeStore(camID, pipe);
    if (frameID == THE_LAST) {
        frameID = store.newestFrameID();
        PS_LOG(5, "THE_LAST frame is %d", frameID);
    }
    const Request request = {store, store.tag(tag), frameID, modifiable};
    const uint32_t erasePoint = store.erasePoint(request.tag);
    PS_LOG(5, "E cam %d pipe %d frame %d tag %d erasePoint:%d", camID, pipe, frameID, tag, erasePoint);

    const RegisteredTag* registered = request.tag.registered;
    if (frameID == 0 || isStatic(registered)) return {getF0(request), registered};
    if (frameID <= erasePoint) {
        const tag_info_t& known = registered != nullptr ? registered->info : tagReader().findOrInsert(tag);
        PS_LOG(2, "frameID %d <= Erased %d, %s need life >= %d", frameID, erasePoint, known.mName.c_str(), neededLife(known, frameID, erasePoint));
        return {getF0(request), registered};
    }
    PipeStore::Frame* frame = store.findFrame(frameID);
    return {frame != nullptr ? getDirectly(request, *frame) : createNew(request), registered};
}

uint32_t ParamSet::preproc(const Request& request) {
    const uint32_t erasePoint = request.pipe.erasePoint(request.tag);
    const uint32_t frameID = request.frameID;
    if (frameID == 0) return PS_OK;
    if (frameID == THE_LAST) {
        PS_LOG(4, "THE_LAST frame is %d", request.pipe.newestFrameID());
        return PS_OK;
    }
    const RegisteredTag* registered = request.tag.registered;
    if (isStatic(registered) || erasePoint < frameID) return PS_OK;
    const tag_info_t& known = registered != nullptr ? registered->info : tagReader().findOrInsert(request.tag.id);
    PS_LOG(2, "frameID %d <= Erased %d, %s need life >= %d", frameID, erasePoint, known.mName.c_str(), neededLife(known, frameID, erasePoint));
    return PS_NOT_OF_FRAME;
}

const Buffer& ParamSet::getDirectly(const Request& request, PipeStore::Frame& frame) {
    const Buffer* own = request.pipe.value(frame, request.tag);
    return own != nullptr ? *own : permiProc(request);
}

const Buffer& ParamSet::getF0(const Request& request) {
    PipeStore::Frame& f0 = request.pipe.frame0();
    if (const Buffer* own = request.pipe.value(f0, request.tag)) return *own;
    const Buffer& made = request.pipe.createTag(f0, request.tag);
    // A write copies its own bytes. (One that saves nothing zeros them, too: saveNothingToF0.)
    if (request.modifiable == 0) PipeStore::zero(made, request.tag);
    return made;
}

uint32_t ParamSet::getSize(const RegisteredTag* registered) {
    return registered != nullptr ? static_cast<uint32_t>(registered->info.mSize) : 0;
}

uint32_t ParamSet::findRelated(const Checkpoints* ids, uint32_t desID) {
    const uint32_t related = ids != nullptr ? PipeStore::newestCheckpoint(*ids, desID) : 0;
    PS_LOG(5, "desID %d, relateID[%d]", desID, related);
    return related;
}

// For a write the pipe must have the frame; for a read it need not.
const Buffer& ParamSet::permiProc(const Request& request) {
    auto& [pipe, tag, frameID, modifiable] = request;
    const Checkpoints* ids = pipe.checkpoints(tag);
    if (modifiable == 0) {
        const uint32_t related = findRelated(ids, frameID);
        PS_TRACE("cam %u pipe %d tag %d destID %u relatedID:%u", pipe.camID(), pipe.pipe(), tag.id, frameID, related);
        if (related == 0) return getF0(request);
        // The checkpoint's frame may be gone: it is removed with its last value, even if this tag still lists it.
        PipeStore::Frame* checkpoint = pipe.findFrame(related);
        const Buffer* value = checkpoint != nullptr ? pipe.value(*checkpoint, tag) : nullptr;
        return value != nullptr ? *value : kNoBuffer;
    }

    if (ids != nullptr) pipe.autoErase(tag, frameID);
    const size_t count = pipe.addCheckpoint(tag, frameID);
    PS_LOG(5, "add checkPoint[%d] size:%d,permiProc:%s", frameID, static_cast<int>(count), "_modifiable");
    return pipe.createTag(*pipe.findFrame(frameID), tag);
}

const Buffer& ParamSet::createNew(const Request& request) {
    PS_LOG(5, "createNew ParamFrame");
    if (request.modifiable != 0) request.pipe.addFrame(request.frameID);
    return permiProc(request);
}

uint32_t ParamSet::_getParam(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data) {
    storeRelaxed(ps_log, isTracedTag(tag));
    const auto [value, registered] = getParamInternal(camID, pipe, frameID, tag, 0);
    const uint32_t size = getSize(registered);

    uint32_t result = PS_NO_BUFFER;
    if (size == 0 || data == nullptr || value == nullptr) {
        PS_LOG(1, "fail " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
    } else {
        std::memcpy(data, value.get(), size);
        PS_TRACE("success  " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
        result = PS_OK;
    }
    storeRelaxed(ps_log, 0);
    return result;
}

uint32_t ParamSet::_setParam(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data) {
    storeRelaxed(ps_log, isTracedTag(tag));
    const auto [value, registered] = getParamInternal(camID, pipe, frameID, tag, 1);
    const uint32_t size = getSize(registered);

    uint32_t result = PS_NO_BUFFER;
    if (size == 0 || data == nullptr || value == nullptr) {
        PS_LOG(1, "fail " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
    } else {
        // If an erase saves a value that frame 0 itself answered, source and target are the same buffer.
        std::memmove(value.get(), data, size);
        PS_TRACE("success " PS_COPY_TEXT, camID, pipe, frameID, tag, value.get(), data, size);
        result = PS_OK;
    }
    storeRelaxed(ps_log, 0);
    return result;
}

}  // namespace zarn
