// What one pipe of a camera holds: its frames with their values and records, frame 0, and each tag's checkpoints and
// erase point. The only code that changes pipe_elem's maps, and the mTags and mStatus of its frames. The callers decide
// which buffer answers, who waits and what is erased; nothing here calls them.
// An index remembers the addresses of the maps' entries. If a program itself changes the maps, through
// ParamSet::getPsHandle, that call, the maps' sizes or the frames' addresses show it, and the addresses are forgotten.
// Guarded by ParamSet::mMutex. clang cannot check that here, because it does not know whose mutex it is; it checks that
// ParamSet::mPipes, the only way to a PipeStore, is used with mMutex held.

#ifndef PARAMSET_PIPE_STORE_H
#define PARAMSET_PIPE_STORE_H

#include <algorithm>

#include "src/changes.h"
#include "src/pipe_index.h"
#include "src/tag_table.h"
#include "src/waiters.h"

namespace zarn {

inline const Buffer kNoBuffer;

class PipeStore {
public:
    using Tag = IndexedTag;      // valid until the pipe is shrunk or mMutex released
    using Frame = IndexedFrame;  // valid until another frame is asked for or mMutex released

    PipeStore(uint32_t camID, int pipe, pipe_elem& elem, TagReader& registry, ParamSet* store);
    PipeStore(const PipeStore&) = delete;
    PipeStore& operator=(const PipeStore&) = delete;

    uint32_t camID() const { return mCamID; }
    int pipe() const { return mPipe; }

    // Called at the beginning of each access: if the maps have been changed from outside, forgets all remembered
    // addresses. Returns whether it did.
    bool noticeChanges() {
        const bool isUnchanged = mChanges == changeCount() && isAsLeft();
        if (!isUnchanged) forgetAll();
        return !isUnchanged;
    }

    // ---- tags

    Tag& tag(uint32_t id) {
        Tag& tag = mTagIndex.of(id);
        if (tag.registered == nullptr) tag.registered = mRegistry.find(id);
        return tag;
    }
    // The tag that metadata is listed under. It is never registered.
    Tag& metadataTag() { return mTagIndex.of(METADATA_TAG); }

    // If the tag has none, it is made as 0.
    uint32_t erasePoint(Tag& tag) { return *erasePointOf(tag); }
    void setErasePoint(Tag& tag, uint32_t frameID) { *erasePointOf(tag) = frameID; }

    // ---- checkpoints

    // The tag's list, ascending. If the tag has none, makes an entry without a list and returns null.
    const Checkpoints* checkpoints(Tag& tag) { return listOf(tag).get(); }
    // The newest checkpoint at or before a frame; 0 if there is none.
    static uint32_t newestCheckpoint(const Checkpoints& ids, uint32_t frameID);
    // As newestCheckpoint, but fast for a frame near the oldest checkpoint, as in an erase.
    static uint32_t newestErased(const Checkpoints& ids, uint32_t limit) {
        const auto later = firstAbove(ids, limit);
        return later != ids.begin() ? *(later - 1) : 0;
    }
    // Adds a frame to the tag's list, after equal ids; makes the list if there is none. Returns the list's length.
    size_t addCheckpoint(Tag& tag, uint32_t frameID);

    // ---- frames

    size_t frameCount() const { return mElem.mFrames.size(); }
    // The greatest frame id; 0 if there is no frame.
    uint32_t newestFrameID() const { return mElem.mFrames.empty() ? 0 : mElem.mFrames.rbegin()->first; }
    Frame& frame0() { return mFrame0; }
    // Null if the pipe does not have the frame.
    Frame* findFrame(uint32_t id);
    // A new frame; the pipe must not have it.
    Frame& addFrame(uint32_t id);
    // A reference that keeps a frame of findFrame or addFrame alive.
    static std::shared_ptr<ParamFrame> share(const Frame& frame) { return frame.node->second; }

    // ---- values and records of a tag in a frame

    // The frame's own entry, not a copy. Null if the frame does not have the tag.
    const Buffer* value(Frame& frame, Tag& tag);
    // Gives the frame, which must not have the tag, a buffer with undefined bytes; logs it. Empty if the tag is not
    // registered, if memory ran out, or if the program's own creator removed the frame.
    const Buffer& createTag(Frame& frame, Tag& tag);
    // Zeros a buffer of createTag, unless a program's own creator has filled it.
    static void zero(const Buffer& made, const Tag& tag);
    // Makes the record if there is none.
    FrameStatus& record(Frame& frame, Tag& tag) {
        FrameStatus* known = rememberedRecord(frame, tag);
        return known != nullptr ? *known : lookUpRecord(frame, tag);
    }

    // ---- erasing

    // Trims the tag's history before a write to a frame adds a checkpoint: removes the oldest checkpoints, with their
    // values, until fewer than the tag's limit are left. A frame without any value left is removed, unless it is the
    // written one. The last removed checkpoint becomes the erase point.
    void autoErase(Tag& tag, uint32_t frameID);

    // The state of one erase.
    struct Sweep {
        struct Pass {
            Tag* tag;
            uint32_t limit;
        };
        std::vector<uint32_t> tags;  // that had an entry in mCheckPoint at the beginning, ascending
        std::vector<Pass> passes;    // the tags that were erased, and up to which frame
        std::vector<Woken> woken;    // to be notified again after mMutex is released
    };
    // Begins an erase. Reuses the memory of the last Sweep.
    Sweep beginSweep();
    // Removes the tag's checkpoints at or below the limit, and the tag from the frames there; wakes the gets that wait
    // for it there. A frame without any value left is removed. If there was any frame, the limit becomes the tag's
    // erase point.
    void dropUpTo(uint32_t limit, Tag& tag, Sweep& sweep);
    // For each pass: makes a record of the tag in every frame at or below the limit that is still in the pipe. Keeps
    // the memory of the Sweep for the next one.
    void endSweep(Sweep& sweep);
    // Marks all tags of frame 0 as not delivered, and wakes the gets that wait there.
    void resetFrame0(Sweep& sweep);
    // Frees the memory of the index and of the kept values.
    void shrink();

private:
    friend struct IndexCheck;  // in tests/index_test.cpp

    bool isAsLeft() const {
        return mFrame0.frame == mElem.mF0.get() && mFrameCount == mElem.mFrames.size() &&
               mErasePointCount == mElem.mErasePoint.size() && mListCount == mElem.mCheckPoint.size();
    }
    [[gnu::cold]] void forgetAll();
    void forgetPlacesIn(Frame& frame);

    uint32_t* erasePointOf(Tag& tag);
    std::shared_ptr<Checkpoints>& listOf(Tag& tag);
    [[gnu::cold]] void lookUpErasePoint(Tag& tag);
    [[gnu::cold]] void lookUpList(Tag& tag);
    static Checkpoints::const_iterator firstAbove(const Checkpoints& ids, uint32_t limit);
    [[gnu::cold]] Frame* lookUpFrame(uint32_t id);
    Frame* frameAt(Frames::iterator node);
    Values& valuesOf(Frame& frame);
    [[gnu::cold]] const Buffer* lookUpValue(Frame& frame, Tag& tag);
    const Buffer& rememberValue(Frame& frame, Tag& tag, Values::iterator place);
    const Buffer& useKept(Frame& frame, Tag& tag);
    const Buffer& useCreator(Frame& frame, Tag& tag);
    static bool isWorthKeeping(const Tag& tag, const Buffer& buffer);
    std::map<uint32_t, FrameStatus>& recordsOf(Frame& frame);
    static FrameStatus* rememberedRecord(const Frame& frame, const Tag& tag);
    FrameStatus& lookUpRecord(Frame& frame, Tag& tag);
    FrameStatus* findRecord(Frame& frame, Tag& tag);

    void removeValue(Frame& frame, Tag& tag);
    void removeFrame(Frames::iterator node);
    void prefetch(Frames::iterator node);
    // Whether a get waits in the frame: it holds the frame until it returns.
    static bool isHeld(const Frame& frame) { return frame.node->second.use_count() > 1; }
    bool drop(Frame& frame, Tag& tag, Sweep& sweep);
    void leaveRecordsIn(Frame& frame, const Sweep& sweep);

    const uint32_t mCamID;
    const int mPipe;
    pipe_elem& mElem;
    TagReader& mRegistry;
    ParamSet* const mStore;

    TagIndex mTagIndex;
    FrameIndex mFrameIndex;
    Frame mFrame0;
    // The announced changes and the sizes of the maps, when this object last changed or checked them.
    uint32_t mChanges = 0;
    size_t mFrameCount = 0;
    size_t mErasePointCount = 0;
    size_t mListCount = 0;
    Sweep mSpareSweep;  // empty: memory for the next one
};

// Always inlined, as value is: without it each is a call on the path of every get and set.
[[gnu::always_inline]] inline PipeStore::Frame* PipeStore::findFrame(uint32_t id) {
    Frame* frame = mFrameIndex.find(id);
    if (frame != nullptr && frame->node->second.get() == frame->frame) return frame;
    // The index has every frame of the pipe, and not this one.
    if (frame == nullptr && mFrameIndex.size() == mFrameCount) return nullptr;
    return lookUpFrame(id);
}

[[gnu::always_inline]] inline const Buffer* PipeStore::value(Frame& frame, Tag& tag) {
    const Values& values = frame.frame->mTags;
    if (frame.values.size == values.size()) {
        const TagPlaces* places = frame.find(tag);
        if (places != nullptr && places->value != values.end()) {
            __builtin_prefetch(places->bytes);  // loaded while the map's entry is
            return &places->value->second;
        }
        if (frame.values.isAll()) return nullptr;
    }
    return lookUpValue(frame, tag);
}

// Null: unknown.
inline FrameStatus* PipeStore::rememberedRecord(const Frame& frame, const Tag& tag) {
    if (frame.records.size != frame.frame->mStatus.size()) return nullptr;
    const TagPlaces* places = frame.find(tag);
    return places != nullptr ? places->record : nullptr;
}

inline uint32_t* PipeStore::erasePointOf(Tag& tag) {
    if (tag.erasePoint == nullptr) lookUpErasePoint(tag);
    return tag.erasePoint;
}

inline std::shared_ptr<Checkpoints>& PipeStore::listOf(Tag& tag) {
    if (tag.checkpoints == nullptr) lookUpList(tag);
    return *tag.checkpoints;
}

// Most requests are for the last checkpoint or a later frame. In a stream the checkpoints are evenly spaced, so that
// the place of any other frame can be computed. The frame is before the last checkpoint, so `place + 1` is in the list.
inline uint32_t PipeStore::newestCheckpoint(const Checkpoints& ids, uint32_t frameID) {
    if (ids.empty()) return 0;
    if (ids.back() <= frameID) return ids.back();
    if (frameID < ids.front()) return 0;
    const double product = static_cast<double>(frameID - ids.front()) * static_cast<double>(ids.size() - 1);
    const auto place = static_cast<size_t>(product / static_cast<double>(ids.back() - ids.front()));
    if (ids[place] <= frameID && frameID < ids[place + 1]) return ids[place];
    return *(std::upper_bound(ids.begin(), ids.end(), frameID) - 1);
}

// Searches from the oldest checkpoint, unless all are erased: an erase usually removes only a few.
inline Checkpoints::const_iterator PipeStore::firstAbove(const Checkpoints& ids, uint32_t limit) {
    if (!ids.empty() && ids.back() <= limit) return ids.end();
    return std::find_if(ids.begin(), ids.end(), [limit](uint32_t id) { return id > limit; });
}

}  // namespace zarn

#endif  // PARAMSET_PIPE_STORE_H
