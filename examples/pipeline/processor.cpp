// See processor.h. An operation returns 0 if it succeeded, else a result that is different from the store's.

#include "processor.h"

#include <cmath>

namespace pipeline {

namespace {

constexpr int REJECTED = -22;
constexpr double MAX_GAIN = 16;

int programGain(void* handle, uint32_t, void* in) {
    const double gain = *static_cast<const float*>(in);
    if (!(gain >= 0 && gain <= MAX_GAIN)) return REJECTED;
    auto* processor = static_cast<Processor*>(handle);
    processor->registers[GAIN_REGISTER] = static_cast<uint32_t>(std::lround(gain / GAIN_STEP));
    ++processor->registers[PROGRAM_COUNT_REGISTER];
    return 0;
}

int readRegister(void* handle, uint32_t, uint32_t number, void* out) {
    if (number > PROGRAM_COUNT_REGISTER) return REJECTED;
    *static_cast<uint32_t*>(out) = static_cast<const Processor*>(handle)->registers[number];
    return 0;
}

}  // namespace

void installProcessors(zarn::ParamSet& store, Processor* processors) {
    zarn_ops ops{};
    ops.cmd4 = programGain;
    ops.cmd6 = readRegister;
    store.setPsOps(&ops);
    for (uint32_t camera = 0; camera < MAX_CAM_NUM; ++camera) {
        store.setPsHandle(camera, &processors[camera], nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
}

}  // namespace pipeline
