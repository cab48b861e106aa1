// The pipes of all cameras, the registry as the store reads it, and how an access to a pipe begins.

#ifndef PARAMSET_PIPES_H
#define PARAMSET_PIPES_H

#include <array>
#include <optional>

#include "src/request.h"

namespace zarn {

class ParamSet::Pipes {
public:
    Pipes(const std::map<int, std::shared_ptr<cam_elem>>& cameras, ParamSet* store) {
        for (const auto& [camID, camera] : cameras) {
            for (int pipe = 0; pipe < MAX_PIPE_NUM; ++pipe) {
                const auto cam = static_cast<uint32_t>(camID);
                of(cam, pipe).emplace(cam, pipe, camera->mPipe[pipe], mTagReader, store);
            }
        }
    }
    // Camera and pipe must be within their limits.
    PipeStore& at(uint32_t camID, int pipe) { return *of(camID, pipe); }

    TagReader& tagReader() { return mTagReader; }

private:
    std::optional<PipeStore>& of(uint32_t camID, int pipe) {
        return mPipes[camID * MAX_PIPE_NUM + static_cast<uint32_t>(pipe)];
    }

    TagReader mTagReader;
    std::array<std::optional<PipeStore>, size_t{MAX_CAM_NUM} * MAX_PIPE_NUM> mPipes;
};

inline PipeStore& ParamSet::pipeStore(uint32_t camID, int pipe) {
    PipeStore& store = mPipes->at(camID, pipe);
    store.noticeChanges();
    return store;
}

inline TagReader& ParamSet::tagReader() {
    return mPipes->tagReader();
}

inline ParamSet::Request ParamSet::requestFor(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag,
                                              int modifiable) {
    PipeStore& store = pipeStore(camID, pipe);
    return {store, store.tag(tag), frameID, modifiable};
}

}  // namespace zarn

#endif  // PARAMSET_PIPES_H
