// A model of the store: plain values in plain maps, for one thread. It is written to be checked by reading, so nothing
// here is shared, cached or fast, and it uses nothing of the library. The lines that the library should log are kept as
// their parts. An address in them is one of three: null, the store's own, or the caller's buffer. The milliseconds of a
// wait are -1.

#ifndef PARAMSET_TESTS_MODEL_MODEL_H
#define PARAMSET_TESTS_MODEL_MODEL_H

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace model {

constexpr uint32_t kNoBuffer = 0xFFFFFFFF;
constexpr uint32_t kLast = 0xFFFFFFFF;
constexpr uint32_t kMetadataTag = 0x20001;

const void* const kNull = nullptr;
const void* const kOwn = reinterpret_cast<const void*>(1);
const void* const kCallers = reinterpret_cast<const void*>(2);

/// A logged line, kept as its parts, so that lines are compared without formatting them.
struct Line {
    int level = 0;
    const char* function = "";
    const char* format = "";
    std::array<int64_t, 8> numbers = {};  ///< the format's arguments in order, without texts
    std::array<const char*, 2> texts = {"", ""};

    Line(int theLevel, const char* theFunction, const char* theFormat, va_list arguments)
        : level(theLevel), function(theFunction), format(theFormat) {
        auto* number = numbers.begin();
        auto* text = texts.begin();
        for (const char* c = format; *c != '\0'; c++) {
            if (*c != '%') continue;
            switch (*++c) {
                case 's': *text++ = va_arg(arguments, const char*); break;
                case 'p': *number++ = static_cast<int64_t>(va_arg(arguments, uintptr_t)); break;
                case 'f': *number++ = whole(va_arg(arguments, double)); break;
                case 'j': *number++ = va_arg(arguments, intmax_t); break;
                default: *number++ = va_arg(arguments, int);
            }
        }
    }

    static int64_t whole(double number) {
        const auto integer = static_cast<int64_t>(number);
        return static_cast<double>(integer) == number ? integer : INT64_MIN;
    }

    std::string text() const {
        const auto* number = numbers.begin();
        const auto* word = texts.begin();
        std::string all = std::to_string(level) + " " + function + ": ";
        for (const char* c = format; *c != '\0'; c++) {
            if (*c != '%') {
                all += *c;
                continue;
            }
            switch (*++c) {
                case 's': all += *word++; break;
                case 'p': all += std::array<const char*, 3>{"null", "*", "data"}[static_cast<size_t>(*number++)]; break;
                case 'u': all += std::to_string(static_cast<uint32_t>(*number++)); break;
                case 'j': c++; [[fallthrough]];
                default: all += std::to_string(*number++);
            }
        }
        return all;
    }

    /// Faster here than strcmp, which sanitizers intercept.
    static bool isSame(const char* one, const char* other) {
        while (*one == *other && *one != '\0') one++, other++;
        return *one == *other;
    }

    bool operator==(const Line& other) const {
        const bool isSameLine = level == other.level && numbers == other.numbers && isSame(format, other.format) &&
                                isSame(function, other.function) && isSame(texts[0], other.texts[0]) &&
                                isSame(texts[1], other.texts[1]);
        return isSameLine || text() == other.text();
    }
};

using Lines = std::vector<Line>;

/// The bytes of a value: as a set passes them, a get copies them, and a frame keeps them.
struct Value {
    bool made = true;    ///< false: its memory could not be allocated
    bool known = false;  ///< false: memory that was not written yet; its bytes are undefined
    std::string bytes;
};

struct Status {
    uint32_t frame = 0;
    int state = 0;  ///< 0 nothing yet, 1 delivered, 2 waited for
};

struct Frame {
    std::map<uint32_t, Value> tags;
    std::map<uint32_t, Status> status;
    std::optional<std::string> metadata;
    uint64_t number = 0;  ///< no other frame of this model has it
};

struct Pipe {
    Frame zero;
    std::map<uint32_t, Frame> frames;
    std::map<uint32_t, std::optional<std::vector<uint32_t>>> checkpoints;  ///< an entry may have no list
    std::map<uint32_t, uint32_t> erasePoints;
};

struct Camera {
    std::map<int, Pipe> pipes;  ///< those that were ever used
    std::array<void*, 7> handles = {};
};

/// What the registry knows of a tag. An entry that nobody registered is all zero.
struct Tag {
    std::string name, dataType;
    bool hasCreator = false;
    bool zeroed = false;  ///< registered with size 0: one byte that starts as zero
    int type = 0;
    int size = 0;
    int retain = 0;
};

/// The arguments that most calls have.
struct Request {
    uint32_t cam = 0;
    int pipe = 0;
    uint32_t frame = 0;
    uint32_t tag = 0;
};

/// What the operation of a slot returns, in the model and in the test's own table.
inline int reply(int slot) {
    return slot % 2 == 0 ? 100 + slot : -slot;
}

/// A call of an operation in the test's own table.
constexpr const char kOperationLine[] = "%d handle %jd numbers %jd %jd pointer %jd";

class Model {
public:
    // Everything that can be seen from outside.
    std::map<uint32_t, Tag> registry;
    bool exists = false;
    std::map<uint32_t, Camera> cameras;    ///< those that were ever used
    std::array<bool, 11> operations = {};  ///< which slots are set
    int psLog = 0, psLogTag = 0, psLogErase = 0;
    Lines transcript;
    bool keepsTranscript = true;

    const Pipe& pipe(uint32_t cam, int index) const {
        static const Pipe unused;
        const auto camera = cameras.find(cam);
        if (camera == cameras.end() || camera->second.pipes.count(index) == 0) return unused;
        return camera->second.pipes.at(index);
    }

    // The entry points. A null pointer stands for a caller's null. A get changes *data only if bytes are copied.

    // ---- The registry and the store

    void registerTag(uint32_t id, uint32_t size, bool hasCreator, int type, const char* name, const char* dataType,
                     int retain) {
        if (registry.count(id) != 0) return;
        Tag& tag = registry[id];
        tag = {name != nullptr ? name : "", dataType != nullptr ? dataType : "", hasCreator, size == 0, type, 0, 6};
        if (hasCreator) tag.size = size == 0 ? 1 : static_cast<int>(size);
        if (type == 1) tag.retain = 1;
        if (retain >= 7) tag.retain = retain;
        log(3, "register_tag", "ParamSet tag:%d, name:%s, dataType:%s, size:%d, tagType:%d, retainNum:%d", id,
            tag.name.c_str(), tag.dataType.c_str(), tag.size, type, tag.retain);
    }

    void create(const char* logSwitch, const char* tagSwitch, const char* eraseSwitch) {
        if (exists) return;
        exists = true;
        cameras = {};
        operations = {};
        log(3, "createInstance", "create");
        log(3, "ParamSet", "E");
        for (int i = 0; i < 5 * 14; i++) log(5, "ParamFrame", "E cam[%d] frame[0]", i / 14);
        log(3, "ParamSet", "X");
        psLog = atoi(logSwitch);
        psLogTag = atoi(tagSwitch);
        psLogErase = atoi(eraseSwitch);
    }

    // The order in which frames are destroyed is not modelled: the standard library decides it.
    void destroy() {
        log(3, "destroyInstance", "destory");
        for (uint32_t i = 0; exists && i < 5 * 14; i++) {
            const Pipe& gone = pipe(i / 14, static_cast<int>(i % 14));
            for (const auto& [id, frame] : gone.frames) logGone(i / 14, id, frame);
            logGone(i / 14, 0, gone.zero);
        }
        exists = false;
    }

    // ---- Get and set

    uint32_t get(const Request& r, Value* data) {
        if (const uint32_t refused = refusal(r, data, "getParam", "get")) return refused;
        trace(r.tag);
        const Value* stored = resolve(r, false);
        const bool copied = copyOut("_getParam", traceLevel(), r, stored, data);
        psLog = 0;
        return copied ? 0 : kNoBuffer;
    }

    uint32_t set(const Request& r, const Value* data) {
        if (const uint32_t refused = refusal(r, data, "setParam", "set")) return refused;
        return plainSet(r, data, kCallers);
    }

    bool waits(const Request& r) const {
        if (!exists || r.cam >= 5 || r.pipe < 0 || r.pipe >= 14) return false;
        const Pipe& at = pipe(r.cam, r.pipe);
        if (r.frame != 0 && (at.frames.count(r.frame) == 0 || at.frames.at(r.frame).tags.count(r.tag) == 0))
            return true;
        const auto& status = (r.frame == 0 ? at.zero : at.frames.at(r.frame)).status;
        return status.count(r.tag) == 0 || status.at(r.tag).state != 1;
    }

    /// A synchronous get between its two steps. Other calls may come between them if it waits.
    struct Pending {
        Request request;
        uint32_t checked = 0;
        uint64_t frame = 0;  ///< number of the frame in which it waits
        bool waits = false;
    };

    /// Both steps at once: without other threads nothing ends a wait before its time-out.
    uint32_t getSync(const Request& r, const char* entry, Value* data) {
        Pending pending;
        if (const uint32_t refused = beginSync(r, entry, data, pending)) return refused;
        if (pending.waits) {
            log(2, "operator()", "cam %d pipe %d sof %d tag %d, wait timeout", r.cam, r.pipe, r.frame, r.tag);
            trace(r.tag);
            log(4, "operator()", "cam %d pipe %d sof %d tag %d, wait: %f ms.", r.cam, r.pipe, r.frame, r.tag, -1.0);
        }
        return endSync(pending, pending.waits, data);
    }

    /// Returns the result if there is no second step, else 0.
    uint32_t beginSync(const Request& r, const char* entry, const Value* data, Pending& pending) {
        if (const uint32_t refused = refusal(r, data, entry, "get")) return refused;
        trace(r.tag);
        log(traceLevel(), "_getParamSyn", "camID: %d, pipe: %d, frameID: %d, tag: %d,", r.cam, r.pipe, r.frame, r.tag);
        if (refusePipe(r, "_getParamSyn")) return 1;
        pending = {r, preproc(r), 0, true};
        Pipe& pipe = pipeOf(r);
        if (r.frame == 0) {
            Status& status = pipe.zero.status[r.tag];
            pending.waits = status.state != 1;
            if (pending.waits) status.state = 2;
            return 0;
        }
        Frame& frame = pipe.frames.count(r.frame) != 0 ? pipe.frames[r.frame] : makeFrame(r);
        Status& status = frame.status[r.tag];
        pending.frame = frame.number;
        if (frame.tags.count(r.tag) == 0) {
            status = {r.frame, 2};
        } else {
            pending.waits = status.state != 1;
        }
        return 0;
    }

    uint32_t endSync(const Pending& pending, bool timedOut, Value* data) {
        const Request& r = pending.request;
        const auto& frames = pipeOf(r).frames;
        const auto frame = frames.find(r.frame);
        uint32_t result = timedOut ? 6 : pending.checked;
        const Value* stored = nullptr;
        if (r.frame == 0) {
            stored = frameZero(r);
        } else if (frame == frames.end() || frame->second.tags.count(r.tag) == 0) {
            stored = readCheckpoint(r);
            result = 3;
        } else if (frame->second.number == pending.frame) {
            stored = &frame->second.tags.at(r.tag);
        }  // else the frame of the wait was removed without a value, and another one was made
        copyOut("_getParamSyn", 5, r, stored, data);
        psLog = 0;
        return result;
    }

    uint32_t setSync(const Request& r, const Value* data) {
        if (const uint32_t refused = refusal(r, data, "setParamSyn", "set")) return refused;
        trace(r.tag);
        log(traceLevel(), "_setParamSyn", "camID: %d, pipe: %d, frameID: %d, tag: %d,", r.cam, r.pipe, r.frame, r.tag);
        if (refusePipe(r, "_setParamSyn")) return 1;
        const uint32_t result = preproc(r);
        Value* stored = r.frame == 0 ? frameZero(r) : ownOrCheckpoint(r, true);
        Status& status = (r.frame == 0 ? pipeOf(r).zero : pipeOf(r).frames.at(r.frame)).status[r.tag];
        if (status.state == 2) log(5, "_setParamSyn", "set notify all");
        status.state = 1;
        const bool copied = copyIn("_setParamSyn", 5, r, data, stored, kCallers);
        psLog = 0;
        return copied ? 0 : result;
    }

    // ---- Explicit erase

    uint32_t erase(const Request& r) {
        if (!exists) return 2;
        if (r.cam >= 5 || r.pipe < 0 || r.pipe >= 14) {
            log(1, "erase", "cam %d pipe %d out of limit, sof %u erase failed", r.cam, r.pipe, r.frame);
            return 1;
        }
        log(5, "ParamFrame", "E cam[%d] frame[%d]", r.cam, r.frame);
        const bool all = r.frame == kLast;
        Pipe& pipe = pipeOf(r);
        uint32_t result = 0;
        uint32_t limit = r.frame;
        if (r.frame >= 8) {
            if (psLogErase != 0) psLog = 1;
            log(traceLevel(), "_erase", "E cam[%d] pipe[%d] frame[%d] and oldest will be erased", r.cam, r.pipe,
                r.frame);
            if (all && !pipe.frames.empty()) {
                log(4, "_erase", "erase all : cam %u pipe %d total %u", r.cam, r.pipe,
                    static_cast<unsigned>(pipe.frames.size()));
                for (auto& [tag, status] : pipe.zero.status) status.state = 0;
            }
            for (auto& [tag, list] : pipe.checkpoints) {
                const bool isMetadata = tag == kMetadataTag;
                if (all && isMetadata) pipe.erasePoints[tag] = 0;
                if (!all && !isMetadata && tagOf(tag).type == 2) continue;
                limit = all ? kLast : r.frame - static_cast<uint32_t>(isMetadata ? 6 : tagOf(tag).retain);
                if (!all && !isMetadata && static_cast<int32_t>(limit) < 1) continue;
                eraseTag({r.cam, r.pipe, 0, tag}, limit, result);
            }
            log(traceLevel(), "_erase", "X:ret:%d, cam[%d] pipe[%d], and finaly frame[%d]save to frame[0]", result,
                r.cam, r.pipe, limit);
            psLog = 0;
        }
        logGone(r.cam, r.frame, {});
        return result;
    }

    // ---- Metadata, in pipe 0

    uint32_t setMetadata(uint32_t cam, uint32_t id, const std::string* metadata) {
        if (metadata == nullptr || !exists) return 2;
        if (cam >= 5) {
            log(1, "setMetadata", "cam %d out of limit, sof %u set metadata failed", cam, id);
            return 1;
        }
        Pipe& pipe = cameras[cam].pipes[0];
        const uint32_t erasePoint = pipe.erasePoints[kMetadataTag];
        log(5, "_setMetadata", "E cam[%d].paramFrame[%d], erase point:%d", cam, id, erasePoint);
        const bool toZero = id == 0 || id <= erasePoint;
        if (toZero) {
            log(2, "_setMetadata", "fail to get metadata, but give frame 0");
        } else {
            if (pipe.frames.count(id) == 0) makeFrame({cam, 0, id, kMetadataTag});
            auto& list = pipe.checkpoints[kMetadataTag];
            if (!list) list.emplace();
            insertAscending(*list, id);
        }
        Frame& frame = toZero ? pipe.zero : pipe.frames[id];
        logFreed(cam, toZero ? 0 : id, frame);
        frame.metadata = *metadata;
        return 0;
    }

    const std::string* getMetadata(uint32_t cam, uint32_t id) {
        if (!exists) return nullptr;
        if (cam >= 5) {
            log(1, "getMetadata", "cam %d out of limit, sof %u get metadata failed", cam, id);
            return nullptr;
        }
        Pipe& pipe = cameras[cam].pipes[0];
        const uint32_t erasePoint = pipe.erasePoints[kMetadataTag];
        log(5, "_getMetadata", "E cam[%d].paramFrame[%d], erase point:%d", cam, id, erasePoint);
        const bool isOld = id == 0 || id <= erasePoint;
        const uint32_t related = isOld ? 0 : findRelated(pipe, kMetadataTag, id);
        const bool isGone = related != 0 && pipe.frames.count(related) == 0;
        if (isOld || isGone) log(2, "_getMetadata", "fail to match accurate metadata, but give frame 0");
        const Frame& frame = related == 0 || isGone ? pipe.zero : pipe.frames[related];
        return frame.metadata ? &*frame.metadata : nullptr;
    }

    // ---- The external processor

    bool getHandle(uint32_t cam) {
        const bool known = cam < 5;
        if (known) log(5, "getPsHandle", "parameset getPsHandle mElem:%p", kOwn);
        if (!known) log(1, "getPsHandle", "paramset can not get ps handle");
        return known;
    }

    void setHandles(uint32_t cam, const std::array<void*, 7>& handles) {
        if (cam < 5) cameras[cam].handles = handles;
    }

    int getExternal(uint32_t cam, uint32_t tag, char* data) {
        const bool known = getHandle(cam);
        if (!operations[3]) log(1, "getParamExternal", "no isp ops");
        if (!operations[3] || !known) return -1;
        const void* const past = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(data) + 8);
        return static_cast<int>(call(3, cameras[cam].handles[6], static_cast<int>(tag), 0, past));
    }

    uint32_t control(uint32_t cam, uint32_t code, int32_t arg, const char* in, const char* out) {
        log(5, "ioctrlOutsideParam", "E");
        if (!exists) return 2;
        const bool known = getHandle(cam);
        if (code < 0x8000 || code > 0x800A) {
            log(1, "ioctrlOutsideParam", "fail to find tag:%d", code);
            return 0;
        }
        const size_t slot = code - 0x8000;
        if (!operations[slot]) return 2;
        if (in == nullptr && (slot == 6 || slot == 7 || slot == 10)) {
            log(1, "ioctrlOutsideParam", "no data, tag:%d", code);
            return 2;
        }
        if (!known) return 1;
        static constexpr size_t kHandles[] = {0, 0, 4, 6, 0, 0, 0, 0, 5, 0, 0};
        uint32_t number = 0;
        if (slot == 6 || slot == 10) memcpy(&number, in, sizeof(number));
        if (slot == 7) number = static_cast<uint8_t>(*in);
        const int64_t first = slot <= 3 ? int64_t{arg} : slot <= 6 ? int64_t{cam} : int64_t{number};
        const void* pointer = slot == 6 || slot == 7 ? out : slot == 10 ? nullptr : in;
        return call(slot, cameras[cam].handles[kHandles[slot]], first, slot == 6 ? number : 0, pointer);
    }

private:
    __attribute__((format(printf, 4, 5))) void log(int level, const char* function, const char* format, ...) {
        if (!keepsTranscript) return;
        va_list arguments;
        va_start(arguments, format);
        transcript.emplace_back(level, function, format, arguments);
        va_end(arguments);
    }

    int traceLevel() const { return psLog != 0 ? 4 : 5; }
    void trace(uint32_t tag) { psLog = tag == static_cast<uint32_t>(psLogTag); }
    Pipe& pipeOf(const Request& r) { return cameras[r.cam].pipes[r.pipe]; }
    Tag tagOf(uint32_t tag) const { return registry.count(tag) != 0 ? registry.at(tag) : Tag(); }

    // The result of an entry point that does nothing, or 0.
    uint32_t refusal(const Request& r, const void* data, const char* entry, const char* what) {
        if (data == nullptr || !exists) return 2;
        if (r.cam < 5) return 0;
        const bool isGet = what[0] == 'g';
        log(1, entry, isGet ? "cam %d out of limit, tag %d get failed" : "cam %d out of limit, tag %d set failed",
            r.cam, r.tag);
        return 1;
    }

    bool refusePipe(const Request& r, const char* function) {
        if (r.pipe >= 0 && r.pipe < 14) return false;
        log(1, function, "pipe %d out of limit, please check tag %d", r.pipe, r.tag);
        return true;
    }

    // ---- Frames

    Frame& makeFrame(const Request& r) {
        log(5, "ParamFrame", "E cam[%d] frame[%d]", r.cam, r.frame);
        Frame& frame = pipeOf(r).frames[r.frame];
        frame.number = ++mLastFrame;
        return frame;
    }

    void logGone(uint32_t cam, uint32_t id, const Frame& frame) {
        const int count = static_cast<int>(frame.tags.size());
        log(5, "~ParamFrame", "delete cam[%d] frame[%d], and total tag Num:%d", cam, id, count);
        logFreed(cam, id, frame);
    }

    void logFreed(uint32_t cam, uint32_t id, const Frame& frame) {
        if (frame.metadata) log(5, "operator()", "free_camera_metadata mCamID:%d,mFrameID:%d", cam, id);
    }

    Value* createTag(Frame& frame, uint32_t id) {
        const Tag tag = tagOf(id);
        if (!tag.hasCreator) {
            log(1, "createTag", "X Failed to create tag, no such creator: %d", id);
            return nullptr;
        }
        const bool made = tag.size > 0;
        log(5, "createTag", "X:%s", made ? "ok" : "fail");
        frame.tags[id] = {made, tag.zeroed, std::string(made ? static_cast<size_t>(tag.size) : 0, '\0')};
        return &frame.tags[id];
    }

    /// Removes a frame without any tag, unless it is the one that is being written.
    void eraseFromFrame(const Request& r, uint32_t id) {
        Frame& frame = pipeOf(r).frames.at(id);
        frame.tags.erase(r.tag);
        if (!frame.tags.empty() || id == r.frame) return;
        logGone(r.cam, id, frame);
        pipeOf(r).frames.erase(id);
    }

    // ---- Which buffer answers

    Value* resolve(Request r, bool write) {
        if (refusePipe(r, "getParamInternal")) return nullptr;
        Pipe& pipe = pipeOf(r);
        if (r.frame == kLast) {
            r.frame = pipe.frames.empty() ? 0 : pipe.frames.rbegin()->first;
            log(5, "getParamInternal", "THE_LAST frame is %d", r.frame);
        }
        log(5, "getParamInternal", "E cam %d pipe %d frame %d tag %d erasePoint:%d", r.cam, r.pipe, r.frame, r.tag,
            pipe.erasePoints[r.tag]);
        if (r.frame == 0 || tagOf(r.tag).type == 1) return frameZero(r);
        if (checkErased(r, "getParamInternal") != 0) return frameZero(r);
        return ownOrCheckpoint(r, write);
    }

    // The check before a synchronous call: 3 if the frame is erased, else 0.
    uint32_t preproc(const Request& r) {
        Pipe& pipe = pipeOf(r);
        pipe.erasePoints[r.tag];  // made if it was not there
        if (r.frame == 0) return 0;
        if (r.frame == kLast) {
            log(4, "preproc", "THE_LAST frame is %d", pipe.frames.empty() ? 0 : pipe.frames.rbegin()->first);
            return 0;
        }
        return tagOf(r.tag).type == 1 ? 0 : checkErased(r, "preproc");
    }

    uint32_t checkErased(const Request& r, const char* function) {
        const uint32_t erasePoint = pipeOf(r).erasePoints[r.tag];
        if (r.frame > erasePoint) return 0;
        const Tag& tag = registry[r.tag];  // made if it was not there
        const uint32_t life = erasePoint - r.frame + static_cast<uint32_t>(tag.retain) + 1;
        log(2, function, "frameID %d <= Erased %d, %s need life >= %d", r.frame, erasePoint, tag.name.c_str(), life);
        return 3;
    }

    // All zeros at first, so that no get returns uninitialised memory.
    Value* frameZero(const Request& r) {
        Frame& zero = pipeOf(r).zero;
        if (zero.tags.count(r.tag) != 0) return &zero.tags[r.tag];
        Value* const value = createTag(zero, r.tag);
        if (value != nullptr && value->made) value->known = true;
        return value;
    }

    Value* ownOrCheckpoint(const Request& r, bool write) {
        Pipe& pipe = pipeOf(r);
        if (pipe.frames.count(r.frame) == 0) {
            log(5, "createNew", "createNew ParamFrame");
            if (write) makeFrame(r);
        } else if (pipe.frames[r.frame].tags.count(r.tag) != 0) {
            return &pipe.frames[r.frame].tags[r.tag];
        }
        return write ? addCheckpoint(r) : readCheckpoint(r);
    }

    Value* readCheckpoint(const Request& r) {
        Pipe& pipe = pipeOf(r);
        const uint32_t related = findRelated(pipe, r.tag, r.frame);
        log(traceLevel(), "permiProc", "cam %u pipe %d tag %d destID %u relatedID:%u", r.cam, r.pipe, r.tag, r.frame,
            related);
        if (related == 0) return frameZero(r);
        if (pipe.frames.count(related) == 0 || pipe.frames[related].tags.count(r.tag) == 0) return nullptr;
        return &pipe.frames[related].tags[r.tag];
    }

    Value* addCheckpoint(const Request& r) {
        Pipe& pipe = pipeOf(r);
        auto& list = pipe.checkpoints[r.tag];
        if (list) {
            trim(r);
        } else {
            list.emplace();
        }
        insertAscending(*list, r.frame);
        log(5, "permiProc", "add checkPoint[%d] size:%d,permiProc:%s", r.frame, static_cast<int>(list->size()),
            "_modifiable");
        return createTag(pipe.frames.at(r.frame), r.tag);
    }

    uint32_t findRelated(Pipe& pipe, uint32_t tag, uint32_t frame) {
        const auto& list = pipe.checkpoints[tag];
        uint32_t related = 0;
        for (size_t i = 0; list && i < list->size(); i++) {
            if ((*list)[i] <= frame) related = (*list)[i];
        }
        log(5, "findRelated", "desID %d, relateID[%d]", frame, related);
        return related;
    }

    // Makes room in a tag's list for the frame that is about to be added.
    void trim(const Request& r) {
        Pipe& pipe = pipeOf(r);
        std::vector<uint32_t>& list = *pipe.checkpoints[r.tag];
        const Tag& tag = registry[r.tag];  // made if it was not there
        uint64_t limit = 300;
        if (tag.type == 2) {
            log(traceLevel(), "autoErase", "pipe %d tag %d, head %u, queueSize %u", r.pipe, r.tag,
                list.empty() ? 0 : list[0], static_cast<unsigned>(list.size()));
            limit = static_cast<uint64_t>(int64_t{tag.retain});
        } else if (list.size() >= 300) {
            log(traceLevel(), "autoErase", "cam %d pipe %d tag %d, erased %u, cur sof %d", r.cam, r.pipe, r.tag,
                list[0], r.frame);
        }
        while (!list.empty() && list.size() >= limit) {
            const uint32_t head = list[0];
            list.erase(list.begin());
            if (pipe.frames.count(head) != 0) eraseFromFrame(r, head);
            pipe.erasePoints[r.tag] = head;
        }
    }

    // ---- Parts of the entry points

    uint32_t plainSet(const Request& r, const Value* data, const void* address) {
        trace(r.tag);
        Value* stored = resolve(r, true);
        const bool copied = copyIn("_setParam", traceLevel(), r, data, stored, address);
        psLog = 0;
        return copied ? 0 : kNoBuffer;
    }

    bool copyOut(const char* function, int level, const Request& r, const Value* from, Value* to) {
        const int size = copy(r, from, to) ? tagOf(r.tag).size : 0;
        if (size == 0) return logFailed(function, r, from, kCallers);
        log(level, function, "success  camID: %d, pipe: %d, frameID: %d, tag: %d,intrData:%p,extrData:%p,tagSize:%d",
            r.cam, r.pipe, r.frame, r.tag, kOwn, kCallers, size);
        return true;
    }

    bool copyIn(const char* function, int level, const Request& r, const Value* from, Value* to, const void* address) {
        const int size = copy(r, from, to) ? tagOf(r.tag).size : 0;
        if (size == 0) return logFailed(function, r, to, address);
        log(level, function, "success camID: %d, pipe: %d, frameID: %d, tag: %d,intrData:%p,extrData:%p,tagSize:%d",
            r.cam, r.pipe, r.frame, r.tag, kOwn, address, size);
        return true;
    }

    bool logFailed(const char* function, const Request& r, const Value* stored, const void* address) {
        log(1, function, "fail camID: %d, pipe: %d, frameID: %d, tag: %d,intrData:%p,extrData:%p,tagSize:%d", r.cam,
            r.pipe, r.frame, r.tag, addressOf(stored), address, tagOf(r.tag).size);
        return false;
    }

    // Copies the bytes of the tag's size, if both sides have bytes. Returns whether it did.
    bool copy(const Request& r, const Value* from, Value* to) {
        const int size = tagOf(r.tag).size;
        if (size == 0 || from == nullptr || !from->made || to == nullptr || !to->made) return false;
        *to = {true, from->known, from->bytes.substr(0, static_cast<size_t>(size))};
        return true;
    }

    // Removes everything of the tag at or below the limit; the newest removed value is saved in frame 0.
    void eraseTag(const Request& r, uint32_t limit, uint32_t& result) {
        Pipe& pipe = pipeOf(r);
        auto& list = pipe.checkpoints[r.tag];
        if (list && !list->empty()) {
            log(traceLevel(), "_erase", "tag:%d checkPoint size:%d", r.tag, static_cast<int>(list->size()));
            size_t old = 0;
            while (old < list->size() && (*list)[old] <= limit) old++;
            if (old > 0 && r.tag != kMetadataTag) {
                const uint32_t newest = (*list)[old - 1];
                if (old < list->size()) log(5, "_erase", "find checkPoint ID:%d", newest);
                const Value* value = resolve({r.cam, r.pipe, newest, r.tag}, false);
                result = plainSet(r, value, addressOf(value));
                if (result != 0) log(1, "_erase", "fail to save data to F0");
            }
            list->erase(list->begin(), list->begin() + static_cast<std::ptrdiff_t>(old));
        }
        std::vector<uint32_t> ids;
        for (const auto& [id, frame] : pipe.frames) {
            if (id <= limit) ids.push_back(id);
        }
        for (uint32_t id : ids) {
            pipe.frames[id].status[r.tag];  // made if it was not there
            eraseFromFrame(r, id);
            pipe.erasePoints[r.tag] = static_cast<int32_t>(limit) >= 1 ? limit : 0;
        }
    }

    uint32_t call(size_t slot, const void* handle, int64_t first, int64_t second, const void* pointer) {
        log(0, "operation", kOperationLine, static_cast<int>(slot), reinterpret_cast<intmax_t>(handle), first, second,
            reinterpret_cast<intmax_t>(pointer));
        return static_cast<uint32_t>(reply(static_cast<int>(slot)));
    }

    static const void* addressOf(const Value* value) { return value != nullptr && value->made ? kOwn : kNull; }

    static void insertAscending(std::vector<uint32_t>& list, uint32_t frame) {
        size_t at = list.size();
        while (at > 0 && list[at - 1] > frame) at--;
        list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), frame);
    }

    uint64_t mLastFrame = 0;
};

}  // namespace model

#endif  // PARAMSET_TESTS_MODEL_MODEL_H
