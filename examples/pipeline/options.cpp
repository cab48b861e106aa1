// See options.h.

#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "paramset.h"
#include "values.h"

namespace pipeline {

const char USAGE[] =
    R"(Usage: pipeline [OPTION]...
Runs a camera pipeline of four modules that exchange values only through the
parameter store, and prints a table of their calls.

  --input FILE       frames of a YUV4MPEG2 file or pipe, 8-bit 4:2:0; '-' is standard
                     input. Without it a built-in scene whose light changes
  --output FILE      write the processed frames as YUV4MPEG2; '-' is standard output,
                     and the tables are then printed on standard error. With several
                     cameras each has its own file: clip.cam0.y4m for clip.y4m
  --cameras N        run 1 to 5 cameras, each with its own modules (default 1); all read
                     the same input
  --frames N         end after N frames (default: the whole input; 300 of the scene)
  --fps N            real time, N frames per second (default: as fast as it can)
  --stall MODULE:MS  make the module sensor, statistics, exposure or isp late by MS
                     milliseconds with each frame, 1 to 1000. The other modules then
                     wait for at most 50 ms for statistics and 100 ms for a gain, and
                     use an earlier value after that. May be given for each module
  --frame-wait MS    the longest single wait for a frame to begin (default: the time of
                     two frames, at least 50)
  -h, --help         print this

To see what a fault looks like in a log, let a run stage it. Each staged fault that
has happened is printed at the end:

  --stall MODULE:MS@FRAME[-FRAME]          the module is late with these frames only
  --stage drop:TAG@FRAME[-FRAME]           the value is not delivered
  --stage plain:TAG@FRAME[-FRAME]          the value is set by a plain set, not delivered
  --stage lose:TAG:MODULE@FRAME[-FRAME]    the module misses its wake-up
  --stage erase:TAG@FRAME[-FRAME]          the tag's pipe is erased too early
  --stage gone@FRAME[-FRAME]               another tag's erase removes the gain's frame
  --stage end@FRAME                        the store is destroyed
  --stage retain:TAG:NUMBER                the tag has another retain number
  --stage unregistered:TAG                 the tag is not registered

TAG is frame-ready, statistics, gain, history, tuning, released or metadata.

Ctrl-C ends the stream early: the frames so far are kept, and the tables are
printed. A second Ctrl-C ends the program at once, without an output file.

The store logs only failures, unless the environment variable PARAMSET_LOG sets
another level. Exit status: 0 if all went well, 1 if not, 2 for a wrong command
line, 130 if Ctrl-C ended the stream.
)";

namespace {

constexpr uint32_t SCENE_FRAMES = 300;
constexpr uint32_t ALL_FRAMES = 1000000000;
constexpr uint32_t MAX_FRAME_WAIT_MS = 60000;
constexpr double MAX_FPS = 1000;
constexpr double MIN_FPS = 0.1;

uint32_t parseCount(const char* option, const std::string& text, uint32_t max) {
    uint32_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    if (whole && value >= 1 && value <= max) return value;
    throw UsageError(std::string(option) + ": \"" + text + "\" is not a number from 1 to " + std::to_string(max));
}

double parseFps(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (!text.empty() && *end == '\0' && value >= MIN_FPS && value <= MAX_FPS) return value;
    throw UsageError("--fps: \"" + text + "\" is not a number from 0.1 to 1000");
}

void parseStall(const std::string& text, Options& options) {
    if (text.find('@') != std::string::npos) return options.staging->addStall(text, MAX_STALL_MS);
    const size_t colon = text.find(':');
    for (size_t module = 0; module < MODULE_COUNT; ++module) {
        if (colon == std::string::npos || text.substr(0, colon) != MODULE_NAMES[module]) continue;
        options.stallMs[module] = static_cast<int>(parseCount("--stall", text.substr(colon + 1), MAX_STALL_MS));
        return;
    }
    throw UsageError("--stall: \"" + text + "\" is not MODULE:MS with one of sensor, statistics, exposure and isp");
}

void parseOption(int option, const std::string& value, Options& options) {
    if (option == 'h') options.help = true;
    if (option == 'c') options.cameras = parseCount("--cameras", value, MAX_CAM_NUM);
    if (option == 'n') options.frames = parseCount("--frames", value, ALL_FRAMES);
    if (option == 'f') options.fps = parseFps(value);
    if (option == 's') parseStall(value, options);
    if (option == 't') options.staging->add(value);
    if (option == 'w') options.frameWaitMs = static_cast<int>(parseCount("--frame-wait", value, MAX_FRAME_WAIT_MS));
    if (option == 'i') options.input = value;
    if (option == 'o') options.output = value;
    if ((option == 'i' || option == 'o') && value.empty()) throw UsageError("an empty file name");
}

void checkTogether(const Options& options) {
    if (options.cameras == 1) return;
    if (options.output == "-") throw UsageError("several cameras cannot share standard output");
    if (options.input.empty()) return;
    std::error_code ignored;
    const auto status = std::filesystem::status(options.input, ignored);
    const bool readOnce = std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
    if (options.input == "-" || readOnce) throw UsageError("several cameras need an input file that each can read");
}

}  // namespace

std::string Options::outputOf(uint32_t camera) const {
    if (cameras == 1) return output;
    const std::filesystem::path path(output);
    const std::string name = path.stem().string() + ".cam" + std::to_string(camera) + path.extension().string();
    return (path.parent_path() / name).string();
}

Options parseOptions(int argc, char** argv) {
    static const option LONG_OPTIONS[] = {
        {"input", required_argument, nullptr, 'i'},   {"output", required_argument, nullptr, 'o'},
        {"cameras", required_argument, nullptr, 'c'}, {"frames", required_argument, nullptr, 'n'},
        {"fps", required_argument, nullptr, 'f'},     {"stall", required_argument, nullptr, 's'},
        {"stage", required_argument, nullptr, 't'},   {"frame-wait", required_argument, nullptr, 'w'},
        {"help", no_argument, nullptr, 'h'},          {nullptr, 0, nullptr, 0},
    };
    Options options;
    opterr = 0;
    for (int found; (found = getopt_long(argc, argv, ":h", LONG_OPTIONS, nullptr)) != -1;) {
        const std::string given = argv[optind - 1];
        if (found == ':') throw UsageError(given + " needs a value");
        if (found == '?') throw UsageError("unknown or ambiguous option " + given);
        parseOption(found, optarg != nullptr ? optarg : "", options);
    }
    if (options.help) return options;
    if (optind < argc) throw UsageError(std::string("unexpected argument \"") + argv[optind] + "\"");
    if (options.frames == 0) options.frames = options.input.empty() ? SCENE_FRAMES : ALL_FRAMES;
    checkTogether(options);
    return options;
}

}  // namespace pipeline
