// A pattern that is common in camera stacks: per frame a map of name to std::any, the frames in an ordered map, all
// under a mutex. A read walks back from its frame to the first that has the name.

#ifndef PARAMSET_BENCH_ANY_FRAMES_H
#define PARAMSET_BENCH_ANY_FRAMES_H

#include <any>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "bench/contender.h"

namespace bench {

class AnyFrames {
public:
    static constexpr char kName[] = "any per frame";
    static constexpr Abilities kAbilities{"by a walk", "by erase", "no", "yes", "no"};

    AnyFrames(uint32_t tags, uint32_t size) : mSize(size) {
        for (uint32_t tag = 0; tag < tags; ++tag) mNames.push_back("camera.bench.tag" + std::to_string(tag));
    }

    void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        const auto* bytes = static_cast<const char*>(value);
        const std::lock_guard<std::mutex> lock(mMutex);
        std::any& entry = mFrames[{cam, kPipe}][frame][mNames[tag]];
        if (auto* present = std::any_cast<Bytes>(&entry)) {
            present->assign(bytes, bytes + mSize);
        } else {
            entry.emplace<Bytes>(bytes, bytes + mSize);
        }
    }
    bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        const Frames& frames = mFrames[{cam, kPipe}];
        for (auto it = frames.upper_bound(frame); it != frames.begin();) {
            const auto entry = (--it)->second.find(mNames[tag]);
            if (entry == it->second.end()) continue;
            std::memcpy(value, std::any_cast<Bytes>(&entry->second)->data(), mSize);
            return true;
        }
        return false;
    }
    void erase(uint32_t cam, uint32_t frame) {
        const std::lock_guard<std::mutex> lock(mMutex);
        Frames& frames = mFrames[{cam, kPipe}];
        frames.erase(frames.begin(), frames.upper_bound(frame - kRetained));
    }

private:
    using Bytes = std::vector<char>;
    using Frames = std::map<uint32_t, std::map<std::string, std::any>>;

    const uint32_t mSize;
    std::vector<std::string> mNames;
    std::mutex mMutex;
    std::map<std::pair<uint32_t, uint32_t>, Frames> mFrames;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_ANY_FRAMES_H
