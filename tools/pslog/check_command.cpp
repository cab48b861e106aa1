// pslog check: checks a log against limits, for a build farm.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>

#include "commands.h"
#include "counted_log.h"
#include "json_output.h"
#include "names.h"

namespace pslog {

namespace {

using nlohmann::json;

struct Options {
    LogInput log;
    std::optional<double> mostTimeouts, mostFallBacks, greatestWaitP99;
    bool json = false;
};

struct Finding {
    const char* name;
    double limit;
    int leastLevel;                            ///< lowest log level that can tell the value
    double value = 0;                          ///< sum over all tags, or the greatest
    std::vector<std::pair<Key, double>> tags;  ///< tags that contribute to the value or exceed the limit

    bool isKnown(int level) const { return level >= leastLevel; }
    bool isBroken(int level) const { return value > limit || !isKnown(level); }
};

Finding sumOf(const CountedLog& log, const char* name, double limit, int leastLevel, uint64_t TagRow::*member) {
    Finding finding{name, limit, leastLevel, 0, {}};
    for (const auto& [key, row] : inOrder(log.counts.rows())) {
        const auto number = static_cast<double>(row->*member);
        finding.value += number;
        if (number > 0) finding.tags.emplace_back(key, number);
    }
    return finding;
}

Finding greatestWaitP99(const CountedLog& log, double limit) {
    Finding finding{"wait-p99", limit, level::WAITS, 0, {}};
    for (const auto& [key, row] : inOrder(log.counts.rows())) {
        const auto ms = static_cast<double>(row->waits.quantile(0.99));
        finding.value = std::max(finding.value, ms);
        if (ms > limit) finding.tags.emplace_back(key, ms);
    }
    return finding;
}

std::vector<Finding> findingsOf(const CountedLog& log, const Options& options) {
    std::vector<Finding> findings;
    if (options.mostTimeouts) {
        findings.push_back(sumOf(log, "time-outs", *options.mostTimeouts, level::TIMEOUTS, &TagRow::timeouts));
    }
    if (options.mostFallBacks) {
        findings.push_back(sumOf(log, "fall-backs", *options.mostFallBacks, level::EVERYTHING, &TagRow::fallBacks));
    }
    if (options.greatestWaitP99) findings.push_back(greatestWaitP99(log, *options.greatestWaitP99));
    return findings;
}

void print(const std::vector<Finding>& findings, const CountedLog& log) {
    const int level = log.count.level();
    for (const Finding& finding : findings) {
        const bool isBroken = finding.isBroken(level);
        const std::string value = countText(static_cast<uint64_t>(finding.value), level, finding.leastLevel) +
                                  (finding.leastLevel == level::WAITS ? " ms" : "");
        std::printf("%s %s: %s, at most %g\n", isBroken ? "BROKEN" : "ok    ", finding.name, value.c_str(),
                    finding.limit);
        if (!isBroken) continue;
        for (const auto& [key, part] : finding.tags) {
            std::printf("           camera %lld pipe %lld %s: %g\n", static_cast<long long>(key.cam),
                        static_cast<long long>(key.pipe), labelOf(key.tag, log.tags).c_str(), part);
        }
        if (finding.isKnown(level) || level == 0) continue;
        std::printf("           level %d is needed; %s\n", finding.leastLevel, levelText(level).c_str());
    }
}

void printJson(const std::vector<Finding>& findings, const CountedLog& log, bool isGood) {
    const int level = log.count.level();
    json result = {{"ok", isGood}, {"log", jsonOf(log.count)}, {"limits", json::array()}};
    for (const Finding& finding : findings) {
        json entry = {{"name", finding.name}, {"limit", finding.limit}, {"ok", !finding.isBroken(level)}};
        entry["value"] = finding.isKnown(level) || finding.value > 0 ? json(finding.value) : json();
        entry["tags"] = json::array();
        for (const auto& [key, part] : finding.tags) {
            json tag = jsonOf(key, log.tags);
            tag["value"] = part;
            entry["tags"].push_back(tag);
        }
        result["limits"].push_back(entry);
    }
    pslog::printJson(stdout, result, 2);
}

int run(const Options& options) {
    const CountedLog log(options.log);
    const std::vector<Finding> findings = findingsOf(log, options);
    const auto isBroken = [&](const Finding& finding) { return finding.isBroken(log.count.level()); };
    const bool isGood = resultOf(log.count) == 0 && std::none_of(findings.begin(), findings.end(), isBroken);
    if (options.json) {
        printJson(findings, log, isGood);
    } else {
        print(findings, log);
    }
    return isGood ? 0 : 1;
}

}  // namespace

void addCheckCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("check", "check a log against limits; exit status 1 if one is exceeded",
                                     [options] { return run(*options); });
    command.limit("--max-time-outs N", options->mostTimeouts, "allowed number of waits that timed out");
    command.limit("--max-fall-backs N", options->mostFallBacks, "allowed number of gets that another frame answered");
    command.limit("--max-wait-p99 MS", options->greatestWaitP99, "allowed 99th percentile of a tag's waits, in ms");
    command.needsOneOf({"--max-time-outs", "--max-fall-backs", "--max-wait-p99"});
    command.flag("--json", options->json, "print JSON");
    addLogInput(command, options->log);
}

}  // namespace pslog
