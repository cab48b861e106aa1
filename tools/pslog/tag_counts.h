// Counts for each tag in each pipe, and which of them the log can tell.

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

/// The lowest log level that has the lines for a count.
namespace level {
constexpr int TIMEOUTS = 2;
constexpr int WAITS = 4;
constexpr int EVERYTHING = 5;  ///< sets and gets, who answered, and what was erased
}  // namespace level

/// The frame that was answered by the most distant frame; if there is none, the frame that waited longest.
struct WorstFrame {
    uint32_t frame = 0;  ///< 0 if there is none
    int64_t off = 0;     ///< distance to the frame that answered
    bool byFrame0 = false;
    int64_t waitMs = 0;

    void take(const WorstFrame& other);
};

struct TagRow {
    uint64_t sets = 0, gets = 0, itself = 0, frame0 = 0, notKnown = 0;
    uint64_t fallBacks = 0;  ///< gets that another frame answered; not gets of frame 0 or of type 1
    uint64_t timeouts = 0, failures = 0, erased = 0;
    Histogram back;   ///< distances from the requested frame to the checkpoint that answered
    Histogram waits;  ///< milliseconds
    WorstFrame worst;

    TagRow& operator+=(const TagRow& other);
};

struct LateRow {
    uint64_t reads = 0, writes = 0, notKnown = 0;
    int64_t needed = 0;  ///< greatest retain number needed by reads, or calls that may have been reads
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
    /// By tag name, because these lines have nothing else.
    const std::map<std::string, LateRow, std::less<>>& late() const { return mLate; }
    /// By key and cause.
    const std::map<std::pair<Key, std::string_view>, uint64_t>& failures() const { return mFailures; }

    /// Returns the rows and starts with empty ones.
    Rows takeRows() { return std::exchange(mRows, {}); }

private:
    static void takeGet(const Event& event, const Tags& tags, TagRow& row);

    Rows mRows;
    std::map<std::string, LateRow, std::less<>> mLate;
    std::map<std::pair<Key, std::string_view>, uint64_t> mFailures;
};

/// The rows in the order of their keys.
std::vector<std::pair<Key, const TagRow*>> inOrder(const TagCounts::Rows& rows);

/// A table's column of tag names has at least this width.
constexpr size_t MIN_NAME_WIDTH = 14;

/// The width of a column that has room for each of the rows' tag names.
size_t nameWidthOf(const TagCounts::Rows& rows, const Tags& tags);

/// A count that needs a log level: "12"; or, if the log's level is lower, "12+" for at least 12, or "?".
std::string countText(uint64_t number, int level, int leastLevel);

/// The log's level, and how to get a higher one; empty if there is no higher one, or the log has no message.
std::string levelText(int level);

}  // namespace pslog

#endif  // PSLOG_TAG_COUNTS_H
