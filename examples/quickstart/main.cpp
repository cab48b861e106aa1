// Makes the store, runs the modules and destroys the store.

#include "paramset.h"

extern "C" int run_modules(void);

int main() {
    zarn::ParamSet::createInstance();
    const int result = run_modules();
    zarn::ParamSet::destroyInstance();
    return result;
}
