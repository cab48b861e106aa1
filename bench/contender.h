// The interface that the workloads need of every contender: the parameter store itself, two floors (minimal baselines),
// and the peers (alternatives to the store). A contender keeps values of (camera, frame, tag) in one pipe; tags count
// from 0.
//
//     class Contender {
//     public:
//         static constexpr char kName[];
//         static constexpr Abilities kAbilities;
//         Contender(uint32_t tags, uint32_t size);
//         void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value);
//         bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value);  // of the newest frame up to `frame`
//         void erase(uint32_t cam, uint32_t frame);  // values that are kRetained or more frames behind `frame`
//         void deliver(uint32_t cam, ...);           // a set that wakes the waiting gets (Store and Maps only)
//         bool await(uint32_t cam, ...);             // a get that waits for deliver (Store and Maps only)
//     };

#ifndef PARAMSET_BENCH_CONTENDER_H
#define PARAMSET_BENCH_CONTENDER_H

#include <cstddef>
#include <cstdint>

namespace bench {

constexpr uint32_t kPipe = 2;
constexpr uint32_t kRetained = 6;  // what a tag is registered with
constexpr uint32_t kCameras = 5;

struct Abilities {
    const char* earlierFrame;
    const char* boundedHistory;
    const char* blockingWait;
    const char* eraseByFrame;
    const char* messageTrail;
    bool setsInPlace = true;
    bool keepsAll = true;  // values of hundreds of frames, until they are erased
};

// The key of a value, for contenders that keep the values of all cameras in one container.
struct Key {
    uint32_t cam;
    uint32_t pipe;
    uint32_t tag;
    uint32_t frame;

    friend bool operator<(const Key& a, const Key& b) {
        if (a.cam != b.cam) return a.cam < b.cam;
        if (a.pipe != b.pipe) return a.pipe < b.pipe;
        if (a.tag != b.tag) return a.tag < b.tag;
        return a.frame < b.frame;
    }
    // The prefix of a key is the key without the frame.
    bool hasPrefixOf(const Key& other) const { return cam == other.cam && pipe == other.pipe && tag == other.tag; }
};

}  // namespace bench

#endif  // PARAMSET_BENCH_CONTENDER_H
