// A copy of each frame's camera metadata, kept in pipe 0 of its camera and listed under METADATA_TAG.
// The entries take ParamSet::mMutex; the private operations run with mMutex held.

#include "src/hold.h"
#include "src/store.h"

namespace zarn {

uint32_t ParamSet::_setMetadata(uint32_t camID, uint32_t frameID, const camera_metadata* metadata) {
    pipe_elem& elem = pipeElem(camID, 0);
    const uint32_t erasePoint = elem.mErasePoint.try_emplace(METADATA_TAG, 0).first->second;
    PS_LOG(5, "E cam[%d].paramFrame[%d], erase point:%d", camID, frameID, erasePoint);
    if (frameID == 0 || frameID <= erasePoint) {
        PS_LOG(2, "fail to get metadata, but give frame 0");
        elem.mF0->setMetadata(metadata);
        return PS_OK;
    }

    std::shared_ptr<ParamFrame>& frame = elem.mFrames[frameID];
    if (frame == nullptr) frame.reset(new ParamFrame(camID, frameID, this, &gTagInfo));

    // A frame that is stored to again is listed again.
    std::shared_ptr<std::vector<uint32_t>>& ids = elem.mCheckPoint[METADATA_TAG];
    if (ids == nullptr) ids = std::make_shared<std::vector<uint32_t>>();
    ids->insert(firstAfter(*ids, frameID), frameID);

    frame->setMetadata(metadata);
    return PS_OK;
}

camera_metadata* ParamSet::_getMetadata(uint32_t camID, uint32_t frameID) {
    pipe_elem& elem = pipeElem(camID, 0);
    const uint32_t erasePoint = elem.mErasePoint.try_emplace(METADATA_TAG, 0).first->second;
    PS_LOG(5, "E cam[%d].paramFrame[%d], erase point:%d", camID, frameID, erasePoint);
    if (frameID == 0 || frameID <= erasePoint) {
        PS_LOG(2, "fail to match accurate metadata, but give frame 0");
        return elem.mF0->getMetadata();
    }

    const uint32_t related = findRelated(elem.mCheckPoint[METADATA_TAG].get(), frameID);
    if (related == 0) return elem.mF0->getMetadata();
    ParamFrame* frame = findFrame(elem, related);
    if (frame == nullptr) {
        // It held nothing but metadata, and went with another tag's erase while the list still names it.
        PS_LOG(2, "fail to match accurate metadata, but give frame 0");
        return elem.mF0->getMetadata();
    }
    return frame->getMetadata();
}

// ---- entries

uint32_t ParamSet::setMetadata(uint32_t camID, uint32_t frameID, const camera_metadata* metadata) {
    const Hold store;
    if (metadata == nullptr || !store) return PS_NO_DATA;
    if (camID >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, sof %u set metadata failed", camID, frameID);
        return PS_OUT_OF_LIMIT;
    }
    const std::lock_guard<std::mutex> lock(store->mMutex);
    store->_setMetadata(camID, frameID, metadata);
    return PS_OK;
}

camera_metadata* ParamSet::getMetadata(uint32_t camID, uint32_t frameID) {
    const Hold store;
    if (!store) return nullptr;
    if (camID >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, sof %u get metadata failed", camID, frameID);
        return nullptr;
    }
    const std::lock_guard<std::mutex> lock(store->mMutex);
    return store->_getMetadata(camID, frameID);
}

}  // namespace zarn
