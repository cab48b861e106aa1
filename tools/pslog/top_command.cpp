// pslog top: shows what happens now, from a log that is still being written.

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <deque>
#include <memory>

#include "commands.h"
#include "json_output.h"
#include "names.h"
#include "tag_counts.h"
#include "text.h"

namespace pslog {

namespace {

using nlohmann::json;
using SteadyClock = std::chrono::steady_clock;

constexpr size_t SLOTS = 10;
constexpr int LINES_AROUND = 4;  // the lines above the rows, and the cursor's line

struct Options {
    LogInput log;
    bool json = false;
};

/// What happened between two redraws.
struct Slot {
    TagCounts::Rows rows;
    double seconds;
};

TagCounts::Rows& operator+=(TagCounts::Rows& rows, const TagCounts::Rows& more) {
    for (const auto& [key, row] : more) rows[key] += row;
    return rows;
}

std::string worstText(const WorstFrame& worst) {
    if (worst.frame == 0) return "-";
    const std::string frame = std::to_string(worst.frame) + ": ";
    if (worst.byFrame0) return frame + "frame 0";
    return frame + (worst.off > 0 ? std::to_string(worst.off) + " back" : std::to_string(worst.waitMs) + " ms");
}

class Top {
public:
    explicit Top(bool isJson) : mIsJson(isJson), mIsTerminal(!isJson && isatty(STDOUT_FILENO) != 0) {}

    TagCounts& counts() { return mCounts; }

    void show(const Count& count, const Tags& tags) {
        addSlot(count);
        if (mIsJson) {
            printJson(count, tags);
        } else if (mIsTerminal) {
            draw(count, tags);
        } else {
            printLines(count, tags);
        }
        std::fflush(stdout);
    }

private:
    /// If a log is read faster than it was written, the rates are computed with the log's own times.
    void addSlot(const Count& count) {
        const SteadyClock::time_point now = SteadyClock::now();
        const double passed = std::chrono::duration<double>(now - mLastShown).count();
        const int64_t lastUs = mHasTime ? mLastUs : count.firstUs;
        const double logged = static_cast<double>(count.lastUs - lastUs) / 1e6;
        mLastShown = now;
        mHasTime = count.clock != Clock::NONE;
        mLastUs = count.lastUs;
        mSlots.push_back({mCounts.takeRows(), std::max(passed, logged)});
        mTotal += mSlots.back().rows;
        if (mSlots.size() > SLOTS) mSlots.pop_front();
    }

    TagCounts::Rows recentRows() const {
        TagCounts::Rows rows;
        for (const Slot& slot : mSlots) rows += slot.rows;
        return rows;
    }

    double recentSeconds() const {
        double seconds = 0;
        for (const Slot& slot : mSlots) seconds += slot.seconds;
        return seconds;
    }

    std::string timeText(const Count& count) const {
        if (count.clock != Clock::NONE) return clockText(count.lastUs, count.clock);
        return "line " + std::to_string(count.lines);
    }

    /// The rows, those with the most trouble first.
    std::vector<std::pair<Key, const TagRow*>> sorted(const TagCounts::Rows& recent) const {
        auto rows = inOrder(mTotal);
        const auto troubles = [&recent](const Key& key) {
            const auto found = recent.find(key);
            return found == recent.end() ? 0 : found->second.fallBacks + found->second.timeouts;
        };
        std::stable_sort(rows.begin(), rows.end(),
                         [&](const auto& a, const auto& b) { return troubles(a.first) > troubles(b.first); });
        return rows;
    }

    void printHeader(const std::string& first) const {
        const std::string gap(mNameWidth - MIN_NAME_WIDTH, ' ');
        std::printf(
            "%*s%s                                       last %2zu s                                waits, ms"
            "                in all\n",
            static_cast<int>(first.size()), "", gap.c_str(), SLOTS);
        std::printf(
            "%s cam pipe    tag name%s            sets/s  gets/s fall-backs t-outs number med 99 %%  max"
            " fall-backs t-outs worst frame\n",
            first.c_str(), gap.c_str());
    }

    void printRow(const Key& key, const TagRow& recent, const TagRow& total, int level, const Tags& tags) const {
        const double seconds = recentSeconds();
        const auto rate = [&](uint64_t number) {
            char text[32] = "?";
            if (level >= level::EVERYTHING) {
                std::snprintf(text, sizeof text, "%.1f", seconds > 0 ? static_cast<double>(number) / seconds : 0.0);
            }
            std::printf(" %7s", text);
        };
        const auto wait = [&](int width, int64_t number) {
            const bool has = recent.waits.count() > 0;
            std::printf(" %*s", width, has ? std::to_string(number).c_str() : level >= level::WAITS ? "-" : "?");
        };
        const auto troubles = [&](const TagRow& row) {
            std::printf(" %10s %6s", countText(row.fallBacks, level, level::EVERYTHING).c_str(),
                        countText(row.timeouts, level, level::TIMEOUTS).c_str());
        };
        std::printf(" %3" PRId64 " %4" PRId64 " %6" PRId64 " %s", key.cam, key.pipe, key.tag,
                    padded(nameOf(key.tag, tags), mNameWidth).c_str());
        rate(recent.sets);
        rate(recent.gets);
        troubles(recent);
        wait(6, static_cast<int64_t>(recent.waits.count()));
        wait(3, recent.waits.quantile(0.5));
        wait(4, recent.waits.quantile(0.99));
        wait(4, recent.waits.greatest());
        troubles(total);
        std::printf(" %s\n", worstText(total.worst).c_str());
    }

    void draw(const Count& count, const Tags& tags) {
        winsize size{};
        const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > LINES_AROUND;
        size_t room = isKnown ? static_cast<size_t>(size.ws_row - LINES_AROUND) : SIZE_MAX;
        std::printf("\033[H\033[J\033[?7l%s, %" PRIu64 " lines, %" PRIu64 " of the store, %" PRIu64 " damaged\n",
                    timeText(count).c_str(), count.lines, count.used, count.damaged);
        mNameWidth = nameWidthOf(mTotal, tags);
        printHeader("");
        const TagCounts::Rows recent = recentRows();
        for (const auto& [key, total] : sorted(recent)) {
            if (room-- == 0) break;
            const auto found = recent.find(key);
            printRow(key, found == recent.end() ? TagRow() : found->second, *total, count.level(), tags);
        }
        std::printf("\033[?7h");
    }

    /// Prints a line for each tag that was used since the last lines; above the first lines, and again when a longer
    /// name makes its column wider, the header.
    void printLines(const Count& count, const Tags& tags) {
        const std::string time = timeText(count);
        const size_t nameWidth = nameWidthOf(mTotal, tags);
        if (nameWidth > mNameWidth) {
            mNameWidth = nameWidth;
            printHeader(padded("time", time.size()));
        }
        const TagCounts::Rows recent = recentRows();
        for (const auto& [key, total] : inOrder(mTotal)) {
            if (mSlots.back().rows.count(key) == 0) continue;
            std::printf("%s", time.c_str());
            printRow(key, recent.at(key), *total, count.level(), tags);
        }
    }

    void printJson(const Count& count, const Tags& tags) const {
        const int level = count.level();
        const double seconds = recentSeconds();
        json result = {{"log", jsonOf(count)}, {"seconds", seconds}, {"tags", json::array()}};
        const TagCounts::Rows recent = recentRows();
        for (const auto& [key, total] : inOrder(mTotal)) {
            const auto found = recent.find(key);
            const TagRow now = found == recent.end() ? TagRow() : found->second;
            json entry = jsonOf(key, tags);
            const auto rate = [&](uint64_t number) {
                return level >= level::EVERYTHING && seconds > 0 ? json(static_cast<double>(number) / seconds) : json();
            };
            entry["sets_per_second"] = rate(now.sets);
            entry["gets_per_second"] = rate(now.gets);
            entry["fall_backs"] = jsonOfCount(now.fallBacks, level, level::EVERYTHING);
            entry["time_outs"] = jsonOfCount(now.timeouts, level, level::TIMEOUTS);
            entry["waits"] = jsonOfCount(now.waits.count(), level, level::WAITS);
            if (now.waits.count() > 0) entry["waits_ms"] = jsonOfWaits(now.waits);
            entry["all_fall_backs"] = jsonOfCount(total->fallBacks, level, level::EVERYTHING);
            entry["all_time_outs"] = jsonOfCount(total->timeouts, level, level::TIMEOUTS);
            const WorstFrame& worst = total->worst;
            if (worst.frame != 0) {
                entry["worst_frame"] = {{"frame", worst.frame}, {"frames_off", worst.off}, {"waited_ms", worst.waitMs}};
            }
            result["tags"].push_back(entry);
        }
        pslog::printJson(stdout, result, -1);
    }

    bool mIsJson;
    bool mIsTerminal;
    size_t mNameWidth = 0;  ///< of the header printed last; 0 if none was
    TagCounts mCounts;
    std::deque<Slot> mSlots;  ///< the newest last
    TagCounts::Rows mTotal;
    SteadyClock::time_point mLastShown = SteadyClock::now();
    bool mHasTime = false;
    int64_t mLastUs = 0;
};

int run(const Options& options) {
    Top top(options.json);
    Interpreter interpreter(top.counts());
    const auto show = [&](const Count& count) { top.show(count, interpreter.tags()); };
    const Count count = readLog(options.log, interpreter, show);
    if (count.used > 0) show(count);
    return resultOf(count);
}

}  // namespace

void addTopCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("top", "show once a second what happens to each tag, while the log is written",
                                     [options] { return run(*options); });
    command.flag("--json", options->json, "print a line of JSON each second");
    addLogInput(command, options->log);
}

}  // namespace pslog
