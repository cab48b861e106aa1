// The rare paths of the index: adding entries and forgetting them.

#include "src/pipe_index.h"

namespace zarn {

IndexedTag& TagIndex::add(uint32_t id) {
    constexpr int kFewestBits = 4;
    if (2 * (mAll.size() + 1) > mSlots.size()) {
        mShift = mSlots.empty() ? 32 - kFewestBits : mShift - 1;
        mSlots.assign(size_t{1} << (32 - mShift), Slot{});
        for (IndexedTag& tag : mAll) slotOf(tag.id) = {tag.id, &tag};
    }
    IndexedTag& tag = mAll.emplace_back(IndexedTag{id, static_cast<uint32_t>(mAll.size())});
    slotOf(id) = {id, &tag};
    return tag;
}

void TagIndex::forgetPlaces() {
    for (IndexedTag& tag : mAll) {
        tag.erasePoint = nullptr;
        tag.checkpoints = nullptr;
    }
}

void TagIndex::clear() {
    *this = TagIndex();
}

void IndexedFrame::noteSizes() {
    values = {0, static_cast<uint32_t>(frame->mTags.size())};
    records = {0, static_cast<uint32_t>(frame->mStatus.size())};
}

IndexedFrame& FrameIndex::add(Frames::iterator node) {
    if (mRing.empty()) grow();
    while (mRing[node->first & mMask].frame != nullptr && mRing.size() < kMostFrames) grow();
    IndexedFrame& frame = mRing[node->first & mMask];
    if (frame.frame != nullptr) forget(frame);
    frame.id = node->first;
    frame.frame = node->second.get();
    frame.node = node;
    frame.noteSizes();
    ++mSize;
    return frame;
}

void FrameIndex::grow() {
    std::vector<IndexedFrame> earlier(mRing.empty() ? kFewestFrames : 2 * mRing.size());
    earlier.swap(mRing);
    mMask = mRing.size() - 1;
    for (IndexedFrame& frame : earlier) {
        if (frame.frame != nullptr) mRing[frame.id & mMask] = std::move(frame);
    }
}

void FrameIndex::forget(IndexedFrame& frame) {
    forgetPlacesIn(frame);
    frame.frame = nullptr;
    --mSize;
}

void FrameIndex::forgetAll() {
    for (IndexedFrame& frame : mRing) {
        if (frame.frame != nullptr) forget(frame);
    }
}

void FrameIndex::clear() {
    *this = FrameIndex();
}

TagPlaces& FrameIndex::placesOf(IndexedFrame& frame, const IndexedTag& tag) {
    if (TagPlaces* places = frame.find(tag)) return *places;
    const size_t number = tag.number / IndexedFrame::kPiece;
    if (number >= frame.pieces.size()) frame.pieces.resize(number + 1);
    std::unique_ptr<IndexedFrame::Piece>& piece = frame.pieces[number];
    if (mSpare.empty()) {
        piece = std::make_unique<IndexedFrame::Piece>();
    } else {
        piece = std::move(mSpare.back());
        mSpare.pop_back();
    }
    piece->fill({frame.frame->mTags.end(), nullptr, nullptr});
    return (*piece)[tag.number % IndexedFrame::kPiece];
}

void FrameIndex::forgetPlacesIn(IndexedFrame& frame) {
    for (std::unique_ptr<IndexedFrame::Piece>& piece : frame.pieces) {
        if (piece != nullptr && mSpare.size() < kMostSpare) mSpare.push_back(std::move(piece));
        piece = nullptr;
    }
}

}  // namespace zarn
