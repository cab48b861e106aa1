// See summary.h.

#include "summary.h"

#include <algorithm>
#include <cinttypes>
#include <vector>

#include "names.h"

namespace pslog {

namespace {

constexpr int64_t STATIC_TYPE = 1;
constexpr int64_t QUEUE_TYPE = 2;

std::string dashOr(int64_t number) {
    return number == UNKNOWN ? "-" : std::to_string(number);
}

std::string orNothing(const Histogram& histogram, int64_t number) {
    return histogram.count() == 0 ? "-" : std::to_string(number);
}

/// What registering with a greater number helps: not a tag without history, and a queue only by its number of values.
const char* adviceFor(const TagInfo* info) {
    if (info == nullptr || info->type == UNKNOWN) return "register with ";
    if (info->type == QUEUE_TYPE) return "register with, if every frame is given a value, ";
    return info->type == STATIC_TYPE ? "tag of type 1, yet " : "register with ";
}

}  // namespace

void Summary::take(const Event& event, const Tags&) {
    if (event.type == EventType::LATE) {
        auto found = mLate.find(event.text);
        if (found == mLate.end()) found = mLate.emplace(event.text, LateRow{}).first;
        LateRow& late = found->second;
        ++(event.access == Access::READ ? late.reads : event.access == Access::WRITE ? late.writes : late.notKnown);
        if (event.access != Access::WRITE) late.needed = std::max(late.needed, event.count);
        return;
    }
    if (event.type == EventType::FAILURE) ++mFailures[{event.key, event.text}];
    if (event.key.cam == UNKNOWN || event.key.pipe == UNKNOWN || event.key.tag == UNKNOWN) return;
    Row& row = mRows[event.key];
    switch (event.type) {
        case EventType::SET: ++row.sets; break;
        case EventType::WAIT: row.waits.add(event.count); break;
        case EventType::TIMEOUT: ++row.timeouts; break;
        case EventType::FAILURE: ++row.failures; break;
        case EventType::TRIM:
        case EventType::ERASE: row.erased += static_cast<uint64_t>(event.count); break;
        case EventType::GET:
            ++row.gets;
            if (event.answer == Answer::ITSELF) ++row.itself;
            if (event.answer == Answer::FRAME_0) ++row.frame0;
            if (event.answer == Answer::NOT_KNOWN) ++row.notKnown;
            if (event.answer == Answer::EARLIER) row.back.add(int64_t{event.frame} - event.other);
            break;
        default: break;
    }
}

void Summary::print(std::FILE* out, const Interpreter& interpreter, const Count& count) const {
    std::fprintf(out, "%" PRIu64 " lines: %" PRIu64 " of the store, %" PRIu64 " of others, %" PRIu64 " damaged",
                 count.lines, count.used, count.others, count.damaged);
    if (count.damaged > 0) std::fprintf(out, " (the first is line %" PRIu64 ")", count.firstDamaged);
    std::fprintf(out, "\n");
    if (!interpreter.hasThreads()) {
        std::fprintf(out, "no thread ids: lines are put to calls by what they name and by the store's lock\n");
    }
    printRows(out, interpreter.tags());
    printLate(out, interpreter.tags());
    printFailures(out, interpreter.tags());
}

void Summary::printRows(std::FILE* out, const Tags& tags) const {
    std::vector<std::pair<Key, const Row*>> rows;
    for (const auto& [key, row] : mRows) rows.emplace_back(key, &row);
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::fprintf(out,
                 "\n                                                  gets answered by    checkpoint   waits, ms\n"
                 "cam pipe    tag name           bytes   sets   gets  itself earlier frame 0   back  max"
                 "  number med 99 %%  max t-outs failed erased\n");
    uint64_t notKnown = 0;
    for (const auto& [key, row] : rows) {
        const auto info = tags.find(key.tag);
        const std::string bytes = dashOr(info == tags.end() ? UNKNOWN : info->second.size);
        std::fprintf(out, "%3" PRId64 " %4" PRId64 " %6" PRId64 " %-14s %5s %6" PRIu64 " %6" PRIu64, key.cam, key.pipe,
                     key.tag, nameOf(key.tag, tags).c_str(), bytes.c_str(), row->sets, row->gets);
        std::fprintf(out, " %7" PRIu64 " %7" PRIu64 " %7" PRIu64 " %6s %4s", row->itself, row->back.count(),
                     row->frame0, orNothing(row->back, row->back.quantile(0.5)).c_str(),
                     orNothing(row->back, row->back.greatest()).c_str());
        std::fprintf(out, " %7" PRIu64 " %3s %4s %4s", row->waits.count(),
                     orNothing(row->waits, row->waits.quantile(0.5)).c_str(),
                     orNothing(row->waits, row->waits.quantile(0.99)).c_str(),
                     orNothing(row->waits, row->waits.greatest()).c_str());
        std::fprintf(out, " %6" PRIu64 " %6" PRIu64 " %6" PRIu64 "\n", row->timeouts, row->failures, row->erased);
        notKnown += row->notKnown;
    }
    if (notKnown > 0) std::fprintf(out, "who answered %" PRIu64 " gets, the log does not say\n", notKnown);
}

void Summary::printLate(std::FILE* out, const Tags& tags) const {
    if (mLate.empty()) return;
    std::fprintf(out, "\nasked for after its erasure\n");
    for (const auto& [name, late] : mLate) {
        const auto isNamed = [&name = name](const auto& tag) { return tag.second.name == name; };
        const auto tag = std::find_if(tags.begin(), tags.end(), isNamed);
        const TagInfo* info = tag == tags.end() ? nullptr : &tag->second;
        const std::string id = info == nullptr ? "tag -" : "tag " + std::to_string(tag->first);
        std::fprintf(out, "  %s %s: ", id.c_str(), name.c_str());
        if (late.needed > 0) {
            std::fprintf(out, "retain %s, needed %" PRId64 ": %s%" PRId64 "  (",
                         dashOr(info ? info->retain : UNKNOWN).c_str(), late.needed, adviceFor(info), late.needed);
        } else {
            std::fprintf(out, "(");
        }
        std::fprintf(out, "%" PRIu64 " reads, %" PRIu64 " writes", late.reads, late.writes);
        if (late.notKnown > 0) std::fprintf(out, ", %" PRIu64 " of which the log does not say which", late.notKnown);
        std::fprintf(out, ")\n");
    }
}

void Summary::printFailures(std::FILE* out, const Tags& tags) const {
    if (mFailures.empty()) return;
    std::fprintf(out, "\nfailures\n");
    for (const auto& [of, times] : mFailures) {
        const auto& [key, cause] = of;
        const std::string name = key.tag == UNKNOWN ? "" : " " + nameOf(key.tag, tags);
        std::fprintf(out, "%7" PRIu64 "  camera %s pipe %s tag %s%s: %.*s\n", times, dashOr(key.cam).c_str(),
                     dashOr(key.pipe).c_str(), dashOr(key.tag).c_str(), name.c_str(), static_cast<int>(cause.size()),
                     cause.data());
    }
}

}  // namespace pslog
