// Through this class a module calls the store; it counts the calls and their results.
// A client is used by one thread at a time and has no lock.

#ifndef PIPELINE_STORE_CLIENT_H
#define PIPELINE_STORE_CLIENT_H

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

#include "staging.h"
#include "values.h"

namespace pipeline {

using Wait = std::chrono::milliseconds;

int64_t steadyNs();

enum class AnsweredBy { NOBODY, ITSELF, EARLIER, FRAME_0 };

/// The counts of one module's calls. Every get is counted once in byItself, byEarlier or byFrame0, or in failures.
struct Traffic {
    uint64_t sets = 0;
    uint64_t gets = 0;
    uint64_t byItself = 0;
    uint64_t byEarlier = 0;
    uint64_t byFrame0 = 0;
    uint64_t timeouts = 0;
    uint64_t failures = 0;
    uint64_t metadataSets = 0;
    uint64_t metadataGets = 0;
    uint64_t metadataByItself = 0;
    std::vector<double> waitsMs;  ///< the time of each synchronous get that had to wait, see countWait
};

class StoreClient {
public:
    /// @param module  the module that uses the client, for staged faults
    explicit StoreClient(zarn::Camera camera, ModuleName module = MODULE_COUNT, const Staging* staging = nullptr)
        : mCamera(camera), mModule(module), mStaging(staging) {}

    /// Plain set: wakes no get.
    template <typename Value>
    void set(const Tag<Value>& tag, uint32_t frame, Value value) {
        if (isStaged(Fault::DROP, tag.tag(), frame)) return;
        stamp(value, frame);
        countSet(tag.set(mCamera, tag.pipe, zarn::Frame{frame}, value));
    }

    /// Synchronous set: wakes the gets that wait for the value.
    template <typename Value>
    void deliver(const Tag<Value>& tag, uint32_t frame, Value value) {
        if (isStaged(Fault::PLAIN, tag.tag(), frame)) return set(tag, frame, value);
        if (isStaged(Fault::DROP, tag.tag(), frame)) return;
        stamp(value, frame);
        countSet(tag.deliver(mCamera, tag.pipe, zarn::Frame{frame}, value));
    }

    /// Plain get: does not wait. The value is untouched if no frame answered.
    template <typename Value>
    AnsweredBy get(const Tag<Value>& tag, uint32_t frame, Value& value) {
        const zarn::Result result = tag.get(mCamera, tag.pipe, zarn::Frame{frame}, value);
        return countGet(tag.kind(), tag.pipe, frame, value.stamp.frame, result);
    }

    /// Synchronous get: waits once for the frame's own value if it is not there.
    template <typename Value>
    AnsweredBy await(const Tag<Value>& tag, uint32_t frame, Value& value, Wait timeout = Wait{DEFAULT_WAIT_MS}) {
        const bool missed = mStaging != nullptr && mStaging->has(Fault::LOSE, tag.tag(), frame, mModule);
        const MissedWakeUps wakeUps(missed);
        const int64_t startNs = steadyNs();
        const zarn::Result result = tag.wait(mCamera, tag.pipe, zarn::Frame{frame}, value, timeout);
        if (missed && result == zarn::Result::TIMED_OUT) mStaging->note(Fault::LOSE, tag.tag(), frame, mModule);
        countWait(result, startNs, value.stamp.deliveredNs, timeout);
        return countGet(tag.kind(), tag.pipe, frame, value.stamp.frame, result);
    }

    /// Erases the values that are at least their retain number behind @p frame.
    void erase(zarn::Pipe pipe, uint32_t frame);

    void setMetadata(const FrameMetadata& metadata);

    /// False if there is none. Only for the module that erases the frame pipe, so that no erase can free the metadata
    /// while it is copied.
    bool getMetadata(uint32_t frame, FrameMetadata& metadata);

    /// Sends a command to the external processor; false if it failed.
    bool command(uint32_t code, void* in, void* out);

    zarn::Camera camera() const { return mCamera; }
    const Traffic& traffic() const { return mTraffic; }

private:
    template <typename Value>
    static void stamp(Value& value, uint32_t frame) {
        value.stamp = {frame, steadyNs()};
    }

    void countSet(zarn::Result result);
    AnsweredBy countGet(zarn::Kind kind, zarn::Pipe pipe, uint32_t frame, uint32_t answering, zarn::Result result);
    void countWait(zarn::Result result, int64_t startNs, int64_t deliveredNs, Wait timeout);
    uint32_t stagedLead(zarn::Pipe pipe, uint32_t frame) const;
    uint32_t erasePoint(zarn::Kind kind, zarn::Pipe pipe) const;

    bool isStaged(Fault fault, uint32_t tag, uint32_t frame) const {
        return mStaging != nullptr && mStaging->happens(fault, tag, frame);
    }

    zarn::Camera mCamera;
    ModuleName mModule;
    const Staging* mStaging;
    Traffic mTraffic;
    std::array<uint32_t, MAX_PIPE_NUM> mErased{};  ///< by pipe: the last frame that this client erased at
};

}  // namespace pipeline

#endif  // PIPELINE_STORE_CLIENT_H
