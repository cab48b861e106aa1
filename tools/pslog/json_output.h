// JSON that several subcommands share. null stands for what the log cannot tell.

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

/// How many lines of each sort a log has.
nlohmann::json jsonOf(const Count& count);

/// Null if the number is 0 and the log's level is too low to tell. At such a level any other number is a minimum.
nlohmann::json jsonOfCount(uint64_t number, int level, int leastLevel);

/// Median, 99th percentile and maximum.
nlohmann::json jsonOfWaits(const Histogram& waits);

/// @param indent  -1 for one line
void printJson(std::FILE* out, const nlohmann::json& json, int indent);

}  // namespace pslog

#endif  // PSLOG_JSON_OUTPUT_H
