// Plain set and get with types: a set for one frame, a get for a later one.

#include <cstdio>

#include "paramset_typed.h"

using namespace zarn;

struct Gain {
    float analog, digital;
};
constexpr Parameter<Gain> GAIN{0x101, "gain", dynamicKind()};

int main() {
    ParamSet::createInstance();
    if (GAIN.registerTag() != Registration::DONE) return 1;  // for example: registered before with another size
    if (GAIN.set(Camera{0}, Pipe{2}, Frame{1}, {1.5f, 1.0f}) != Result::OK) return 1;
    Gain gain{};
    const Result result = GAIN.get(Camera{0}, Pipe{2}, Frame{9}, gain);
    std::printf("frame 9: %s, gain %.1f of an earlier frame\n", to_string(result), gain.analog);
    ParamSet::destroyInstance();
}
