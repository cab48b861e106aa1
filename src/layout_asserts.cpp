// What modules that were compiled against an earlier header rely on: the order and the types of the data members, and
// their places. Whatever fails to compile here is a new interface: it wants a new major version.

#include <cstddef>
#include <type_traits>

#include "include/paramset.h"

// Of the types here that are no plain C the language leaves offsetof to the compilers. Both of ours support it.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

#define PS_TYPE(owner, member, ...) \
    static_assert(std::is_same_v<decltype(owner::member), __VA_ARGS__>, #owner "::" #member " has another type")

#define PS_PLACE(owner, member, offset) \
    static_assert(offsetof(owner, member) == (offset), #owner "::" #member " has another place")

// The member follows the one before it, with nothing between but padding. Known to hold on every platform.
#define PS_NEXT(owner, previous, member)                                                                           \
    static_assert(offsetof(owner, member) == zarn::placeAfter(offsetof(owner, previous) + sizeof(owner::previous), \
                                                              alignof(decltype(owner::member))),                   \
                  #owner "::" #member " does not follow " #previous)

namespace zarn {

constexpr size_t placeAfter(size_t end, size_t alignment) {
    return (end + alignment - 1) / alignment * alignment;
}

// ---- the operations of the external processor: slot n at n pointers

PS_TYPE(zarn_ops, cmd0, int (*)(void*, int64_t, void*));
PS_TYPE(zarn_ops, cmd1, int (*)(void*, int64_t, void*));
PS_TYPE(zarn_ops, cmd2, int (*)(void*, int64_t, void*));
PS_TYPE(zarn_ops, cmd3, int (*)(void*, int32_t, void*));
PS_TYPE(zarn_ops, cmd4, int (*)(void*, uint32_t, void*));
PS_TYPE(zarn_ops, cmd5, int (*)(void*, uint32_t, void*));
PS_TYPE(zarn_ops, cmd6, int (*)(void*, uint32_t, uint32_t, void*));
PS_TYPE(zarn_ops, cmd7, int (*)(void*, uint8_t, void*));
PS_TYPE(zarn_ops, cmd8, int (*)(void*, void*));
PS_TYPE(zarn_ops, cmd9, int (*)(void*, void*));
PS_TYPE(zarn_ops, cmd10, int (*)(void*, uint32_t));

#define PS_SLOT(number) PS_PLACE(zarn_ops, cmd##number, number * sizeof(void*))
PS_SLOT(0);
PS_SLOT(1);
PS_SLOT(2);
PS_SLOT(3);
PS_SLOT(4);
PS_SLOT(5);
PS_SLOT(6);
PS_SLOT(7);
PS_SLOT(8);
PS_SLOT(9);
PS_SLOT(10);
static_assert(sizeof(zarn_ops) == 11 * sizeof(void*));

// ---- the registry

PS_TYPE(tag_info_t, mDataType, std::string);
PS_TYPE(tag_info_t, mName, std::string);
PS_TYPE(tag_info_t, mCreator, std::shared_ptr<creator_base_t>);
PS_TYPE(tag_info_t, mTagType, int32_t);
PS_TYPE(tag_info_t, mSize, int32_t);
PS_TYPE(tag_info_t, mRetainNum, int32_t);
PS_PLACE(tag_info_t, mDataType, 0);
PS_NEXT(tag_info_t, mDataType, mName);
PS_NEXT(tag_info_t, mName, mCreator);
PS_NEXT(tag_info_t, mCreator, mTagType);
PS_NEXT(tag_info_t, mTagType, mSize);
PS_NEXT(tag_info_t, mSize, mRetainNum);

PS_TYPE(param_creator_t<char>, mSize, int32_t);
PS_TYPE(param_creator_t<char>, mUseMalloc, uint32_t);
PS_PLACE(param_creator_t<char>, mSize, sizeof(void*));
PS_NEXT(param_creator_t<char>, mSize, mUseMalloc);

// ---- frames

PS_TYPE(FrameStatus, mFrameID, uint32_t);
PS_TYPE(FrameStatus, mState, int32_t);
PS_TYPE(FrameStatus, mCond, std::condition_variable);
PS_TYPE(FrameStatus, mMutex, std::mutex);
PS_PLACE(FrameStatus, mFrameID, 0);
PS_NEXT(FrameStatus, mFrameID, mState);
PS_NEXT(FrameStatus, mState, mCond);
PS_NEXT(FrameStatus, mCond, mMutex);

PS_TYPE(ParamFrame, mParamSet, ParamSet*);
PS_TYPE(ParamFrame, mCamID, uint32_t);
PS_TYPE(ParamFrame, mFrameID, uint32_t);
PS_TYPE(ParamFrame, mTagInfo, std::map<uint32_t, tag_info_t>*);
PS_TYPE(ParamFrame, mTags, std::map<uint32_t, std::shared_ptr<void>>);
PS_TYPE(ParamFrame, mMetadata, std::shared_ptr<camera_metadata>);
PS_TYPE(ParamFrame, mStatus, std::map<uint32_t, FrameStatus>);
PS_PLACE(ParamFrame, mParamSet, 0);
PS_NEXT(ParamFrame, mParamSet, mCamID);
PS_NEXT(ParamFrame, mCamID, mFrameID);
PS_NEXT(ParamFrame, mFrameID, mTagInfo);
PS_NEXT(ParamFrame, mTagInfo, mTags);
PS_NEXT(ParamFrame, mTags, mMetadata);
PS_NEXT(ParamFrame, mMetadata, mStatus);

// ---- pipes, cameras, the store

PS_TYPE(pipe_elem, mF0, std::shared_ptr<ParamFrame>);
PS_TYPE(pipe_elem, mFrames, std::map<uint32_t, std::shared_ptr<ParamFrame>>);
PS_TYPE(pipe_elem, mCheckPoint, std::map<uint32_t, std::shared_ptr<std::vector<uint32_t>>>);
PS_TYPE(pipe_elem, mErasePoint, std::map<uint32_t, uint32_t>);
PS_PLACE(pipe_elem, mF0, 0);
PS_NEXT(pipe_elem, mF0, mFrames);
PS_NEXT(pipe_elem, mFrames, mCheckPoint);
PS_NEXT(pipe_elem, mCheckPoint, mErasePoint);

PS_TYPE(cam_elem, mPipe, pipe_elem[14]);
PS_TYPE(cam_elem, mHandle, void* [7]);
PS_PLACE(cam_elem, mPipe, 0);
PS_NEXT(cam_elem, mPipe, mHandle);

// A member, since the store keeps its data to itself.
struct ParamSet::Layout {
    PS_TYPE(ParamSet, mOps, zarn_ops);
    PS_TYPE(ParamSet, mMutex, std::mutex);
    PS_TYPE(ParamSet, mElem, std::map<int, std::shared_ptr<cam_elem>>);
    PS_PLACE(ParamSet, mOps, 0);
    PS_NEXT(ParamSet, mOps, mMutex);
    PS_NEXT(ParamSet, mMutex, mElem);
};

// ---- sizes in bytes, where the standard library is one that we know

#if defined(__LP64__) && (defined(_LIBCPP_VERSION) || defined(__GLIBCXX__))

#if defined(_LIBCPP_VERSION)
constexpr size_t kString = 24;
constexpr size_t kMap = 24;
#else
constexpr size_t kString = 32;
constexpr size_t kMap = 48;
#endif

#if defined(__aarch64__) && defined(__GLIBC__)
constexpr size_t kMutex = 48;
#else
constexpr size_t kMutex = 40;  // of Android on aarch64 too
#endif

constexpr size_t kShared = 16;
constexpr size_t kCondition = 48;
constexpr size_t kPipe = kShared + 3 * kMap;

static_assert(sizeof(zarn_ops) == 88);
PS_PLACE(tag_info_t, mRetainNum, 2 * kString + kShared + 8);
static_assert(sizeof(tag_info_t) == 2 * kString + kShared + 16);
PS_PLACE(param_creator_t<char>, mUseMalloc, 12);
static_assert(sizeof(param_creator_t<char>) == 16);
PS_PLACE(FrameStatus, mMutex, 8 + kCondition);
static_assert(sizeof(FrameStatus) == 8 + kCondition + kMutex);
PS_PLACE(ParamFrame, mStatus, 24 + kMap + kShared);
static_assert(sizeof(ParamFrame) == 24 + kMap + kShared + kMap);
PS_PLACE(pipe_elem, mErasePoint, kShared + 2 * kMap);
static_assert(sizeof(pipe_elem) == kPipe);
PS_PLACE(cam_elem, mHandle, 14 * kPipe);
static_assert(sizeof(cam_elem) == 14 * kPipe + 7 * 8);

static_assert(sizeof(ParamSet) == 88 + kMutex + kMap);

#endif

}  // namespace zarn
