// See values.h.

#include "values.h"

#include <stdexcept>
#include <string>

#include "staging.h"

namespace pipeline {

namespace {

template <typename Value>
bool registerStaged(const Tag<Value>& tag, const Staging& staging) {
    if (staging.happens(Fault::UNREGISTERED, tag.tag(), 0)) return true;
    int retain = 0;
    if (!staging.has(Fault::RETAIN, tag.tag(), 0, MODULE_COUNT, &retain)) return false;
    registerPsQueueParam(tag.tag(), sizeof(Value), tag.kind().tagType, tag.name(), tag.dataType(), retain);
    staging.note(Fault::RETAIN, tag.tag(), 0, MODULE_COUNT, retain);
    return true;
}

}  // namespace

void registerTags(const Staging& staging) {
    const auto add = [&staging](const auto& tag) {
        if (registerStaged(tag, staging)) return;
        const zarn::Registration done = tag.registerTag();
        if (done != zarn::Registration::DONE)
            throw std::runtime_error(std::string(tag.name()) + ": " + to_string(done));
    };
    add(FRAME_READY);
    add(STATISTICS);
    add(GAIN);
    add(HISTORY);
    add(TUNING);
    add(RELEASED);
    if (staging.has(Fault::GONE, 0, 0)) add(MARKER);
}

}  // namespace pipeline
