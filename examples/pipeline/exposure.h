// Exposure: turns the statistics of each frame into its gain.

#ifndef PIPELINE_EXPOSURE_H
#define PIPELINE_EXPOSURE_H

#include "controller.h"
#include "module.h"

namespace pipeline {

class Exposure : public Module {
public:
    explicit Exposure(const ModuleContext& context) : Module(context) {}

    uint64_t skipped() const { return mSkipped; }  ///< frames that were erased before this module reached them

private:
    void process() override;
    void deliverGain(uint32_t frame);
    void removeFrame(uint32_t frame);

    ExposureController mController;
    uint64_t mSkipped = 0;
};

}  // namespace pipeline

#endif  // PIPELINE_EXPOSURE_H
