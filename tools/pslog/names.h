// Texts for tags and times, as they are printed.

#ifndef PSLOG_NAMES_H
#define PSLOG_NAMES_H

#include <cstdint>
#include <string>

#include "interpreter.h"
#include "paramset.h"

namespace pslog {

/// How to get a log with more levels.
constexpr const char* MORE_LEVELS =
    "set PARAMSET_LOG=5 on a host, or run \"setprop log.tag.ParamSet VERBOSE\" on a device";

/// The tag's name; "-" if its registration is not in the log.
inline std::string nameOf(int64_t tag, const Tags& tags) {
    if (tag == METADATA_TAG) return "(metadata)";
    const auto it = tags.find(tag);
    return it == tags.end() || it->second.name.empty() ? "-" : it->second.name;
}

inline std::string labelOf(int64_t tag, const Tags& tags) {
    return tag == METADATA_TAG ? "the metadata" : "tag " + std::to_string(tag) + " " + nameOf(tag, tags);
}

}  // namespace pslog

#endif  // PSLOG_NAMES_H
