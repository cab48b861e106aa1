// A copy of each frame's camera metadata, kept in pipe 0 of its camera and listed under METADATA_TAG.
// The entries take ParamSet::mMutex; the private operations run with mMutex held.

#include "src/hold.h"
#include "src/pipes.h"
#include "src/store_lock.h"
#include "src/trace.h"

namespace zarn {

uint32_t ParamSet::_setMetadata(uint32_t camID, uint32_t frameID, const camera_metadata* metadata) {
    PipeStore& pipe = pipeStore(camID, 0);
    PipeStore::Tag& tag = pipe.metadataTag();
    const uint32_t erasePoint = pipe.erasePoint(tag);
    PS_LOG(5, "E cam[%d].paramFrame[%d], erase point:%d", camID, frameID, erasePoint);
    if (frameID == 0 || frameID <= erasePoint) {
        PS_LOG(2, "fail to get metadata, but give frame 0");
        pipe.frame0().frame->setMetadata(metadata);
        return PS_OK;
    }

    PipeStore::Frame* frame = pipe.findFrame(frameID);
    if (frame == nullptr) frame = &pipe.addFrame(frameID);
    // Every call adds an entry, even if the frame is listed already.
    pipe.addCheckpoint(tag, frameID);
    frame->frame->setMetadata(metadata);
    return PS_OK;
}

camera_metadata* ParamSet::_getMetadata(uint32_t camID, uint32_t frameID) {
    PipeStore& pipe = pipeStore(camID, 0);
    PipeStore::Tag& tag = pipe.metadataTag();
    const uint32_t erasePoint = pipe.erasePoint(tag);
    PS_LOG(5, "E cam[%d].paramFrame[%d], erase point:%d", camID, frameID, erasePoint);
    ParamFrame& f0 = *pipe.frame0().frame;
    if (frameID == 0 || frameID <= erasePoint) {
        PS_LOG(2, "fail to match accurate metadata, but give frame 0");
        return f0.getMetadata();
    }

    const uint32_t related = findRelated(pipe.checkpoints(tag), frameID);
    if (related == 0) return f0.getMetadata();
    PipeStore::Frame* frame = pipe.findFrame(related);
    if (frame == nullptr) {
        // A frame is removed with its last value, even if it has metadata. The metadata's list still names it.
        PS_LOG(2, "fail to match accurate metadata, but give frame 0");
        return f0.getMetadata();
    }
    return frame->frame->getMetadata();
}

// ---- entries

uint32_t ParamSet::setMetadata(uint32_t camID, uint32_t frameID, const camera_metadata* metadata) {
    const Hold store;
    if (metadata == nullptr || !store) return PS_NO_DATA;
    if (camID >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, sof %u set metadata failed", camID, frameID);
        return PS_OUT_OF_LIMIT;
    }
    const StoreLock lock(store->mMutex);
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
    const StoreLock lock(store->mMutex);
    return store->_getMetadata(camID, frameID);
}

}  // namespace zarn
