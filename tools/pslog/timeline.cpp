// See timeline.h: the collecting.

#include "timeline.h"

#include <algorithm>
#include <set>

#include "paramset.h"

namespace pslog {

namespace {

/// Nobody tells more apart in one place.
constexpr size_t MOST_MARKS = 64;

bool markOf(const Event& event, Mark& mark) {
    mark = {Mark::VALUE, event.timeUs, event.timeUs, event.other};
    switch (event.type) {
        case EventType::SET: return true;
        case EventType::WAIT:
            mark.shape = event.timedOut ? Mark::TIMED_OUT : Mark::WAIT;
            mark.startUs -= event.count * 1000;
            return true;
        case EventType::GET:
            mark.shape = event.answer == Answer::EARLIER ? Mark::EARLIER : Mark::FRAME_0;
            return event.answer == Answer::EARLIER || event.answer == Answer::FRAME_0;
        default: return false;
    }
}

}  // namespace

void Timeline::take(const Event& event, const Tags& tags) {
    Mark mark{};
    if (event.frame == 0 || event.frame > mLast || event.key.tag == METADATA_TAG || !markOf(event, mark)) return;
    // A tag without history is frame 0's always.
    const auto info = tags.find(event.key.tag);
    if (mark.shape == Mark::FRAME_0 && info != tags.end() && info->second.type == 1) return;

    std::map<uint32_t, FrameRow>& rows = mCameras[event.key.cam];
    FrameRow& row = rows.try_emplace(event.frame, FrameRow{mark.startUs, {}}).first->second;
    row.startUs = std::min(row.startUs, mark.startUs);
    std::vector<Mark>& marks = row.lanes[event.key];
    if (marks.size() < MOST_MARKS) marks.push_back(mark);
    if (rows.size() > mFrames) rows.erase(rows.begin());
}

std::vector<Key> Timeline::lanesOf(int64_t cam) const {
    std::set<Key> lanes;
    for (const auto& [frame, row] : mCameras.at(cam)) {
        for (const auto& [key, marks] : row.lanes) lanes.insert(key);
    }
    return {lanes.begin(), lanes.end()};
}

}  // namespace pslog
