// What the subcommands' JSON has in common. A null is what the log cannot tell.

#ifndef PSLOG_JSON_OUTPUT_H
#define PSLOG_JSON_OUTPUT_H

#include <cstdio>
#include <nlohmann/json.hpp>

#include "histogram.h"
#include "interpreter.h"
#include "reader.h"

namespace pslog {

/// Null for UNKNOWN.
nlohmann::json jsonOf(int64_t number);

/// Camera, pipe, tag and the tag's name.
nlohmann::json jsonOf(const Key& key, const Tags& tags);

/// What a log consists of.
nlohmann::json jsonOf(const Count& count);

/// Null if the log's level is too low to have any. What it has then is the least.
nlohmann::json jsonOfCount(uint64_t number, int level, int leastLevel);

/// Median, 99th percentile and greatest.
nlohmann::json jsonOfWaits(const Histogram& waits);

/// @param indent  -1 for one line
void printJson(std::FILE* out, const nlohmann::json& json, int indent);

}  // namespace pslog

#endif  // PSLOG_JSON_OUTPUT_H
