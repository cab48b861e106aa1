// How many frames back a value must be kept.

#include "guide.h"

constexpr Parameter<int> SHORT{0x201, "short", dynamicKind()};
constexpr Parameter<int> LONG{0x202, "long", dynamicKind<12>()};

int main() {
    const Store store;
    registerOrEnd(SHORT);
    registerOrEnd(LONG);
    for (int i = 1; i <= 30; ++i) {
        setValue(SHORT, Frame{static_cast<uint32_t>(i)}, i);
        setValue(LONG, Frame{static_cast<uint32_t>(i)}, i);
    }

    // an erase of a frame keeps the values of the newest frames, as many as the retain number
    CLAIM(eraseFrames(CAMERA, PIPE, Frame{30}) == Result::OK);
    CLAIM(valueOf(SHORT, Frame{25}) == 25);
    CLAIM(valueOf(LONG, Frame{19}) == 19);

    // for older frames, frame 0 answers with the newest erased value
    CLAIM(valueOf(SHORT, Frame{20}) == 24);
    CLAIM(valueOf(LONG, Frame{10}) == 18);
}
