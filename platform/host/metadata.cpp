// Host metadata: a record is its size, followed by its bytes in the same allocation.
// State: gLiveRecords, atomic. Records belong to their callers.

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/host/host_platform.h"

struct alignas(std::max_align_t) camera_metadata {
    size_t size;
};

namespace {

std::atomic<size_t> gLiveRecords{0};

}  // namespace

camera_metadata* host::makeMetadata(const void* bytes, size_t size) {
    if (size > SIZE_MAX - sizeof(camera_metadata)) {
        return nullptr;
    }
    auto* record = static_cast<camera_metadata*>(malloc(sizeof(camera_metadata) + size));
    if (record == nullptr) {
        return nullptr;
    }
    record->size = size;
    if (size > 0) {
        memcpy(record + 1, bytes, size);
    }
    ++gLiveRecords;
    return record;
}

size_t host::metadataSize(const camera_metadata* metadata) {
    return metadata->size;
}

const uint8_t* host::metadataBytes(const camera_metadata* metadata) {
    return reinterpret_cast<const uint8_t*>(metadata + 1);
}

size_t host::liveMetadata() {
    return gLiveRecords;
}

extern "C" camera_metadata* clone_camera_metadata(const camera_metadata* source) {
    return source != nullptr ? host::makeMetadata(host::metadataBytes(source), source->size) : nullptr;
}

extern "C" void free_camera_metadata(camera_metadata* metadata) {
    if (metadata != nullptr) {
        --gLiveRecords;
        free(metadata);
    }
}
