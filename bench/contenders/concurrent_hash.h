// oneTBB's concurrent_hash_map from (camera, pipe, tag, frame) to bytes. A hash has no order, so a read walks back
// frame by frame. The only locks are those that the map itself has for each bucket and each element.

#ifndef PARAMSET_BENCH_CONCURRENT_HASH_H
#define PARAMSET_BENCH_CONCURRENT_HASH_H

#include <oneapi/tbb/concurrent_hash_map.h>

#include <cstring>
#include <vector>

#include "bench/contender.h"

namespace bench {

class ConcurrentHash {
public:
    static constexpr char kName[] = "oneTBB hash";
    static constexpr Abilities kAbilities{"by a walk", "by erase", "no", "yes, key by key", "no"};

    ConcurrentHash(uint32_t tags, uint32_t size) : mTags(tags), mSize(size) {}

    void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        const auto* bytes = static_cast<const char*>(value);
        Map::accessor entry;
        mValues.insert(entry, Key{cam, kPipe, tag, frame});
        entry->second.assign(bytes, bytes + mSize);
    }
    bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        const uint32_t last = frame > kLongestWalk ? frame - kLongestWalk : 0;
        for (; frame > last; --frame) {
            Map::const_accessor entry;
            if (!mValues.find(entry, Key{cam, kPipe, tag, frame})) continue;
            std::memcpy(value, entry->second.data(), mSize);
            return true;
        }
        return false;
    }
    // A hash cannot erase a range, so each frame is erased once: from the limit of the call before up to this one's.
    void erase(uint32_t cam, uint32_t frame) {
        const uint32_t limit = frame - kRetained;
        for (uint32_t old = mErased[cam] + 1; old <= limit; ++old) {
            for (uint32_t tag = 0; tag < mTags; ++tag) mValues.erase(Key{cam, kPipe, tag, old});
        }
        if (limit > mErased[cam]) mErased[cam] = limit;
    }

private:
    static constexpr uint32_t kLongestWalk = 300;
    struct HashOfKey {
        static size_t hash(const Key& key) {
            const uint64_t prefix = (uint64_t{key.cam} * 16 + key.pipe) << 32 | key.tag;
            return static_cast<size_t>((prefix * 0x9E3779B97F4A7C15u) ^ (key.frame * 0xC2B2AE3D27D4EB4Fu));
        }
        static bool equal(const Key& a, const Key& b) { return a.hasPrefixOf(b) && a.frame == b.frame; }
    };
    using Map = oneapi::tbb::concurrent_hash_map<Key, std::vector<char>, HashOfKey>;

    const uint32_t mTags;
    const uint32_t mSize;
    Map mValues;
    uint32_t mErased[kCameras] = {};
};

}  // namespace bench

#endif  // PARAMSET_BENCH_CONCURRENT_HASH_H
