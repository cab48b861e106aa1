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

    // one tag with two sizes: with the C functions a get would write beyond the caller's variable
    registerOrEnd(OLD_STATISTICS);
    CLAIM(STATISTICS.registerTag() == Registration::OTHER_SIZE);

    // a tag that is used before it is registered may never get a buffer
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

    // a synchronous get of THE_LAST makes a frame with that id: nobody delivers it, and it stays the newest frame
    setValue(GAIN, Frame{5}, 5);
    CLAIM(GAIN.wait(CAMERA, PIPE, LATEST, got, 1ms) == Result::NOT_OF_FRAME);
    CLAIM(GAIN.set(CAMERA, PIPE, LATEST, 6) == Result::OK);
    CLAIM(valueOf(GAIN, Frame{5}) == 5);

    // the tag id that is reserved for metadata cannot be registered
    constexpr Parameter<int> RESERVED{METADATA_TAG, "mine", dynamicKind()};
    CLAIM(RESERVED.registerTag() == Registration::RESERVED_TAG);
}
