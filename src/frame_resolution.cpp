// Which buffer answers a request for (camera, pipe, frame, tag): the frame's own, the one of the newest earlier frame
// that was given a value, or the one of the pipe's frame 0; and the plain get and set on top of it.
// Everything here runs with ParamSet::mMutex held by the caller.

#include "src/store.h"

namespace zarn {

namespace {

// The retain number that would have kept the tag's value for this frame, as the log names it.
int32_t neededLife(const tag_info_t& info, uint32_t frameID, uint32_t erasePoint) {
    return static_cast<int32_t>(erasePoint - frameID + static_cast<uint32_t>(info.mRetainNum) + 1);
}

bool isStatic(const RegisteredTag* registered) {
    return registered != nullptr && registered->info.mTagType == kTagTypeStatic;
}

}  // namespace

// A frame of a pipe that comes before the requested one, which it usually is next to.
const ParamFrame* ParamSet::findEarlierFrame(const Request& request, uint32_t frameID) {
    Request::Frames& frames = request.elem->mFrames;
    if (request.framePlace != frames.begin()) {
        const auto& [id, frame] = *std::prev(request.framePlace);
        if (id == frameID) return frame.get();
    }
    return findFrame(*request.elem, frameID);
}

pipe_elem& ParamSet::pipeElem(uint32_t camID, int pipe) {
    return mElem.find(static_cast<int>(camID))->second->mPipe[pipe];
}

const ParamSet::Buffer& ParamSet::getParamInternal(Request& request) {
    if (!isPipe(request.pipe)) {
        PS_LOG(1, "pipe %d out of limit, please check tag %d", request.pipe, request.tag);
        return kNoBuffer;
    }
    if (request.elem == nullptr) request.elem = &pipeElem(request.camID, request.pipe);
    if (request.frameID == THE_LAST) {
        request.frameID = newestFrameID(*request.elem);
        PS_LOG(5, "THE_LAST frame is %d", request.frameID);
    }
    const uint32_t erasePoint = request.lookUpErasePoint();
    const uint32_t frameID = request.frameID;
    PS_LOG(5, "E cam %d pipe %d frame %d tag %d erasePoint:%d", request.camID, request.pipe, frameID, request.tag, erasePoint);

    if (frameID == 0 || isStatic(request.registered)) return getF0(request);
    if (frameID <= erasePoint) {
        const tag_info_t& known = TagTable::findOrInsert(request.tag);
        PS_LOG(2, "frameID %d <= Erased %d, %s need life >= %d", frameID, erasePoint, known.mName.c_str(), neededLife(known, frameID, erasePoint));
        return getF0(request);
    }
    ParamFrame* frame = request.lookUpFrame();
    return frame != nullptr ? getDirectly(request, *frame) : createNew(request);
}

uint32_t ParamSet::preproc(Request& request) {
    const uint32_t erasePoint = request.lookUpErasePoint();
    const uint32_t frameID = request.frameID;
    if (frameID == 0) return PS_OK;
    if (frameID == THE_LAST) {
        PS_LOG(4, "THE_LAST frame is %d", newestFrameID(*request.elem));
        return PS_OK;
    }
    if (isStatic(request.registered) || erasePoint < frameID) return PS_OK;
    const tag_info_t& known = TagTable::findOrInsert(request.tag);
    PS_LOG(2, "frameID %d <= Erased %d, %s need life >= %d", frameID, erasePoint, known.mName.c_str(), neededLife(known, frameID, erasePoint));
    return PS_NOT_OF_FRAME;
}

const ParamSet::Buffer& ParamSet::getDirectly(Request& request, ParamFrame& frame) {
    return request.lookUpValue(frame) ? request.valuePlace->second : permiProc(request, &frame);
}

const ParamSet::Buffer& ParamSet::getF0(Request& request) {
    ParamFrame& f0 = *request.elem->mF0;
    if (request.lookUpValue(f0)) return request.valuePlace->second;
    const Buffer& made = createTag(f0, request.valuePlace, request.tag, request.registered, nullptr);
    // A read would give away what the allocator left there. A set overwrites it.
    const bool isRead = request.modifiable == 0 && made != nullptr;
    if (isRead && request.registered->hasLibraryCreator()) std::memset(made.get(), 0, getSize(request.registered));
    return made;
}

uint32_t ParamSet::getSize(const RegisteredTag* registered) {
    return registered != nullptr ? static_cast<uint32_t>(registered->info.mSize) : 0;
}

uint32_t ParamSet::findRelated(const std::vector<uint32_t>* ids, uint32_t desID) {
    uint32_t related = 0;
    if (ids != nullptr) {
        const auto later = firstAfter(*ids, desID);
        if (later != ids->begin()) related = *(later - 1);
    }
    PS_LOG(5, "desID %d, relateID[%d]", desID, related);
    return related;
}

// A write needs its frame; a read does without.
const ParamSet::Buffer& ParamSet::permiProc(Request& request, ParamFrame* frame) {
    const uint32_t frameID = request.frameID;
    const uint32_t tag = request.tag;
    std::shared_ptr<std::vector<uint32_t>>& ids = request.elem->mCheckPoint[tag];
    if (request.modifiable == 0) {
        const uint32_t related = findRelated(ids.get(), frameID);
        PS_TRACE("cam %u pipe %d tag %d destID %u relatedID:%u", request.camID, request.pipe, tag, frameID, related);
        if (related == 0) return getF0(request);
        // The checkpoint's frame may have gone with another tag's last value.
        const ParamFrame* checkpoint = findEarlierFrame(request, related);
        return checkpoint != nullptr ? findBuffer(*checkpoint, tag) : kNoBuffer;
    }

    if (ids == nullptr) {
        ids = std::make_shared<std::vector<uint32_t>>(1, frameID);
    } else {
        autoErase(request, *ids);
        ids->insert(firstAfter(*ids, frameID), frameID);
    }
    PS_LOG(5, "add checkPoint[%d] size:%d,permiProc:%s", frameID, static_cast<int>(ids->size()), "_modifiable");
    return createTag(*frame, request.valuePlace, tag, request.registered, nullptr);
}

const ParamSet::Buffer& ParamSet::createNew(Request& request) {
    PS_LOG(5, "createNew ParamFrame");
    return permiProc(request, request.modifiable != 0 ? &newFrame(request) : nullptr);
}

// Not inlined, so that reads do without its stack frame.
[[gnu::noinline]] ParamFrame& ParamSet::newFrame(Request& request) {
    request.framePlace = request.elem->mFrames.try_emplace(request.framePlace, request.frameID);
    std::shared_ptr<ParamFrame>& frame = request.framePlace->second;
    frame.reset(new ParamFrame(request.camID, request.frameID, this, &gTagInfo));
    request.valuePlace = frame->mTags.end();
    return *frame;
}

uint32_t ParamSet::_getParam(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data) {
    storeRelaxed(ps_log, isTracedTag(tag));
    Request request{camID, pipe, frameID, tag, 0, TagTable::find(tag)};
    const Buffer& value = getParamInternal(request);
    const uint32_t size = getSize(request.registered);

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
    Request request{camID, pipe, frameID, tag, 1, TagTable::find(tag)};
    return _setParam(request, data);
}

uint32_t ParamSet::_setParam(Request& request, const void* data) {
    const uint32_t frameID = request.frameID;  // as asked for: THE_LAST is resolved below
    const uint32_t tag = request.tag;
    storeRelaxed(ps_log, isTracedTag(tag));
    const Buffer& value = getParamInternal(request);
    const uint32_t size = getSize(request.registered);

    uint32_t result = PS_NO_BUFFER;
    if (size == 0 || data == nullptr || value == nullptr) {
        PS_LOG(1, "fail " PS_COPY_TEXT, request.camID, request.pipe, frameID, tag, value.get(), data, size);
    } else {
        // An erase may save what frame 0 itself answered: then both are the same buffer.
        std::memmove(value.get(), data, size);
        PS_TRACE("success " PS_COPY_TEXT, request.camID, request.pipe, frameID, tag, value.get(), data, size);
        result = PS_OK;
    }
    storeRelaxed(ps_log, 0);
    return result;
}

}  // namespace zarn
