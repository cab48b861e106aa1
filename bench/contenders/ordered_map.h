// The simplest alternative: one ordered map from (camera, pipe, tag, frame) to bytes under a mutex. A read takes the
// entry before upper_bound.

#ifndef PARAMSET_BENCH_ORDERED_MAP_H
#define PARAMSET_BENCH_ORDERED_MAP_H

#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "bench/contender.h"

namespace bench {

class OrderedMap {
public:
    static constexpr char kName[] = "ordered map";
    static constexpr Abilities kAbilities{"yes", "by erase", "no", "yes, tag by tag", "no"};

    OrderedMap(uint32_t tags, uint32_t size) : mTags(tags), mSize(size) {}

    void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        const auto* bytes = static_cast<const char*>(value);
        const std::lock_guard<std::mutex> lock(mMutex);
        mValues[Key{cam, kPipe, tag, frame}].assign(bytes, bytes + mSize);
    }
    bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        const Key wanted{cam, kPipe, tag, frame};
        const std::lock_guard<std::mutex> lock(mMutex);
        auto it = mValues.upper_bound(wanted);
        if (it == mValues.begin() || !(--it)->first.hasPrefixOf(wanted)) return false;
        std::memcpy(value, it->second.data(), mSize);
        return true;
    }
    void erase(uint32_t cam, uint32_t frame) {
        const std::lock_guard<std::mutex> lock(mMutex);
        for (uint32_t tag = 0; tag < mTags; ++tag) {
            const auto first = mValues.lower_bound(Key{cam, kPipe, tag, 0});
            mValues.erase(first, mValues.upper_bound(Key{cam, kPipe, tag, frame - kRetained}));
        }
    }

private:
    const uint32_t mTags;
    const uint32_t mSize;
    std::mutex mMutex;
    std::map<Key, std::vector<char>> mValues;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_ORDERED_MAP_H
