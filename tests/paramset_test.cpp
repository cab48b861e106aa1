// The registry, the store's life and layout, a frame's container, and the checks of the entry points.

#include <atomic>
#include <thread>

#include "tests/store_fixture.h"

using zarn::ParamFrame;
using zarn::ParamSet;

namespace {

using Paramset = StoreTest;

void setTracedTag(const char* tag) {
    property_set("persist.vendor.cam.log.tag", tag);
    ParamSet::destroyInstance();
    ParamSet::createInstance();
}

TEST_F(Paramset, RegistrationKeepsWhatItWasToldAndItsRetainNumber) {
    registerPsStaticParam(1, 16, 0, "one", "t1");
    registerPsStaticParam(2, 16, 1, "two", "t2");
    registerPsDynamicParam(3, 16, 0, "three", "t3");
    registerPsDynamicParam(4, 16, 1, "four", "t4");
    registerPsQueueParam(5, 16, 1, "five", "t5", 10);
    registerPsQueueParam(6, 16, 2, "six", "t6", 6);
    registerPsQueueParam(7, 16, 2, "seven", "t7", 7);
    registerPsQueueParam(8, 16, 1, "eight", "t8", -3);
    registerPsDynamicParamWithExtendingLife(9, 16, 0, "nine", "t9", 2);
    registerPsDynamicParamWithExtendingLife(10, 16, 0, "ten", "t10", 40);
    registerPsDynamicParam(11, 0, 3, nullptr, nullptr);
    registerPsDynamicParam(3, 32, 2, "again", "again");  // silent, and without effect

    EXPECT_EQ(takeLog(),
              (Lines{
                  "3 register_tag: ParamSet tag:1, name:one, dataType:t1, size:16, tagType:0, retainNum:6",
                  "3 register_tag: ParamSet tag:2, name:two, dataType:t2, size:16, tagType:1, retainNum:1",
                  "3 register_tag: ParamSet tag:3, name:three, dataType:t3, size:16, tagType:0, retainNum:6",
                  "3 register_tag: ParamSet tag:4, name:four, dataType:t4, size:16, tagType:1, retainNum:1",
                  "3 register_tag: ParamSet tag:5, name:five, dataType:t5, size:16, tagType:1, retainNum:10",
                  "3 register_tag: ParamSet tag:6, name:six, dataType:t6, size:16, tagType:2, retainNum:6",
                  "3 register_tag: ParamSet tag:7, name:seven, dataType:t7, size:16, tagType:2, retainNum:7",
                  "3 register_tag: ParamSet tag:8, name:eight, dataType:t8, size:16, tagType:1, retainNum:1",
                  "3 register_tag: ParamSet tag:9, name:nine, dataType:t9, size:16, tagType:0, retainNum:6",
                  "3 register_tag: ParamSet tag:10, name:ten, dataType:t10, size:16, tagType:0, retainNum:40",
                  "3 register_tag: ParamSet tag:11, name:, dataType:, size:1, tagType:3, retainNum:6",
              }));

    std::map<uint32_t, zarn::tag_info_t> registry;
    registry[99].mName = "to be replaced";
    ParamSet::getTagInfo(registry);
    EXPECT_EQ(registry.size(), 11u);
    EXPECT_EQ(registry.at(3).mName, "three");
    EXPECT_EQ(registry.at(3).mSize, 16);
    EXPECT_EQ(*static_cast<char*>(registry.at(11).mCreator->create(nullptr).get()), 0);
}

TEST_F(Paramset, StoreIsBuiltOnceWithAllPipesAndDestroyedOnce) {
    ParamSet::destroyInstance();
    EXPECT_EQ(ParamSet::getInstance(), nullptr);
    takeLog();
    ParamSet::destroyInstance();
    EXPECT_EQ(takeLog(), (Lines{"3 destroyInstance: destory"}));

    property_set("persist.vendor.cam.log.ps", "3");
    property_set("persist.vendor.cam.log.tag", "17 and more");
    property_set("persist.vendor.cam.log.erase", "on");
    ParamSet* first = nullptr;
    ParamSet* second = nullptr;
    for (int round = 0; round < 20; ++round) {
        ParamSet::destroyInstance();
        takeLog();
        std::atomic<int> arrived{0};
        const auto createTogether = [&arrived](ParamSet*& instance) {
            ++arrived;
            while (arrived != 2) std::this_thread::yield();
            instance = ParamSet::createInstance();
        };
        std::thread other(createTogether, std::ref(first));
        createTogether(second);
        other.join();
        EXPECT_EQ(first, second);
        EXPECT_EQ(countLogged("3 createInstance: create"), 1u);
    }
    EXPECT_EQ(ParamSet::getInstance(), first);
    EXPECT_EQ(zarn::ps_log, 3);
    EXPECT_EQ(zarn::ps_log_tag, 17);
    EXPECT_EQ(zarn::ps_log_erase, 0);

    EXPECT_EQ(countLogged("5 ParamFrame: E cam[4] frame[0]"), 14u);
    EXPECT_EQ(countLogged("5 ParamFrame: E cam["), 70u);
    EXPECT_EQ(takeLog(4), (Lines{"3 createInstance: create", "3 ParamSet: E", "3 ParamSet: X"}));

    for (uint32_t cam = 0; cam < MAX_CAM_NUM; ++cam) {
        for (const zarn::pipe_elem& elem : first->getPsHandle(cam)->mPipe) {
            EXPECT_EQ(elem.mF0->mCamID, cam);
            EXPECT_EQ(elem.mF0->mFrameID, 0u);
            EXPECT_TRUE(elem.mF0->mTags.empty() && elem.mFrames.empty() && elem.mCheckPoint.empty() &&
                        elem.mErasePoint.empty());
        }
        for (const void* handle : first->getPsHandle(cam)->mHandle) EXPECT_EQ(handle, nullptr);
    }
    ParamSet::destroyInstance();
    EXPECT_EQ(countLogged("5 ~ParamFrame: delete cam["), 70u);
}

TEST_F(Paramset, NewStoreKeepsRegistrationsAndNothingElse) {
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    set(10, 1);
    int target = 0;
    zarn_ops ops = {};
    ops.cmd9 = [](void*, void*) { return 5; };
    ParamSet::getInstance()->setPsOps(&ops);
    ParamSet::getInstance()->setPsHandle(0, &target, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x8009, 0, nullptr, nullptr), 5u);

    ParamSet::destroyInstance();
    ParamSet* store = ParamSet::createInstance();
    EXPECT_EQ(set(10, 2), PS_OK);
    EXPECT_EQ(checkpoints(kTag), (std::vector<uint32_t>{10}));
    EXPECT_EQ(ioctrlOutsidePsParam(0, 0x8009, 0, nullptr, nullptr), PS_NO_DATA);
    EXPECT_EQ(store->getPsHandle(0)->mHandle[0], nullptr);
}

TEST_F(Paramset, FrameHoldsBuffersAndMetadataOfItsOwn) {
    registerPsDynamicParam(1, 4, 0, "one", "uint32_t");
    registerPsDynamicParam(2, 0, 0, "two", "none");
    ParamSet::register_tag<char>(3, nullptr, 0, "no creator", "none", 0);
    takeLog();

    auto frame = std::make_unique<ParamFrame>(4, 77, nullptr, &zarn::gTagInfo);
    uint32_t value = 0x11223344;
    const std::shared_ptr<void> first = frame->createTag(1, &value);
    value = 5;
    const std::shared_ptr<void> second = frame->createTag(1, &value);
    EXPECT_EQ(*static_cast<uint32_t*>(first.get()), 0x11223344u) << "who holds the old buffer keeps it";
    EXPECT_EQ(frame->getTag(1), second);
    EXPECT_EQ(frame->createTag(3, &value), nullptr);
    EXPECT_EQ(frame->createTag(4, &value), nullptr);
    EXPECT_EQ(frame->getTag(4), nullptr);
    EXPECT_EQ(frame->getActiveTagSize(), 1u);
    EXPECT_NE(frame->createTag(2, nullptr), nullptr);
    EXPECT_TRUE(frame->existTag(2));
    EXPECT_EQ(frame->eraseTag(2), 0);
    EXPECT_EQ(frame->eraseTag(2), 0);
    EXPECT_FALSE(frame->existTag(2));

    camera_metadata* source = host::makeMetadata("abc", 3);
    frame->setMetadata(source);
    const camera_metadata* copy = frame->getMetadata();
    EXPECT_NE(copy, source);
    EXPECT_EQ(host::metadataSize(copy), 3u);
    frame->setMetadata(source);
    free_camera_metadata(source);
    frame.reset();

    EXPECT_EQ(takeLog(), (Lines{
                             "5 ParamFrame: E cam[4] frame[77]",
                             "5 createTag: X:ok",
                             "5 createTag: X:ok",
                             "1 createTag: X Failed to create tag, no such creator: 3",
                             "1 createTag: X Failed to create tag, no such creator: 4",
                             "5 createTag: X:ok",
                             "5 operator(): free_camera_metadata mCamID:4,mFrameID:77",
                             "5 ~ParamFrame: delete cam[4] frame[77], and total tag Num:1",
                             "5 operator(): free_camera_metadata mCamID:4,mFrameID:77",
                         }));
}

// Every entry point, called with one bad argument, does nothing and says so.
TEST_F(Paramset, EntriesRefuseBadArguments) {
    registerPsDynamicParam(100, 4, 0, "tag", "uint32_t");
    takeLog();
    uint32_t v = 0;
    camera_metadata* metadata = host::makeMetadata("m", 1);

    EXPECT_EQ(getPsParam(5, 0, 1, 100, &v), PS_OUT_OF_LIMIT);
    EXPECT_EQ(setPsParam(0xFFFFFFFF, 0, 1, 100, &v), PS_OUT_OF_LIMIT);
    EXPECT_EQ(getPsParamSyn(5, 0, 1, 100, &v), PS_OUT_OF_LIMIT);
    EXPECT_EQ(getPsParamSynTimeout(6, 0, 1, 100, &v, 1), PS_OUT_OF_LIMIT);
    EXPECT_EQ(setPsParamSyn(5, 0, 1, 100, &v), PS_OUT_OF_LIMIT);
    EXPECT_EQ(erasePs(5, 0, 100), PS_OUT_OF_LIMIT);
    EXPECT_EQ(erasePs(0, 14, 100), PS_OUT_OF_LIMIT);
    EXPECT_EQ(erasePs(0, -1, 0xFFFFFFFF), PS_OUT_OF_LIMIT);
    EXPECT_EQ(ParamSet::setMetadata(5, 10, metadata), PS_OUT_OF_LIMIT);
    EXPECT_EQ(ParamSet::getMetadata(5, 10), nullptr);
    EXPECT_EQ(getPsParam(0, 14, 1, 100, &v), PS_NO_BUFFER);
    EXPECT_EQ(setPsParam(4, -1, 1, 100, &v), PS_NO_BUFFER);
    EXPECT_EQ(getPsParamSyn(0, 14, 1, 100, &v), PS_OUT_OF_LIMIT);
    EXPECT_EQ(setPsParamSyn(0, -1, 1, 100, &v), PS_OUT_OF_LIMIT);
    const std::string copy = "intrData:*,extrData:*,tagSize:4";
    EXPECT_EQ(takeLog(), (Lines{
                             "1 getParam: cam 5 out of limit, tag 100 get failed",
                             "1 setParam: cam -1 out of limit, tag 100 set failed",
                             "1 getParamSyn: cam 5 out of limit, tag 100 get failed",
                             "1 getParamSynTimeout: cam 6 out of limit, tag 100 get failed",
                             "1 setParamSyn: cam 5 out of limit, tag 100 set failed",
                             "1 erase: cam 5 pipe 0 out of limit, sof 100 erase failed",
                             "1 erase: cam 0 pipe 14 out of limit, sof 100 erase failed",
                             "1 erase: cam 0 pipe -1 out of limit, sof 4294967295 erase failed",
                             "1 setMetadata: cam 5 out of limit, sof 10 set metadata failed",
                             "1 getMetadata: cam 5 out of limit, sof 10 get metadata failed",
                             "1 getParamInternal: pipe 14 out of limit, please check tag 100",
                             "1 _getParam: fail camID: 0, pipe: 14, frameID: 1, tag: 100," + copy,
                             "1 getParamInternal: pipe -1 out of limit, please check tag 100",
                             "1 _setParam: fail camID: 4, pipe: -1, frameID: 1, tag: 100," + copy,
                             "5 _getParamSyn: camID: 0, pipe: 14, frameID: 1, tag: 100,",
                             "1 _getParamSyn: pipe 14 out of limit, please check tag 100",
                             "5 _setParamSyn: camID: 0, pipe: -1, frameID: 1, tag: 100,",
                             "1 _setParamSyn: pipe -1 out of limit, please check tag 100",
                         }));

    const auto expectNoData = [&](void* data, const camera_metadata* record) {
        EXPECT_EQ(getPsParam(0, 0, 1, 100, data), PS_NO_DATA);
        EXPECT_EQ(setPsParam(0, 0, 1, 100, data), PS_NO_DATA);
        EXPECT_EQ(getPsParamSyn(0, 0, 1, 100, data), PS_NO_DATA);
        EXPECT_EQ(getPsParamSynTimeout(0, 0, 1, 100, data, 1), PS_NO_DATA);
        EXPECT_EQ(setPsParamSyn(0, 0, 1, 100, data), PS_NO_DATA);
        EXPECT_EQ(ParamSet::setMetadata(0, 10, record), PS_NO_DATA);
        EXPECT_EQ(takeLog(), Lines{});
    };
    expectNoData(nullptr, nullptr);
    ParamSet::destroyInstance();
    takeLog();
    expectNoData(&v, metadata);
    EXPECT_EQ(erasePs(0, 0, 100), PS_NO_DATA);
    EXPECT_EQ(ParamSet::getMetadata(0, 10), nullptr);
    EXPECT_EQ(takeLog(), Lines{});
    free_camera_metadata(metadata);
}

TEST_F(Paramset, TypicalFrameFromRegistrationToErasure) {
    const uint32_t tag = 42;
    registerPsDynamicParam(tag, 16, 0, "gains", "float[4]");
    char in[16] = "fifteen letters";
    char out[16] = {};
    takeLog();

    EXPECT_EQ(setPsParamSyn(0, 2, 100, tag, in), PS_OK);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 _setParamSyn: camID: 0, pipe: 2, frameID: 100, tag: 42,",
                  "5 createNew: createNew ParamFrame",
                  "5 ParamFrame: E cam[0] frame[100]",
                  "5 permiProc: add checkPoint[100] size:1,permiProc:_modifiable",
                  "5 createTag: X:ok",
                  "5 _setParamSyn: success camID: 0, pipe: 2, frameID: 100, tag: 42,intrData:*,extrData:*,tagSize:16",
              }));
    EXPECT_EQ(getPsParamSyn(0, 2, 100, tag, out), PS_OK);
    EXPECT_STREQ(out, in);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 _getParamSyn: camID: 0, pipe: 2, frameID: 100, tag: 42,",
                  "5 _getParamSyn: success  camID: 0, pipe: 2, frameID: 100, tag: 42,intrData:*,extrData:*,tagSize:16",
              }));
    EXPECT_EQ(getPsParam(0, 2, 103, tag, out), PS_OK);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 getParamInternal: E cam 0 pipe 2 frame 103 tag 42 erasePoint:0",
                  "5 createNew: createNew ParamFrame",
                  "5 findRelated: desID 103, relateID[100]",
                  "5 permiProc: cam 0 pipe 2 tag 42 destID 103 relatedID:100",
                  "5 _getParam: success  camID: 0, pipe: 2, frameID: 103, tag: 42,intrData:*,extrData:*,tagSize:16",
              }));
    EXPECT_EQ(erasePs(0, 2, 108), PS_OK);
    EXPECT_EQ(takeLog(),
              (Lines{
                  "5 ParamFrame: E cam[0] frame[108]",
                  "5 _erase: E cam[0] pipe[2] frame[108] and oldest will be erased",
                  "5 _erase: tag:42 checkPoint size:1",
                  "5 getParamInternal: E cam 0 pipe 2 frame 100 tag 42 erasePoint:0",
                  "5 getParamInternal: E cam 0 pipe 2 frame 0 tag 42 erasePoint:0",
                  "5 createTag: X:ok",
                  "5 _setParam: success camID: 0, pipe: 2, frameID: 0, tag: 42,intrData:*,extrData:*,tagSize:16",
                  "5 ~ParamFrame: delete cam[0] frame[100], and total tag Num:0",
                  "5 _erase: X:ret:0, cam[0] pipe[2], and finaly frame[102]save to frame[0]",
                  "5 ~ParamFrame: delete cam[0] frame[108], and total tag Num:0",
              }));
    EXPECT_TRUE(frames().empty() && checkpoints(tag).empty());
    EXPECT_EQ(pipe().mErasePoint.at(tag), 102u);
    std::fill(std::begin(out), std::end(out), '\0');
    EXPECT_EQ(getPsParam(0, 2, 100, tag, out), PS_OK);
    EXPECT_STREQ(out, in);
    EXPECT_EQ(takeLog(2), (Lines{"2 getParamInternal: frameID 100 <= Erased 102, gains need life >= 9"}));
}

TEST_F(Paramset, TracedTagRaisesItsLinesAndNoOthers) {
    registerPsDynamicParam(7, 4, 0, "traced", "uint32_t");
    registerPsDynamicParam(8, 4, 0, "other", "uint32_t");
    setTracedTag("7");
    takeLog();
    for (uint32_t tag : {7u, 8u}) {
        set(10, 1, tag);
        get(11, tag);
        deliver(10, 2, tag);
        getSyn(10, tag, 1);
        EXPECT_EQ(zarn::ps_log, 0);
    }
    EXPECT_EQ(takeLog(4),
              (Lines{
                  "4 _setParam: success camID: 0, pipe: 2, frameID: 10, tag: 7,intrData:*,extrData:*,tagSize:4",
                  "4 permiProc: cam 0 pipe 2 tag 7 destID 11 relatedID:10",
                  "4 _getParam: success  camID: 0, pipe: 2, frameID: 11, tag: 7,intrData:*,extrData:*,tagSize:4",
                  "4 _setParamSyn: camID: 0, pipe: 2, frameID: 10, tag: 7,",
                  "4 _getParamSyn: camID: 0, pipe: 2, frameID: 10, tag: 7,",
              }));
    // A pipe out of limit leaves the switch as the entry set it.
    uint32_t value = 0;
    setPsParamSyn(0, 14, 1, 7, &value);
    EXPECT_EQ(zarn::ps_log, 1);
    __atomic_store_n(&zarn::ps_log, 0, __ATOMIC_RELAXED);
    getPsParamSyn(0, 14, 1, 7, &value);
    EXPECT_EQ(zarn::ps_log, 1);
    // A wait ends the trace for others, and takes it up again for what follows.
    takeLog();
    getSyn(20, 7, 1);
    EXPECT_EQ(countLogged("4 permiProc: cam 0 pipe 2 tag 7 destID 20 relatedID:10"), 1u);
    EXPECT_EQ(zarn::ps_log, 0);
}

TEST_F(Paramset, CallThatRunsKeepsTheDestroyedStoreAlive) {
    registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    set(9, 3);
    WaitingGet waiting(10, kTag, 2000);
    ParamSet::destroyInstance();
    EXPECT_EQ(ParamSet::getInstance(), nullptr);
    EXPECT_EQ(get(9), kNothing) << "no store for a call that comes later";
    EXPECT_EQ(countLogged("~ParamFrame: delete"), 0u);

    ParamSet::createInstance();
    EXPECT_EQ(deliver(10, 5), PS_OK);
    EXPECT_EQ(waiting.finish(), (Got{PS_NOT_OF_FRAME, 3})) << "answered from the old store, by its checkpoint";
    EXPECT_EQ(countLogged("~ParamFrame: delete"), 72u) << "the last call destroys the old store";
}

}  // namespace
