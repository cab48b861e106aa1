// Code that the typed header must refuse to compile, one case at a time; the test checks the compiler's error. Case 0
// compiles.

#include <string>

#include "paramset_typed.h"

void reject() {
    constexpr zarn::Parameter<int> COUNT{1, "count", zarn::dynamicKind()};
#if REJECT_CASE == 0
    if (COUNT.set(zarn::Camera{0}, zarn::Pipe{0}, zarn::Frame{1}, 5) != zarn::Result::OK) return;
#elif REJECT_CASE == 1
    const zarn::Parameter<std::string> text{2, "text", zarn::dynamicKind()};
#elif REJECT_CASE == 2
    COUNT.set(zarn::Camera{0}, zarn::Pipe{0}, zarn::Frame{1}, 5);
#elif REJECT_CASE == 3
    constexpr zarn::Parameter<int> SHORT{3, "short", zarn::queueKind<3>()};
#elif REJECT_CASE == 4
    COUNT.registerTag();
#endif
}
