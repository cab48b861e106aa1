// What the guide's programs share: a store that lives as long as the program, and claims that are checked. If a claim
// does not hold, the program ends with an error.

#ifndef GUIDE_H
#define GUIDE_H

#include <cstdio>
#include <cstdlib>

#include "paramset_typed.h"

using namespace zarn;

constexpr Camera CAMERA{0};
constexpr Pipe PIPE{2};

struct Store {
    Store() { ParamSet::createInstance(); }
    ~Store() { ParamSet::destroyInstance(); }
};

#define CLAIM(condition)                                                                              \
    do {                                                                                              \
        if (!(condition)) {                                                                           \
            std::fprintf(stderr, "%s:%d: claim does not hold: %s\n", __FILE__, __LINE__, #condition); \
            std::exit(1);                                                                             \
        }                                                                                             \
    } while (false)

template <typename Value>
void registerOrEnd(const Parameter<Value>& parameter) {
    CLAIM(parameter.registerTag() == Registration::DONE);
}

/// The value that a plain get finds.
template <typename Value>
Value valueOf(const Parameter<Value>& parameter, Frame frame) {
    Value value{};
    CLAIM(parameter.get(CAMERA, PIPE, frame, value) == Result::OK);
    return value;
}

template <typename Value>
void setValue(const Parameter<Value>& parameter, Frame frame, const Value& value) {
    CLAIM(parameter.set(CAMERA, PIPE, frame, value) == Result::OK);
}

#endif  // GUIDE_H
