// Commands to the external processor that call the store in their turn, and the store as a module in C sees it.

#include <atomic>

#include "tests/store_fixture.h"

extern "C" {
int runCClient(zarn_ops* ops);
int cClientLastArgument(void);
}

namespace {

using zarn::ParamSet;

class ExternalOps : public StoreTest {
protected:
    // Forwards a command that runs the function.
    static uint32_t run(std::function<int()> command) { return ioctrlOutsidePsParam(0, 0x8009, 0, &command, nullptr); }

    static void setOps() {
        zarn_ops ops = {};
        ops.cmd9 = [](void*, void* in) { return (*static_cast<std::function<int()>*>(in))(); };
        ParamSet::createInstance()->setPsOps(&ops);
    }
};

// A command may call the store, and even end it: its store lasts until it has returned, and no longer.
TEST_F(ExternalOps, CommandThatEndsTheStoreRunsOnItToItsEnd) {
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    setOps();
    const auto command = [&] {
        EXPECT_EQ(set(10, 5), PS_OK);
        ParamSet::destroyInstance();
        EXPECT_EQ(get(10), kNothing);
        ParamSet::createInstance();
        EXPECT_EQ(set(10, 6), PS_OK);
        EXPECT_EQ(countLogged("~ParamFrame"), 0u);
        return 9;
    };
    EXPECT_EQ(run(command), 9u);
    EXPECT_EQ(countLogged("~ParamFrame"), 71u);
    EXPECT_EQ(get(10), 6u);
    EXPECT_EQ(run(command), PS_NO_DATA) << "the new store has no operations";
}

// What a call announces that it holds lies in a place that its thread chooses: so many threads choose every one.
TEST_F(ExternalOps, CommandHoldsItsStoreOnWhicheverThread) {
    constexpr int kThreads = 200;
    std::atomic<int> alive{0};
    std::mutex turn;
    const auto takeTurn = [&] {
        ++alive;
        await([&] { return alive == kThreads; });
        const std::lock_guard<std::mutex> lock(turn);
        setOps();
        takeLog();
        const auto endStore = [&] {
            ParamSet::destroyInstance();
            return static_cast<int>(countLogged("~ParamFrame"));
        };
        EXPECT_EQ(run(endStore), 0u) << "frames went under the command";
        EXPECT_EQ(countLogged("~ParamFrame"), 70u);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(takeTurn);
    for (std::thread& thread : threads) thread.join();
}

// The module in tests/c_client.c, whose operation the store then calls.
TEST_F(ExternalOps, ModuleInCUsesTheHeaderAlone) {
    zarn_ops ops = {};
    EXPECT_EQ(runCClient(&ops), 0) << "the step that failed";
    ParamSet::getInstance()->setPsOps(&ops);
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x8000, 7, nullptr, nullptr), PS_OK);
    EXPECT_EQ(cClientLastArgument(), 7);
}

}  // namespace
