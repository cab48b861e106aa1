// The parameter store, called through its C functions in the shared library, as by any user.

#ifndef PARAMSET_BENCH_STORE_H
#define PARAMSET_BENCH_STORE_H

#include <string>

#include "bench/contender.h"
#include "paramset.h"

namespace bench {

class Store {
public:
    static constexpr char kName[] = "store";
    static constexpr Abilities kAbilities{"yes", "yes, by count and by erase", "yes", "yes", "yes, in five levels"};

    // The registry outlives a store. It is emptied while there is none, so that each shape has only its own tags. If
    // two objects of this class exist, they share the one store and each uses its own camera. The first one must have
    // all tags of the second.
    Store(uint32_t tags, uint32_t size) {
        if (sUsers++ == 0) zarn::gTagInfo.clear();
        zarn::ParamSet::createInstance();
        for (uint32_t tag = 0; tag < tags; ++tag) {
            registerPsDynamicParam(id(tag), size, 0, ("tag" + std::to_string(tag)).c_str(), "bytes");
        }
    }
    ~Store() {
        if (--sUsers == 0) zarn::ParamSet::destroyInstance();
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        setPsParam(cam, kPipe, frame, id(tag), const_cast<void*>(value));
    }
    bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        return getPsParam(cam, kPipe, frame, id(tag), value) == PS_OK;
    }
    void erase(uint32_t cam, uint32_t frame) { erasePs(cam, kPipe, frame); }
    void deliver(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        setPsParamSyn(cam, kPipe, frame, id(tag), const_cast<void*>(value));
    }
    bool await(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        return getPsParamSyn(cam, kPipe, frame, id(tag), value) == PS_OK;
    }

private:
    static uint32_t id(uint32_t tag) { return 0x1000 + tag; }

    static inline int sUsers = 0;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_STORE_H
