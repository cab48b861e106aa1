// The store's life and layout, a frame's container, and a typical frame from its registration to its end.

#include <atomic>
#include <thread>

#include "tests/store_fixture.h"

using zarn::ParamFrame;
using zarn::ParamSet;

namespace {

using Paramset = StoreTest;

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

}  // namespace
