// The routing of commands to the external processor.

#include "tests/store_fixture.h"

extern "C" {
int runCClient(zarn_ops* ops);
int cClientLastArgument(void);
}

namespace {

using zarn::ParamSet;

using ExternalOps = StoreTest;

// What the last operation was given; each slot writes its own number.
struct Call {
    int slot = -1;
    void* handle = nullptr;
    int64_t number = 0;
    int64_t value = 0;
    void* pointer = nullptr;
} gCall;

int keep(const Call& call) {
    gCall = call;
    return 100 + call.slot;
}

zarn_ops allOps() {
    zarn_ops ops = {};
    ops.cmd0 = [](void* h, int64_t arg, void* in) { return keep({0, h, arg, 0, in}); };
    ops.cmd1 = [](void* h, int64_t arg, void* in) { return keep({1, h, arg, 0, in}); };
    ops.cmd2 = [](void* h, int64_t arg, void* in) { return keep({2, h, arg, 0, in}); };
    ops.cmd3 = [](void* h, int32_t arg, void* in) { return keep({3, h, arg, 0, in}); };
    ops.cmd4 = [](void* h, uint32_t cam, void* in) { return keep({4, h, cam, 0, in}); };
    ops.cmd5 = [](void* h, uint32_t cam, void* in) { return keep({5, h, cam, 0, in}); };
    ops.cmd6 = [](void* h, uint32_t cam, uint32_t value, void* out) { return keep({6, h, cam, value, out}); };
    ops.cmd7 = [](void* h, uint8_t value, void* out) { return keep({7, h, 0, value, out}); };
    ops.cmd8 = [](void* h, void* in) { return keep({8, h, 0, 0, in}); };
    ops.cmd9 = [](void* h, void* in) { return keep({9, h, 0, 0, in}); };
    ops.cmd10 = [](void* h, uint32_t value) { return keep({10, h, 0, value, nullptr}); };
    return ops;
}

TEST_F(ExternalOps, EachCodeReachesItsSlotWithItsHandleAndArguments) {
    ParamSet* store = ParamSet::getInstance();
    char handles[7];
    store->setPsHandle(2, &handles[0], &handles[1], &handles[2], &handles[3], &handles[4], &handles[5], &handles[6]);
    uint32_t in = 0x89ABCDEF;
    uint32_t out = 0;
    takeLog();
    for (uint32_t code = 0x8000; code <= 0x800A; ++code) {
        EXPECT_EQ(ioctrlOutsidePsParam(2, code, -3, &in, &out), PS_NO_DATA) << "no operation is set, code " << code;
    }
    EXPECT_EQ(takeLog(4), Lines{});
    {
        zarn_ops ops = allOps();
        store->setPsOps(&ops);  // copied: the table goes away
    }
    in = 0x89ABCDEF;
    const auto first = static_cast<int64_t>(*reinterpret_cast<unsigned char*>(&in));
    struct Row {
        int handle;
        int64_t number, value;
        void* pointer;
    };
    const Row rows[] = {{0, -3, 0, &in}, {0, -3, 0, &in}, {4, -3, 0, &in},    {6, -3, 0, &in},
                        {0, 2, 0, &in},  {0, 2, 0, &in},  {0, 2, in, &out},   {0, 0, first, &out},
                        {5, 0, 0, &in},  {0, 0, 0, &in},  {0, 0, in, nullptr}};
    for (int slot = 0; slot < 11; ++slot) {
        gCall = {};
        EXPECT_EQ(ioctrlOutsidePsParam(2, static_cast<uint32_t>(0x8000 + slot), -3, &in, &out),
                  100u + static_cast<uint32_t>(slot));
        EXPECT_EQ(gCall.slot, slot);
        EXPECT_EQ(gCall.handle, &handles[rows[slot].handle]) << "slot " << slot;
        EXPECT_EQ(gCall.number, rows[slot].number) << "slot " << slot;
        EXPECT_EQ(gCall.value, rows[slot].value) << "slot " << slot;
        EXPECT_EQ(gCall.pointer, rows[slot].pointer) << "slot " << slot;
    }
    zarn_ops none = {};
    store->setPsOps(&none);
    EXPECT_EQ(ioctrlOutsidePsParam(2, 0x8000, 0, &in, &out), PS_NO_DATA) << "a later table replaces all of the earlier";
}

TEST_F(ExternalOps, ExternalReadPassesWhatLiesEightBytesOn) {
    ParamSet* store = ParamSet::getInstance();
    char handle = 0;
    char data[16];
    store->setPsHandle(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &handle);
    takeLog();
    EXPECT_EQ(store->getParamExternal(1, 0, 0, 5, data), -1);
    EXPECT_EQ(takeLog(), (Lines{"5 getPsHandle: parameset getPsHandle mElem:*", "1 getParamExternal: no isp ops"}));
    zarn_ops ops = allOps();
    store->setPsOps(&ops);
    EXPECT_EQ(store->getParamExternal(1, 99, 99, 5, data), 103);
    EXPECT_EQ(gCall.handle, &handle);
    EXPECT_EQ(gCall.number, 5);
    EXPECT_EQ(gCall.pointer, data + 8);
}

TEST_F(ExternalOps, WhatCannotBeForwardedIsRefused) {
    ParamSet* store = ParamSet::getInstance();
    zarn_ops ops = allOps();
    store->setPsOps(&ops);
    gCall = {};
    char data[16] = {};
    takeLog();
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x7FFF, 0, data, data), 0u);
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x800B, 0, data, data), 0u);
    EXPECT_EQ(ioctrlOutsidePsParam(5, 0x8000, 0, data, data), PS_OUT_OF_LIMIT);
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x8006, 0, nullptr, data), PS_NO_DATA);
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x8007, 0, nullptr, data), PS_NO_DATA);
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x800A, 0, nullptr, data), PS_NO_DATA);
    EXPECT_EQ(store->getParamExternal(0xFFFFFFFF, 0, 0, 1, data), -1);
    EXPECT_EQ(store->getParamExternal(0, 0, 0, 1, nullptr), -1);
    store->setPsHandle(5, data, data, data, data, data, data, data);
    EXPECT_EQ(store->getPsHandle(5), nullptr);
    EXPECT_EQ(takeLog(1), (Lines{
                              "1 ioctrlOutsideParam: fail to find tag:32767",
                              "1 ioctrlOutsideParam: fail to find tag:32779",
                              "1 getPsHandle: paramset can not get ps handle",
                              "1 ioctrlOutsideParam: no data, tag:32774",
                              "1 ioctrlOutsideParam: no data, tag:32775",
                              "1 ioctrlOutsideParam: no data, tag:32778",
                              "1 getPsHandle: paramset can not get ps handle",
                              "1 getParamExternal: no data, tag:1",
                              "1 setPsHandle: cam 5 out of limit, set handle failed",
                              "1 getPsHandle: paramset can not get ps handle",
                          }));
    EXPECT_EQ(gCall.slot, -1);

    ParamSet::destroyInstance();
    takeLog();
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x8000, 0, data, data), PS_NO_DATA);
    EXPECT_EQ(takeLog(), (Lines{"5 ioctrlOutsideParam: E"}));
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
