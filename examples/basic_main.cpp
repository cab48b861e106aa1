// The store itself is made and let go of in C++; the C functions use the one that exists.

#include "paramset.h"

extern "C" int basic_example(void);

int main() {
    zarn::ParamSet::createInstance();
    const int result = basic_example();
    zarn::ParamSet::destroyInstance();
    return result;
}
