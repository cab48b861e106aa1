// Counting what passes between a module and the store, and telling who answered a get.

#include "store_client.h"

#include <chrono>
#include <cstring>

#include "platform/host/host_platform.h"

namespace pipeline {

namespace {

/// An erase at an earlier frame does nothing.
constexpr uint32_t FIRST_ERASE = 8;

}  // namespace

int64_t steadyNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void StoreClient::erase(PipeIndex pipe, uint32_t frame) {
    if (frame < FIRST_ERASE) return;
    if (erasePs(mCamera, pipe, frame) != PS_OK) ++mTraffic.failures;
    mErased[static_cast<size_t>(pipe)] = frame;
}

void StoreClient::setMetadata(const FrameMetadata& metadata) {
    camera_metadata* record = host::makeMetadata(&metadata, sizeof metadata);
    const uint32_t code = zarn::ParamSet::setMetadata(mCamera, metadata.frame, record);
    free_camera_metadata(record);
    ++(code == PS_OK ? mTraffic.metadataSets : mTraffic.failures);
}

bool StoreClient::getMetadata(uint32_t frame, FrameMetadata& metadata) {
    const camera_metadata* record = zarn::ParamSet::getMetadata(mCamera, frame);
    if (record == nullptr || host::metadataSize(record) != sizeof metadata) {
        ++mTraffic.failures;
        return false;
    }
    std::memcpy(&metadata, host::metadataBytes(record), sizeof metadata);
    ++mTraffic.metadataGets;
    if (metadata.frame == frame) ++mTraffic.metadataByItself;
    return true;
}

bool StoreClient::command(uint32_t code, void* in, void* out) {
    const bool done = ioctrlOutsidePsParam(mCamera, code, 0, in, out) == PS_OK;
    if (!done) ++mTraffic.failures;
    return done;
}

void StoreClient::countSet(uint32_t code) {
    ++(code == PS_OK ? mTraffic.sets : mTraffic.failures);
}

AnsweredBy StoreClient::countGet(const TagInfo& tag, uint32_t frame, const Stamp& answer, uint32_t code) {
    if (code != PS_OK && code != PS_NOT_OF_FRAME && code != PS_TIMED_OUT) {
        ++mTraffic.failures;
        return AnsweredBy::NOBODY;
    }
    ++mTraffic.gets;
    const AnsweredBy by = whoAnswered(tag, frame, answer.frame, code);
    if (by == AnsweredBy::ITSELF) ++mTraffic.byItself;
    if (by == AnsweredBy::EARLIER) ++mTraffic.byEarlier;
    if (by == AnsweredBy::FRAME_0) ++mTraffic.byFrame0;
    return by;
}

// A result of 6 is a time-out; one of 3 is one too, unless an erase ended the wait before its time. The result does
// not tell whether a get that succeeded had to wait: it did if the value was handed to the store after the call. That
// misses a wait that began in the few instructions between a deliverer's clock and the store's mutex.
void StoreClient::countWait(uint32_t code, int64_t startNs, int64_t deliveredNs, uint32_t timeoutMs) {
    const double ms = static_cast<double>(steadyNs() - startNs) / 1e6;
    const bool missed = code == PS_NOT_OF_FRAME || code == PS_TIMED_OUT;
    if (missed || (code == PS_OK && deliveredNs > startNs)) mTraffic.waitsMs.push_back(ms);
    if (missed && ms >= timeoutMs) ++mTraffic.timeouts;
}

// A value's own frame id tells which frame it was delivered for, but frame 0 holds copies of erased values, too. Such a
// copy is of a frame that this client has erased, or, where another client erases, of the frame that was asked for or a
// later one: who is asked for a frame that far back has lost it. Frame 0's first value has the id 0.
AnsweredBy StoreClient::whoAnswered(const TagInfo& tag, uint32_t frame, uint32_t answeringFrame, uint32_t code) const {
    if (tag.type == STANDING) return AnsweredBy::FRAME_0;
    const uint32_t retain = static_cast<uint32_t>(tag.retain);
    const uint32_t erased = mErased[static_cast<size_t>(tag.pipe)];
    const uint32_t erasePoint = tag.type == PER_FRAME && erased > retain ? erased - retain : 0;
    if (answeringFrame <= erasePoint || answeringFrame > frame) return AnsweredBy::FRAME_0;
    if (answeringFrame < frame) return AnsweredBy::EARLIER;
    return code == PS_NOT_OF_FRAME ? AnsweredBy::FRAME_0 : AnsweredBy::ITSELF;
}

}  // namespace pipeline
