// One module's way to the store: typed values in place of bytes, and a count of everything that passes.
// A client belongs to one thread at a time and has no lock.

#ifndef PIPELINE_STORE_CLIENT_H
#define PIPELINE_STORE_CLIENT_H

#include <array>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "values.h"

namespace pipeline {

int64_t steadyNs();

enum class AnsweredBy { NOBODY, ITSELF, EARLIER, FRAME_0 };

/// What passed between one module and the store. Every get is answered by exactly one of the three, or failed.
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
    std::vector<double> waitsMs;  ///< one for each synchronous get that had to wait, see countWait
};

class StoreClient {
public:
    explicit StoreClient(uint32_t camera) : mCamera(camera) {}

    /// Sets without waking anyone.
    template <typename Value>
    void set(const Tag<Value>& tag, uint32_t frame, Value value) {
        stamp(value, frame);
        countSet(setPsParam(mCamera, tag.pipe, frame, tag.id, &value));
    }

    /// Sets and wakes who waits for it.
    template <typename Value>
    void deliver(const Tag<Value>& tag, uint32_t frame, Value value) {
        stamp(value, frame);
        countSet(setPsParamSyn(mCamera, tag.pipe, frame, tag.id, &value));
    }

    /// Gets what there is. The value is untouched if nobody answered.
    template <typename Value>
    AnsweredBy get(const Tag<Value>& tag, uint32_t frame, Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        const uint32_t code = getPsParam(mCamera, tag.pipe, frame, tag.id, &value);
        return countGet(tag, frame, value.stamp, code);
    }

    /// Gets, waiting once for the frame's own value if need be.
    template <typename Value>
    AnsweredBy await(const Tag<Value>& tag, uint32_t frame, Value& value, uint32_t timeoutMs = DEFAULT_WAIT_MS) {
        static_assert(std::is_trivially_copyable_v<Value>);
        const int64_t startNs = steadyNs();
        const uint32_t code = getPsParamSynTimeout(mCamera, tag.pipe, frame, tag.id, &value, timeoutMs);
        countWait(code, startNs, value.stamp.deliveredNs, timeoutMs);
        return countGet(tag, frame, value.stamp, code);
    }

    /// Lets the store drop what lies further behind @p frame than its retain number.
    void erase(PipeIndex pipe, uint32_t frame);

    void setMetadata(const FrameMetadata& metadata);

    /// False if there is none. Only for who erases the frame pipe: nobody else may have it erased meanwhile.
    bool getMetadata(uint32_t frame, FrameMetadata& metadata);

    /// Sends a command to the external processor; false if it did not take it.
    bool command(uint32_t code, void* in, void* out);

    uint32_t camera() const { return mCamera; }
    const Traffic& traffic() const { return mTraffic; }

private:
    template <typename Value>
    static void stamp(Value& value, uint32_t frame) {
        static_assert(std::is_trivially_copyable_v<Value>);
        value.stamp = {frame, steadyNs()};
    }

    void countSet(uint32_t code);
    AnsweredBy countGet(const TagInfo& tag, uint32_t frame, const Stamp& answer, uint32_t code);
    void countWait(uint32_t code, int64_t startNs, int64_t deliveredNs, uint32_t timeoutMs);
    AnsweredBy whoAnswered(const TagInfo& tag, uint32_t frame, uint32_t answeringFrame, uint32_t code) const;

    uint32_t mCamera;
    Traffic mTraffic;
    std::array<uint32_t, MAX_PIPE_NUM> mErased{};  ///< by pipe: the last frame that this client erased at
};

}  // namespace pipeline

#endif  // PIPELINE_STORE_CLIENT_H
