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
    uint32_t frames = 0;  ///< at most; once parsed never 0
    double fps = 0;       ///< 0: as fast as it can
    std::array<int, MODULE_COUNT> stallMs{};
    int frameWaitMs = 0;  ///< one wait for a frame to begin; 0: as the pace needs it
    std::shared_ptr<Staging> staging = std::make_shared<Staging>();
    bool help = false;

    /// The file that a camera writes: "clip.y4m" is "clip.cam2.y4m" for camera 2 of several.
    std::string outputOf(uint32_t camera) const;
};

extern const char USAGE[];

/// Throws UsageError. What is given twice counts the last time.
Options parseOptions(int argc, char** argv);

}  // namespace pipeline

#endif  // PIPELINE_OPTIONS_H
