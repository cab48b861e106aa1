// What happened to each tag in each pipe, as numbers, and which of them the log can tell.

#ifndef PSLOG_TAG_COUNTS_H
#define PSLOG_TAG_COUNTS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "histogram.h"
#include "interpreter.h"

namespace pslog {

/// The least level of a log that tells something: one of less does not have the lines.
namespace level {
constexpr int TIMEOUTS = 2;
constexpr int WAITS = 4;
constexpr int EVERYTHING = 5;  ///< sets and gets, who answered, and what was erased
}  // namespace level

/// The frame that was answered from furthest off; if none was answered by another, the one that waited longest.
struct WorstFrame {
    uint32_t frame = 0;  ///< 0: there is none
    int64_t off = 0;     ///< frames to the one that answered
    bool byFrame0 = false;
    int64_t waitMs = 0;

    void take(const WorstFrame& other);
};

struct TagRow {
    uint64_t sets = 0, gets = 0, itself = 0, frame0 = 0, notKnown = 0;
    uint64_t fallBacks = 0;  ///< gets that another frame answered, but for what is frame 0's by its kind
    uint64_t timeouts = 0, failures = 0, erased = 0;
    Histogram back;   ///< frames from the one asked for to the checkpoint that answered
    Histogram waits;  ///< milliseconds
    WorstFrame worst;

    TagRow& operator+=(const TagRow& other);
};

struct LateRow {
    uint64_t reads = 0, writes = 0, notKnown = 0;
    int64_t needed = 0;  ///< by reads, and by what may have been one
};

struct KeyHash {
    size_t operator()(const Key& key) const {
        return (static_cast<size_t>(key.cam) * 16 + static_cast<size_t>(key.pipe)) * 0x9E3779B1 +
               static_cast<size_t>(key.tag);
    }
};

class TagCounts : public Listener {
public:
    using Rows = std::unordered_map<Key, TagRow, KeyHash>;

    void take(const Event& event, const Tags& tags) override;

    const Rows& rows() const { return mRows; }
    /// By the tag's name, which is all that such a line has.
    const std::map<std::string, LateRow, std::less<>>& late() const { return mLate; }
    /// By key and cause.
    const std::map<std::pair<Key, std::string_view>, uint64_t>& failures() const { return mFailures; }

    /// Returns the rows, and begins new ones.
    Rows takeRows() { return std::exchange(mRows, {}); }

private:
    static void takeGet(const Event& event, const Tags& tags, TagRow& row);

    Rows mRows;
    std::map<std::string, LateRow, std::less<>> mLate;
    std::map<std::pair<Key, std::string_view>, uint64_t> mFailures;
};

/// In the order of their keys.
std::vector<std::pair<Key, const TagRow*>> inOrder(const TagCounts::Rows& rows);

/// A number of what a log has only if its level is great enough: "12", "12+" for 12 at least, or "?".
std::string countText(uint64_t number, int level, int leastLevel);

/// What the log's level is, and how to get more of it; empty if there is no more, or the log has no message.
std::string levelText(int level);

}  // namespace pslog

#endif  // PSLOG_TAG_COUNTS_H
