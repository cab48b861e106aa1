// Compares what a pipe's index remembers with the maps: after each of the model's random calls (this program contains
// them and the library's own sources), and in tests of what these calls do not reach.

#include <gtest/gtest.h>

#include "src/pipes.h"
#include "tests/model/driver.h"
#include "tests/store_fixture.h"

namespace zarn {

struct IndexCheck {
    static PipeStore& pipe(uint32_t cam, int index) { return ParamSet::getInstance()->mPipes->at(cam, index); }

    // What is wrong with the index of any pipe.
    static std::string wrong() {
        std::string text;
        if (ParamSet::getInstance() == nullptr) return text;
        for (uint32_t cam = 0; cam < MAX_CAM_NUM; ++cam) {
            for (int index = 0; index < MAX_PIPE_NUM; ++index) checkPipe(pipe(cam, index), text);
        }
        return text;
    }

    static bool holdsNothing(const PipeStore& pipe) {
        return pipe.mTagIndex.mSlots.empty() && pipe.mTagIndex.mAll.empty() && pipe.mFrameIndex.mRing.empty() &&
               pipe.mFrameIndex.mSpare.empty() && pipe.mFrame0.pieces.empty();
    }

private:
    template <typename Map, typename Place>
    static bool isUnknownOrAt(const Map& map, uint32_t id, const Place* place) {
        const auto it = map.find(id);
        return place == nullptr || (it != map.end() && &it->second == place);
    }

    static void checkPipe(PipeStore& pipe, std::string& text) {
        const auto expect = [&](bool holds, const char* what, uint32_t id = 0) {
            if (!holds) text += std::string(what) + " " + std::to_string(id) + "\n";
        };
        // A program may have changed the pipe. The next access to it forgets everything, so there is nothing to check.
        if (pipe.mChanges != changeCount()) return;
        expect(pipe.isAsLeft(), "the sizes of the pipe's maps");
        size_t slots = 0;
        for (const auto& slot : pipe.mTagIndex.mSlots) slots += slot.tag != nullptr;
        expect(slots == pipe.mTagIndex.size() && 2 * slots <= pipe.mTagIndex.mSlots.size(), "the number of slots");
        uint32_t number = 0;
        for (const IndexedTag& tag : pipe.mTagIndex.mAll) {
            expect(tag.number == number++ && pipe.mTagIndex.slotOf(tag.id).tag == &tag, "the slot of tag", tag.id);
            expect(isUnknownOrAt(pipe.mElem.mErasePoint, tag.id, tag.erasePoint), "the erase point of tag", tag.id);
            expect(isUnknownOrAt(pipe.mElem.mCheckPoint, tag.id, tag.checkpoints), "the checkpoints of tag", tag.id);
            const bool isRegistered = tag.registered != nullptr;
            expect(!isRegistered || &tag.registered->info == &gTagInfo.at(tag.id), "the registration of tag", tag.id);
            if (tag.kept.empty()) continue;
            expect(tag.kept.key() == tag.id && tag.kept.mapped() != nullptr && tag.kept.mapped().use_count() == 1 &&
                       isRegistered && tag.registered->hasLibraryCreator(),
                   "the kept value of tag", tag.id);
        }
        size_t frames = 0;
        for (const IndexedFrame& frame : pipe.mFrameIndex.mRing) {
            checkPlaces(pipe, frame, text);
            if (frame.frame == nullptr) continue;
            ++frames;
            const auto node = pipe.mElem.mFrames.find(frame.id);
            expect(node != pipe.mElem.mFrames.end() && node == frame.node && node->second.get() == frame.frame &&
                       pipe.mFrameIndex.find(frame.id) == &frame,
                   "the entry of frame", frame.id);
        }
        expect(frames == pipe.mFrameIndex.size(), "the number of frames");
        const auto& ring = pipe.mFrameIndex.mRing;
        expect(ring.empty() || pipe.mFrameIndex.mMask == ring.size() - 1, "the ring's mask");
        checkPlaces(pipe, pipe.mFrame0, text);
    }

    static void checkPlaces(PipeStore& pipe, const IndexedFrame& frame, std::string& text) {
        Known values;
        Known records;
        for (size_t number = 0; number < frame.pieces.size() * IndexedFrame::kPiece; ++number) {
            const auto& piece = frame.pieces[number / IndexedFrame::kPiece];
            if (piece == nullptr) continue;
            if (frame.frame == nullptr || number / IndexedFrame::kPiece > pipe.mTagIndex.size()) {
                text += "places without a frame or a tag\n";
                continue;
            }
            const TagPlaces& places = (*piece)[number % IndexedFrame::kPiece];
            const uint32_t id = number < pipe.mTagIndex.size() ? pipe.mTagIndex.mAll[number].id : 0;
            const auto& [tags, status] = std::tie(frame.frame->mTags, frame.frame->mStatus);
            values.places += places.value != tags.end();
            records.places += places.record != nullptr;
            if ((places.value != tags.end() && places.value != tags.find(id)) ||
                !isUnknownOrAt(status, id, places.record)) {
                text += "a place of tag " + std::to_string(id) + " in frame " + std::to_string(frame.id) + "\n";
            }
        }
        if (frame.frame == nullptr) return;
        values.size = static_cast<uint32_t>(frame.frame->mTags.size());
        records.size = static_cast<uint32_t>(frame.frame->mStatus.size());
        for (const auto& [found, known] : {std::pair(values, frame.values), std::pair(records, frame.records)}) {
            if (found.places != known.places || found.size != known.size) {
                text += "the numbers of frame " + std::to_string(frame.id) + "\n";
            }
        }
    }
};

}  // namespace zarn

namespace {

using zarn::IndexCheck;

const bool kIsCheckedInTheModel = (Driver::sAlsoCheck = IndexCheck::wrong, true);

class Index : public StoreTest {
protected:
    static constexpr uint32_t kTags = 100;

    void SetUp() override {
        StoreTest::SetUp();
        host::setLogLevel(0);
        for (uint32_t tag = 1; tag <= kTags; ++tag) registerPsDynamicParam(tag, 4, 0, "tag", "uint32_t");
        mElem = &pipe();
    }
    void TearDown() override {
        EXPECT_EQ(IndexCheck::wrong(), "");
        StoreTest::TearDown();
    }
    static std::shared_ptr<zarn::ParamFrame> newFrame(uint32_t id) {
        return std::make_shared<zarn::ParamFrame>(kCam, id, zarn::ParamSet::getInstance(), &zarn::gTagInfo);
    }
    static zarn::PipeStore& store() { return IndexCheck::pipe(kCam, kPipe); }

    zarn::pipe_elem* mElem = nullptr;  // from one getPsHandle: the store is not told of later changes through it
};

TEST_F(Index, KnowsMoreTagsThanAPieceHolds) {
    for (uint32_t frame = 1; frame <= 20; ++frame) {
        for (uint32_t tag = 1; tag <= kTags; ++tag) EXPECT_EQ(set(frame, 1000 * frame + tag, tag), PS_OK);
        EXPECT_EQ(deliver(frame, frame, frame * 5), PS_OK);
        erasePs(kCam, kPipe, frame);
        EXPECT_EQ(IndexCheck::wrong(), "") << frame;
    }
    for (uint32_t tag = 1; tag <= kTags; ++tag) EXPECT_EQ(get(18, tag), tag != 90 ? 18000 + tag : 18u);
}

TEST_F(Index, KnowsMoreFramesThanItsRingHolds) {
    constexpr uint32_t kFrames = 2500;
    const auto tagOf = [](uint32_t frame) { return frame % 10 + 1; };
    for (uint32_t frame = 1; frame <= kFrames; ++frame) {
        EXPECT_EQ(set(frame, frame, tagOf(frame)), PS_OK);
        EXPECT_EQ(frame % 100 == 0 ? IndexCheck::wrong() : "", "") << frame;
    }
    for (uint32_t frame = 1; frame <= kFrames; ++frame) {
        EXPECT_EQ(get(frame, tagOf(frame)), frame);
        EXPECT_EQ(set(frame, frame + 7, tagOf(frame)), PS_OK);
    }
    EXPECT_EQ(mElem->mFrames.size(), kFrames);
    EXPECT_EQ(mElem->mCheckPoint.at(5)->size(), kFrames / 10) << "overwritten in place";
    for (uint32_t tag = 1; tag <= 10; ++tag) deliver(1, 1, tag), deliver(1025, 2, tag);
    EXPECT_EQ(IndexCheck::wrong(), "");
    erasePs(kCam, kPipe, kFrames);
    EXPECT_EQ(IndexCheck::wrong(), "");
    EXPECT_EQ(mElem->mFrames.size(), 6u);
    EXPECT_EQ(get(kFrames, tagOf(kFrames)), kFrames + 7);
}

// Frames that share a slot of the ring (some only while it is small, others even at its greatest size), and tags that
// share a slot.
TEST_F(Index, DistinguishesIdsThatCollide) {
    const auto slotOf = [](uint32_t id) { return (id * 0x9E3779B1u) >> 25; };
    std::vector<uint32_t> tags = {200};
    for (uint32_t id = 201; tags.size() < 40; ++id) {
        if (slotOf(id) == slotOf(tags[0])) tags.push_back(id);
    }
    for (uint32_t tag : tags) registerPsDynamicParam(tag, 4, 0, "tag", "uint32_t");
    const uint32_t frames[] = {5, 5 + 16, 5 + 64, 5 + 1024, 5 + 4096, 0x80000005};
    for (uint32_t round = 0; round < 3; ++round) {
        for (uint32_t frame : frames) {
            for (uint32_t tag : tags) EXPECT_EQ(set(frame, frame + tag + round, tag), PS_OK);
            EXPECT_EQ(IndexCheck::wrong(), "");
        }
        for (uint32_t frame : frames) {
            for (uint32_t tag : tags) EXPECT_EQ(get(frame, tag), frame + tag + round);
        }
    }
}

// The store is not told of the changes; it notices them by itself.
TEST_F(Index, NoticesWhatAProgramChangesInTheMaps) {
    static constexpr uint32_t kOther = 8;
    const struct {
        const char* name;
        std::function<void(zarn::pipe_elem&)> change;
        uint32_t at20;
        uint32_t at25;
    } changes[] = {
        {"nothing", [](auto&) {}, 20, 20},
        {"frame taken out", [](auto& pipe) { pipe.mFrames.erase(20); }, kNothing, kNothing},
        {"frame put in", [](auto& pipe) { pipe.mFrames[25] = newFrame(25); }, 20, 20},
        {"frame replaced", [](auto& pipe) { pipe.mFrames[20] = newFrame(20); }, kNothing, kNothing},
        {"entry without a frame", [](auto& pipe) { pipe.mFrames[20].reset(); }, kNothing, kNothing},
        {"value erased", [](auto& pipe) { pipe.mFrames[20]->eraseTag(kTag); }, kNothing, kNothing},
        {"value taken out", [](auto& pipe) { pipe.mFrames[20]->mTags.erase(kTag); }, kNothing, kNothing},
        {"value for value",
         [](auto& pipe) { pipe.mFrames[20]->eraseTag(kTag), pipe.mFrames[20]->createTag(kOther, nullptr); }, kNothing,
         kNothing},
        {"value erased, another put in",
         [](auto& pipe) { pipe.mFrames[20]->eraseTag(kTag), pipe.mFrames[20]->mTags[kOther] = nullptr; }, kNothing,
         kNothing},
        {"value put in", [](auto& pipe) { pipe.mFrames[20]->createTag(kOther, nullptr); }, 20, 20},
        {"record put in", [](auto& pipe) { pipe.mFrames[20]->mStatus[kOther].mState = 0; }, 20, 20},
        {"checkpoints taken out", [](auto& pipe) { pipe.mCheckPoint.erase(kTag); }, 20, 1},
        {"erase point taken out", [](auto& pipe) { pipe.mErasePoint.erase(kTag); }, 20, 20},
        {"frame 0 replaced", [](auto& pipe) { pipe.mErasePoint[kTag] = 25, pipe.mF0 = newFrame(0); }, 0, 0},
    };
    for (const auto& [name, change, at20, at25] : changes) {
        SetUp();
        for (uint32_t frame : {0u, 10u, 20u, 30u}) set(frame, frame != 0 ? frame : 1), deliver(frame, frame, 9);
        change(*mElem);
        EXPECT_EQ(get(20), at20) << name;
        EXPECT_EQ(get(25), at25) << name;
        deliver(20, 5, 9);
        EXPECT_EQ(get(30), 30u) << name;
        EXPECT_EQ(IndexCheck::wrong(), "") << name;
        erasePs(kCam, kPipe, 40);
        EXPECT_EQ(IndexCheck::wrong(), "") << name;
    }
}

// The erase goes through the map's frames itself, without looking each of them up.
TEST_F(Index, EraseNoticesTheFramesThatAProgramHasReplaced) {
    for (uint32_t frame : {10u, 15u, 20u, 30u}) set(frame, frame);
    mElem->mFrames[10].reset();
    mElem->mFrames[15] = newFrame(15);
    EXPECT_EQ(erasePs(kCam, kPipe, 35), PS_OK);
    EXPECT_EQ(mElem->mFrames.size(), 1u);
    EXPECT_EQ(IndexCheck::wrong(), "");
    EXPECT_EQ(get(29), 20u) << "saved";
    EXPECT_EQ(get(30), 30u);
}

// If a program adds as many entries as it removes, the store cannot notice it: another call of getPsHandle tells it.
TEST_F(Index, IsToldByGetPsHandleOfChangesThatItCannotNotice) {
    for (uint32_t frame : {10u, 20u, 30u}) set(frame, frame);
    auto node = mElem->mFrames.extract(20);
    mElem->mFrames[21] = node.mapped();
    (*mElem->mCheckPoint[kTag])[1] = 21;
    pipe();
    EXPECT_EQ(get(20), 10u);
    EXPECT_EQ(get(21), 20u);
}

TEST_F(Index, FreesItsMemoryWhenEverythingIsErased) {
    for (uint32_t frame = 1; frame <= 1500; ++frame) {
        deliver(frame, frame, frame % kTags + 1);
        if (frame % 8 == 0) erasePs(kCam, kPipe, frame / 2);
    }
    EXPECT_FALSE(IndexCheck::holdsNothing(store()));
    erasePs(kCam, kPipe, THE_LAST);
    EXPECT_TRUE(IndexCheck::holdsNothing(store()));
    EXPECT_EQ(set(5, 55), PS_OK);
    EXPECT_EQ(get(5), 55u);
}

// What was looked up before a wait is invalid after it: everything was erased, or the ring has grown and tags have
// other numbers.
TEST_F(Index, LooksEverythingUpAgainAfterAWait) {
    for (uint32_t frame : {50u, 0u}) {
        set(10, 10, 9), set(10, 10);
        WaitingGet get(frame, kTag, 60000);
        erasePs(kCam, kPipe, THE_LAST);
        EXPECT_EQ(get.finish(), (frame == 0 ? Got{PS_OK, 10} : Got{PS_NOT_OF_FRAME, 10})) << frame;
        EXPECT_EQ(IndexCheck::wrong(), "") << frame;

        WaitingGet delivered(frame, 90, 60000);
        for (uint32_t other = 100; other < 1400; ++other) set(other, other, other % 30 + 1);
        deliver(frame, 77, 90);
        EXPECT_EQ(delivered.finish(), (Got{PS_OK, 77})) << frame;
        EXPECT_EQ(IndexCheck::wrong(), "") << frame;
        erasePs(kCam, kPipe, THE_LAST);
    }
}

}  // namespace
