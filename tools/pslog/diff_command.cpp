// pslog diff: what got better or worse from one log to another.
//
// The logs may have different lengths, so shares are compared. A difference is reported if chance is unlikely to cause
// it.

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>

#include "commands.h"
#include "counted_log.h"
#include "json_output.h"
#include "names.h"
#include "text.h"

namespace pslog {

namespace {

using nlohmann::json;

constexpr double MOST_BY_CHANCE = 2.6;  // standard errors; chance exceeds this once in a hundred comparisons
constexpr uint64_t ENOUGH_WAITS = 20;   // for a 99th percentile
constexpr double MS_OF_A_CHANGE = 2;    // a change of the percentile counts if it exceeds this and the share below
constexpr double SHARE_OF_A_CHANGE = 0.1;

struct Options {
    LogInput a, b;
    bool json = false;
};

enum class Change { NONE, BETTER, WORSE };

struct Difference {
    const char* what;
    Change change;
    std::string a, b;
};

struct TagPair {
    Key key;
    TagRow a, b;
    std::vector<Difference> differences;
};

Change changeOf(double difference, double most) {
    return difference > most ? Change::WORSE : difference < -most ? Change::BETTER : Change::NONE;
}

Difference compareShares(const char* what, uint64_t a, uint64_t ofA, uint64_t b, uint64_t ofB) {
    const auto words = [](uint64_t part, uint64_t of) { return std::to_string(part) + " of " + std::to_string(of); };
    Difference result{what, Change::NONE, words(a, ofA), words(b, ofB)};
    if (ofA == 0 || ofB == 0) return result;
    const auto sizeA = static_cast<double>(ofA), sizeB = static_cast<double>(ofB);
    const double both = static_cast<double>(a + b) / (sizeA + sizeB);
    const double error = std::sqrt(std::max(0.0, both * (1 - both)) * (1 / sizeA + 1 / sizeB));
    result.change = changeOf(static_cast<double>(b) / sizeB - static_cast<double>(a) / sizeA, MOST_BY_CHANCE * error);
    return result;
}

/// Compares time-outs per second, for logs that do not tell the number of gets.
Difference compareRates(const char* what, uint64_t a, double secondsA, uint64_t b, double secondsB) {
    const auto words = [](uint64_t number, double seconds) {
        char text[64];
        std::snprintf(text, sizeof text, "%" PRIu64 " in %.1f s", number, seconds);
        return std::string(text);
    };
    Difference result{what, Change::NONE, words(a, secondsA), words(b, secondsB)};
    if (secondsA <= 0 || secondsB <= 0) return result;
    const auto timesA = static_cast<double>(a), timesB = static_cast<double>(b);
    const double error = std::sqrt(timesA / (secondsA * secondsA) + timesB / (secondsB * secondsB));
    result.change = changeOf(timesB / secondsB - timesA / secondsA, MOST_BY_CHANCE * error);
    return result;
}

Difference compareWaits(const Histogram& a, const Histogram& b) {
    const auto msA = static_cast<double>(a.quantile(0.99)), msB = static_cast<double>(b.quantile(0.99));
    const auto words = [](double ms) { return std::to_string(static_cast<int64_t>(ms)) + " ms"; };
    Difference result{"99 % of the waits", Change::NONE, words(msA), words(msB)};
    if (std::min(a.count(), b.count()) < ENOUGH_WAITS) return result;
    result.change = changeOf(msB - msA, std::max(MS_OF_A_CHANGE, SHARE_OF_A_CHANGE * std::max(msA, msB)));
    return result;
}

int levelOfBoth(const CountedLog& a, const CountedLog& b) {
    return std::min(a.count.level(), b.count.level());
}

double secondsOf(const Count& count) {
    return static_cast<double>(count.lastUs - count.firstUs) / 1e6;
}

/// Compares everything that both logs can tell.
std::vector<Difference> compare(const CountedLog& logA, const TagRow& a, const CountedLog& logB, const TagRow& b) {
    const int level = levelOfBoth(logA, logB);
    std::vector<Difference> all;
    if (level >= level::WAITS) all.push_back(compareWaits(a.waits, b.waits));
    if (level >= level::EVERYTHING) {
        all.push_back(compareShares("time-outs", a.timeouts, a.gets, b.timeouts, b.gets));
    } else if (level >= level::TIMEOUTS) {
        all.push_back(compareRates("time-outs", a.timeouts, secondsOf(logA.count), b.timeouts, secondsOf(logB.count)));
    }
    if (level >= level::EVERYTHING) {
        all.push_back(compareShares("fall-backs", a.fallBacks, a.gets, b.fallBacks, b.gets));
        const uint64_t callsA = a.gets + a.sets + a.failures, callsB = b.gets + b.sets + b.failures;
        all.push_back(compareShares("failures", a.failures, callsA, b.failures, callsB));
    }
    const auto isNone = [](const Difference& difference) { return difference.change == Change::NONE; };
    all.erase(std::remove_if(all.begin(), all.end(), isNone), all.end());
    return all;
}

std::vector<TagPair> pairsOf(const CountedLog& a, const CountedLog& b) {
    std::set<Key> keys;
    for (const CountedLog* log : {&a, &b}) {
        for (const auto& [key, row] : log->counts.rows()) keys.insert(key);
    }
    const auto rowOf = [](const CountedLog& log, const Key& key) {
        const auto found = log.counts.rows().find(key);
        return found == log.counts.rows().end() ? TagRow() : found->second;
    };
    std::vector<TagPair> pairs;
    for (const Key& key : keys) {
        TagPair pair{key, rowOf(a, key), rowOf(b, key), {}};
        pair.differences = compare(a, pair.a, b, pair.b);
        pairs.push_back(std::move(pair));
    }
    return pairs;
}

void printRow(const TagPair& pair, int levelA, int levelB, const Tags& tags, size_t nameWidth) {
    const auto counts = [&](uint64_t TagRow::*member, int leastLevel) {
        std::printf("  %6s %6s", countText(pair.a.*member, levelA, leastLevel).c_str(),
                    countText(pair.b.*member, levelB, leastLevel).c_str());
    };
    const auto waits = [&](int64_t (*number)(const Histogram&)) {
        const auto words = [number](const Histogram& of, int level) {
            return of.count() > 0 ? std::to_string(number(of)) : level >= level::WAITS ? "-" : "?";
        };
        std::printf("  %4s %4s", words(pair.a.waits, levelA).c_str(), words(pair.b.waits, levelB).c_str());
    };
    std::printf("%3" PRId64 " %4" PRId64 " %6" PRId64 " %s", pair.key.cam, pair.key.pipe, pair.key.tag,
                padded(nameOf(pair.key.tag, tags), nameWidth).c_str());
    counts(&TagRow::gets, level::EVERYTHING);
    counts(&TagRow::fallBacks, level::EVERYTHING);
    counts(&TagRow::timeouts, level::TIMEOUTS);
    waits([](const Histogram& of) { return static_cast<int64_t>(of.count()); });
    waits([](const Histogram& of) { return of.quantile(0.5); });
    waits([](const Histogram& of) { return of.quantile(0.99); });
    waits([](const Histogram& of) { return of.greatest(); });
    std::putchar('\n');
}

void printDifferences(const std::vector<TagPair>& pairs, Change change, const char* title, const Tags& tags) {
    bool isFirst = true;
    for (const TagPair& pair : pairs) {
        for (const Difference& difference : pair.differences) {
            if (difference.change != change) continue;
            if (isFirst) std::printf("\n%s\n", title);
            isFirst = false;
            std::printf("  camera %" PRId64 " pipe %" PRId64 " %s: %s, %s -> %s\n", pair.key.cam, pair.key.pipe,
                        labelOf(pair.key.tag, tags).c_str(), difference.what, difference.a.c_str(),
                        difference.b.c_str());
        }
    }
}

void print(const CountedLog& a, const CountedLog& b, const std::vector<TagPair>& pairs, const Tags& tags) {
    const int levelA = a.count.level(), levelB = b.count.level();
    for (const CountedLog* log : {&a, &b}) {
        const std::string level = levelText(log->count.level());
        if (!level.empty()) std::printf("%s: %s\n", log == &a ? "A" : "B", level.c_str());
    }
    const size_t nameWidth = std::max(nameWidthOf(a.counts.rows(), tags), nameWidthOf(b.counts.rows(), tags));
    const std::string gap(nameWidth - MIN_NAME_WIDTH, ' ');
    std::printf(
        "%s                                        gets     fall-backs      time-outs      waits, ms: median"
        "       99 %%        max\n"
        "cam pipe    tag name%s                 A      B       A      B       A      B     A    B     A    B"
        "     A    B     A    B\n",
        gap.c_str(), gap.c_str());
    for (const TagPair& pair : pairs) printRow(pair, levelA, levelB, tags, nameWidth);
    printDifferences(pairs, Change::WORSE, "worse", tags);
    printDifferences(pairs, Change::BETTER, "better", tags);
    const auto isSame = [](const TagPair& pair) { return pair.differences.empty(); };
    if (std::all_of(pairs.begin(), pairs.end(), isSame)) {
        const bool isAll = levelOfBoth(a, b) >= level::EVERYTHING;
        std::printf("\nno difference beyond chance%s\n", isAll ? "" : " in what both logs can tell");
    }
}

json sideOf(const TagRow& row, int level) {
    json result = {{"gets", jsonOfCount(row.gets, level, level::EVERYTHING)},
                   {"fall_backs", jsonOfCount(row.fallBacks, level, level::EVERYTHING)},
                   {"time_outs", jsonOfCount(row.timeouts, level, level::TIMEOUTS)},
                   {"waits", jsonOfCount(row.waits.count(), level, level::WAITS)},
                   {"failed", row.failures}};
    if (row.waits.count() > 0) result["waits_ms"] = jsonOfWaits(row.waits);
    return result;
}

void printJson(const CountedLog& a, const CountedLog& b, const std::vector<TagPair>& pairs, const Tags& tags) {
    json result = {{"a", jsonOf(a.count)}, {"b", jsonOf(b.count)}, {"tags", json::array()}};
    for (const TagPair& pair : pairs) {
        json entry = jsonOf(pair.key, tags);
        entry["a"] = sideOf(pair.a, a.count.level());
        entry["b"] = sideOf(pair.b, b.count.level());
        entry["worse"] = entry["better"] = json::array();
        for (const Difference& difference : pair.differences) {
            entry[difference.change == Change::WORSE ? "worse" : "better"].push_back(difference.what);
        }
        result["tags"].push_back(entry);
    }
    pslog::printJson(stdout, result, 2);
}

int run(const Options& options) {
    if (options.a.name == "-" && options.b.name == "-") throw std::runtime_error("A and B are both standard input");
    const CountedLog a(options.a), b(options.b);
    const std::vector<TagPair> pairs = pairsOf(a, b);
    Tags tags = a.tags;
    tags.insert(b.tags.begin(), b.tags.end());
    (options.json ? printJson : print)(a, b, pairs, tags);
    return std::max(resultOf(a.count), resultOf(b.count));
}

}  // namespace

void addDiffCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("diff", "show for each tag what got better or worse between two logs",
                                     [options] { return run(*options); });
    command.flag("--json", options->json, "print JSON");
    command.option("A", options->a.name, "the log before; '-' is standard input").required();
    command.option("B", options->b.name, "the log after").required();
}

}  // namespace pslog
