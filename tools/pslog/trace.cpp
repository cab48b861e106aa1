// The timeline as trace events: cameras are processes, tags are threads. Waits for one tag may overlap, which a thread
// cannot show; then they go to further threads of the same name.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "names.h"
#include "timeline.h"

namespace pslog {

namespace {

using nlohmann::json;

constexpr int MOST_SLOTS = 16;

json eventOf(const char* phase, const std::string& name, int64_t cam, int thread) {
    return {{"ph", phase}, {"name", name}, {"pid", cam}, {"tid", thread}};
}

struct Slot {
    int64_t busyUntil = INT64_MIN;
};

class Writer {
public:
    Writer(const Timeline& timeline, const Tags& tags) : mTimeline(timeline), mTags(tags) {}

    json events() {
        for (const auto& [cam, rows] : mTimeline.cameras()) {
            json name = eventOf("M", "process_name", cam, 0);
            name["args"]["name"] = "camera " + std::to_string(cam);
            mEvents.push_back(name);
            for (const Key& lane : mTimeline.lanesOf(cam)) writeLane(lane, rows);
        }
        return std::move(mEvents);
    }

private:
    using Placed = std::pair<uint32_t, Mark>;

    void writeLane(const Key& lane, const std::map<uint32_t, FrameRow>& rows) {
        std::vector<Placed> marks;
        for (const auto& [frame, row] : rows) {
            const auto found = row.lanes.find(lane);
            if (found == row.lanes.end()) continue;
            for (const Mark& mark : found->second) marks.emplace_back(frame, mark);
        }
        std::stable_sort(marks.begin(), marks.end(),
                         [](const Placed& a, const Placed& b) { return a.second.startUs < b.second.startUs; });
        std::vector<Slot> slots;
        for (const auto& [frame, mark] : marks) writeMark(lane, frame, mark, slots);
        for (size_t i = 0; i < slots.size(); ++i) {
            json name = eventOf("M", "thread_name", lane.cam, mThread + static_cast<int>(i));
            name["args"]["name"] = "pipe " + std::to_string(lane.pipe) + " " + labelOf(lane.tag, mTags);
            mEvents.push_back(name);
        }
        mThread += MOST_SLOTS;
    }

    void writeMark(const Key& lane, uint32_t frame, const Mark& mark, std::vector<Slot>& slots) {
        static constexpr const char* NAMES[] = {"wait", "time-out", "value", "answered by an earlier frame",
                                                "answered by frame 0"};
        const bool lasts = mark.endUs > mark.startUs;
        auto slot = std::find_if(slots.begin(), slots.end(),
                                 [&](const Slot& s) { return !lasts || s.busyUntil <= mark.startUs; });
        if (slot == slots.end() && slots.size() < MOST_SLOTS) slot = slots.insert(slots.end(), Slot{});
        if (slot == slots.end()) slot = slots.begin();
        const int thread = mThread + static_cast<int>(slot - slots.begin());
        json event = eventOf(lasts ? "X" : "i", "frame " + std::to_string(frame), lane.cam, thread);
        event["cat"] = NAMES[mark.shape];
        event["ts"] = mark.startUs;
        event["args"] = {{"frame", frame}, {"what", NAMES[mark.shape]}};
        if (mark.shape == Mark::EARLIER) event["args"]["answered by"] = mark.other;
        if (lasts) {
            event["dur"] = mark.endUs - mark.startUs;
            slot->busyUntil = mark.endUs;
            if (mark.shape == Mark::TIMED_OUT) event["cname"] = "terrible";
        } else {
            event["s"] = "t";
        }
        mEvents.push_back(event);
    }

    const Timeline& mTimeline;
    const Tags& mTags;
    json mEvents = json::array();
    int mThread = 1;
};

}  // namespace

void writeTrace(std::ostream& out, const Timeline& timeline, const Interpreter& log) {
    json trace;
    trace["traceEvents"] = Writer(timeline, log.tags()).events();
    trace["displayTimeUnit"] = "ms";
    trace["otherData"]["times"] = log.hasTimes() ? "of the log" : "made up of the order of the lines and the waits";
    // Names come from the log, and need not be UTF-8.
    out << trace.dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
}

}  // namespace pslog
