// See tag_counts.h.

#include "tag_counts.h"

#include <algorithm>

#include "names.h"
#include "text.h"

namespace pslog {

namespace {

constexpr int64_t STATIC_TYPE = 1;

}  // namespace

void WorstFrame::take(const WorstFrame& other) {
    if (std::tie(other.off, other.waitMs) > std::tie(off, waitMs)) *this = other;
}

TagRow& TagRow::operator+=(const TagRow& other) {
    sets += other.sets;
    gets += other.gets;
    itself += other.itself;
    frame0 += other.frame0;
    notKnown += other.notKnown;
    fallBacks += other.fallBacks;
    timeouts += other.timeouts;
    failures += other.failures;
    erased += other.erased;
    back += other.back;
    waits += other.waits;
    worst.take(other.worst);
    return *this;
}

void TagCounts::take(const Event& event, const Tags& tags) {
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
    TagRow& row = mRows[event.key];
    switch (event.type) {
        case EventType::SET: ++row.sets; break;
        case EventType::WAIT:
            row.waits.add(event.count);
            row.worst.take({event.frame, 0, false, event.count});
            break;
        case EventType::TIMEOUT: ++row.timeouts; break;
        case EventType::FAILURE: ++row.failures; break;
        case EventType::TRIM:
        case EventType::ERASE: row.erased += static_cast<uint64_t>(event.count); break;
        case EventType::GET: takeGet(event, tags, row); break;
        default: break;
    }
}

void TagCounts::takeGet(const Event& event, const Tags& tags, TagRow& row) {
    ++row.gets;
    switch (event.answer) {
        case Answer::ITSELF: ++row.itself; return;
        case Answer::NOT_KNOWN: ++row.notKnown; return;
        case Answer::EARLIER: row.back.add(int64_t{event.frame} - event.other); break;
        case Answer::FRAME_0: ++row.frame0; break;
    }
    const bool byFrame0 = event.answer == Answer::FRAME_0;
    const auto info = tags.find(event.key.tag);
    const bool isStatic = info != tags.end() && info->second.type == STATIC_TYPE;
    if (event.frame == 0 || (byFrame0 && isStatic)) return;
    ++row.fallBacks;
    row.worst.take({event.frame, int64_t{event.frame} - (byFrame0 ? 0 : event.other), byFrame0, 0});
}

std::vector<std::pair<Key, const TagRow*>> inOrder(const TagCounts::Rows& rows) {
    std::vector<std::pair<Key, const TagRow*>> sorted;
    for (const auto& [key, row] : rows) sorted.emplace_back(key, &row);
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return sorted;
}

size_t nameWidthOf(const TagCounts::Rows& rows, const Tags& tags) {
    size_t width = MIN_NAME_WIDTH;
    for (const auto& [key, row] : rows) width = std::max(width, lengthOf(nameOf(key.tag, tags)));
    return width;
}

std::string countText(uint64_t number, int level, int leastLevel) {
    if (level >= leastLevel) return std::to_string(number);
    return number > 0 ? std::to_string(number) + "+" : "?";
}

std::string levelText(int level) {
    if (level == 0 || level >= level::EVERYTHING) return {};
    return "the log's greatest level is " + std::to_string(level) +
           ": it cannot tell what is printed as ?, and 5+ is 5 or more; to log everything, " + MORE_LEVELS;
}

}  // namespace pslog
