// When frame 0 answers.

#include "guide.h"

constexpr Parameter<int> GAIN{0x401, "gain", dynamicKind()};
constexpr Parameter<int> TUNING{0x402, "tuning", staticKind()};

int main() {
    const Store store;
    registerOrEnd(GAIN);
    registerOrEnd(TUNING);

    // a value that is set in frame 0 is read until the tag has its first value in another frame
    setValue(GAIN, FRAME_0, 16);
    CLAIM(valueOf(GAIN, Frame{5}) == 16);

    // frame 0 also answers for a frame that is older than the tag's first value
    setValue(GAIN, Frame{10}, 32);
    CLAIM(valueOf(GAIN, Frame{9}) == 16);
    CLAIM(valueOf(GAIN, Frame{10}) == 32);

    // and for a frame that was erased: frame 0 then has the newest erased value
    for (uint32_t i = 11; i <= 30; ++i) setValue(GAIN, Frame{i}, static_cast<int>(i));
    CLAIM(eraseFrames(CAMERA, PIPE, Frame{30}) == Result::OK);
    CLAIM(valueOf(GAIN, Frame{10}) == 24);

    // a late set for an erased frame is written to frame 0
    setValue(GAIN, Frame{10}, 5);
    CLAIM(valueOf(GAIN, FRAME_0) == 5);

    // all sets and gets of a static tag use frame 0
    setValue(TUNING, Frame{12}, 1);
    CLAIM(valueOf(TUNING, FRAME_0) == 1);
}
