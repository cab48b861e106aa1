// When frame 0 answers.

#include "guide.h"

constexpr Parameter<int> GAIN{0x401, "gain", dynamicKind()};
constexpr Parameter<int> TUNING{0x402, "tuning", staticKind()};

int main() {
    const Store store;
    registerOrEnd(GAIN);
    registerOrEnd(TUNING);

    // frame 0 holds what is to be read before there is a first value
    setValue(GAIN, FRAME_0, 16);
    CLAIM(valueOf(GAIN, Frame{5}) == 16);

    // a frame that is older than the first value, too, is answered by frame 0
    setValue(GAIN, Frame{10}, 32);
    CLAIM(valueOf(GAIN, Frame{9}) == 16);
    CLAIM(valueOf(GAIN, Frame{10}) == 32);

    // so is a frame that was erased: frame 0 has the newest value that went
    for (uint32_t i = 11; i <= 30; ++i) setValue(GAIN, Frame{i}, static_cast<int>(i));
    CLAIM(eraseFrames(CAMERA, PIPE, Frame{30}) == Result::OK);
    CLAIM(valueOf(GAIN, Frame{10}) == 24);

    // and a late set of such a frame goes to frame 0
    setValue(GAIN, Frame{10}, 5);
    CLAIM(valueOf(GAIN, FRAME_0) == 5);

    // a static tag is always frame 0's
    setValue(TUNING, Frame{12}, 1);
    CLAIM(valueOf(TUNING, FRAME_0) == 1);
}
