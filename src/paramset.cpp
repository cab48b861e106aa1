// The core of the store: the tag registry, the one instance and its layout, a frame's container, and the plain get and
// set entries. gTagInfo changes under gRigisterMutex; operations read its entries without a lock, through TagTable.
// sInstance is accessed with atomic operations only. What the pipes hold is guarded by mMutex.

#include "paramset.h"

#include "platform/calls.h"
#include "src/changes.h"
#include "src/hold.h"
#include "src/pipes.h"
#include "src/store_lock.h"
#include "src/trace.h"

namespace zarn {

// Destroyed in reverse order of their definitions: sAtUnload first, the registry last.
std::map<uint32_t, tag_info_t> gTagInfo;
std::mutex gRigisterMutex;
std::shared_ptr<ParamSet> ParamSet::sInstance;
ParamSet::Hold::AtUnload ParamSet::Hold::sAtUnload;

int ps_log = 0;
int ps_log_tag = 0;
int ps_log_erase = 0;

// ---- registry

namespace {

constexpr int kStaticRetainNum = 1;
constexpr int kDynamicRetainNum = 6;

int32_t retainNumOf(int tagType, int asked) {
    if (asked > kDynamicRetainNum) return asked;
    return tagType == kTagTypeStatic ? kStaticRetainNum : kDynamicRetainNum;
}

// An ordinary function, because the log shows its name: compilers disagree about __func__ in a specialised template.
void register_tag(uint32_t tag, const std::shared_ptr<param_creator_t<char>>& creator, bool isLibraryCreator,
                  int tagType, const char* name, const char* dataType, int retainNum) {
    const std::optional<bool> isRegistered = TagTable::isRegistered(tag);
    if (isRegistered == true) return;

    if (name == nullptr) name = "";
    if (dataType == nullptr) dataType = "";
    const int32_t size = creator != nullptr ? creator->mSize : 0;
    retainNum = retainNumOf(tagType, retainNum);
    tag_info_t info;
    info.mDataType = dataType;
    info.mCreator = creator;
    info.mTagType = tagType;
    info.mSize = size;
    info.mName = name;
    info.mRetainNum = retainNum;

    if (TagTable::hasEnded()) return;
    const std::lock_guard<std::mutex> lock(gRigisterMutex);
    // If another thread has registered the tag since isRegistered answered "no", this registration replaces that one.
    const bool mayReplace = isRegistered == false;
    if (!TagTable::add(tag, std::move(info), isLibraryCreator, mayReplace)) return;
    // Not the texts of the entry: if the process exits now, it may be freed.
    PS_LOG(3, "ParamSet tag:%d, name:%s, dataType:%s, size:%d, tagType:%d, retainNum:%d", tag, name, dataType, size, tagType, retainNum);
}

void registerBytes(uint32_t tag, uint32_t size, int tagType, const char* name, const char* dataType, int retainNum) {
    const std::shared_ptr<param_creator_t<char>> creator(new param_creator_t<char>(size));
    register_tag(tag, creator, true, tagType, name, dataType, retainNum);
}

}  // namespace

template <>
void ParamSet::register_tag<char>(uint32_t tag, param_creator_t<char>* creator, int tagType, const char* name,
                                  const char* dataType, int retainNum) {
    zarn::register_tag(tag, std::shared_ptr<param_creator_t<char>>(creator), false, tagType, name, dataType, retainNum);
}

void ParamSet::getTagInfo(std::map<uint32_t, tag_info_t>& out) {
    TagTable::copyTo(out);
}

// ---- instance

ParamSet* ParamSet::createInstance() {
    if (ParamSet* instance = getInstance()) return instance;

    static std::mutex sInstanceMutex;
    const std::lock_guard<std::mutex> lock(sInstanceMutex);
    if (ParamSet* instance = getInstance()) return instance;
    const Hold::Creation creation;
    if (creation.isRefused()) return nullptr;
    refreshLogLevel();
    PS_LOG(3, "create");
    const std::shared_ptr<ParamSet> instance(new ParamSet());
    if (creation.isRefused()) return nullptr;  // the process began to exit meanwhile; nothing would destroy the store
    Hold::publish(instance);
    return instance.get();
}

ParamSet* ParamSet::getInstance() {
    return Hold::current();
}

void ParamSet::destroyInstance() {
    PS_LOG(3, "destory");
    Hold::retire();
}

ParamSet::ParamSet() {
    PS_LOG(3, "E");
    for (int camID = 0; camID < MAX_CAM_NUM; ++camID) {
        mElem.emplace(camID, new cam_elem());
    }
    for (const auto& [camID, cam] : mElem) {
        for (pipe_elem& elem : cam->mPipe) {
            elem.mF0.reset(new ParamFrame(static_cast<uint32_t>(camID), 0, this, &gTagInfo));
        }
    }
    mPipes = std::make_unique<Pipes>(mElem, this);
    storeRelaxed(ps_log, readSwitch("persist.vendor.cam.log.ps"));
    storeRelaxed(ps_log_tag, readSwitch("persist.vendor.cam.log.tag"));
    storeRelaxed(ps_log_erase, readSwitch("persist.vendor.cam.log.erase"));
    mOps = {};
    PS_LOG(3, "X");
}

ParamSet::~ParamSet() {
    mPipes.reset();
    mElem.clear();
}

ParamSet::Hold::AtUnload::~AtUnload() {
    const bool callsStillRun = end();
    TagTable::end(callsStillRun);
}

// ---- frame

namespace {

// Part of the frame's mMetadata, so the frame still exists when this runs.
struct MetadataDeleter {
    const ParamFrame* frame;

    void operator()(camera_metadata* metadata) const {
        PS_LOG(5, "free_camera_metadata mCamID:%d,mFrameID:%d", frame->mCamID, frame->mFrameID);
        freeMetadata(metadata);
    }
};

std::shared_ptr<creator_base_t> creatorOf(const std::map<uint32_t, tag_info_t>& registry, uint32_t tag) {
    if (&registry == &gTagInfo) return TagTable::creatorOf(tag);
    const auto it = registry.find(tag);
    return it != registry.end() ? it->second.mCreator : nullptr;
}

}  // namespace

ParamFrame::ParamFrame(uint32_t camID, uint32_t frameID, ParamSet* owner, std::map<uint32_t, tag_info_t>* tagInfo)
    : mParamSet(owner), mCamID(camID), mFrameID(frameID), mTagInfo(tagInfo) {
    PS_LOG(5, "E cam[%d] frame[%d]", camID, frameID);
}

ParamFrame::~ParamFrame() {
    PS_LOG(5, "delete cam[%d] frame[%d], and total tag Num:%d", mCamID, mFrameID, getActiveTagSize());
}

// The creator runs before the frame changes, because a program's own creator may use the frame.
std::shared_ptr<void> ParamFrame::createTag(uint32_t tag, void* src) {
    const std::shared_ptr<creator_base_t> creator = creatorOf(*mTagInfo, tag);
    if (creator == nullptr) {
        PS_LOG(1, "X Failed to create tag, no such creator: %d", tag);
        return nullptr;
    }
    std::shared_ptr<void> buffer = creator->create(src);
    announceChange();
    mTags[tag] = buffer;
    PS_LOG(5, "X:%s", buffer != nullptr ? "ok" : "fail");
    return buffer;
}

std::shared_ptr<void> ParamFrame::getTag(uint32_t tag) {
    const auto it = mTags.find(tag);
    return it != mTags.end() ? it->second : nullptr;
}

bool ParamFrame::existTag(uint32_t tag) {
    return mTags.find(tag) != mTags.end();
}

int ParamFrame::eraseTag(uint32_t tag) {
    announceChange();
    mTags.erase(tag);
    return 0;
}

uint32_t ParamFrame::getActiveTagSize() {
    return static_cast<uint32_t>(mTags.size());
}

camera_metadata* ParamFrame::getMetadata() {
    return mMetadata.get();
}

int ParamFrame::setMetadata(const camera_metadata* src) {
    mMetadata.reset(cloneMetadata(src), MetadataDeleter{this});
    return 0;
}

// ---- plain entries

uint32_t ParamSet::getParam(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data) {
    const Hold store;
    if (data == nullptr || !store) return PS_NO_DATA;
    if (cam >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, tag %d get failed", cam, tag);
        return PS_OUT_OF_LIMIT;
    }
    const StoreLock lock(store->mMutex);
    return store->_getParam(cam, pipe, frame, tag, data);
}

uint32_t ParamSet::setParam(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data) {
    const Hold store;
    if (data == nullptr || !store) return PS_NO_DATA;
    if (cam >= MAX_CAM_NUM) {
        PS_LOG(1, "cam %d out of limit, tag %d set failed", cam, tag);
        return PS_OUT_OF_LIMIT;
    }
    const StoreLock lock(store->mMutex);
    return store->_setParam(cam, pipe, frame, tag, data);
}

}  // namespace zarn

// ---- C functions

void registerPsStaticParam(uint32_t tag, uint32_t size, int tagType, const char* name, const char* dataType) {
    zarn::registerBytes(tag, size, tagType, name, dataType, zarn::kStaticRetainNum);
}

void registerPsDynamicParam(uint32_t tag, uint32_t size, int tagType, const char* name, const char* dataType) {
    zarn::registerBytes(tag, size, tagType, name, dataType, zarn::kDynamicRetainNum);
}

void registerPsQueueParam(uint32_t tag, uint32_t size, int tagType, const char* name, const char* dataType,
                          int retainNum) {
    zarn::registerBytes(tag, size, tagType, name, dataType, retainNum);
}

void registerPsDynamicParamWithExtendingLife(uint32_t tag, uint32_t size, int tagType, const char* name,
                                             const char* dataType, int retainNum) {
    zarn::registerBytes(tag, size, tagType, name, dataType, retainNum);
}

uint32_t getPsParam(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data) {
    return zarn::ParamSet::getParam(cam, pipe, frame, tag, data);
}

uint32_t setPsParam(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data) {
    return zarn::ParamSet::setParam(cam, pipe, frame, tag, data);
}
