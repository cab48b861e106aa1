// The command line.

#ifndef PIPELINE_OPTIONS_H
#define PIPELINE_OPTIONS_H

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace pipeline {

enum ModuleName { SENSOR, STATISTICS_MODULE, EXPOSURE, ISP, MODULE_COUNT };

struct Options {
    std::string input;   ///< empty: the built-in scene
    std::string output;  ///< empty: none
    uint32_t cameras = 1;
    uint32_t frames = 0;  ///< at most; once parsed never 0
    double fps = 0;       ///< 0: as fast as it can
    std::array<int, MODULE_COUNT> stallMs{};
    bool help = false;

    /// The file that a camera writes: "clip.y4m" is "clip.cam2.y4m" for camera 2 of several.
    std::string outputOf(uint32_t camera) const;
};

/// A command line that makes no sense; the message says why.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

extern const char USAGE[];

/// Throws UsageError. What is given twice counts the last time.
Options parseOptions(int argc, char** argv);

}  // namespace pipeline

#endif  // PIPELINE_OPTIONS_H
