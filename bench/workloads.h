// The workloads that one thread runs. Each is a class template over the contender. The constructor fills the contender.
// prepare() does what a step needs, and is not measured; step() is measured; isCorrect() tells whether the contender
// gives the right answers. The order of the accesses is random, with a fixed seed, and computed in advance.

#ifndef PARAMSET_BENCH_WORKLOADS_H
#define PARAMSET_BENCH_WORKLOADS_H

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "bench/contender.h"

namespace bench {

constexpr uint32_t kCam = 1;

struct Shape {
    uint32_t tags;
    uint32_t size;
    uint32_t cam = kCam;
};

constexpr uint32_t kLiveFrames = 16;  // frames that remain after an erase with a lag of ten
constexpr uint32_t kEraseLag = 10;

// A value that shows which frame and tag it belongs to: it begins with a number that is computed from frame and tag.
class Value {
public:
    explicit Value(uint32_t size) : mBytes(size) {}
    const void* of(uint32_t frame, uint32_t tag) {
        const double proof = proofOf(frame, tag);
        std::memcpy(mBytes.data(), &proof, sizeof proof);
        return mBytes.data();
    }
    void* out() { return mBytes.data(); }
    bool is(uint32_t frame, uint32_t tag) const {
        const double proof = proofOf(frame, tag);
        return std::memcmp(mBytes.data(), &proof, sizeof proof) == 0;
    }

private:
    static double proofOf(uint32_t frame, uint32_t tag) { return frame + tag / 4096.0; }

    std::vector<char> mBytes;
};

struct Access {
    uint16_t frame;
    uint16_t tag;
};

// A ring of accesses to random tags at random frames from `first` to `last`.
class RandomAccesses {
public:
    RandomAccesses(uint32_t tags, uint32_t first, uint32_t last, uint32_t seed = 1) : mRing(kLength) {
        std::mt19937 random(seed);
        std::uniform_int_distribution<uint16_t> frame(static_cast<uint16_t>(first), static_cast<uint16_t>(last));
        std::uniform_int_distribution<uint16_t> tag(0, static_cast<uint16_t>(tags - 1));
        for (Access& access : mRing) access = {frame(random), tag(random)};
    }
    const Access& next() { return mRing[mNext++ % kLength]; }

private:
    static constexpr size_t kLength = 8192;

    std::vector<Access> mRing;
    size_t mNext = 0;
};

// All tags in random order: a few different orders, used in turn.
class RandomTags {
public:
    explicit RandomTags(uint32_t tags) : mOrders(kOrders, std::vector<uint32_t>(tags)) {
        std::mt19937 random(2);
        for (std::vector<uint32_t>& order : mOrders) {
            std::iota(order.begin(), order.end(), 0);
            std::shuffle(order.begin(), order.end(), random);
        }
    }
    const std::vector<uint32_t>& next() { return mOrders[mNext++ % kOrders]; }

private:
    static constexpr size_t kOrders = 8;

    std::vector<std::vector<uint32_t>> mOrders;
    size_t mNext = 0;
};

// What the workloads share: the contender, a value, and the setting of whole frames.
template <class C>
class Workload {
public:
    void prepare() {}
    bool isCorrect() { return true; }

protected:
    explicit Workload(Shape shape)
        : mContender(shape.tags, shape.size), mCam(shape.cam), mValue(shape.size), mTags(shape.tags) {}

    void setFrame(uint32_t frame) {
        for (const uint32_t tag : mTags.next()) mContender.set(mCam, frame, tag, mValue.of(frame, tag));
    }
    void setFrames(uint32_t first, uint32_t last, uint32_t stride = 1) {
        for (uint32_t frame = first; frame <= last; frame += stride) setFrame(frame);
    }
    // A contender that does not answer from earlier frames is not checked.
    bool answers(uint32_t frame, uint32_t tag, uint32_t from) {
        if (std::strcmp(C::kAbilities.earlierFrame, "no") == 0) return true;
        return mContender.get(mCam, frame, tag, mValue.out()) && mValue.is(from, tag);
    }

    C mContender;
    const uint32_t mCam;
    Value mValue;
    RandomTags mTags;
};

// (a) get at a frame that holds the value
template <class C>
class GetOwn : Workload<C> {
public:
    explicit GetOwn(Shape shape) : Workload<C>(shape), mOrder(shape.tags, 1, kLiveFrames) {
        this->setFrames(1, kLiveFrames);
    }
    using Workload<C>::prepare;
    void step() {
        const Access& at = mOrder.next();
        this->mContender.get(this->mCam, at.frame, at.tag, this->mValue.out());
    }
    bool isCorrect() { return this->answers(3, 0, 3) && this->answers(kLiveFrames, 0, kLiveFrames); }

private:
    RandomAccesses mOrder;
};

// (b) get five frames past the newest checkpoint
template <class C>
class GetAhead : Workload<C> {
public:
    explicit GetAhead(Shape shape) : Workload<C>(shape), mOrder(shape.tags, kLiveFrames + 5, kLiveFrames + 5) {
        this->setFrames(1, kLiveFrames);
    }
    using Workload<C>::prepare;
    void step() {
        const Access& at = mOrder.next();
        this->mContender.get(this->mCam, at.frame, at.tag, this->mValue.out());
    }
    bool isCorrect() { return this->answers(kLiveFrames + 5, 0, kLiveFrames); }

private:
    RandomAccesses mOrder;
};

// (c) get 250 checkpoints back in a list of 300: every other frame has values, and the gets ask for a frame without
template <class C>
class GetDeep : Workload<C> {
public:
    explicit GetDeep(Shape shape) : Workload<C>(shape), mOrder(shape.tags, kAsked, kAsked) {
        this->setFrames(2, 2 * kCheckpoints, 2);
    }
    using Workload<C>::prepare;
    void step() {
        const Access& at = mOrder.next();
        this->mContender.get(this->mCam, at.frame, at.tag, this->mValue.out());
    }
    bool isCorrect() { return this->answers(kAsked, 0, kAsked - 1); }

private:
    static constexpr uint32_t kCheckpoints = 300;
    static constexpr uint32_t kAsked = 2 * (kCheckpoints - 250) + 1;

    RandomAccesses mOrder;
};

// (d) set in place
template <class C>
class SetInPlace : Workload<C> {
public:
    explicit SetInPlace(Shape shape) : Workload<C>(shape), mOrder(shape.tags, 1, kLiveFrames) {
        this->setFrames(1, kLiveFrames);
    }
    using Workload<C>::prepare;
    void step() {
        const Access& at = mOrder.next();
        this->mContender.set(this->mCam, at.frame, at.tag, this->mValue.out());
    }
    bool isCorrect() {
        this->mContender.set(this->mCam, 5, 0, this->mValue.of(50, 0));
        return this->answers(5, 0, 50);
    }

private:
    RandomAccesses mOrder;
};

// (e) a stream: each frame sets all tags and erases with a lag of ten
template <class C>
class Stream : Workload<C> {
public:
    explicit Stream(Shape shape) : Workload<C>(shape) {
        for (uint32_t warmUp = 0; warmUp < 2 * kLiveFrames; ++warmUp) step();
    }
    using Workload<C>::prepare;
    void step() {
        this->setFrame(++mFrame);
        if (mFrame > kLiveFrames) this->mContender.erase(this->mCam, mFrame - kEraseLag);
    }
    bool isCorrect() { return this->answers(mFrame - 3, 0, mFrame - 3); }

private:
    uint32_t mFrame = 0;
};

// (f) synchronous set, followed by a synchronous get of the delivered value
template <class C>
class Deliver : Workload<C> {
public:
    explicit Deliver(Shape shape) : Workload<C>(shape), mOrder(shape.tags, 1, kLiveFrames) {
        for (uint32_t frame = 1; frame <= kLiveFrames; ++frame) {
            for (uint32_t tag = 0; tag < shape.tags; ++tag) {
                this->mContender.deliver(this->mCam, frame, tag, this->mValue.of(frame, tag));
            }
        }
    }
    using Workload<C>::prepare;
    void step() {
        const Access& at = mOrder.next();
        this->mContender.deliver(this->mCam, at.frame, at.tag, this->mValue.out());
        this->mContender.await(this->mCam, at.frame, at.tag, this->mValue.out());
    }
    bool isCorrect() {
        this->mContender.deliver(this->mCam, 5, 0, this->mValue.of(50, 0));
        this->mValue.of(0, 0);
        return this->mContender.await(this->mCam, 5, 0, this->mValue.out()) && this->mValue.is(50, 0);
    }

private:
    RandomAccesses mOrder;
};

// (h) erase of all tags by sixteen frames in one call
template <class C>
class EraseMany : Workload<C> {
public:
    explicit EraseMany(Shape shape) : Workload<C>(shape) {}
    void prepare() {
        this->setFrames(mFrame + 1, mFrame + kLiveFrames);
        mFrame += kLiveFrames;
    }
    void step() { this->mContender.erase(this->mCam, mFrame + kRetained); }
    bool isCorrect() {
        prepare();
        const bool isThere = this->answers(mFrame - 1, 0, mFrame - 1);
        step();
        return isThere && !this->answers(mFrame - 1, 0, mFrame - 1);
    }

private:
    uint32_t mFrame = 0;
};

// (h) erase of the oldest of a number of live frames
template <class C, uint32_t kLive>
class EraseOne : Workload<C> {
public:
    explicit EraseOne(Shape shape) : Workload<C>(shape) { this->setFrames(mOldest, mOldest + kLive - 2); }
    void prepare() { this->setFrame(mOldest + kLive - 1); }
    void step() { this->mContender.erase(this->mCam, mOldest++ + kRetained); }
    bool isCorrect() {
        const uint32_t first = mOldest;
        for (int erased = 0; erased < 2; ++erased) {
            prepare();
            step();
        }
        return !this->answers(first, 0, first) && this->answers(mOldest, 0, mOldest);
    }

private:
    uint32_t mOldest = 2;  // an erase below frame 8 does nothing
};

// (i) a pipeline's mix: per frame set all tags, read each twice (own frame, three frames later), erase with a lag of
// ten
template <class C>
class Mix : Workload<C> {
public:
    explicit Mix(Shape shape) : Workload<C>(shape) {
        for (uint32_t warmUp = 0; warmUp < 2 * kLiveFrames; ++warmUp) step();
    }
    using Workload<C>::prepare;
    void step() {
        this->setFrame(++mFrame);
        for (const uint32_t frame : {mFrame, mFrame + 3}) {
            for (const uint32_t tag : this->mTags.next())
                this->mContender.get(this->mCam, frame, tag, this->mValue.out());
        }
        if (mFrame > kLiveFrames) this->mContender.erase(this->mCam, mFrame - kEraseLag);
    }
    bool isCorrect() { return this->answers(mFrame + 3, 0, mFrame); }

private:
    uint32_t mFrame = 0;
};

// (j) set of new values: a frame sets all tags; the erase of old frames is not measured
template <class C>
class SetNew : Workload<C> {
public:
    explicit SetNew(Shape shape) : Workload<C>(shape) {
        for (uint32_t warmUp = 0; warmUp < 2 * kLiveFrames; ++warmUp) prepare(), step();
    }
    void prepare() {
        if (mFrame > kLiveFrames) this->mContender.erase(this->mCam, mFrame - kEraseLag);
    }
    void step() { this->setFrame(++mFrame); }
    bool isCorrect() { return this->answers(mFrame - 3, 0, mFrame - 3); }

private:
    uint32_t mFrame = 0;
};

// (l) create and destroy the store
template <class C>
class Create {
public:
    explicit Create(Shape shape) : mShape(shape) {}
    void prepare() {}
    void step() { const C contender(mShape.tags, mShape.size); }
    bool isCorrect() { return true; }

private:
    Shape mShape;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_WORKLOADS_H
