// A stand-in for the external processor, called through the store's table of operations. It has a few registers for
// each camera; the ISP programs the one for the gain.

#ifndef PIPELINE_PROCESSOR_H
#define PIPELINE_PROCESSOR_H

#include <cstdint>

#include "paramset.h"

namespace pipeline {

/// Commands that the processor knows, as codes of ioctrlOutsidePsParam.
constexpr uint32_t PROGRAM_GAIN = 0x8004;   ///< in: the gain, a float
constexpr uint32_t READ_REGISTER = 0x8006;  ///< in: a ProcessorRegister; out: its value, a uint32

enum ProcessorRegister : uint32_t { GAIN_REGISTER = 0, PROGRAM_COUNT_REGISTER = 1 };

/// The gain is the value of the gain register times this.
constexpr double GAIN_STEP = 1.0 / 1024;

/// One camera's part of the processor. Only that camera's ISP uses it.
struct Processor {
    uint32_t registers[2];
};

/// Installs the operations, and the MAX_CAM_NUM processors as the cameras' handles, in the store. They must outlive it.
void installProcessors(zarn::ParamSet& store, Processor* processors);

}  // namespace pipeline

#endif  // PIPELINE_PROCESSOR_H
