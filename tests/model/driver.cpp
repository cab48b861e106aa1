#include "tests/model/driver.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <tuple>

namespace {

using model::Frame;
using model::Lines;
using model::Pipe;
using model::Value;
using zarn::ParamSet;

constexpr size_t kGuard = 16;
constexpr const char* kProperties[] = {"persist.vendor.cam.log.ps", "persist.vendor.cam.log.tag",
                                       "persist.vendor.cam.log.erase"};

// During a call: the lines that the store logs, and the calls of the external processor's operations.
struct Log {
    Lines lines;
    const void* data = nullptr;  // the caller's buffer
    unsigned timeout = 0;
    bool isOn = false;
} gLog;

__attribute__((format(printf, 3, 4))) void addLine(int level, const char* function, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gLog.lines.emplace_back(level, function, format, arguments);
    va_end(arguments);
}

int note(int slot, const void* handle, int64_t first, int64_t second, const void* pointer) {
    addLine(0, "operation", model::kOperationLine, slot, reinterpret_cast<intmax_t>(handle), first, second,
            reinterpret_cast<intmax_t>(pointer));
    return model::reply(slot);
}

zarn_ops operations(uint32_t which) {
    zarn_ops all = {[](void* h, int64_t n, void* p) { return note(0, h, n, 0, p); },
                    [](void* h, int64_t n, void* p) { return note(1, h, n, 0, p); },
                    [](void* h, int64_t n, void* p) { return note(2, h, n, 0, p); },
                    [](void* h, int32_t n, void* p) { return note(3, h, n, 0, p); },
                    [](void* h, uint32_t n, void* p) { return note(4, h, n, 0, p); },
                    [](void* h, uint32_t n, void* p) { return note(5, h, n, 0, p); },
                    [](void* h, uint32_t n, uint32_t m, void* p) { return note(6, h, n, m, p); },
                    [](void* h, uint8_t n, void* p) { return note(7, h, n, 0, p); },
                    [](void* h, void* p) { return note(8, h, 0, 0, p); },
                    [](void* h, void* p) { return note(9, h, 0, 0, p); },
                    [](void* h, uint32_t n) { return note(10, h, n, 0, nullptr); }};
    if ((which & 1) != 0) all.cmd0 = nullptr, all.cmd7 = nullptr;
    if ((which & 2) != 0) all.cmd3 = nullptr, all.cmd10 = nullptr;
    return all;
}

std::array<bool, 11> slots(uint32_t which) {
    const bool even = (which & 1) == 0;
    const bool low = (which & 2) == 0;
    return {even, true, true, low, true, true, true, even, true, true, low};
}

std::array<void*, 7> handles(uint32_t value) {
    std::array<void*, 7> all;
    for (size_t i = 0; i < all.size(); i++) all[i] = reinterpret_cast<void*>(uintptr_t{value} * 16 + i);
    return all;
}

// Replaces addresses and the time of a wait by the model's names for them.
void generalise(model::Line& line) {
    auto* number = line.numbers.begin();
    for (const char* c = line.format; *c != '\0'; c++) {
        if (*c != '%') continue;
        switch (*++c) {
            case 's': break;
            case 'p':
                *number = *number == 0 ? 0 : *number == reinterpret_cast<intptr_t>(gLog.data) ? 2 : 1;
                number++;
                break;
            case 'f': *number = *number >= gLog.timeout ? -1 : *number, number++; break;
            default: number++;
        }
    }
}

// ---- The store's state, converted to the model's types

std::string textOf(const camera_metadata* metadata) {
    return {reinterpret_cast<const char*>(host::metadataBytes(metadata)), host::metadataSize(metadata)};
}

/// Whether two maps have the same keys with equal values.
template <typename Expected, typename Found, typename IsLike>
bool areLike(const Expected& expected, const Found& found, IsLike isLike) {
    return std::equal(expected.begin(), expected.end(), found.begin(), found.end(), [&](const auto& a, const auto& b) {
        return a.first == b.first && isLike(a.first, a.second, b.second);
    });
}

bool isValue(uint32_t, const Value& expected, const std::shared_ptr<void>& found) {
    if (expected.made != (found != nullptr)) return false;
    return !expected.known || memcmp(found.get(), expected.bytes.data(), expected.bytes.size()) == 0;
}

bool isStatus(uint32_t, const model::Status& expected, const zarn::FrameStatus& found) {
    return expected.frame == found.mFrameID && expected.state == found.mState;
}

bool isFrame(uint32_t cam, uint32_t id, const Frame& expected, zarn::ParamFrame& found) {
    if (found.mCamID != cam || found.mFrameID != id || found.mTagInfo != &zarn::gTagInfo ||
        found.mParamSet != ParamSet::getInstance() || expected.metadata.has_value() != (found.mMetadata != nullptr)) {
        return false;
    }
    return areLike(expected.tags, found.mTags, isValue) && areLike(expected.status, found.mStatus, isStatus) &&
           (!expected.metadata || *expected.metadata == textOf(found.getMetadata()));
}

bool isPipe(uint32_t cam, const Pipe& expected, const zarn::pipe_elem& found) {
    return found.mErasePoint == expected.erasePoints && isFrame(cam, 0, expected.zero, *found.mF0) &&
           areLike(expected.frames, found.mFrames,
                   [cam](uint32_t id, const Frame& frame, const auto& other) {
                       return other != nullptr && isFrame(cam, id, frame, *other);
                   }) &&
           areLike(expected.checkpoints, found.mCheckPoint, [](uint32_t, const auto& list, const auto& other) {
               return list.has_value() == (other != nullptr) && (!list || *list == *other);
           });
}

Frame toModel(zarn::ParamFrame& frame) {
    Frame copy;
    for (const auto& [tag, buffer] : frame.mTags) {
        const size_t size = buffer != nullptr ? static_cast<size_t>(zarn::gTagInfo[tag].mSize) : 0;
        copy.tags[tag] = {buffer != nullptr, true, std::string(static_cast<char*>(buffer.get()), size)};
    }
    for (const auto& [tag, status] : frame.mStatus) copy.status[tag] = {status.mFrameID, status.mState};
    if (frame.mMetadata != nullptr) copy.metadata = textOf(frame.getMetadata());
    return copy;
}

Pipe toModel(const zarn::pipe_elem& pipe) {
    Pipe copy;
    copy.zero = toModel(*pipe.mF0);
    copy.erasePoints = pipe.mErasePoint;
    for (const auto& [id, frame] : pipe.mFrames) copy.frames[id] = frame != nullptr ? toModel(*frame) : Frame();
    for (const auto& [tag, list] : pipe.mCheckPoint) {
        if (copy.checkpoints[tag]; list != nullptr) copy.checkpoints[tag] = *list;
    }
    return copy;
}

void inAnyOrder(Lines& lines) {
    std::sort(lines.begin(), lines.end(), [](const model::Line& a, const model::Line& b) {
        const int order = strcmp(a.format, b.format);
        return order != 0 ? order < 0 : a.numbers < b.numbers;
    });
}

std::string hex(const std::string& bytes) {
    std::string text;
    for (char c : bytes) text += {"0123456789abcdef"[c >> 4 & 15], "0123456789abcdef"[c & 15]};
    return text;
}

std::string describe(const std::string& name, const Frame& frame) {
    std::string text = name;
    for (const auto& [tag, value] : frame.tags) {
        text += " tag " + std::to_string(tag) + (value.made ? "=" : " unmade") + (value.known ? hex(value.bytes) : "?");
    }
    for (const auto& [tag, status] : frame.status) {
        text += " status of " + std::to_string(tag) + ": frame " + std::to_string(status.frame) + " state " +
                std::to_string(status.state);
    }
    return frame.metadata ? text + " metadata " + *frame.metadata : text;
}

std::vector<std::string> describe(const Pipe& pipe) {
    std::vector<std::string> lines = {describe("frame 0", pipe.zero)};
    for (const auto& [id, frame] : pipe.frames) lines.push_back(describe("frame " + std::to_string(id), frame));
    for (const auto& [tag, list] : pipe.checkpoints) {
        lines.push_back("checkpoints of " + std::to_string(tag) + (list ? ":" : ": no list"));
        for (size_t i = 0; list && i < list->size(); i++) lines.back() += " " + std::to_string((*list)[i]);
    }
    for (const auto& [tag, frame] : pipe.erasePoints) {
        lines.push_back("erase point of " + std::to_string(tag) + ": " + std::to_string(frame));
    }
    return lines;
}

std::vector<std::string> describe(const Lines& lines) {
    std::vector<std::string> texts;
    for (const model::Line& line : lines) texts.push_back(line.text());
    return texts;
}

/// The first line that differs; later differences may be its consequences.
std::string difference(const std::string& what, std::vector<std::string> expected, std::vector<std::string> found) {
    expected.push_back("(nothing more)");
    found.push_back("(nothing more)");
    size_t i = 0;
    while (i + 1 < std::min(expected.size(), found.size()) && expected[i] == found[i]) i++;
    return what + "\n  expected: " + expected[i] + "\n     found: " + found[i] + "\n";
}

/// The properties from which a store that is created reads its log switches.
std::array<std::string, 3> switches(const Operation& creation) {
    return {creation.noPointer         ? "x"
            : creation.number % 3 == 1 ? "3"
                                       : "",
            std::to_string(static_cast<int32_t>(creation.request.tag)), creation.number % 2 == 1 ? "1" : ""};
}

}  // namespace

// Replaces the host's definition, which prints the line. Weak, for a test that has its own log.
__attribute__((weak)) void LogMessage::__print_log_(const char* format, ...) const noexcept {
    if (!gLog.isOn || mLevel > host::logLevel()) return;
    va_list arguments;
    va_start(arguments, format);
    constexpr std::string_view kBegin = "%d, %s: ";
    if (model::Line::isSame(mModule, "ParamSet") && kBegin.compare(0, kBegin.npos, format, kBegin.size()) == 0 &&
        va_arg(arguments, int) > 0) {
        const char* const function = va_arg(arguments, const char*);
        generalise(gLog.lines.emplace_back(mLevel, function, format + kBegin.size(), arguments));
    } else {
        addLine(mLevel, mModule, "a line without module, number or function");
    }
    va_end(arguments);
}

std::string toText(const Operation& operation) {
    static const char* const names[] = {
        "getPsParam",  "setPsParam",  "getPsParamSyn",  "getPsParamSynTimeout", "setPsParamSyn",    "erasePs",
        "setMetadata", "getMetadata", "registration",   "ioctrlOutsidePsParam", "getParamExternal", "setPsOps",
        "setPsHandle", "getPsHandle", "createInstance", "destroyInstance"};
    const model::Request& r = operation.request;
    char text[200];
    snprintf(text, sizeof(text), "%s cam %u pipe %d frame %u tag %u value %u number %d retain %d%s",
             names[static_cast<size_t>(operation.kind)], r.cam, r.pipe, r.frame, r.tag, operation.value,
             operation.number, operation.retain, operation.noPointer ? " null" : "");
    return text;
}

uint64_t fromEnvironment(const char* name, uint64_t otherwise) {
    const char* text = getenv(name);
    return text != nullptr && *text != '\0' ? strtoull(text, nullptr, 10) : otherwise;
}

void emptyPipe(uint32_t cam, int index) {
    erasePs(cam, index, THE_LAST);
    // This tells the store that its pipes are changed from outside.
    zarn::pipe_elem& pipe = ParamSet::getInstance()->getPsHandle(cam)->mPipe[index];
    pipe.mF0->mTags.clear();
    pipe.mF0->mStatus.clear();
    pipe.mF0->mMetadata.reset();
    pipe.mFrames.clear();
    pipe.mCheckPoint.clear();
    pipe.mErasePoint.clear();
}

Driver::Driver() {
    host::setLogLevel(0);
    ParamSet::destroyInstance();
    zarn::gTagInfo.clear();
    for (int* logSwitch : {&zarn::ps_log, &zarn::ps_log_tag, &zarn::ps_log_erase}) {
        __atomic_store_n(logSwitch, 0, __ATOMIC_RELAXED);
    }
    host::setLogLevel(5);
}

Driver::~Driver() {
    host::setLogLevel(0);
    ParamSet::destroyInstance();
    host::setLogLevel(3);
}

Driver::Results Driver::callValue(const Operation& operation, char* data, Value& value) {
    const model::Request& r = operation.request;
    const auto& [cam, pipe, frame, tag] = r;
    Value* const modelData = data != nullptr ? &value : nullptr;
    const uint32_t timeout = static_cast<uint32_t>(operation.number);
    gLog.timeout = operation.kind == Kind::kGetSyncTimeout && timeout != 0 ? timeout : 50;
    switch (operation.kind) {
        case Kind::kGet: return {mModel.get(r, modelData), getPsParam(cam, pipe, frame, tag, data)};
        case Kind::kSet: return {mModel.set(r, modelData), setPsParam(cam, pipe, frame, tag, data)};
        case Kind::kGetSync:
            return {mModel.getSync(r, "getParamSyn", modelData), getPsParamSyn(cam, pipe, frame, tag, data)};
        case Kind::kGetSyncTimeout:
            return {mModel.getSync(r, "getParamSynTimeout", modelData),
                    getPsParamSynTimeout(cam, pipe, frame, tag, data, timeout)};
        default: return {mModel.setSync(r, modelData), setPsParamSyn(cam, pipe, frame, tag, data)};
    }
}

Driver::Results Driver::call(const Operation& operation, char* data) {
    const model::Request& r = operation.request;
    const uint32_t value = operation.value;
    char* const out = data != nullptr ? data + 4 : nullptr;
    ParamSet* const store = ParamSet::getInstance();
    switch (operation.kind) {
        case Kind::kErase: return {mModel.erase(r), erasePs(r.cam, r.pipe, r.frame)};
        case Kind::kControl:
            return {mModel.control(r.cam, value, operation.number, data, out),
                    ioctrlOutsidePsParam(r.cam, value, operation.number, data, out)};
        case Kind::kRegister: registerTag(operation); return {};
        case Kind::kSetMetadata: return setMetadata(operation);
        case Kind::kGetMetadata: return getMetadata(operation);
        case Kind::kCreate: create(operation); return {};
        case Kind::kDestroy:
            mModel.destroy();
            ParamSet::destroyInstance();
            inAnyOrder(mModel.transcript);
            inAnyOrder(gLog.lines);
            return {};
        default: break;
    }
    if (store == nullptr) return {mModel.exists, false};
    zarn_ops table = operations(value);
    const auto h = handles(value);
    switch (operation.kind) {
        case Kind::kGetExternal:
            return {mModel.getExternal(r.cam, r.tag, data),
                    store->getParamExternal(r.cam, r.pipe, r.frame, r.tag, data)};
        case Kind::kSetOperations:
            mModel.operations = slots(value);
            store->setPsOps(&table);
            return {};
        case Kind::kSetHandles:
            mModel.setHandles(r.cam, h);
            store->setPsHandle(r.cam, h[0], h[1], h[2], h[3], h[4], h[5], h[6]);
            return {};
        default: return {mModel.getHandle(r.cam), store->getPsHandle(r.cam) != nullptr};
    }
}

void Driver::registerTag(const Operation& operation) {
    const auto& [kind, request, size, type, retain, noPointer] = operation;
    const uint32_t tag = request.tag;
    const char* const name = noPointer ? nullptr : "name";
    const char* const dataType = noPointer ? nullptr : "bytes";
    int given = retain;
    switch (retain) {
        case -1: registerPsStaticParam(tag, size, type, name, dataType), given = 1; break;
        case -2: registerPsDynamicParam(tag, size, type, name, dataType), given = 6; break;
        case -3: ParamSet::register_tag<char>(tag, nullptr, type, name, dataType, 9), given = 9; break;
        case 10: registerPsQueueParam(tag, size, type, name, dataType, retain); break;
        default: registerPsDynamicParamWithExtendingLife(tag, size, type, name, dataType, retain);
    }
    mModel.registerTag(tag, size, retain != -3, type, name, dataType, given);
}

Driver::Results Driver::setMetadata(const Operation& operation) {
    const auto& [cam, pipe, frame, tag] = operation.request;
    const std::string text(operation.value % 5, static_cast<char>(operation.value >> 8));
    camera_metadata* metadata = operation.noPointer ? nullptr : host::makeMetadata(text.data(), text.size());
    const Results results = {mModel.setMetadata(cam, frame, operation.noPointer ? nullptr : &text),
                             ParamSet::setMetadata(cam, frame, metadata)};
    free_camera_metadata(metadata);
    return results;
}

Driver::Results Driver::getMetadata(const Operation& operation) {
    const auto& [cam, pipe, frame, tag] = operation.request;
    const std::string* expected = mModel.getMetadata(cam, frame);
    const camera_metadata* found = ParamSet::getMetadata(cam, frame);
    const bool isSame = expected == nullptr || found == nullptr || textOf(found) == *expected;
    return {expected != nullptr, isSame ? found != nullptr : -1};
}

void Driver::create(const Operation& operation) {
    const auto texts = switches(operation);
    for (size_t i = 0; i < texts.size(); i++) property_set(kProperties[i], texts[i].c_str());
    mModel.create(texts[0].c_str(), texts[1].c_str(), texts[2].c_str());
    if (ParamSet::createInstance() != ParamSet::getInstance()) addLine(0, "createInstance", "another store");
    host::setLogLevel(0);
    for (uint32_t cam = 0; cam < 5; cam++) mCameras[cam] = ParamSet::getInstance()->getPsHandle(cam);
    host::setLogLevel(5);
}

std::string Driver::renew(const Operation& creation) {
    host::setLogLevel(0);
    zarn_ops none = {};
    ParamSet::getInstance()->setPsOps(&none);
    for (const auto& [cam, camera] : mModel.cameras) {
        std::fill_n(mCameras[cam]->mHandle, camera.handles.size(), nullptr);
        for (const auto& [index, pipe] : camera.pipes) emptyPipe(cam, index);
    }
    mModel = *mNew;
    const auto texts = switches(creation);
    __atomic_store_n(&zarn::ps_log, mModel.psLog = atoi(texts[0].c_str()), __ATOMIC_RELAXED);
    __atomic_store_n(&zarn::ps_log_tag, mModel.psLogTag = atoi(texts[1].c_str()), __ATOMIC_RELAXED);
    __atomic_store_n(&zarn::ps_log_erase, mModel.psLogErase = atoi(texts[2].c_str()), __ATOMIC_RELAXED);
    host::setLogLevel(5);
    return compareAll();
}

std::string Driver::apply(const Operation& operation) {
    for (size_t i = 0; i < mMemory.size(); i++) {
        mMemory[i] = static_cast<char>(operation.value + operation.value / 251 * static_cast<uint32_t>(i));
    }
    mExpected = mMemory;
    char* const data = operation.noPointer ? nullptr : &mMemory[kGuard];
    const bool isGet = operation.kind <= Kind::kGetSyncTimeout && operation.kind != Kind::kSet;
    Value value = {true, true, isGet ? "" : std::string(&mMemory[kGuard], kRoom)};
    mModel.transcript.clear();
    gLog.lines.clear();
    gLog.data = data;
    gLog.isOn = true;
    const Results results =
        operation.kind <= Kind::kSetSync ? callValue(operation, data, value) : call(operation, data);
    gLog.isOn = false;
    if (gLog.lines != mModel.transcript) {
        return difference("messages", describe(mModel.transcript), describe(gLog.lines));
    }
    if (results.found != results.expected) {
        return difference("result", {std::to_string(results.expected)}, {std::to_string(results.found)});
    }
    if (isGet && value.known) std::copy(value.bytes.begin(), value.bytes.end(), &mExpected[kGuard]);
    // A get may have copied uninitialised memory, which must not be read.
    if (!value.known) std::copy_n(&mMemory[kGuard], value.bytes.size(), &mExpected[kGuard]);
    if (mMemory != mExpected) {
        return difference("the caller's buffer", {hex({mExpected.data(), mExpected.size()})},
                          {hex({mMemory.data(), mMemory.size()})});
    }
    const std::string wrong = compareAfter(operation);
    return wrong.empty() && sAlsoCheck != nullptr ? sAlsoCheck() : wrong;
}

std::string Driver::compareAfter(const Operation& operation) {
    const auto& [cam, pipe, frame, tag] = operation.request;
    if (mModel.psLog != zarn::ps_log || mModel.psLogTag != zarn::ps_log_tag ||
        mModel.psLogErase != zarn::ps_log_erase) {
        return "log switches\n";
    }
    if (zarn::gTagInfo.size() != mModel.registry.size()) return "the size of the registry\n";
    if (++mStep % 1000 == 0 || operation.kind >= Kind::kSetOperations || operation.kind == Kind::kRegister)
        return compareAll();
    if (!mModel.exists || cam >= 5 || pipe < 0 || pipe >= 14) return {};
    const bool isMetadata = operation.kind == Kind::kSetMetadata || operation.kind == Kind::kGetMetadata;
    const int index = isMetadata ? 0 : pipe;
    if (++mUncompared[cam][static_cast<size_t>(index)] * 12 < mModel.pipe(cam, index).frames.size()) return {};
    return comparePipe(cam, index);
}

std::string Driver::compareAll() {
    std::map<uint32_t, zarn::tag_info_t> copy;
    copy[12345].mSize = 1;
    ParamSet::getTagInfo(copy);
    if (!isRegistry(zarn::gTagInfo) || !isRegistry(copy)) return "the registry, or what getTagInfo gives of it\n";
    if ((ParamSet::getInstance() != nullptr) != mModel.exists) return "whether there is a store\n";
    size_t metadata = 0;
    for (uint32_t cam = 0; mModel.exists && cam < 5; cam++) {
        const auto camera = mModel.cameras.find(cam);
        const auto handles = camera != mModel.cameras.end() ? camera->second.handles : std::array<void*, 7>();
        if (!std::equal(handles.begin(), handles.end(), mCameras[cam]->mHandle)) return "handles\n";
        for (int index = 0; index < 14; index++) {
            if (std::string text = comparePipe(cam, index); !text.empty()) return text;
            const Pipe& pipe = mModel.pipe(cam, index);
            metadata += pipe.zero.metadata.has_value();
            for (const auto& [id, frame] : pipe.frames) metadata += frame.metadata.has_value();
        }
    }
    return metadata == host::liveMetadata() ? "" : "the number of metadata records that live\n";
}

std::string Driver::comparePipe(uint32_t cam, int index) {
    mUncompared[cam][static_cast<size_t>(index)] = 0;
    const Pipe& expected = mModel.pipe(cam, index);
    const zarn::pipe_elem& found = mCameras[cam]->mPipe[index];
    if (isPipe(cam, expected, found)) return {};
    return difference("camera " + std::to_string(cam) + " pipe " + std::to_string(index), describe(expected),
                      describe(toModel(found)));
}

bool Driver::isRegistry(const std::map<uint32_t, zarn::tag_info_t>& found) const {
    return areLike(mModel.registry, found, [](uint32_t, const model::Tag& tag, const zarn::tag_info_t& info) {
        return tag.hasCreator == (info.mCreator != nullptr) &&
               std::tie(tag.name, tag.dataType, tag.type, tag.size, tag.retain) ==
                   std::tie(info.mName, info.mDataType, info.mTagType, info.mSize, info.mRetainNum);
    });
}
