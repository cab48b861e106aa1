// The exposure controller: the gain that brings mean luma to its target, approached step by step.

#ifndef PIPELINE_CONTROLLER_H
#define PIPELINE_CONTROLLER_H

#include "values.h"

namespace pipeline {

class ExposureController {
public:
    /// The gain for the next frame.
    ///
    /// @param statistics  of the frame, or of an earlier one if its own are late; without any (frame id 0) the gain
    ///                    stays as it is
    /// @param past        history of LOOK_BACK frames ago, frame id 0 if there is none
    double update(const Tuning& tuning, const Statistics& statistics, const HistoryEntry& past);

private:
    double mGain = 1;
};

}  // namespace pipeline

#endif  // PIPELINE_CONTROLLER_H
