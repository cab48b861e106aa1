// What a whole log says: counts for each tag in each pipe, and the retain numbers that would have served.

#ifndef PSLOG_SUMMARY_H
#define PSLOG_SUMMARY_H

#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "histogram.h"
#include "interpreter.h"
#include "reader.h"

namespace pslog {

class Summary : public Listener {
public:
    void take(const Event& event, const Tags& tags) override;
    void print(std::FILE* out, const Interpreter& interpreter, const Count& count) const;

private:
    struct Row {
        uint64_t sets = 0, gets = 0, itself = 0, frame0 = 0, notKnown = 0;
        uint64_t timeouts = 0, failures = 0, erased = 0;
        Histogram back;   ///< frames from the one asked for to the checkpoint that answered
        Histogram waits;  ///< milliseconds
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

    void printRows(std::FILE* out, const Tags& tags) const;
    void printLate(std::FILE* out, const Tags& tags) const;
    void printFailures(std::FILE* out, const Tags& tags) const;

    std::unordered_map<Key, Row, KeyHash> mRows;
    std::map<std::string, LateRow, std::less<>> mLate;  ///< by the tag's name, which is all that such a line has
    std::map<std::pair<Key, std::string_view>, uint64_t> mFailures;
};

}  // namespace pslog

#endif  // PSLOG_SUMMARY_H
