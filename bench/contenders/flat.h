// The lower of the two floors: an uncontended lock and a copy from or to a preallocated array. A get returns only what
// was set for the same frame and tag; a frame shares its cells with the one kRing frames later.

#ifndef PARAMSET_BENCH_FLAT_H
#define PARAMSET_BENCH_FLAT_H

#include <cstring>
#include <memory>
#include <mutex>

#include "bench/contender.h"

namespace bench {

class Flat {
public:
    static constexpr char kName[] = "flat";
    static constexpr Abilities kAbilities{"no", "overwrites", "no", "no", "no", true, false};

    Flat(uint32_t tags, uint32_t size)
        : mTags(tags), mSize(size), mValues(new char[size_t{kCameras} * kRing * tags * size]()) {}

    void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        std::memcpy(cell(cam, frame, tag), value, mSize);
    }
    bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        std::memcpy(value, cell(cam, frame, tag), mSize);
        return true;
    }
    void erase(uint32_t, uint32_t) { const std::lock_guard<std::mutex> lock(mMutex); }

private:
    static constexpr uint32_t kRing = 32;

    char* cell(uint32_t cam, uint32_t frame, uint32_t tag) {
        return &mValues[((size_t{cam} * kRing + frame % kRing) * mTags + tag) * mSize];
    }

    const uint32_t mTags;
    const uint32_t mSize;
    std::unique_ptr<char[]> mValues;
    std::mutex mMutex;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_FLAT_H
