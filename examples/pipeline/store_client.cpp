// Counts the calls of a module to the store, and finds out which frame answered a get.

#include "store_client.h"

#include <algorithm>
#include <cstring>

#include "platform/host/host_platform.h"

namespace pipeline {

using namespace zarn;

namespace {

/// An erase with a smaller frame id does nothing.
constexpr uint32_t FIRST_ERASE = 8;

}  // namespace

int64_t steadyNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void StoreClient::erase(Pipe pipe, uint32_t frame) {
    if (frame < FIRST_ERASE) return;
    frame += stagedLead(pipe, frame);
    if (eraseFrames(mCamera, pipe, Frame{frame}) != Result::OK) ++mTraffic.failures;
    mErased[static_cast<size_t>(pipe.number())] = frame;
}

// A staged erase is too early by the tag's retain number, so it removes the tag's values up to this frame.
uint32_t StoreClient::stagedLead(Pipe pipe, uint32_t frame) const {
    const auto leadOf = [&](const auto& tag) {
        if (pipe.number() != tag.pipe.number() || !isStaged(Fault::ERASE, tag.tag(), frame)) return 0u;
        return static_cast<uint32_t>(tag.kind().retain);
    };
    return std::max({leadOf(FRAME_READY), leadOf(STATISTICS), leadOf(GAIN), leadOf(RELEASED)});
}

void StoreClient::setMetadata(const FrameMetadata& metadata) {
    if (isStaged(Fault::DROP, METADATA_TAG, metadata.frame)) return;
    camera_metadata* record = host::makeMetadata(&metadata, sizeof metadata);
    const uint32_t code = ParamSet::setMetadata(mCamera.number(), metadata.frame, record);
    free_camera_metadata(record);
    ++(code == PS_OK ? mTraffic.metadataSets : mTraffic.failures);
}

bool StoreClient::getMetadata(uint32_t frame, FrameMetadata& metadata) {
    const camera_metadata* record = ParamSet::getMetadata(mCamera.number(), frame);
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
    const bool done = ioctrlOutsidePsParam(mCamera.number(), code, 0, in, out) == PS_OK;
    if (!done) ++mTraffic.failures;
    return done;
}

void StoreClient::countSet(Result result) {
    ++(result == Result::OK ? mTraffic.sets : mTraffic.failures);
}

// TIMED_OUT is a time-out. So is NOT_OF_FRAME, unless an erase ended the wait early. The result does not tell whether a
// successful get had to wait: it did if the value was delivered after the call began. This misses a wait that began
// just after the deliverer read the clock and before it took the store's mutex.
void StoreClient::countWait(Result result, int64_t startNs, int64_t deliveredNs, Wait timeout) {
    const std::chrono::nanoseconds took(steadyNs() - startNs);
    const bool missed = result == Result::NOT_OF_FRAME || result == Result::TIMED_OUT;
    const bool waited = missed || (result == Result::OK && deliveredNs > startNs);
    if (waited) mTraffic.waitsMs.push_back(std::chrono::duration<double, std::milli>(took).count());
    if (missed && took >= timeout) ++mTraffic.timeouts;
}

// A value's own frame id tells which frame it was delivered for. But frame 0 also holds copies of erased values, and
// the first value of frame 0 has the id 0. A value is such a copy if its frame was erased: by this client (it is at or
// below the erase point), or by another one (then it is of the requested frame or a later one, because the requested
// frame itself was erased).
AnsweredBy StoreClient::countGet(Kind kind, Pipe pipe, uint32_t frame, uint32_t answering, Result result) {
    if (result != Result::OK && result != Result::NOT_OF_FRAME && result != Result::TIMED_OUT) {
        ++mTraffic.failures;
        return AnsweredBy::NOBODY;
    }
    ++mTraffic.gets;
    if (kind.tagType == staticKind().tagType || answering <= erasePoint(kind, pipe) || answering > frame ||
        (answering == frame && result == Result::NOT_OF_FRAME)) {
        ++mTraffic.byFrame0;
        return AnsweredBy::FRAME_0;
    }
    ++(answering < frame ? mTraffic.byEarlier : mTraffic.byItself);
    return answering < frame ? AnsweredBy::EARLIER : AnsweredBy::ITSELF;
}

// The newest frame whose value this client has erased. A queue is trimmed, not erased.
uint32_t StoreClient::erasePoint(Kind kind, Pipe pipe) const {
    const auto retain = static_cast<uint32_t>(kind.retain);
    const uint32_t erased = mErased[static_cast<size_t>(pipe.number())];
    return kind.tagType == dynamicKind().tagType && erased > retain ? erased - retain : 0;
}

}  // namespace pipeline
