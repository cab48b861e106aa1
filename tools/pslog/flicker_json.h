// Flickers as JSON.

#ifndef PSLOG_FLICKER_JSON_H
#define PSLOG_FLICKER_JSON_H

#include <nlohmann/json.hpp>

#include "flicker.h"
#include "flicker_text.h"

namespace pslog {

/// A flicker with its story, advice and chain of reasons.
nlohmann::json jsonOf(const Flicker& flicker, const FlickerText& text);

}  // namespace pslog

#endif  // PSLOG_FLICKER_JSON_H
