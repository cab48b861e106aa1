// The summary of a whole log: counts for each tag in each pipe, and the retain numbers that would have been enough.

#ifndef PSLOG_SUMMARY_H
#define PSLOG_SUMMARY_H

#include <cstdio>

#include "interpreter.h"
#include "reader.h"
#include "tag_counts.h"

namespace pslog {

void printSummary(std::FILE* out, const TagCounts& counts, const Interpreter& interpreter, const Count& count);

/// The same as JSON; null stands for what the log cannot tell.
void printSummaryJson(std::FILE* out, const TagCounts& counts, const Interpreter& interpreter, const Count& count);

}  // namespace pslog

#endif  // PSLOG_SUMMARY_H
