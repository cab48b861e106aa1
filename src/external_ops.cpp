// Commands for parameters that live in an external processor: forwarded through the installed operations, with the
// camera's handles. Takes no lock; the handles and operations are set before commands are issued. Pointers are read and
// written atomically: if one is replaced while a command runs, the command sees either the old or the new one.

#include <cstring>
#include <iterator>
#include <utility>

#include "platform/log.h"
#include "src/changes.h"
#include "src/hold.h"

namespace zarn {

namespace {

constexpr uint32_t kFirstCode = 0x8000;
constexpr uint32_t kLastCode = 0x800A;
constexpr uintptr_t kExternalDataOffset = 8;

template <typename T>
T load(T const& pointer) {
    return __atomic_load_n(&pointer, __ATOMIC_ACQUIRE);
}

template <typename T>
void store(T& target, T pointer) {
    __atomic_store_n(&target, pointer, __ATOMIC_RELEASE);
}

template <typename T>
T readFrom(const void* in) {
    T value = 0;
    if (in != nullptr) std::memcpy(&value, in, sizeof value);
    return value;
}

// Calls an operation, unless its slot is null or there is no such camera.
template <typename Operation, typename... Args>
uint32_t call(Operation const& slot, const cam_elem* elem, size_t handle, Args... args) {
    const Operation operation = load(slot);
    if (operation == nullptr) return PS_NO_DATA;
    if (elem == nullptr) return PS_OUT_OF_LIMIT;
    return static_cast<uint32_t>(operation(load(elem->mHandle[handle]), args...));
}

// Whether the command's operation is installed and needs a value of the caller, whose pointer is null.
bool lacksInput(const zarn_ops& ops, uint32_t code, const void* in) {
    if (in != nullptr) return false;
    switch (code) {
        case 0x8006: return load(ops.cmd6) != nullptr;
        case 0x8007: return load(ops.cmd7) != nullptr;
        case 0x800A: return load(ops.cmd10) != nullptr;
        default: return false;
    }
}

}  // namespace

struct ParamSet::Command {
    uint32_t cam;
    uint32_t code;
    int32_t arg;
    void* in;
    void* out;
};

void ParamSet::setPsOps(zarn_ops* ops) {
    store(mOps.cmd0, ops->cmd0);
    store(mOps.cmd1, ops->cmd1);
    store(mOps.cmd2, ops->cmd2);
    store(mOps.cmd3, ops->cmd3);
    store(mOps.cmd4, ops->cmd4);
    store(mOps.cmd5, ops->cmd5);
    store(mOps.cmd6, ops->cmd6);
    store(mOps.cmd7, ops->cmd7);
    store(mOps.cmd8, ops->cmd8);
    store(mOps.cmd9, ops->cmd9);
    store(mOps.cmd10, ops->cmd10);
}

void ParamSet::setPsHandle(uint32_t cam, void* handle0, void* handle1, void* handle2, void* handle3, void* handle4,
                           void* handle5, void* handle6) {
    const auto it = mElem.find(static_cast<int>(cam));
    if (it == mElem.end()) return;
    void* const handles[] = {handle0, handle1, handle2, handle3, handle4, handle5, handle6};
    for (size_t i = 0; i < std::size(handles); ++i) store(it->second->mHandle[i], handles[i]);
}

// The caller may change the pipes through the pointer, so this counts as a change.
cam_elem* ParamSet::getPsHandle(uint32_t cam) {
    announceChange();
    return const_cast<cam_elem*>(std::as_const(*this).getPsHandle(cam));
}

const cam_elem* ParamSet::getPsHandle(uint32_t cam) const {
    const auto it = mElem.find(static_cast<int>(cam));
    if (it == mElem.end()) {
        PS_LOG(1, "paramset can not get ps handle");
        return nullptr;
    }
    const cam_elem* const elem = it->second.get();
    PS_LOG(5, "parameset getPsHandle mElem:%p", static_cast<const void*>(elem));
    return elem;
}

int ParamSet::getParamExternal(uint32_t cam, int32_t /*pipe*/, uint32_t /*frame*/, uint32_t tag, void* data) {
    const cam_elem* elem = std::as_const(*this).getPsHandle(cam);
    const auto cmd3 = load(mOps.cmd3);
    if (cmd3 == nullptr) {
        PS_LOG(1, "no isp ops");
        return -1;
    }
    if (elem == nullptr) return -1;
    // Calculated as an integer: the data may be null, and arithmetic on a null pointer is undefined.
    const uintptr_t address = reinterpret_cast<uintptr_t>(data) + kExternalDataOffset;
    return cmd3(load(elem->mHandle[6]), static_cast<int32_t>(tag), reinterpret_cast<void*>(address));
}

uint32_t ParamSet::ioctrlOutsideParam(uint32_t cam, uint32_t code, int32_t arg, void* in, void* out) {
    PS_LOG(5, "E");
    const Hold store;
    if (!store) return PS_NO_DATA;
    const cam_elem* elem = std::as_const(*store).getPsHandle(cam);
    if (code < kFirstCode || code > kLastCode) {
        PS_LOG(1, "fail to find tag:%d", code);
        return PS_OK;
    }
    if (lacksInput(store->mOps, code, in)) {
        PS_LOG(1, "no data, tag:%d", code);
        return PS_NO_DATA;
    }
    return store->forward(elem, Command{cam, code, arg, in, out});
}

uint32_t ParamSet::forward(const cam_elem* elem, const Command& command) {
    const auto& [cam, code, arg, in, out] = command;
    const int64_t wideArg = arg;
    switch (code) {
        case 0x8000: return call(mOps.cmd0, elem, 0, wideArg, in);
        case 0x8001: return call(mOps.cmd1, elem, 0, wideArg, in);
        case 0x8002: return call(mOps.cmd2, elem, 4, wideArg, in);
        case 0x8003: return call(mOps.cmd3, elem, 6, arg, in);
        case 0x8004: return call(mOps.cmd4, elem, 0, cam, in);
        case 0x8005: return call(mOps.cmd5, elem, 0, cam, in);
        case 0x8006: return call(mOps.cmd6, elem, 0, cam, readFrom<uint32_t>(in), out);
        case 0x8007: return call(mOps.cmd7, elem, 0, readFrom<uint8_t>(in), out);
        case 0x8008: return call(mOps.cmd8, elem, 5, in);
        case 0x8009: return call(mOps.cmd9, elem, 0, in);
        default: return call(mOps.cmd10, elem, 0, readFrom<uint32_t>(in));
    }
}

}  // namespace zarn

uint32_t ioctrlOutsidePsParam(uint32_t cam, uint32_t code, int32_t arg, void* in, void* out) {
    return zarn::ParamSet::ioctrlOutsideParam(cam, code, arg, in, out);
}
