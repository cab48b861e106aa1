// See json_output.h.

#include "json_output.h"

#include "names.h"

namespace pslog {

using nlohmann::json;

json jsonOf(int64_t number) {
    return number == UNKNOWN ? json() : json(number);
}

json jsonOf(const Key& key, const Tags& tags) {
    json result = {{"camera", jsonOf(key.cam)}, {"pipe", jsonOf(key.pipe)}, {"tag", jsonOf(key.tag)}, {"name", json()}};
    const auto info = tags.find(key.tag);
    if (key.tag == METADATA_TAG) result["name"] = nameOf(key.tag, tags);
    if (info != tags.end() && !info->second.name.empty()) result["name"] = info->second.name;
    return result;
}

json jsonOf(const Count& count) {
    json result = {{"lines", count.lines},     {"of_the_store", count.used}, {"of_others", count.others},
                   {"damaged", count.damaged}, {"level", count.level()},     {"problem", json()}};
    if (count.damaged > 0) result["first_damaged_line"] = count.firstDamaged;
    if (!count.problem.empty()) result["problem"] = count.problem;
    if (count.clock != Clock::NONE) {
        result["from"] = clockText(count.firstUs, count.clock);
        result["to"] = clockText(count.lastUs, count.clock);
        result["seconds"] = static_cast<double>(count.lastUs - count.firstUs) / 1e6;
    }
    return result;
}

json jsonOfCount(uint64_t number, int level, int leastLevel) {
    return level >= leastLevel || number > 0 ? json(number) : json();
}

json jsonOfWaits(const Histogram& waits) {
    return {{"median", waits.quantile(0.5)}, {"p99", waits.quantile(0.99)}, {"max", waits.greatest()}};
}

void printJson(std::FILE* out, const json& json, int indent) {
    // Texts of the log are UTF-8, but file names need not be.
    const std::string text = json.dump(indent, ' ', false, json::error_handler_t::replace) + "\n";
    std::fwrite(text.data(), 1, text.size(), out);
}

}  // namespace pslog
