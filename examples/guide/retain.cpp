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

    // the erase of a frame keeps so many frames behind it as the retain number says
    CLAIM(eraseFrames(CAMERA, PIPE, Frame{30}) == Result::OK);
    CLAIM(valueOf(SHORT, Frame{25}) == 25);
    CLAIM(valueOf(LONG, Frame{19}) == 19);

    // what is further back is answered by frame 0, with the newest value that went
    CLAIM(valueOf(SHORT, Frame{20}) == 24);
    CLAIM(valueOf(LONG, Frame{10}) == 18);
}
