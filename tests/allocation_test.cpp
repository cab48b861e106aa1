// What becomes of a program when memory runs out in the library: it ends, though its caller is ready to catch.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <new>

#include "paramset.h"
#include "tests/out_of_memory.h"

namespace {

constexpr int kAborted = 7;

}  // namespace

TEST(Allocation, FailureEndsTheProcessAndSaysSo) {
    uint32_t value = 1;
    registerPsDynamicParam(7, 4, 0, "tag", "uint32_t");
    zarn::ParamSet::createInstance();
    const std::function<void()> calls[] = {
        [&] { setPsParam(0, 2, 10, 7, &value); },
        [&] { getPsParamSyn(0, 2, 10, 7, &value); },
        [] { registerPsDynamicParam(8, 4, 0, "a name too long to be kept in place", "uint32_t"); },
        [] { zarn::ParamSet::destroyInstance(), zarn::ParamSet::createInstance(); },
    };
    // The library's own allocations end the process with the library's line. The host's log, which is a library of its
    // own, allocates its lines with this program's operator new: that throws, nothing passes through the logging
    // statement, and the C++ library ends the process with the exception's name. The last call logs before all else.
    for (const auto& call : calls) {
        EXPECT_EXIT(
            {
                // A regular exit, so that what the library ran is counted when its coverage is measured.
                std::signal(SIGABRT, [](int) { gIsOutOfMemory = false, std::exit(kAborted); });
                try {
                    gIsOutOfMemory = true;
                    call();
                } catch (const std::bad_alloc&) {
                }
                std::_Exit(0);
            },
            testing::ExitedWithCode(kAborted), "paramset: out of memory|bad_alloc");
    }
    zarn::ParamSet::destroyInstance();
}
