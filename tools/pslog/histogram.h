// A histogram of numbers: exact up to 1023, within a thousandth beyond. Its memory does not grow with the log.

#ifndef PSLOG_HISTOGRAM_H
#define PSLOG_HISTOGRAM_H

#include <algorithm>
#include <cstdint>
#include <map>

namespace pslog {

class Histogram {
public:
    /// Negative numbers, which a damaged log may have, count as 0.
    void add(int64_t value) {
        value = std::max<int64_t>(value, 0);
        mGreatest = std::max(mGreatest, value);
        ++mCount;
        int shift = 0;
        while (value >> shift >= 2048) ++shift;
        ++mTimes[value >> shift << shift];
    }

    Histogram& operator+=(const Histogram& other) {
        for (const auto& [value, times] : other.mTimes) mTimes[value] += times;
        mCount += other.mCount;
        mGreatest = std::max(mGreatest, other.mGreatest);
        return *this;
    }

    uint64_t count() const { return mCount; }
    int64_t greatest() const { return mGreatest; }

    /// Smallest number with at least `part` of the numbers at or below it.
    int64_t quantile(double part) const {
        const double wanted = part * static_cast<double>(mCount);
        uint64_t seen = 0;
        for (const auto& [value, times] : mTimes) {
            if (static_cast<double>(seen += times) >= wanted) return value;
        }
        return 0;
    }

private:
    std::map<int64_t, uint64_t> mTimes;
    uint64_t mCount = 0;
    int64_t mGreatest = 0;
};

}  // namespace pslog

#endif  // PSLOG_HISTOGRAM_H
