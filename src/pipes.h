// The pipes of all cameras, and the registry as the store reads it.

#ifndef PARAMSET_PIPES_H
#define PARAMSET_PIPES_H

#include <deque>

#include "src/request.h"

namespace zarn {

class ParamSet::Pipes {
public:
    Pipes(const std::map<int, std::shared_ptr<cam_elem>>& cameras, ParamSet* store) {
        for (const auto& [camID, camera] : cameras) {
            for (int pipe = 0; pipe < MAX_PIPE_NUM; ++pipe) {
                mPipes.emplace_back(static_cast<uint32_t>(camID), pipe, camera->mPipe[pipe], mRegistry, store);
            }
        }
    }
    // Both within their limits.
    PipeStore& at(uint32_t camID, int pipe) { return mPipes[camID * MAX_PIPE_NUM + static_cast<uint32_t>(pipe)]; }

    TagReader& registry() { return mRegistry; }

private:
    TagReader mRegistry;
    std::deque<PipeStore> mPipes;
};

}  // namespace zarn

#endif  // PARAMSET_PIPES_H
