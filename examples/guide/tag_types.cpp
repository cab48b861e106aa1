// The three kinds of tags.

#include "guide.h"

struct Gain {
    float analog;
    float digital;
};

constexpr Parameter<Gain> GAIN{0x101, "gain", dynamicKind()};
constexpr Parameter<int> HISTORY{0x102, "history", queueKind<8>()};
constexpr Parameter<int> TUNING{0x103, "tuning", staticKind()};

void startUp() {
    ParamSet::createInstance();
    CLAIM(GAIN.registerTag() == Registration::DONE);
    CLAIM(HISTORY.registerTag() == Registration::DONE);
    CLAIM(TUNING.registerTag() == Registration::DONE);
}

int main() {
    startUp();

    // dynamic: a value per frame; a frame without one is answered by the newest earlier frame that has one
    setValue(GAIN, Frame{10}, {1.5f, 1.0f});
    setValue(GAIN, Frame{20}, {2.0f, 1.0f});
    CLAIM(valueOf(GAIN, Frame{10}).analog == 1.5f);
    CLAIM(valueOf(GAIN, Frame{19}).analog == 1.5f);
    CLAIM(valueOf(GAIN, Frame{25}).analog == 2.0f);

    // queue: the newest eight values are kept; frame 0 answers for older frames
    setValue(HISTORY, FRAME_0, -1);
    for (int i = 1; i <= 20; ++i) setValue(HISTORY, Frame{static_cast<uint32_t>(i)}, i);
    CLAIM(valueOf(HISTORY, Frame{13}) == 13);
    CLAIM(valueOf(HISTORY, Frame{12}) == -1);

    // static: one value for all frames
    setValue(TUNING, Frame{10}, 7);
    CLAIM(valueOf(TUNING, Frame{3}) == 7);
    setValue(TUNING, Frame{3}, 8);
    CLAIM(valueOf(TUNING, Frame{10}) == 8);

    ParamSet::destroyInstance();
}
