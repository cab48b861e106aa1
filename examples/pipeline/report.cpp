// See report.h.

#include "report.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>

namespace pipeline {

namespace {

constexpr size_t ERROR_FRAMES = 10;

void printHeading(std::FILE* out) {
    std::fprintf(out,
                 "                values          answered by              waits, ms                 time-   fall-\n");
    std::fprintf(
        out, "module        set    got   itself earlier frame 0  waits median   99 %%    max   outs   backs  failed\n");
}

void printRow(std::FILE* out, const char* name, const Traffic& traffic, uint64_t fallbacks) {
    const Spread waits = spreadOf(traffic.waitsMs);
    std::fprintf(out, "%-10s %6" PRIu64 " %6" PRIu64 "  %7" PRIu64 " %7" PRIu64 " %7" PRIu64, name, traffic.sets,
                 traffic.gets, traffic.byItself, traffic.byEarlier, traffic.byFrame0);
    std::fprintf(out, " %6zu %6.2f %6.2f %6.1f", traffic.waitsMs.size(), waits.median, waits.percentile99, waits.max);
    std::fprintf(out, " %6" PRIu64 "  %6" PRIu64 "  %6" PRIu64 "\n", traffic.timeouts, fallbacks, traffic.failures);
}

void printLuma(std::FILE* out, const std::vector<double>& meanLuma) {
    const double target = DEFAULT_TUNING.targetLuma;
    const auto count = static_cast<std::ptrdiff_t>(std::min(ERROR_FRAMES, meanLuma.size()));
    if (count == 0) return;
    std::fprintf(out, "mean luma: target %.1f, off by %.1f over the first %td frames, by %.1f over the last %td\n",
                 target, meanError(meanLuma.begin(), meanLuma.begin() + count, target), count,
                 meanError(meanLuma.end() - count, meanLuma.end(), target), count);
}

}  // namespace

Spread spreadOf(std::vector<double> values) {
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    const auto rank = [&values](double fraction) {
        const double count = std::ceil(fraction * static_cast<double>(values.size()));
        return values[static_cast<size_t>(std::max(count, 1.0)) - 1];
    };
    return {rank(0.5), rank(0.99), values.back()};
}

double meanError(std::vector<double>::const_iterator begin, std::vector<double>::const_iterator end, double target) {
    double sum = 0;
    for (auto value = begin; value != end; ++value) sum += std::fabs(*value - target);
    return begin == end ? 0 : sum / static_cast<double>(end - begin);
}

void printReport(std::FILE* out, const Camera& camera, double seconds) {
    const Isp& isp = camera.isp();
    std::fprintf(out, "camera %u: %u frames of %ux%u in %.2f s, %.1f per second\n\n", camera.id(), isp.framesDone(),
                 camera.format().width, camera.format().height, seconds, isp.framesDone() / seconds);
    printHeading(out);
    printRow(out, "set-up", camera.setUpTraffic(), 0);
    Traffic all;
    for (const Module* module : camera.modules()) {
        const Traffic& traffic = module->traffic();
        printRow(out, module->name(), traffic, module->fallbacks());
        all.metadataSets += traffic.metadataSets;
        all.metadataGets += traffic.metadataGets;
        all.metadataByItself += traffic.metadataByItself;
    }
    std::fprintf(out, "\n");
    printLuma(out, isp.meanLuma());
    std::fprintf(out, "metadata: %" PRIu64 " set, %" PRIu64 " got, %" PRIu64 " of the frame itself\n", all.metadataSets,
                 all.metadataGets, all.metadataByItself);
    const Spread latency = spreadOf(isp.latencyMs());
    std::fprintf(out, "from sensor to output: median %.2f ms, 99 %% %.2f ms, max %.1f ms\n", latency.median,
                 latency.percentile99, latency.max);
    std::fprintf(out, "external processor: programmed %u times\n", isp.programmed());
    if (camera.exposure().skipped() != 0) {
        std::fprintf(out, "exposure skipped %" PRIu64 " frames, because it was too late for them\n",
                     camera.exposure().skipped());
    }
    std::fprintf(out, "\n");
}

}  // namespace pipeline
