// See summary.h.

#include "summary.h"

#include <algorithm>
#include <cinttypes>

#include "names.h"
#include "text.h"

namespace pslog {

namespace {

constexpr int64_t STATIC_TYPE = 1;
constexpr int64_t QUEUE_TYPE = 2;

std::string dashOr(int64_t number) {
    return number == UNKNOWN ? "-" : std::to_string(number);
}

/// A number of a histogram; "?" if the log's level is too low.
std::string numberOf(const Histogram& histogram, int64_t number, int level, int leastLevel) {
    if (histogram.count() > 0) return std::to_string(number);
    return level >= leastLevel ? "-" : "?";
}

/// The advice that is printed before the needed retain number. A static tag does not gain from a greater number. The
/// number of a queue counts values, not frames.
const char* adviceFor(const TagInfo* info) {
    if (info == nullptr || info->type == UNKNOWN) return "register with ";
    if (info->type == QUEUE_TYPE) return "register with, if every frame is given a value, ";
    return info->type == STATIC_TYPE ? "tag of type 1, yet " : "register with ";
}

void printRow(std::FILE* out, const Key& key, const TagRow& row, int level, const Tags& tags, size_t nameWidth) {
    const auto info = tags.find(key.tag);
    const std::string bytes = dashOr(info == tags.end() ? UNKNOWN : info->second.size);
    std::fprintf(out, "%3" PRId64 " %4" PRId64 " %6" PRId64 " %s %5s", key.cam, key.pipe, key.tag,
                 padded(nameOf(key.tag, tags), nameWidth).c_str(), bytes.c_str());
    const auto column = [&](int width, uint64_t number) {
        std::fprintf(out, " %*s", width, countText(number, level, level::EVERYTHING).c_str());
    };
    const auto ofHistogram = [&](int width, const Histogram& histogram, int64_t number, int leastLevel) {
        std::fprintf(out, " %*s", width, numberOf(histogram, number, level, leastLevel).c_str());
    };
    column(6, row.sets);
    column(6, row.gets);
    column(7, row.itself);
    column(7, row.back.count());
    column(7, row.frame0);
    ofHistogram(6, row.back, row.back.quantile(0.5), level::EVERYTHING);
    ofHistogram(4, row.back, row.back.greatest(), level::EVERYTHING);
    std::fprintf(out, " %7s", countText(row.waits.count(), level, level::WAITS).c_str());
    ofHistogram(3, row.waits, row.waits.quantile(0.5), level::WAITS);
    ofHistogram(4, row.waits, row.waits.quantile(0.99), level::WAITS);
    ofHistogram(4, row.waits, row.waits.greatest(), level::WAITS);
    std::fprintf(out, " %6s %6" PRIu64, countText(row.timeouts, level, level::TIMEOUTS).c_str(), row.failures);
    column(6, row.erased);
    std::fputc('\n', out);
}

void printRows(std::FILE* out, const TagCounts& counts, int level, const Tags& tags) {
    const size_t nameWidth = nameWidthOf(counts.rows(), tags);
    const std::string gap(nameWidth - MIN_NAME_WIDTH, ' ');
    std::fprintf(out,
                 "\n%s                                                  gets answered by    checkpoint   waits, ms\n"
                 "cam pipe    tag name%s           bytes   sets   gets  itself earlier frame 0   back  max"
                 "  number med 99 %%  max t-outs failed erased\n",
                 gap.c_str(), gap.c_str());
    uint64_t notKnown = 0;
    for (const auto& [key, row] : inOrder(counts.rows())) {
        printRow(out, key, *row, level, tags, nameWidth);
        notKnown += row->notKnown;
    }
    if (notKnown > 0)
        std::fprintf(out, "%" PRIu64 " gets of which the log does not say which frame answered\n", notKnown);
}

void printLate(std::FILE* out, const TagCounts& counts, const Tags& tags) {
    if (counts.late().empty()) return;
    std::fprintf(out, "\nused after its erasure\n");
    for (const auto& [name, late] : counts.late()) {
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

void printFailures(std::FILE* out, const TagCounts& counts, const Tags& tags) {
    if (counts.failures().empty()) return;
    std::fprintf(out, "\nfailures\n");
    for (const auto& [of, times] : counts.failures()) {
        const auto& [key, cause] = of;
        const std::string name = key.tag == UNKNOWN ? "" : " " + nameOf(key.tag, tags);
        std::fprintf(out, "%7" PRIu64 "  camera %s pipe %s tag %s%s: %.*s\n", times, dashOr(key.cam).c_str(),
                     dashOr(key.pipe).c_str(), dashOr(key.tag).c_str(), name.c_str(), static_cast<int>(cause.size()),
                     cause.data());
    }
}

}  // namespace

void printSummary(std::FILE* out, const TagCounts& counts, const Interpreter& interpreter, const Count& count) {
    std::fprintf(out, "%" PRIu64 " lines: %" PRIu64 " of the store, %" PRIu64 " of others, %" PRIu64 " damaged",
                 count.lines, count.used, count.others, count.damaged);
    if (count.damaged > 0) std::fprintf(out, " (the first is line %" PRIu64 ")", count.firstDamaged);
    std::fprintf(out, "\n");
    if (count.clock != Clock::NONE) {
        std::fprintf(out, "%s to %s: %.3f s\n", clockText(count.firstUs, count.clock).c_str(),
                     clockText(count.lastUs, count.clock).c_str(),
                     static_cast<double>(count.lastUs - count.firstUs) / 1e6);
    }
    if (!interpreter.hasThreads()) {
        std::fprintf(out, "no thread ids: lines are assigned to calls by what they name and by their order\n");
    }
    const std::string level = levelText(count.level());
    if (!level.empty()) std::fprintf(out, "%s\n", level.c_str());
    printRows(out, counts, count.level(), interpreter.tags());
    printLate(out, counts, interpreter.tags());
    printFailures(out, counts, interpreter.tags());
}

}  // namespace pslog
