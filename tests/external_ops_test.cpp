// Commands to the external processor that call the store, and a module in C that uses the store.

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

// A command may call the store, and even destroy it: the old store lives until the command has returned, and no longer.
TEST_F(ExternalOps, CommandThatDestroysTheStoreKeepsItUntilItReturns) {
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

// The module in tests/c_client.c, whose operation the store then calls.
TEST_F(ExternalOps, ModuleInCNeedsOnlyTheHeader) {
    zarn_ops ops = {};
    EXPECT_EQ(runCClient(&ops), 0) << "the step that failed";
    ParamSet::getInstance()->setPsOps(&ops);
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x8000, 7, nullptr, nullptr), PS_OK);
    EXPECT_EQ(cClientLastArgument(), 7);
    takeLog();
    EXPECT_EQ(ParamSet::getInstance()->getParamExternal(0, 0, 0, kTag, nullptr), 8) << "null data, and 8 bytes past it";
    EXPECT_TRUE(takeLog(4).empty());
}

}  // namespace
