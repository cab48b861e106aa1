#include "tests/model/driver.h"

#include <algorithm>
#include <cstring>
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

model::Lines* gTranscript = nullptr;  // where the operations of the external processor write

int note(int slot, const void* handle, long long first, long long second, const void* pointer) {
    char line[160];
    snprintf(line, sizeof(line), "0 operation: %d handle %p numbers %lld %lld pointer %p", slot, handle, first, second,
             pointer);
    gTranscript->push_back(line);
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

/// Writes the address behind each key as the model does.
void nameAddress(std::string& line, const char* key, const void* data) {
    const size_t at = line.find(key);
    if (at == std::string::npos) return;
    const size_t begin = at + strlen(key);
    const size_t end = std::min(line.find(',', begin), line.size());
    const auto address = strtoull(line.c_str() + begin, nullptr, 16);  // "(nil)" is 0 as well
    const bool isData = address == reinterpret_cast<uintptr_t>(data);
    line.replace(begin, end - begin, address == 0 ? "null" : isData ? "data" : "*");
}

// ---- The store's state in the model's words

std::string textOf(const camera_metadata* metadata) {
    return {reinterpret_cast<const char*>(host::metadataBytes(metadata)), host::metadataSize(metadata)};
}

Frame snapshot(zarn::ParamFrame& frame, uint32_t cam, uint32_t id, const Frame& expected, std::string& wrong) {
    Frame copy;
    if (frame.mCamID != cam || frame.mFrameID != id || frame.mTagInfo != &zarn::gTagInfo ||
        frame.mParamSet != ParamSet::getInstance()) {
        wrong += "frame " + std::to_string(id) + " is not what it is listed as\n";
    }
    for (const auto& [tag, buffer] : frame.mTags) {
        Value& value = copy.tags[tag];
        value.made = buffer != nullptr;
        const auto like = expected.tags.find(tag);
        if (like == expected.tags.end() || !like->second.known || !value.made) continue;
        value.known = true;
        value.bytes.assign(static_cast<char*>(buffer.get()), like->second.bytes.size());
    }
    for (const auto& [tag, status] : frame.mStatus) copy.status[tag] = {status.mFrameID, status.mState};
    if (frame.mMetadata != nullptr) copy.metadata = textOf(frame.getMetadata());
    return copy;
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

Lines describe(const Pipe& pipe) {
    Lines lines = {describe("frame 0", pipe.zero)};
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

/// The first line that differs; what comes after may follow from it.
std::string difference(const std::string& what, Lines expected, Lines found) {
    expected.push_back("(nothing more)");
    found.push_back("(nothing more)");
    size_t i = 0;
    while (i + 1 < std::min(expected.size(), found.size()) && expected[i] == found[i]) i++;
    return what + "\n  expected: " + expected[i] + "\n     found: " + found[i] + "\n";
}

}  // namespace

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

Driver::Driver() {
    host::setLogLevel(0);
    ParamSet::destroyInstance();
    zarn::gTagInfo.clear();
    for (int* logSwitch : {&zarn::ps_log, &zarn::ps_log_tag, &zarn::ps_log_erase}) {
        __atomic_store_n(logSwitch, 0, __ATOMIC_RELAXED);
    }
    host::setLogLevel(5);
    host::setLogSink(keepLine, this);
}

Driver::~Driver() {
    host::setLogSink(nullptr, nullptr);
    host::setLogLevel(0);
    ParamSet::destroyInstance();
    host::setLogLevel(3);
}

void Driver::keepLine(void* self, pipeline_loglevel level, const char* module, const char* message) {
    Driver& driver = *static_cast<Driver*>(self);
    char* text = nullptr;
    const unsigned long sourceLine = strtoul(message, &text, 10);
    std::string line = std::to_string(level) + " ";
    if (strcmp(module, "ParamSet") != 0 || sourceLine == 0 || strncmp(text, ", ", 2) != 0) line += "malformed: ";
    line += text + std::min<size_t>(2, strlen(text));
    nameAddress(line, "intrData:", nullptr);
    nameAddress(line, "extrData:", driver.mData);
    nameAddress(line, "mElem:", nullptr);
    const size_t wait = line.find("wait: ");
    if (wait != std::string::npos) {
        const unsigned long elapsed = strtoul(line.c_str() + wait + 6, &text, 10);
        if (elapsed >= driver.mTimeout && strcmp(text, ".000000 ms.") == 0) line.replace(wait + 6, line.npos, "* ms.");
    }
    driver.mFound.push_back(line);
}

Driver::Results Driver::callValue(const Operation& operation, char* data, Value& value) {
    const model::Request& r = operation.request;
    const auto& [cam, pipe, frame, tag] = r;
    Value* const modelData = data != nullptr ? &value : nullptr;
    const uint32_t timeout = static_cast<uint32_t>(operation.number);
    mTimeout = operation.kind == Kind::kGetSyncTimeout && timeout != 0 ? timeout : 50;
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
            std::sort(mModel.transcript.begin(), mModel.transcript.end());
            std::sort(mFound.begin(), mFound.end());
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
    if (expected != nullptr) mModel.transcript.push_back(*expected);
    const camera_metadata* found = ParamSet::getMetadata(cam, frame);
    if (found != nullptr) mFound.push_back(textOf(found));
    return {expected != nullptr, found != nullptr};
}

void Driver::create(const Operation& operation) {
    const std::string values[] = {operation.noPointer         ? "x"
                                  : operation.number % 3 == 1 ? "3"
                                                              : "",
                                  std::to_string(static_cast<int32_t>(operation.request.tag)),
                                  operation.number % 2 == 1 ? "1" : ""};
    for (size_t i = 0; i < 3; i++) property_set(kProperties[i], values[i].c_str());
    mModel.create(values[0].c_str(), values[1].c_str(), values[2].c_str());
    if (ParamSet::createInstance() != ParamSet::getInstance()) mFound.push_back("another store");
    host::setLogLevel(0);
    for (uint32_t cam = 0; cam < 5; cam++) mCameras[cam] = ParamSet::getInstance()->getPsHandle(cam);
    host::setLogLevel(5);
}

std::string Driver::apply(const Operation& operation) {
    std::string memory;
    for (uint32_t i = 0; i < kGuard + kRoom + kGuard; i++) {
        memory += static_cast<char>(operation.value + operation.value / 251 * i);
    }
    std::string expected = memory;
    char* const data = operation.noPointer ? nullptr : &memory[kGuard];
    const bool isGet = operation.kind <= Kind::kGetSyncTimeout && operation.kind != Kind::kSet;
    Value value = {true, true, isGet ? "" : expected.substr(kGuard, kRoom)};
    mFound.clear();
    mModel.transcript.clear();
    mData = data;
    gTranscript = &mFound;
    const Results results =
        operation.kind <= Kind::kSetSync ? callValue(operation, data, value) : call(operation, data);
    if (mFound != mModel.transcript) return difference("messages", mModel.transcript, mFound);
    if (results.found != results.expected) {
        return difference("result", {std::to_string(results.expected)}, {std::to_string(results.found)});
    }
    if (isGet && value.known) expected.replace(kGuard, value.bytes.size(), value.bytes);
    if (!value.known) {  // fresh memory came out: not to be looked at
        memory.erase(kGuard, value.bytes.size());
        expected.erase(kGuard, value.bytes.size());
    }
    if (memory != expected) return difference("the caller's buffer", {hex(expected)}, {hex(memory)});
    return compareAfter(operation);
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
    const size_t index = isMetadata ? 0 : static_cast<size_t>(pipe);
    if (++mUncompared[cam][index] * 12 < mModel.cameras[cam].pipes[index].frames.size()) return {};
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
        const model::Camera& expected = mModel.cameras[cam];
        if (!std::equal(expected.handles.begin(), expected.handles.end(), mCameras[cam]->mHandle)) return "handles\n";
        for (size_t pipe = 0; pipe < 14; pipe++) {
            if (std::string text = comparePipe(cam, pipe); !text.empty()) return text;
            metadata += expected.pipes[pipe].zero.metadata.has_value();
            for (const auto& [id, frame] : expected.pipes[pipe].frames) metadata += frame.metadata.has_value();
        }
    }
    return metadata == host::liveMetadata() ? "" : "the number of metadata records that live\n";
}

std::string Driver::comparePipe(uint32_t cam, size_t pipe) {
    mUncompared[cam][pipe] = 0;
    const zarn::pipe_elem& store = mCameras[cam]->mPipe[pipe];
    const Pipe& expected = mModel.cameras[cam].pipes[pipe];
    std::string wrong;
    Pipe found;
    found.zero = snapshot(*store.mF0, cam, 0, expected.zero, wrong);
    for (const auto& [id, frame] : store.mFrames) {
        if (frame == nullptr) return "frame " + std::to_string(id) + " is an empty entry\n";
        const auto like = expected.frames.find(id);
        found.frames[id] = snapshot(*frame, cam, id, like != expected.frames.end() ? like->second : Frame(), wrong);
    }
    for (const auto& [tag, list] : store.mCheckPoint) {
        if (found.checkpoints[tag]; list != nullptr) found.checkpoints[tag] = *list;
    }
    found.erasePoints = store.mErasePoint;
    if (wrong.empty() && found == expected) return {};
    return wrong + difference("camera " + std::to_string(cam) + " pipe " + std::to_string(pipe), describe(expected),
                              describe(found));
}

bool Driver::isRegistry(const std::map<uint32_t, zarn::tag_info_t>& found) const {
    return std::equal(mModel.registry.begin(), mModel.registry.end(), found.begin(), found.end(),
                      [](const auto& a, const auto& b) {
                          const model::Tag& tag = a.second;
                          const zarn::tag_info_t& info = b.second;
                          return a.first == b.first && tag.hasCreator == (info.mCreator != nullptr) &&
                                 std::tie(tag.name, tag.dataType, tag.type, tag.size, tag.retain) ==
                                     std::tie(info.mName, info.mDataType, info.mTagType, info.mSize, info.mRetainNum);
                      });
}
