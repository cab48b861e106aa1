// An index of one pipe's maps. The nodes of a map do not move, so their addresses are remembered here, and the next
// look-up takes one step. The maps stay the truth: the addresses may be forgotten at any time.
// Used only by PipeStore. Guarded by ParamSet::mMutex.

#ifndef PARAMSET_PIPE_INDEX_H
#define PARAMSET_PIPE_INDEX_H

#include <array>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "include/paramset.h"

namespace zarn {

struct RegisteredTag;

using Buffer = std::shared_ptr<void>;                            // of a value; empty: no buffer
using Values = std::map<uint32_t, Buffer>;                       // ParamFrame::mTags
using Frames = std::map<uint32_t, std::shared_ptr<ParamFrame>>;  // pipe_elem::mFrames
using Checkpoints = std::vector<uint32_t>;                       // ascending frame ids

// A tag in one pipe.
struct IndexedTag {
    uint32_t id;
    uint32_t number;                            // 0, 1, 2 ... in the order in which the pipe's tags were first used
    const RegisteredTag* registered = nullptr;  // null: not registered
    uint32_t* erasePoint = nullptr;             // null: unknown
    std::shared_ptr<Checkpoints>* checkpoints = nullptr;  // null: unknown
    Values::node_type kept = {};                          // an erased value, for the next frame that is given the tag
};

class TagIndex {
public:
    // The tag's entry, made at its first use in the pipe. Stays valid until clear.
    IndexedTag& of(uint32_t id) {
        if (mLast != nullptr && mLast->id == id) return *mLast;
        IndexedTag* known = mSlots.empty() ? nullptr : slotOf(id).tag;
        return *(mLast = known != nullptr ? known : &add(id));
    }
    size_t size() const { return mAll.size(); }
    void forgetPlaces();
    void clear();

private:
    friend struct IndexCheck;  // in tests/index_test.cpp

    // A hash table with open addressing. Its length is a power of two; at most half of it is taken.
    struct Slot {
        uint32_t id;
        IndexedTag* tag;  // null: free
    };

    Slot& slotOf(uint32_t id) {
        constexpr uint32_t kSpread = 0x9E3779B1u;  // 2^32 divided by the golden ratio: spreads neighbouring ids
        size_t i = (id * kSpread) >> mShift;
        while (mSlots[i].tag != nullptr && mSlots[i].id != id) i = (i + 1) & (mSlots.size() - 1);
        return mSlots[i];
    }
    [[gnu::cold]] IndexedTag& add(uint32_t id);

    std::vector<Slot> mSlots;
    int mShift = 32;  // 32 minus the bits of a slot's number
    std::deque<IndexedTag> mAll;
    IndexedTag* mLast = nullptr;  // of the last look-up; the next one is often for the same tag
};

// Where the value and the record of one tag are in one frame.
struct TagPlaces {
    Values::iterator value;  // end: unknown
    FrameStatus* record;     // null: unknown
    const void* bytes;       // of the value when it was remembered; may be gone, so it is only prefetched
};

// How much of a map is remembered.
struct Known {
    uint32_t places = 0;  // remembered entries
    uint32_t size = 0;    // size of the map when it was last used here

    bool isAll() const { return places == size; }
};

// A frame of one pipe.
struct IndexedFrame {
    // An array by the tag's number, allocated in pieces: a frame that has few of many tags needs few pieces.
    static constexpr size_t kPiece = 32;
    using Piece = std::array<TagPlaces, kPiece>;

    uint32_t id = 0;
    ParamFrame* frame = nullptr;  // null: no frame
    Frames::iterator node = {};   // in pipe_elem::mFrames; frame 0 has none
    Known values;
    Known records;
    std::vector<std::unique_ptr<Piece>> pieces;

    // Resets what is known of the frame's maps: their sizes, and no entry.
    void noteSizes();

    // Null: nothing is known of the tag in this frame.
    TagPlaces* find(const IndexedTag& tag) const {
        const size_t piece = tag.number / kPiece;
        if (piece >= pieces.size() || pieces[piece] == nullptr) return nullptr;
        return &(*pieces[piece])[tag.number % kPiece];
    }
};

class FrameIndex {
public:
    // Null: unknown. A frame stays valid until another is added.
    IndexedFrame* find(uint32_t id) {
        if (mRing.empty()) return nullptr;
        IndexedFrame& frame = mRing[id & mMask];
        return frame.frame != nullptr && frame.id == id ? &frame : nullptr;
    }
    // The frame must be unknown. If the ring cannot grow, the frame that had its slot is forgotten.
    IndexedFrame& add(Frames::iterator node);
    void forget(IndexedFrame& frame);
    void forgetAll();
    // As forgetAll, and frees the memory.
    void clear();
    size_t size() const { return mSize; }

    // The places of a tag in a frame (of this index, or frame 0), for the caller to fill; made if there are none.
    TagPlaces& placesOf(IndexedFrame& frame, const IndexedTag& tag);
    void forgetPlacesIn(IndexedFrame& frame);

private:
    friend struct IndexCheck;

    static constexpr size_t kFewestFrames = 16;
    static constexpr size_t kMostFrames = 1024;
    static constexpr size_t kMostSpare = 64;

    void grow();

    std::vector<IndexedFrame> mRing;  // a frame's slot is the low bits of its id
    size_t mMask = 0;
    size_t mSize = 0;
    std::vector<std::unique_ptr<IndexedFrame::Piece>> mSpare;
};

}  // namespace zarn

#endif  // PARAMSET_PIPE_INDEX_H
