// Statistics: measures each frame.

#ifndef PIPELINE_STATISTICS_H
#define PIPELINE_STATISTICS_H

#include "module.h"

namespace pipeline {

class StatisticsModule : public Module {
public:
    explicit StatisticsModule(const ModuleContext& context) : Module(context) {}

private:
    void process() override;
};

}  // namespace pipeline

#endif  // PIPELINE_STATISTICS_H
