// See message.h. The table has the messages of the sources, the most frequent first; a test compares them.

#include "message.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#define COPY_TEXT "camID: %d, pipe: %d, frameID: %d, tag: %d,intrData:%p,extrData:%p,tagSize:%d"

namespace pslog {

namespace {

struct Message {
    Kind kind;
    std::string_view function;
    std::string_view format;
};

constexpr Message MESSAGES[] = {
    {Kind::ENTERED, "getParamInternal", "E cam %d pipe %d frame %d tag %d erasePoint:%d"},
    {Kind::SEARCHED, "findRelated", "desID %d, relateID[%d]"},
    {Kind::RELATED, "permiProc", "cam %u pipe %d tag %d destID %u relatedID:%u"},
    {Kind::CHECKPOINT, "permiProc", "add checkPoint[%d] size:%d,permiProc:%s"},
    {Kind::GOT, "_getParam", "success  " COPY_TEXT},
    {Kind::SET, "_setParam", "success " COPY_TEXT},
    {Kind::ASKED, "_getParamSyn", "camID: %d, pipe: %d, frameID: %d, tag: %d,"},
    {Kind::GOT_SYNC, "_getParamSyn", "success  " COPY_TEXT},
    {Kind::DELIVERING, "_setParamSyn", "camID: %d, pipe: %d, frameID: %d, tag: %d,"},
    {Kind::DELIVERED, "_setParamSyn", "success " COPY_TEXT},
    {Kind::NOTIFIED, "_setParamSyn", "set notify all"},
    {Kind::WAITED, "operator()", "cam %d pipe %d sof %d tag %d, wait: %f ms."},
    {Kind::TIMED_OUT, "operator()", "cam %d pipe %d sof %d tag %d, wait timeout"},
    {Kind::NO_USE, "operator()", "free_camera_metadata mCamID:%d,mFrameID:%d"},
    {Kind::NO_USE, "createTag", "X:%s"},
    {Kind::NO_USE, "createTag", "X Failed to create tag, no such creator: %d"},
    {Kind::NEW_FRAME, "createNew", "createNew ParamFrame"},
    {Kind::NO_USE, "ParamFrame", "E cam[%d] frame[%d]"},
    {Kind::FRAME_DELETED, "~ParamFrame", "delete cam[%d] frame[%d], and total tag Num:%d"},
    {Kind::QUEUE_TRIMMED, "autoErase", "pipe %d tag %d, head %u, queueSize %u"},
    {Kind::TRIMMED, "autoErase", "cam %d pipe %d tag %d, erased %u, cur sof %d"},
    {Kind::ERASE_TAG, "_erase", "tag:%d checkPoint size:%d"},
    {Kind::NO_USE, "_erase", "find checkPoint ID:%d"},
    {Kind::ERASE_BEGUN, "_erase", "E cam[%d] pipe[%d] frame[%d] and oldest will be erased"},
    {Kind::ERASE_ENDED, "_erase", "X:ret:%d, cam[%d] pipe[%d], and finaly frame[%d]save to frame[0]"},
    {Kind::NO_USE, "_erase", "erase all : cam %u pipe %d total %u"},
    {Kind::SAVE_FAILED, "_erase", "fail to save data to F0"},
    {Kind::METADATA_SET, "_setMetadata", "E cam[%d].paramFrame[%d], erase point:%d"},
    {Kind::NO_USE, "_setMetadata", "fail to get metadata, but give frame 0"},
    {Kind::METADATA_GOT, "_getMetadata", "E cam[%d].paramFrame[%d], erase point:%d"},
    {Kind::METADATA_FELL_BACK, "_getMetadata", "fail to match accurate metadata, but give frame 0"},
    {Kind::LATE, "getParamInternal", "frameID %d <= Erased %d, %s need life >= %d"},
    {Kind::LATE_SYNC, "preproc", "frameID %d <= Erased %d, %s need life >= %d"},
    {Kind::NO_USE, "getParamInternal", "THE_LAST frame is %d"},
    {Kind::NO_USE, "preproc", "THE_LAST frame is %d"},
    {Kind::GET_FAILED, "_getParam", "fail " COPY_TEXT},
    {Kind::SET_FAILED, "_setParam", "fail " COPY_TEXT},
    {Kind::GET_SYNC_FAILED, "_getParamSyn", "fail " COPY_TEXT},
    {Kind::DELIVER_FAILED, "_setParamSyn", "fail " COPY_TEXT},
    {Kind::PIPE_LIMIT_PLAIN, "getParamInternal", "pipe %d out of limit, please check tag %d"},
    {Kind::PIPE_LIMIT, "_getParamSyn", "pipe %d out of limit, please check tag %d"},
    {Kind::PIPE_LIMIT, "_setParamSyn", "pipe %d out of limit, please check tag %d"},
    {Kind::CAMERA_LIMIT, "getParam", "cam %d out of limit, tag %d get failed"},
    {Kind::CAMERA_LIMIT, "setParam", "cam %d out of limit, tag %d set failed"},
    {Kind::CAMERA_LIMIT, "getParamSyn", "cam %d out of limit, tag %d get failed"},
    {Kind::CAMERA_LIMIT, "getParamSynTimeout", "cam %d out of limit, tag %d get failed"},
    {Kind::CAMERA_LIMIT, "setParamSyn", "cam %d out of limit, tag %d set failed"},
    {Kind::ERASE_LIMIT, "erase", "cam %d pipe %d out of limit, sof %u erase failed"},
    {Kind::METADATA_LIMIT, "setMetadata", "cam %d out of limit, sof %u set metadata failed"},
    {Kind::METADATA_LIMIT, "getMetadata", "cam %d out of limit, sof %u get metadata failed"},
    {Kind::REGISTERED, "register_tag", "ParamSet tag:%d, name:%s, dataType:%s, size:%d, tagType:%d, retainNum:%d"},
    {Kind::STORE_MADE, "createInstance", "create"},
    {Kind::STORE_ENDED, "destroyInstance", "destory"},
    {Kind::NO_USE, "ParamSet", "E"},
    {Kind::NO_USE, "ParamSet", "X"},
    {Kind::NO_USE, "ioctrlOutsideParam", "E"},
    {Kind::NO_USE, "getPsHandle", "parameset getPsHandle mElem:%p"},
    {Kind::EXTERNAL_FAILED, "getPsHandle", "paramset can not get ps handle"},
    {Kind::EXTERNAL_FAILED, "getParamExternal", "no isp ops"},
    {Kind::EXTERNAL_FAILED, "ioctrlOutsideParam", "fail to find tag:%d"},
    {Kind::EXTERNAL_FAILED, "ioctrlOutsideParam", "no data, tag:%d"},
};

/// The store's numbers have 32 bits, signed or not.
bool takeNumber(const char*& next, const char* end, int64_t& value) {
    const auto [after, error] = std::from_chars(next, end, value);
    next = after;
    return error == std::errc() && value >= INT32_MIN && value <= UINT32_MAX;
}

/// C libraries print a null pointer differently.
bool takePointer(const char*& next, const char* end, int64_t& value) {
    const char* begin = next;
    value = 0;
    for (; next != end && *next != ','; ++next) {
        if (*next != '0' && *next != 'x' && begin[0] == '0') value = 1;
    }
    return next != begin;
}

/// @param literal  what follows the text in the format; if empty, the text extends to the end
bool takeText(const char*& next, const char* end, std::string_view literal, std::string_view& value) {
    const std::string_view rest(next, static_cast<size_t>(end - next));
    const size_t length = literal.empty() ? rest.size() : rest.find(literal);
    if (length == std::string_view::npos) return false;
    value = rest.substr(0, length);
    next += length;
    return true;
}

bool match(std::string_view format, std::string_view text, Arguments& arguments) {
    const char* next = text.data();
    const char* const end = next + text.size();
    size_t numbers = 0;
    size_t texts = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            if (next == end || *next++ != format[i]) return false;
            continue;
        }
        bool taken = false;
        switch (format[++i]) {
            case 's': {
                const std::string_view rest = format.substr(i + 1);
                taken = takeText(next, end, rest.substr(0, rest.find('%')), arguments.text[texts++]);
                break;
            }
            case 'p': taken = takePointer(next, end, arguments.number[numbers++]); break;
            case 'f':
                taken = takeNumber(next, end, arguments.number[numbers++]);
                while (next != end && (*next == '.' || (*next >= '0' && *next <= '9'))) ++next;
                break;
            default: taken = takeNumber(next, end, arguments.number[numbers++]);
        }
        if (!taken) return false;
    }
    return next == end;
}

}  // namespace

bool findMessage(std::string_view function, std::string_view text, Kind& kind, Arguments& arguments) {
    for (const Message& message : MESSAGES) {
        if (message.function == function && match(message.format, text, arguments)) {
            kind = message.kind;
            return true;
        }
    }
    return false;
}

bool isStoresFunction(std::string_view function) {
    return std::any_of(std::begin(MESSAGES), std::end(MESSAGES),
                       [function](const Message& message) { return message.function == function; });
}

}  // namespace pslog
