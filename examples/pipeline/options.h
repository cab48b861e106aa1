// The command line.

#ifndef PIPELINE_OPTIONS_H
#define PIPELINE_OPTIONS_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "staging.h"

namespace pipeline {

struct Options {
    std::string input;   ///< empty: the built-in scene
    std::string output;  ///< empty: none
    uint32_t cameras = 1;
    uint32_t frames = 0;  ///< at most; never 0 after parsing
    double fps = 0;       ///< 0: as fast as possible
    std::array<int, MODULE_COUNT> stallMs{};
    int frameWaitMs = 0;  ///< one wait for a frame to begin; 0: computed from fps
    std::shared_ptr<Staging> staging = std::make_shared<Staging>();
    bool help = false;

    /// The file that a camera writes: with several cameras, "clip.cam2.y4m" for camera 2 if the output is "clip.y4m".
    std::string outputOf(uint32_t camera) const;
};

extern const char USAGE[];

/// Throws UsageError. If an option is given twice, the last one counts.
Options parseOptions(int argc, char** argv);

}  // namespace pipeline

#endif  // PIPELINE_OPTIONS_H
