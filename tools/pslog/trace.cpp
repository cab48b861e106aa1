// The timeline as trace events. Cameras are processes. Threads are those of the log. If the log has none, each tag has
// a thread. If waits for the tag overlap, it has several threads of the same name, because one thread cannot show
// overlapping waits. An arrow leads from each delivery to the waits that it ended.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "names.h"
#include "timeline.h"

namespace pslog {

namespace {

using nlohmann::json;

struct Placed {
    uint32_t frame;
    const Mark* mark;
    uint32_t thread;
};

class Writer {
public:
    Writer(const Timeline& timeline, const Tags& tags) : mTimeline(timeline), mTags(tags) {}

    json events() {
        for (const auto& [cam, camera] : mTimeline.cameras()) {
            mProcess = cam + 1;  // 0 is the idle process in trace viewers
            write("M", "process_name", 0, 0)["args"]["name"] = "camera " + std::to_string(cam);
            for (const auto& [id, row] : camera.rows) writeArrows(writeRow(id.frame, row));
            for (size_t lane = 0; lane < mTimeline.lanes().size(); ++lane) {
                if (mTimeline.lanes()[lane].key.cam == cam) writeCounts(lane, camera);
            }
            nameThreads();
        }
        return std::move(mEvents);
    }

private:
    json& write(const char* phase, const std::string& name, uint32_t thread, int64_t timeUs) {
        mEvents.push_back({{"ph", phase}, {"name", name}, {"pid", mProcess}, {"tid", thread}, {"ts", timeUs}});
        return mEvents.back();
    }

    std::string tagOf(size_t lane) const {
        const int64_t tag = mTimeline.lanes()[lane].key.tag;
        const std::string name = nameOf(tag, mTags);
        return name == "-" ? "tag " + std::to_string(tag) : name;
    }

    std::string trackOf(size_t lane) const {
        return "pipe " + std::to_string(mTimeline.lanes()[lane].key.pipe) + " " + tagOf(lane);
    }

    std::vector<Placed> writeRow(uint32_t frame, const FrameRow& row) {
        std::vector<Placed> placed;
        for (const Mark& mark : row.marks) {
            placed.push_back({frame, &mark, threadOf(mark)});
            writeMark(placed.back());
            if (mark.isLoud()) writeFlicker(placed.back());
        }
        return placed;
    }

    /// For a log without threads: the first free thread of the tag.
    uint32_t threadOf(const Mark& mark) {
        constexpr uint32_t PER_LANE = 16;
        if (mark.thread != 0) {
            Thread& thread = mThreads[mark.thread];
            if (mark.shape == Mark::VALUE) thread.gives.insert(mark.lane);
            return mark.thread;
        }
        const uint32_t first = static_cast<uint32_t>(mark.lane) * PER_LANE + 1;
        uint32_t number = first;
        while (mark.isWait() && number + 1 < first + PER_LANE && mThreads[number].busyUntil > mark.startUs) ++number;
        Thread& thread = mThreads[number];
        if (mark.isWait()) thread.busyUntil = mark.endUs;
        thread.lane = mark.lane;
        return number;
    }

    void writeMark(const Placed& placed) {
        const Mark& mark = *placed.mark;
        const char* const done = mark.shape == Mark::VALUE ? mark.synchronous ? "deliver " : "set "
                                 : mark.isWait()           ? "wait for "
                                                           : "read ";
        json& event =
            write("X", done + tagOf(mark.lane) + " of " + std::to_string(placed.frame), placed.thread, mark.startUs);
        event["dur"] = std::max<int64_t>(1, mark.endUs - mark.startUs);
        event["cat"] = mark.shape == Mark::TIMED_OUT ? "time-out"
                       : mark.isWait()               ? "wait"
                       : mark.shape == Mark::READ    ? "read"
                                                     : "value";
        event["args"] = {{"frame", placed.frame},
                         {"pipe", mTimeline.lanes()[mark.lane].key.pipe},
                         {"tag", mTimeline.lanes()[mark.lane].key.tag}};
        if (mark.answer == Answer::EARLIER) event["args"]["answered by frame"] = mark.other;
        if (mark.answer == Answer::FRAME_0) event["args"]["answered by frame"] = 0;
        if (mark.isLoud()) event["cname"] = "terrible";
    }

    void writeFlicker(const Placed& placed) {
        const Mark& mark = *placed.mark;
        std::string what = "flicker: " + tagOf(mark.lane) + " of " + std::to_string(placed.frame);
        if (mark.answer == Answer::EARLIER) what += " was that of " + std::to_string(mark.other);
        if (mark.answer == Answer::FRAME_0) what += " was frame 0's";
        if (!mark.isFallBack()) what += " came after the time-out";
        json& event = write("i", what, placed.thread, mark.endUs);
        event["cat"] = "flicker";
        event["s"] = "p";
        event["cname"] = "terrible";
    }

    /// The end of an arrow is attached to the slice that contains it.
    void writeArrows(const std::vector<Placed>& row) {
        for (const Placed& wait : row) {
            if (wait.mark->shape != Mark::WAIT) continue;
            const Placed* delivery = nullptr;
            for (const Placed& value : row) {
                const Mark& mark = *value.mark;
                if (mark.shape == Mark::VALUE && mark.synchronous && mark.lane == wait.mark->lane &&
                    mark.endUs <= wait.mark->endUs && mark.endUs >= wait.mark->startUs) {
                    delivery = &value;
                }
            }
            if (delivery == nullptr) continue;
            const int64_t endUs = std::max(wait.mark->startUs, wait.mark->endUs - 1);
            for (const auto& [phase, thread, timeUs] :
                 {std::tuple("s", delivery->thread, std::min(endUs, delivery->mark->endUs)),
                  std::tuple("f", wait.thread, endUs)}) {
                json& arrow = write(phase, "wakes", thread, timeUs);
                arrow["cat"] = "delivery";
                arrow["id"] = mArrows;
                if (*phase == 'f') arrow["bp"] = "e";
            }
            ++mArrows;
        }
    }

    /// Counters: how many gets wait, and how many fell back so far.
    void writeCounts(size_t lane, const Camera& camera) {
        struct Step {
            int64_t timeUs;
            int waits, fallBacks;
        };
        std::vector<Step> steps;
        for (const auto& [id, row] : camera.rows) {
            for (const Mark& mark : row.marks) {
                if (mark.lane != lane) continue;
                if (mark.isWait()) steps.push_back({mark.startUs, 1, 0});
                if (mark.isWait() || mark.isFallBack())
                    steps.push_back({mark.endUs, mark.isWait() ? -1 : 0, mark.isFallBack() ? 1 : 0});
            }
        }
        std::stable_sort(steps.begin(), steps.end(), [](const Step& a, const Step& b) { return a.timeUs < b.timeUs; });
        int waits = 0, fallBacks = 0;
        const std::string name = trackOf(lane);
        for (const Step& step : steps) {
            waits += step.waits;
            fallBacks += step.fallBacks;
            write("C", name, 0, step.timeUs)["args"] = {{"waits", waits}, {"fall-backs", fallBacks}};
        }
    }

    struct Thread {
        std::set<size_t> gives;  ///< lanes that the thread sets
        size_t lane = SIZE_MAX;  ///< the lane that the thread stands for
        int64_t busyUntil = INT64_MIN;
    };

    /// " gives gain, history and 2 more"
    std::string giftsOf(const Thread& thread) const {
        constexpr size_t MOST = 3;
        std::string text;
        size_t named = 0;
        for (const size_t lane : thread.gives) {
            if (named == MOST) return text + " and " + std::to_string(thread.gives.size() - MOST) + " more";
            text += (named++ == 0 ? " gives " : ", ") + tagOf(lane);
        }
        return text;
    }

    /// Names threads after the tags that they set, because the log has no names of threads.
    void nameThreads() {
        for (const auto& [number, thread] : mThreads) {
            std::string name = thread.lane != SIZE_MAX ? trackOf(thread.lane) : std::to_string(number);
            write("M", "thread_name", number, 0)["args"]["name"] = name + giftsOf(thread);
        }
        mThreads.clear();
    }

    const Timeline& mTimeline;
    const Tags& mTags;
    json mEvents = json::array();
    std::map<uint32_t, Thread> mThreads;
    int64_t mProcess = 0;
    uint64_t mArrows = 0;
};

}  // namespace

void writeTrace(std::ostream& out, const Timeline& timeline, const Interpreter& log) {
    json trace;
    trace["traceEvents"] = Writer(timeline, log.tags()).events();
    trace["displayTimeUnit"] = "ms";
    trace["otherData"]["times"] = log.hasTimes() ? "of the log" : "made up of the order of the lines and the waits";
    // Names come from the log, and may not be UTF-8.
    out << trace.dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
}

}  // namespace pslog
