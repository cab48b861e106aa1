// The summary as JSON.

#include "json_output.h"
#include "names.h"
#include "summary.h"

namespace pslog {

namespace {

using nlohmann::json;

json rowOf(const Key& key, const TagRow& row, int level, const Tags& tags) {
    json result = jsonOf(key, tags);
    const auto info = tags.find(key.tag);
    result["bytes"] = info == tags.end() ? json() : jsonOf(info->second.size);
    const auto count = [level](uint64_t number) { return jsonOfCount(number, level, level::EVERYTHING); };
    result["sets"] = count(row.sets);
    result["gets"] = count(row.gets);
    result["answered_by_itself"] = count(row.itself);
    result["answered_by_earlier"] = count(row.back.count());
    result["answered_by_frame_0"] = count(row.frame0);
    result["answer_not_known"] = count(row.notKnown);
    result["fall_backs"] = count(row.fallBacks);
    if (row.back.count() > 0) {
        result["frames_back"] = {{"median", row.back.quantile(0.5)}, {"max", row.back.greatest()}};
    }
    result["waits"] = jsonOfCount(row.waits.count(), level, level::WAITS);
    if (row.waits.count() > 0) result["waits_ms"] = jsonOfWaits(row.waits);
    result["time_outs"] = jsonOfCount(row.timeouts, level, level::TIMEOUTS);
    result["failed"] = row.failures;
    result["erased"] = count(row.erased);
    return result;
}

json lateOf(const std::string& name, const LateRow& late, const Tags& tags) {
    json result = {{"name", name}, {"reads", late.reads}, {"writes", late.writes}, {"not_known", late.notKnown}};
    if (late.needed > 0) result["needed_retain"] = late.needed;
    for (const auto& [tag, info] : tags) {
        if (info.name != name) continue;
        result["tag"] = tag;
        result["retain"] = jsonOf(info.retain);
        break;
    }
    return result;
}

}  // namespace

void printSummaryJson(std::FILE* out, const TagCounts& counts, const Interpreter& interpreter, const Count& count) {
    json result;
    result["log"] = jsonOf(count);
    result["log"]["has_threads"] = interpreter.hasThreads();
    result["tags"] = json::array();
    for (const auto& [key, row] : inOrder(counts.rows())) {
        result["tags"].push_back(rowOf(key, *row, count.level(), interpreter.tags()));
    }
    result["asked_for_after_erasure"] = json::array();
    for (const auto& [name, late] : counts.late()) {
        result["asked_for_after_erasure"].push_back(lateOf(name, late, interpreter.tags()));
    }
    result["failures"] = json::array();
    for (const auto& [of, times] : counts.failures()) {
        json failure = jsonOf(of.first, interpreter.tags());
        failure["cause"] = of.second;
        failure["times"] = times;
        result["failures"].push_back(failure);
    }
    printJson(out, result, 2);
}

}  // namespace pslog
