// Calls to the library after its static objects were destroyed: they must find no store and register nothing.
// A function that is registered with on_exit before any library is initialised runs after the static objects of all
// libraries were destroyed. (A function registered with atexit would run before.) A sanitizer is not ready that early.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "paramset.h"

using zarn::ParamSet;

namespace {

void callAll(int, void*) {
    uint32_t value = 0;
    std::map<uint32_t, zarn::tag_info_t> registry;
    ParamSet::getTagInfo(registry);
    registerPsDynamicParam(5, 4, 0, "five", "uint32_t");
    const bool isRefused = ParamSet::createInstance() == nullptr && ParamSet::getInstance() == nullptr &&
                           getPsParam(0, 1, 10, 4, &value) == PS_NO_DATA &&
                           setPsParamSyn(0, 1, 10, 4, &value) == PS_NO_DATA && erasePs(0, 1, 10) == PS_NO_DATA &&
                           ParamSet::getMetadata(0, 10) == nullptr && registry.empty();
    zarn::ParamFrame(0, 1, nullptr, &zarn::gTagInfo).createTag(4, nullptr);
    ParamSet::destroyInstance();
    if (!isRefused) std::fputs("a call found a store\n", stderr);
    _exit(isRefused ? 0 : 1);
}

void callAllAtTheVeryEnd() {
    on_exit(callAll, nullptr);
}

[[gnu::section(".preinit_array"), gnu::used]] void (*const gBeforeTheLibraries)() = callAllAtTheVeryEnd;

}  // namespace

int main() {
    ParamSet::createInstance();
    registerPsDynamicParam(4, 4, 0, "four", "uint32_t");
    uint32_t value = 1;
    setPsParam(0, 1, 10, 4, &value);
    return 2;  // callAll replaces this exit status
}
