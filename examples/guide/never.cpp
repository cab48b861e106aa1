// What never to do, as far as it can be shown without harm.

#include "guide.h"

using namespace std::chrono_literals;

namespace version1 {
struct Statistics {
    float mean;
};
}  // namespace version1
namespace version2 {
struct Statistics {
    float mean, deviation;
};
}  // namespace version2

constexpr Parameter<version1::Statistics> OLD_STATISTICS{0x701, "statistics", dynamicKind()};
constexpr Parameter<version2::Statistics> STATISTICS{0x701, "statistics", dynamicKind()};
constexpr Parameter<int> EARLY{0x702, "early", dynamicKind()};
constexpr Parameter<int> GAIN{0x703, "gain", dynamicKind()};

int main() {
    const Store store;

    // two sizes for one tag: with the plain functions a neighbour's memory is overwritten
    registerOrEnd(OLD_STATISTICS);
    CLAIM(STATISTICS.registerTag() == Registration::OTHER_SIZE);

    // a tag that is used before it is registered may stay without buffers for good
    CLAIM(EARLY.set(CAMERA, PIPE, Frame{1}, 1) == Result::NO_BUFFER);
    CLAIM(EARLY.set(CAMERA, PIPE, Frame{2}, 1) == Result::NO_BUFFER);
    CLAIM(EARLY.registerTag() == Registration::OTHER_SIZE);

    // the code of a synchronous get does not say that bytes were copied: this tag is not registered
    int got = 42;
    CLAIM(GAIN.wait(CAMERA, PIPE, FRAME_0, got, 1ms) == Result::TIMED_OUT && got == 42);

    // a frame 0 that was never set has zeros; set it before the first get
    registerOrEnd(GAIN);
    CLAIM(valueOf(GAIN, Frame{1}) == 0);
    setValue(GAIN, FRAME_0, 1);
    CLAIM(valueOf(GAIN, Frame{1}) == 1);

    // to wait for the newest frame makes a frame of the greatest number there is, which nobody delivers
    setValue(GAIN, Frame{5}, 5);
    CLAIM(GAIN.wait(CAMERA, PIPE, LATEST, got, 1ms) == Result::NOT_OF_FRAME);
    CLAIM(GAIN.set(CAMERA, PIPE, LATEST, 6) == Result::OK);
    CLAIM(valueOf(GAIN, Frame{5}) == 5);

    // the metadata's number
    constexpr Parameter<int> RESERVED{METADATA_TAG, "mine", dynamicKind()};
    CLAIM(RESERVED.registerTag() == Registration::RESERVED_TAG);
}
