// See values.h.

#include "values.h"

#include <stdexcept>
#include <string>

namespace pipeline {

void registerTags() {
    const auto add = [](const auto& tag) {
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
}

}  // namespace pipeline
