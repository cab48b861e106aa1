// The operations of a pipe that change something, and the look-ups in the maps for what the index does not have.

#include "src/pipe_store.h"

#include <cstring>

#include "src/trace.h"

namespace zarn {

namespace {

constexpr uint64_t kCheckpointBound = 300;  // of a tag that is not of type 2

}  // namespace

PipeStore::PipeStore(uint32_t camID, int pipe, pipe_elem& elem, TagReader& registry, ParamSet* store)
    : mCamID(camID), mPipe(pipe), mElem(elem), mRegistry(registry), mStore(store) {
    forgetAll();
}

void PipeStore::forgetAll() {
    mTagIndex.forgetPlaces();
    mFrameIndex.forgetAll();
    mFrame0.frame = mElem.mF0.get();
    forgetPlacesIn(mFrame0);
    mChanges = changeCount();
    mFrameCount = mElem.mFrames.size();
    mErasePointCount = mElem.mErasePoint.size();
    mListCount = mElem.mCheckPoint.size();
}

void PipeStore::forgetPlacesIn(Frame& frame) {
    mFrameIndex.forgetPlacesIn(frame);
    frame.noteSizes();
}

void PipeStore::shrink() {
    mTagIndex.clear();
    mFrameIndex.clear();
    mFrame0 = Frame();
    mSpareSweep = {};
    forgetAll();
}

// ---- tags

void PipeStore::lookUpErasePoint(Tag& tag) {
    tag.erasePoint = &mElem.mErasePoint.try_emplace(tag.id, 0).first->second;
    mErasePointCount = mElem.mErasePoint.size();
}

void PipeStore::lookUpList(Tag& tag) {
    tag.checkpoints = &mElem.mCheckPoint[tag.id];
    mListCount = mElem.mCheckPoint.size();
}

// ---- checkpoints

size_t PipeStore::addCheckpoint(Tag& tag, uint32_t frameID) {
    std::shared_ptr<Checkpoints>& ids = listOf(tag);
    if (ids == nullptr) ids = std::make_shared<Checkpoints>();
    const bool isNewest = ids->empty() || ids->back() <= frameID;
    ids->insert(isNewest ? ids->end() : std::upper_bound(ids->begin(), ids->end(), frameID), frameID);
    return ids->size();
}

// ---- frames

PipeStore::Frame* PipeStore::lookUpFrame(uint32_t id) {
    // The index has a frame of this id at another address: the program has replaced the frame.
    if (Frame* replaced = mFrameIndex.find(id)) mFrameIndex.forget(*replaced);
    const auto node = mElem.mFrames.find(id);
    if (node == mElem.mFrames.end() || node->second == nullptr) return nullptr;
    return &mFrameIndex.add(node);
}

// As findFrame, for a caller that has the map's node already.
PipeStore::Frame* PipeStore::frameAt(Frames::iterator node) {
    Frame* frame = mFrameIndex.find(node->first);
    if (frame != nullptr && node->second.get() == frame->frame) return frame;
    if (frame != nullptr) mFrameIndex.forget(*frame);
    return node->second != nullptr ? &mFrameIndex.add(node) : nullptr;
}

PipeStore::Frame& PipeStore::addFrame(uint32_t id) {
    const auto node = mElem.mFrames.try_emplace(mElem.mFrames.end(), id);
    node->second.reset(new ParamFrame(mCamID, id, mStore, &gTagInfo));
    mFrameCount = mElem.mFrames.size();
    return mFrameIndex.add(node);
}

void PipeStore::removeFrame(Frames::iterator node) {
    if (Frame* frame = mFrameIndex.find(node->first)) mFrameIndex.forget(*frame);
    mElem.mFrames.erase(node);
    mFrameCount = mElem.mFrames.size();
}

// ---- values and records

// The frame's values. If their number was changed from outside, first forgets what is remembered of the frame.
Values& PipeStore::valuesOf(Frame& frame) {
    Values& values = frame.frame->mTags;
    if (frame.values.size != values.size()) forgetPlacesIn(frame);
    return values;
}

std::map<uint32_t, FrameStatus>& PipeStore::recordsOf(Frame& frame) {
    std::map<uint32_t, FrameStatus>& records = frame.frame->mStatus;
    if (frame.records.size != records.size()) forgetPlacesIn(frame);
    return records;
}

const Buffer* PipeStore::lookUpValue(Frame& frame, Tag& tag) {
    Values& values = valuesOf(frame);
    const auto place = values.find(tag.id);
    return place != values.end() ? &rememberValue(frame, tag, place) : nullptr;
}

// The place of the value must be unknown.
const Buffer& PipeStore::rememberValue(Frame& frame, Tag& tag, Values::iterator place) {
    TagPlaces& places = mFrameIndex.placesOf(frame, tag);
    places.value = place;
    places.bytes = place->second.get();
    frame.values = {frame.values.places + 1, static_cast<uint32_t>(frame.frame->mTags.size())};
    return place->second;
}

const Buffer& PipeStore::createTag(Frame& frame, Tag& tag) {
    if (tag.registered == nullptr || tag.registered->info.mCreator == nullptr) {
        PS_LOG(1, "X Failed to create tag, no such creator: %d", tag.id);
        return kNoBuffer;
    }
    const Buffer& buffer = !tag.kept.empty() && &frame != &mFrame0 ? useKept(frame, tag) : useCreator(frame, tag);
    PS_LOG(5, "X:%s", buffer != nullptr ? "ok" : "fail");
    return buffer;
}

const Buffer& PipeStore::useKept(Frame& frame, Tag& tag) {
    return rememberValue(frame, tag, valuesOf(frame).insert(std::move(tag.kept)).position);
}

const Buffer& PipeStore::useCreator(Frame& frame, Tag& tag) {
    const uint32_t frameID = frame.id;
    Buffer made = tag.registered->info.mCreator->create(nullptr);
    // A program's own creator may have used the frame, and even removed it.
    const bool isMoved = !tag.registered->hasLibraryCreator() && noticeChanges();
    Frame* now = isMoved && frameID != 0 ? findFrame(frameID) : &frame;
    if (now == nullptr) return kNoBuffer;
    return rememberValue(*now, tag, valuesOf(*now).insert_or_assign(tag.id, std::move(made)).first);
}

void PipeStore::zero(const Buffer& made, const Tag& tag) {
    if (made == nullptr || !tag.registered->hasLibraryCreator()) return;
    std::memset(made.get(), 0, static_cast<uint32_t>(tag.registered->info.mSize));
}

inline void PipeStore::removeValue(Frame& frame, Tag& tag) {
    Values& values = valuesOf(frame);
    TagPlaces* places = frame.find(tag);
    const bool isKnown = places != nullptr && places->value != values.end();
    if (!isKnown && frame.values.isAll()) return;
    const auto place = isKnown ? places->value : values.find(tag.id);
    if (place == values.end()) return;
    if (isKnown) {
        places->value = values.end();
        --frame.values.places;
    }
    if (isWorthKeeping(tag, place->second)) {
        tag.kept = values.extract(place);
    } else {
        values.erase(place);
    }
    frame.values.size = static_cast<uint32_t>(values.size());
}

// Whether the tag's next new frame can reuse the buffer. The set that takes it overwrites all of its bytes, and the
// library's creator would make the same buffer.
bool PipeStore::isWorthKeeping(const Tag& tag, const Buffer& buffer) {
    // A null buffer is checked too, because its reference count is 1 as well: a failed allocation leaves one.
    if (!tag.kept.empty() || buffer == nullptr || buffer.use_count() != 1) return false;
    // Another thread may just have released its reference. Taking and releasing one here orders that thread's accesses
    // to the bytes before those of the next set.
    Buffer(buffer).reset();
    return tag.registered != nullptr && tag.registered->hasLibraryCreator();
}

FrameStatus& PipeStore::lookUpRecord(Frame& frame, Tag& tag) {
    std::map<uint32_t, FrameStatus>& records = recordsOf(frame);
    FrameStatus& record = records.try_emplace(tag.id).first->second;
    mFrameIndex.placesOf(frame, tag).record = &record;
    frame.records = {frame.records.places + 1, static_cast<uint32_t>(records.size())};
    return record;
}

FrameStatus* PipeStore::findRecord(Frame& frame, Tag& tag) {
    if (frame.frame->mStatus.empty()) return nullptr;
    if (FrameStatus* known = rememberedRecord(frame, tag)) return known;
    const std::map<uint32_t, FrameStatus>& records = recordsOf(frame);
    const bool isThere = !frame.records.isAll() && records.find(tag.id) != records.end();
    return isThere ? &lookUpRecord(frame, tag) : nullptr;
}

// ---- erasing

void PipeStore::autoErase(Tag& tag, uint32_t frameID) {
    const tag_info_t& info = tag.registered != nullptr ? tag.registered->info : mRegistry.findOrInsert(tag.id);
    Checkpoints& ids = *listOf(tag);
    const auto count = static_cast<uint32_t>(ids.size());
    uint64_t limit = kCheckpointBound;
    if (info.mTagType == kTagTypeQueue) {
        PS_TRACE("pipe %d tag %d, head %u, queueSize %u", mPipe, tag.id, ids.empty() ? 0 : ids.front(), count);
        limit = static_cast<uint64_t>(int64_t{info.mRetainNum});
    } else {
        if (count < kCheckpointBound) return;
        PS_TRACE("cam %d pipe %d tag %d, erased %u, cur sof %d", mCamID, mPipe, tag.id, ids.front(), frameID);
    }

    while (!ids.empty() && limit <= ids.size()) {
        const uint32_t head = ids.front();
        if (Frame* frame = findFrame(head)) {
            removeValue(*frame, tag);
            if (frame->frame->mTags.empty() && head != frameID) removeFrame(frame->node);
        }
        setErasePoint(tag, head);
        ids.erase(ids.begin());
    }
}

void PipeStore::dropUpTo(uint32_t limit, Tag& tag, Sweep& sweep) {
    if (Checkpoints* ids = listOf(tag).get()) {
        ids->erase(ids->begin(), firstAbove(*ids, limit));
    }
    auto node = mElem.mFrames.begin();
    if (node == mElem.mFrames.end() || node->first > limit) return;
    if (sweep.passes.empty()) prefetch(node);
    sweep.passes.push_back({&tag, limit});
    while (node != mElem.mFrames.end() && node->first <= limit) {
        Frame* frame = frameAt(node);
        const auto next = std::next(node);
        if (frame == nullptr || drop(*frame, tag, sweep)) removeFrame(node);
        node = next;
    }
    setErasePoint(tag, static_cast<int32_t>(limit) >= 1 ? limit : 0);
}

// The frame that an erase begins with was mostly last used many frames ago, and is in no cache. Each tag's pass frees
// one value of it; loading all of them at once takes a fraction of the time.
void PipeStore::prefetch(Frames::iterator node) {
    const Frame* frame = frameAt(node);
    if (frame == nullptr) return;
    for (const std::unique_ptr<Frame::Piece>& piece : frame->pieces) {
        if (piece == nullptr) continue;
        for (const TagPlaces& places : *piece) {
            if (places.value == frame->frame->mTags.end()) continue;
            __builtin_prefetch(&*places.value);
            __builtin_prefetch(places.bytes);
        }
    }
}

// Returns whether the frame is to be removed. A frame that stays gets its records at the end of the sweep, because most
// frames are removed before it. A frame that is removed while a get waits in it gets its records now.
bool PipeStore::drop(Frame& frame, Tag& tag, Sweep& sweep) {
    FrameStatus* status = findRecord(frame, tag);
    const bool isWaitedFor = status != nullptr && wakeWaiters(*status);
    // The erase leaves the state as it is. If a set delivers to the frame meanwhile, the set notifies again instead.
    if (isWaitedFor && isHeld(frame)) sweep.woken.push_back({frame.node->second, status, kWaitedFor});
    removeValue(frame, tag);
    if (!frame.frame->mTags.empty()) return false;
    if (isHeld(frame)) leaveRecordsIn(frame, sweep);
    return true;
}

void PipeStore::leaveRecordsIn(Frame& frame, const Sweep& sweep) {
    for (const Sweep::Pass& pass : sweep.passes) {
        if (frame.id <= pass.limit) record(frame, *pass.tag);
    }
}

PipeStore::Sweep PipeStore::beginSweep() {
    Sweep sweep = std::move(mSpareSweep);
    for (const auto& entry : mElem.mCheckPoint) sweep.tags.push_back(entry.first);
    return sweep;
}

void PipeStore::endSweep(Sweep& sweep) {
    uint32_t limit = 0;
    for (const Sweep::Pass& pass : sweep.passes) limit = std::max(limit, pass.limit);
    for (auto node = mElem.mFrames.begin(); node != mElem.mFrames.end() && node->first <= limit; ++node) {
        leaveRecordsIn(*frameAt(node), sweep);
    }
    mSpareSweep = {std::move(sweep.tags), std::move(sweep.passes), {}};
    mSpareSweep.tags.clear();
    mSpareSweep.passes.clear();
}

void PipeStore::resetFrame0(Sweep& sweep) {
    for (auto& [id, status] : mFrame0.frame->mStatus) {
        if (wakeWaiters(status)) sweep.woken.push_back({nullptr, &status, 0});
        storeRelaxed(status.mState, 0);
    }
}

}  // namespace zarn
