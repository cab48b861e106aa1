// The higher of the two floors, with which the tables compare: the same lock and copy, and only the map operations that
// the store's declared data members require. Nothing is counted, checked or logged. Each key is looked up once while
// the lock is held. It can do what the workloads need and no more: it has no tag types, does not trim, and frame 0
// answers no request.

#ifndef PARAMSET_BENCH_MAPS_H
#define PARAMSET_BENCH_MAPS_H

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "bench/contender.h"
#include "paramset.h"

namespace bench {

class Maps {
public:
    static constexpr char kName[] = "maps";
    static constexpr Abilities kAbilities{"yes", "by erase", "no", "yes", "no"};

    Maps(uint32_t tags, uint32_t size) {
        for (uint32_t tag = 0; tag < tags; ++tag) {
            zarn::tag_info_t& info = mRegistry[id(tag)];
            info.mSize = static_cast<int32_t>(size);
            info.mRetainNum = kRetained;
        }
        for (int cam = 0; cam < MAX_CAM_NUM; ++cam) {
            const auto elem = std::make_shared<Camera>();
            for (Pipe& pipe : elem->pipes) pipe.f0 = std::make_shared<Frame>();
            mElem.emplace(cam, elem);
        }
    }

    bool get(uint32_t cam, uint32_t frameID, uint32_t tag, void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        const zarn::tag_info_t& info = mRegistry.find(id(tag))->second;
        Pipe& pipe = pipeOf(cam);
        const Buffer* buffer = findValue(pipe, frameID, id(tag));
        if (buffer == nullptr) return false;
        std::memcpy(value, buffer->get(), static_cast<size_t>(info.mSize));
        return true;
    }

    void set(uint32_t cam, uint32_t frameID, uint32_t tag, const void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        const zarn::tag_info_t& info = mRegistry.find(id(tag))->second;
        Pipe& pipe = pipeOf(cam);
        if (frameID <= pipe.erasePoint.try_emplace(id(tag), 0).first->second) return;
        Buffer& buffer = findOrMake(pipe, frameIn(pipe, frameID), frameID, id(tag), info);
        std::memcpy(buffer.get(), value, static_cast<size_t>(info.mSize));
    }

    bool await(uint32_t cam, uint32_t frameID, uint32_t tag, void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        const zarn::tag_info_t& info = mRegistry.find(id(tag))->second;
        Pipe& pipe = pipeOf(cam);
        if (frameID <= pipe.erasePoint.find(id(tag))->second) return false;
        Frame& frame = *pipe.frames.find(frameID)->second;
        const Buffer& buffer = frame.tags.find(id(tag))->second;
        if (frame.status.find(id(tag))->second.mState != kDelivered) return false;
        std::memcpy(value, buffer.get(), static_cast<size_t>(info.mSize));
        return true;
    }

    void deliver(uint32_t cam, uint32_t frameID, uint32_t tag, const void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        const zarn::tag_info_t& info = mRegistry.find(id(tag))->second;
        Pipe& pipe = pipeOf(cam);
        if (frameID <= pipe.erasePoint.try_emplace(id(tag), 0).first->second) return;
        Frame& frame = frameIn(pipe, frameID);
        Buffer& buffer = findOrMake(pipe, frame, frameID, id(tag), info);
        zarn::FrameStatus& status = frame.status.try_emplace(id(tag)).first->second;
        if (status.mState == kWaitedFor) status.mCond.notify_all();
        status.mState = kDelivered;
        std::memcpy(buffer.get(), value, static_cast<size_t>(info.mSize));
    }

    void erase(uint32_t cam, uint32_t frameID) {
        const std::lock_guard<std::mutex> lock(mMutex);
        Pipe& pipe = pipeOf(cam);
        for (auto& [tag, ids] : pipe.checkPoint) {
            const zarn::tag_info_t& info = mRegistry.find(tag)->second;
            const uint32_t limit = frameID - static_cast<uint32_t>(info.mRetainNum);
            if (static_cast<int32_t>(limit) < 1) continue;
            const auto kept = std::upper_bound(ids->begin(), ids->end(), limit);
            if (kept != ids->begin()) {
                save(pipe, *(kept - 1), tag, info);
                ids->erase(ids->begin(), kept);
            }
            removeFrames(pipe, tag, limit);
        }
    }

private:
    using Buffer = std::shared_ptr<void>;
    struct Frame {
        std::map<uint32_t, Buffer> tags;
        std::map<uint32_t, zarn::FrameStatus> status;
    };
    struct Pipe {
        std::shared_ptr<Frame> f0;
        std::map<uint32_t, std::shared_ptr<Frame>> frames;
        std::map<uint32_t, std::shared_ptr<std::vector<uint32_t>>> checkPoint;
        std::map<uint32_t, uint32_t> erasePoint;
    };
    struct Camera {
        Pipe pipes[MAX_PIPE_NUM];
    };
    static constexpr int32_t kDelivered = 1;
    static constexpr int32_t kWaitedFor = 2;

    static uint32_t id(uint32_t tag) { return 0x1000 + tag; }
    static Buffer makeBuffer(int32_t size) { return Buffer(std::malloc(static_cast<size_t>(size)), std::free); }

    Pipe& pipeOf(uint32_t cam) { return mElem.find(static_cast<int>(cam))->second->pipes[kPipe]; }

    static const Buffer* findValue(Pipe& pipe, uint32_t frameID, uint32_t tag) {
        if (frameID <= pipe.erasePoint.find(tag)->second) return nullptr;
        auto frame = pipe.frames.find(frameID);
        if (frame != pipe.frames.end()) {
            const auto own = frame->second->tags.find(tag);
            if (own != frame->second->tags.end()) return &own->second;
        }
        const std::vector<uint32_t>& ids = *pipe.checkPoint.find(tag)->second;
        const auto later = std::upper_bound(ids.begin(), ids.end(), frameID);
        if (later == ids.begin()) return nullptr;
        return &pipe.frames.find(*(later - 1))->second->tags.find(tag)->second;
    }

    static Frame& frameIn(Pipe& pipe, uint32_t frameID) {
        std::shared_ptr<Frame>& frame = pipe.frames[frameID];
        if (frame == nullptr) frame = std::make_shared<Frame>();
        return *frame;
    }

    static Buffer& findOrMake(Pipe& pipe, Frame& frame, uint32_t frameID, uint32_t tag, const zarn::tag_info_t& info) {
        Buffer& buffer = frame.tags[tag];
        if (buffer == nullptr) {
            std::shared_ptr<std::vector<uint32_t>>& ids = pipe.checkPoint[tag];
            if (ids == nullptr) ids = std::make_shared<std::vector<uint32_t>>();
            ids->insert(std::upper_bound(ids->begin(), ids->end(), frameID), frameID);
            buffer = makeBuffer(info.mSize);
        }
        return buffer;
    }

    static void save(Pipe& pipe, uint32_t frameID, uint32_t tag, const zarn::tag_info_t& info) {
        const Buffer& value = pipe.frames.find(frameID)->second->tags.find(tag)->second;
        Buffer& saved = pipe.f0->tags[tag];
        if (saved == nullptr) saved = makeBuffer(info.mSize);
        std::memcpy(saved.get(), value.get(), static_cast<size_t>(info.mSize));
    }

    static void removeFrames(Pipe& pipe, uint32_t tag, uint32_t limit) {
        auto it = pipe.frames.begin();
        if (it == pipe.frames.end() || it->first > limit) return;
        while (it != pipe.frames.end() && it->first <= limit) {
            it->second->tags.erase(tag);
            it = it->second->tags.empty() ? pipe.frames.erase(it) : std::next(it);
        }
        pipe.erasePoint[tag] = limit;
    }

    std::map<uint32_t, zarn::tag_info_t> mRegistry;
    std::mutex mMutex;
    std::map<int, std::shared_ptr<Camera>> mElem;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_MAPS_H
