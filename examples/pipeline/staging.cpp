// See staging.h.

#include "staging.h"

#include <dlfcn.h>

#include <charconv>
#include <iterator>

#include "values.h"

namespace pipeline {

namespace {

/// Which parts the text of a fault has after its name.
struct Syntax {
    Fault fault;
    const char* name;
    bool hasTag, hasModule, hasNumber, hasFrames;
};

constexpr Syntax SYNTAX[] = {
    {Fault::STALL, "stall", false, true, true, true},
    {Fault::DROP, "drop", true, false, false, true},
    {Fault::PLAIN, "plain", true, false, false, true},
    {Fault::LOSE, "lose", true, true, false, true},
    {Fault::ERASE, "erase", true, false, false, true},
    {Fault::GONE, "gone", false, false, false, true},
    {Fault::END, "end", false, false, false, true},
    {Fault::RETAIN, "retain", true, false, true, false},
    {Fault::UNREGISTERED, "unregistered", true, false, false, false},
};

struct TagName {
    uint32_t tag;
    const char* name;
};
const TagName TAGS[] = {
    {FRAME_READY.tag(), "frame-ready"}, {STATISTICS.tag(), "statistics"}, {GAIN.tag(), "gain"},
    {HISTORY.tag(), "history"},         {TUNING.tag(), "tuning"},         {RELEASED.tag(), "released"},
    {METADATA_TAG, "metadata"},
};

/// Splits a text at colons, from the front.
struct Parts {
    std::string whole;
    std::string rest = whole;

    [[noreturn]] void refuse(const char* why) const { throw UsageError("\"" + whole + "\": " + why); }

    std::string next() {
        const size_t colon = rest.find(':');
        const std::string part = rest.substr(0, colon);
        rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
        return part;
    }

    uint32_t number(const std::string& text, const char* why) const {
        uint32_t value = 0;
        const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
        if (result.ec != std::errc() || result.ptr != text.data() + text.size() || value == 0) refuse(why);
        return value;
    }
};

uint32_t tagOf(const Parts& parts, const std::string& name) {
    for (const TagName& tag : TAGS) {
        if (name == tag.name) return tag.tag;
    }
    parts.refuse("no such tag; there are frame-ready, statistics, gain, history, tuning, released and metadata");
}

ModuleName moduleOf(const Parts& parts, const std::string& name) {
    for (int module = 0; module < MODULE_COUNT; ++module) {
        if (name == MODULE_NAMES[module]) return static_cast<ModuleName>(module);
    }
    parts.refuse("no such module; there are sensor, statistics, exposure and isp");
}

std::string textOf(const Syntax& syntax, uint32_t tag, uint32_t frame, ModuleName module, int number) {
    std::string text = syntax.name;
    for (const TagName& known : TAGS) {
        if (syntax.hasTag && known.tag == tag) text += std::string(":") + known.name;
    }
    if (syntax.hasModule) text += std::string(":") + MODULE_NAMES[module];
    if (syntax.hasNumber) text += ":" + std::to_string(number);
    if (syntax.hasFrames) text += "@" + std::to_string(frame);
    return text;
}

const Syntax& syntaxOf(Fault fault) {
    const Syntax* syntax = SYNTAX;
    while (syntax->fault != fault) ++syntax;
    return *syntax;
}

/// Why a fault cannot be staged for a tag; null if it can.
const char* problemOf(Fault fault, uint32_t tag) {
    const bool isFrameReady = tag == FRAME_READY.tag(), isMetadata = tag == METADATA_TAG,
               isTuning = tag == TUNING.tag();
    const bool isAwaited = isFrameReady || tag == STATISTICS.tag() || tag == GAIN.tag() || tag == RELEASED.tag();
    switch (fault) {
        case Fault::DROP:
            if (isTuning) return "it is set only once, before the first frame";
            return isFrameReady ? "without this value the pipeline cannot continue" : nullptr;
        case Fault::UNREGISTERED:
            if (isFrameReady) return "without this value the pipeline cannot continue";
            [[fallthrough]];
        case Fault::RETAIN: return isMetadata ? "metadata is not registered and has no retain number" : nullptr;
        case Fault::PLAIN:
        case Fault::LOSE: return isAwaited ? nullptr : "no module waits for it";
        case Fault::ERASE: return isAwaited ? nullptr : "the pipeline's erases do not remove it before it is read";
        default: return nullptr;
    }
}

}  // namespace

void Staging::add(const std::string& text) {
    Parts parts{text};
    const size_t at = text.find('@');
    const std::string frames = at == std::string::npos ? "" : text.substr(at + 1);
    parts.rest = text.substr(0, at);
    const std::string name = parts.next();
    const Syntax* syntax = std::begin(SYNTAX);
    while (syntax != std::end(SYNTAX) && name != syntax->name) ++syntax;
    if (syntax == std::end(SYNTAX)) parts.refuse("no such fault");
    Staged staged{};
    staged.fault = syntax->fault;
    if (syntax->hasTag) staged.tag = tagOf(parts, parts.next());
    if (syntax->hasModule) staged.module = moduleOf(parts, parts.next());
    if (syntax->hasNumber) staged.number = static_cast<int>(parts.number(parts.next(), "it needs a number"));
    if (syntax->hasFrames != !frames.empty())
        parts.refuse(syntax->hasFrames ? "it needs a frame" : "it takes no frame");
    if (syntax->hasFrames) {
        const size_t dash = frames.find('-');
        staged.first = parts.number(frames.substr(0, dash), "the frame is not a number");
        staged.last = dash == std::string::npos
                          ? staged.first
                          : parts.number(frames.substr(dash + 1), "the last frame is not a number");
        if (staged.last < staged.first) parts.refuse("the last frame is before the first");
    }
    if (!parts.rest.empty()) parts.refuse("it has too many parts");
    if (const char* problem = problemOf(staged.fault, staged.tag)) parts.refuse(problem);
    if (staged.fault == Fault::LOSE && !MissedWakeUps::isPossible()) {
        parts.refuse("wake-ups get lost only with the tests' library miss_wake_ups in LD_PRELOAD");
    }
    mFaults.push_back(staged);
}

void Staging::addStall(const std::string& text, int maxMs) {
    add("stall:" + text);
    if (mFaults.back().number > maxMs) Parts{text}.refuse("the stall is too long");
}

bool Staging::has(Fault fault, uint32_t tag, uint32_t frame, ModuleName module, int* number) const {
    for (const Staged& staged : mFaults) {
        const bool isInRange = frame == 0 || (staged.first <= frame && frame <= staged.last);
        if (staged.fault != fault || staged.tag != tag || staged.module != module || !isInRange) continue;
        if (number != nullptr) *number = staged.number;
        return true;
    }
    return false;
}

void Staging::note(Fault fault, uint32_t tag, uint32_t frame, ModuleName module, int number) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    mNotes.push_back(textOf(syntaxOf(fault), tag, frame, module, number));
}

bool Staging::happens(Fault fault, uint32_t tag, uint32_t frame) const {
    const bool staged = has(fault, tag, frame);
    if (staged) note(fault, tag, frame);
    return staged;
}

std::vector<std::string> Staging::notes() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mNotes;
}

MissedWakeUps::MissedWakeUps(bool missed) : mMissed(missed) {
    if (mMissed) switchOf()(1);
}

MissedWakeUps::~MissedWakeUps() {
    if (mMissed) switchOf()(0);
}

MissedWakeUps::Switch MissedWakeUps::switchOf() {
    return reinterpret_cast<Switch>(dlsym(RTLD_DEFAULT, "missWakeUps"));
}

}  // namespace pipeline
