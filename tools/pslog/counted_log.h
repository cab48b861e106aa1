// A whole log, counted by tag. Used by `check` and `diff`.

#ifndef PSLOG_COUNTED_LOG_H
#define PSLOG_COUNTED_LOG_H

#include <string>

#include "command.h"
#include "tag_counts.h"

namespace pslog {

struct CountedLog {
    explicit CountedLog(const LogInput& input) {
        Interpreter interpreter(counts);
        count = readLog(input, interpreter);
        tags = interpreter.tags();
    }

    TagCounts counts;
    Tags tags;
    Count count;
};

}  // namespace pslog

#endif  // PSLOG_COUNTED_LOG_H
