// A stand-in for the external processor behind the store's table of operations: per camera a few registers, of which
// the ISP programs the gain.

#ifndef PIPELINE_PROCESSOR_H
#define PIPELINE_PROCESSOR_H

#include <cstdint>

#include "paramset.h"

namespace pipeline {

/// Commands that the processor knows, as codes of ioctrlOutsidePsParam.
constexpr uint32_t PROGRAM_GAIN = 0x8004;   ///< in: the gain, a float
constexpr uint32_t READ_REGISTER = 0x8006;  ///< in: a ProcessorRegister; out: its value, a uint32

enum ProcessorRegister : uint32_t { GAIN_REGISTER = 0, PROGRAM_COUNT_REGISTER = 1 };

/// The gain register counts in this fraction.
constexpr double GAIN_STEP = 1.0 / 1024;

/// One camera's part of the processor. Only that camera's ISP talks to it.
struct Processor {
    uint32_t registers[2];
};

/// Puts the processors, MAX_CAM_NUM of them, behind the store. They must outlive it.
void installProcessors(zarn::ParamSet& store, Processor* processors);

}  // namespace pipeline

#endif  // PIPELINE_PROCESSOR_H
