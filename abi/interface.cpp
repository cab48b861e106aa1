// The parts of the binary interface that the dumps lack: the numbers that programs are compiled with, the offsets of
// the store's data members, and the public types that only containers and smart pointers name (declared here, so that
// the dumps have them). If this file does not compile, the interface has changed.

#include <cstddef>

#include "paramset_typed.h"

// For types that are not plain C, a compiler need not support offsetof. Ours do.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

static_assert(MAX_CAM_NUM == 5);
static_assert(MAX_PIPE_NUM == 14);
static_assert(DEFAULT_WAIT_MS == 50);
static_assert(METADATA_TAG == 0x20001);
static_assert(THE_LAST == 0xFFFFFFFF);

static_assert(PS_OK == 0);
static_assert(PS_OUT_OF_LIMIT == 1);
static_assert(PS_NO_DATA == 2);
static_assert(PS_NOT_OF_FRAME == 3);
static_assert(PS_TIMED_OUT == 6);
static_assert(PS_NO_BUFFER == 0xFFFFFFFF);

namespace zarn {

static_assert(Result::OK == Result{0});
static_assert(Result::OUT_OF_LIMIT == Result{1});
static_assert(Result::NO_DATA == Result{2});
static_assert(Result::NOT_OF_FRAME == Result{3});
static_assert(Result::TIMED_OUT == Result{6});
static_assert(Result::NO_BUFFER == Result{0xFFFFFFFF});

static_assert(Registration::DONE == Registration{0});
static_assert(Registration::OTHER_SIZE == Registration{1});
static_assert(Registration::OTHER_KIND == Registration{2});
static_assert(Registration::RESERVED_TAG == Registration{3});

// A member of the class, because the data are private.
struct ParamSet::Layout {
    static_assert(offsetof(ParamSet, mOps) == 0);
    static_assert(offsetof(ParamSet, mMutex) == sizeof(zarn_ops));
    static_assert(offsetof(ParamSet, mElem) == sizeof(zarn_ops) + sizeof(std::mutex));
    static_assert(std::is_same_v<decltype(mOps), zarn_ops>);
    static_assert(std::is_same_v<decltype(mMutex), std::mutex>);
    static_assert(std::is_same_v<decltype(mElem), std::map<int, std::shared_ptr<cam_elem>>>);
};

extern PARAMSET_API const tag_info_t* dumpedTagInfo;
extern PARAMSET_API const creator_base_t* dumpedCreator;
extern PARAMSET_API const FrameStatus* dumpedStatus;
const tag_info_t* dumpedTagInfo = nullptr;
const creator_base_t* dumpedCreator = nullptr;
const FrameStatus* dumpedStatus = nullptr;

}  // namespace zarn
