// See timeline.h. This file collects the rows; svg.cpp and trace.cpp write them.

#include "timeline.h"

#include <algorithm>
#include <charconv>

#include "names.h"
#include "paramset.h"

namespace pslog {

namespace {

/// Number of rows shown before and after one that flickers.
constexpr uint32_t SURROUNDINGS = 4;
/// Number of rows shown of a log without a flicker.
constexpr size_t QUIET_ROWS = 20;

// Bounds that only damaged logs exceed.
constexpr size_t MOST_MARKS = 4096;
constexpr size_t MOST_FLICKERS = 64;
constexpr size_t MOST_LANES = 4096;
constexpr size_t MOST_BINS = 1024;

constexpr size_t NO_LANE = SIZE_MAX;

using Rows = std::map<RowId, FrameRow>;

bool namesTag(const std::string& word, int64_t tag, const Tags& tags) {
    const bool isHex = word.rfind("0x", 0) == 0 || word.rfind("0X", 0) == 0;
    const char* const end = word.data() + word.size();
    int64_t number = 0;
    const auto read = std::from_chars(word.data() + (isHex ? 2 : 0), end, number, isHex ? 16 : 10);
    if (read.ec == std::errc() && read.ptr == end) return number == tag;
    return nameOf(tag, tags) == word;
}

bool isStatic(int64_t tag, const Tags& tags) {
    const auto info = tags.find(tag);
    return info != tags.end() && info->second.type == 1;
}

bool isFallBack(const Event& event) {
    if (event.type == EventType::FAILURE) return true;
    return event.type == EventType::GET && (event.answer == Answer::EARLIER || event.answer == Answer::FRAME_0);
}

bool isOfOneLane(const FrameRow& row) {
    return std::all_of(row.marks.begin(), row.marks.end(), [&](const Mark& m) { return m.lane == row.marks[0].lane; });
}

/// Makes a row the end of its stream. It no longer counts as a frame.
void takeEnd(Camera& camera, Rows::iterator end) {
    const auto binOf = [&](RowId id) { return RowId{id.stream, id.frame >> camera.binShift}; };
    const RowId last = std::prev(end)->first;
    if (!(binOf(last) == binOf(end->first))) camera.bins.erase(binOf(end->first));
    if (camera.newest == end->first) camera.newest = last;
    camera.ends.push_back(end->first);
    camera.rows.erase(end);
    --camera.frames;
}

/// Finds the ends of streams. A stream ends with a row in which only one tag was used: with it the producer says that
/// there are no more frames.
/// @param isPart  whether the camera has only some of its rows, perhaps without the last ones of its streams
void takeEnds(Camera& camera, bool isPart) {
    for (auto row = camera.rows.begin(); row != camera.rows.end();) {
        const auto next = std::next(row);
        const bool isLast =
            isPart ? row->first == camera.newest : next == camera.rows.end() || next->first.stream != row->first.stream;
        const bool hasBefore = row != camera.rows.begin() && std::prev(row)->first.stream == row->first.stream;
        if (isLast && hasBefore && !row->second.isBad() && isOfOneLane(row->second) &&
            !isOfOneLane(std::prev(row)->second)) {
            takeEnd(camera, row);
        }
        row = next;
    }
}

/// Of two frames whose worst values are equally far off, the one with more flickers is worse.
bool isWorse(const FrameRow& a, const FrameRow& b) {
    const Flicker &worst = a.flickers[0], &other = b.flickers[0];
    const bool isAsFarOff = worst.failed == other.failed && worst.framesOff() == other.framesOff();
    if (isAsFarOff && a.flickers.size() != b.flickers.size()) return a.flickers.size() > b.flickers.size();
    return isWorse(worst, other);
}

/// A group of flickers that are only a few frames apart.
struct Episode {
    Rows::const_iterator first, worst, last;
};

std::vector<Episode> episodesOf(const Rows& rows) {
    std::vector<Episode> episodes;
    for (auto row = rows.begin(); row != rows.end(); ++row) {
        if (!row->second.isBad()) continue;
        const RowId* const before = episodes.empty() ? nullptr : &episodes.back().last->first;
        if (before == nullptr || before->stream != row->first.stream ||
            row->first.frame - before->frame > 2 * SURROUNDINGS) {
            episodes.push_back({row, row, row});
        }
        Episode& episode = episodes.back();
        if (isWorse(row->second, episode.worst->second)) episode.worst = row;
        episode.last = row;
    }
    return episodes;
}

/// Chooses the first row of the first episode, then the worst row and the first row of each episode, the worst episode
/// first. Adds the rows around each chosen row. Stops when there is no more room.
std::set<RowId> worstOf(const Rows& rows, size_t room) {
    std::vector<Episode> episodes = episodesOf(rows);
    if (episodes.empty()) return {};
    std::vector<Rows::const_iterator> centres = {episodes.front().first};
    std::stable_sort(episodes.begin(), episodes.end(),
                     [](const Episode& a, const Episode& b) { return isWorse(a.worst->second, b.worst->second); });
    for (const Episode& episode : episodes) centres.insert(centres.end(), {episode.worst, episode.first});
    const auto around = static_cast<uint32_t>(std::min<size_t>(SURROUNDINGS, (room - 1) / 2));
    std::set<RowId> chosen;
    for (const Rows::const_iterator& centre : centres) {
        if (chosen.size() + 2 * around + 1 > room) break;
        const RowId id = centre->first;
        const auto from = rows.lower_bound({id.stream, id.frame - std::min(id.frame, around)});
        const auto to = rows.upper_bound({id.stream, id.frame + std::min(THE_LAST - id.frame, around)});
        for (auto row = from; row != to; ++row) chosen.insert(row->first);
    }
    return chosen;
}

}  // namespace

int64_t FrameRow::startUs() const {
    int64_t first = INT64_MAX;
    int64_t firstValue = INT64_MAX;
    for (const Mark& mark : marks) {
        first = std::min(first, mark.startUs);
        if (mark.shape == Mark::VALUE) firstValue = std::min(firstValue, mark.startUs);
    }
    return firstValue == INT64_MAX ? first : firstValue;
}

Timeline::Timeline(Choice choice)
    : mChoice(std::move(choice)), mFinder(0, [this](const Flicker& flicker) { takeFlicker(flicker); }) {}

void Timeline::take(const Event& event, const Tags& tags) {
    mTags = &tags;
    ++mEvents;
    mFinder.take(event, tags);
    endStream(event);
    switch (event.type) {
        case EventType::FAILURE:
            if (event.access != Access::READ || event.key.tag == UNKNOWN) return;
            break;
        case EventType::SET:
        case EventType::TIMEOUT:
        case EventType::WAIT: break;
        case EventType::GET:
            if (!event.synchronous && (event.answer == Answer::ITSELF || isStatic(event.key.tag, tags))) return;
            break;
        default: return;
    }
    if (event.frame == 0 || event.frame == THE_LAST) return;
    const size_t lane = laneOf(event.key);
    if (lane != NO_LANE) takeOf(mCameras[event.key.cam], lane, event);
}

void Timeline::takeOf(Camera& camera, size_t lane, const Event& event) {
    if (event.type == EventType::SET) {
        if (camera.isOver && event.frame <= camera.newest.frame) camera.newest = {camera.newest.stream + 1, 0};
        camera.isOver = false;
    }
    const RowId id{camera.newest.stream, event.frame};
    meet(camera, id);
    if (event.type == EventType::TIMEOUT) count(camera, id, lane, {1, 0});
    if (event.synchronous && isFallBack(event)) count(camera, id, lane, {0, 1});
    FrameRow* row = rowOf(camera, id);
    if (row == nullptr) return;
    row->touched = mEvents;
    Mark mark{};
    mark.shape = Mark::VALUE;
    mark.synchronous = event.synchronous || event.type == EventType::WAIT || event.type == EventType::TIMEOUT;
    mark.lane = lane;
    mark.thread = event.thread;
    mark.startUs = mark.endUs = event.timeUs;
    mark.line = event.line;
    switch (event.type) {
        case EventType::GET:
        case EventType::FAILURE: takeRead(*row, mark, event); break;
        case EventType::TIMEOUT:
        case EventType::WAIT: takeWait(*row, mark, event); break;
        default:
            if (row->marks.size() < MOST_MARKS) row->marks.push_back(mark);
    }
}

/// After an erase of everything, or with a new store, the next set of a frame that is not newer begins another stream.
void Timeline::endStream(const Event& event) {
    if (event.type == EventType::ERASE_CALL && event.frame == THE_LAST) mCameras[event.key.cam].isOver = true;
    if (event.type != EventType::STORE_MADE) return;
    for (auto& [cam, camera] : mCameras) camera.isOver = true;
}

bool Timeline::isChosen(const Key& key) const {
    if (key.tag == METADATA_TAG || (mChoice.cam && key.cam != *mChoice.cam)) return false;
    if (mChoice.pipe && key.pipe != *mChoice.pipe) return false;
    return mChoice.tags.empty() || std::any_of(mChoice.tags.begin(), mChoice.tags.end(),
                                               [&](const auto& word) { return namesTag(word, key.tag, *mTags); });
}

size_t Timeline::laneOf(const Key& key) {
    const auto found = mLaneNumbers.find(key);
    if (found != mLaneNumbers.end()) return found->second;
    if (mLaneNumbers.size() >= MOST_LANES) return NO_LANE;
    const size_t lane = isChosen(key) ? mLanes.size() : NO_LANE;
    if (lane != NO_LANE) mLanes.push_back({key, {}});
    mLaneNumbers.emplace(key, lane);
    return lane;
}

/// The row of a frame; null if it is not kept.
FrameRow* Timeline::rowOf(Camera& camera, RowId id) {
    if (mChoice.around) {
        const uint32_t off = id.frame > *mChoice.around ? id.frame - *mChoice.around : *mChoice.around - id.frame;
        if (off > mChoice.frames / 2) return nullptr;
    }
    return &camera.rows[id];
}

/// Adds an answer: to the mark of the wait before it, or as a mark of its own if the get did not wait.
void Timeline::takeRead(FrameRow& row, Mark mark, const Event& event) {
    mark.shape = Mark::READ;
    mark.failed = event.type == EventType::FAILURE;
    mark.answer = mark.failed ? Answer::NOT_KNOWN : event.answer;
    mark.other = event.answer == Answer::EARLIER ? event.other : 0;
    const auto wait = std::find_if(row.marks.rbegin(), row.marks.rend(), [&](const Mark& m) {
        return m.isWait() && m.lane == mark.lane && m.thread == mark.thread && m.answer == Answer::NOT_KNOWN;
    });
    if (event.synchronous && wait != row.marks.rend()) {
        wait->answer = mark.answer;
        wait->failed = mark.failed;
        wait->other = mark.other;
        wait->line = mark.line;
    } else if (mark.answer != Answer::ITSELF && row.marks.size() < MOST_MARKS) {
        row.marks.push_back(mark);
    }
}

/// A wait that timed out has two lines: first the time-out, then the wait. A log without level 4 only has the first.
void Timeline::takeWait(FrameRow& row, Mark mark, const Event& event) {
    mark.shape = event.timedOut || event.type == EventType::TIMEOUT ? Mark::TIMED_OUT : Mark::WAIT;
    mark.isLong = event.type == EventType::WAIT;
    if (mark.isLong) mark.startUs -= event.count * 1000;
    const auto timeOut = std::find_if(row.marks.rbegin(), row.marks.rend(), [&](const Mark& m) {
        return m.shape == Mark::TIMED_OUT && m.lane == mark.lane && m.thread == mark.thread && !m.isLong;
    });
    if (event.timedOut && timeOut != row.marks.rend()) {
        mark.line = timeOut->line;
        mark.flickers = timeOut->flickers;
        *timeOut = mark;
    } else if (row.marks.size() < MOST_MARKS) {
        row.marks.push_back(mark);
    }
}

/// A flicker is found some time after its read. The read may belong to the stream before the newest one.
void Timeline::takeFlicker(const Flicker& flicker) {
    const size_t lane = laneOf(flicker.key);
    if (lane == NO_LANE || flicker.frame == 0) return;
    Camera& camera = mCameras[flicker.key.cam];
    RowId id{camera.newest.stream, flicker.frame};
    const auto isOf = [&](const Mark& mark) { return mark.lane == lane && mark.line == flicker.line; };
    for (uint32_t stream = id.stream + 1; stream-- > 0 && stream + 2 > id.stream;) {
        const auto row = camera.rows.find({stream, flicker.frame});
        if (row == camera.rows.end()) continue;
        if (std::any_of(row->second.marks.begin(), row->second.marks.end(), isOf)) id = row->first;
    }
    meet(camera, id);
    if (flicker.isPlain && flicker.isFallBack()) count(camera, id, lane, {0, 1});
    FrameRow* row = rowOf(camera, id);
    if (row == nullptr || row->flickers.size() >= MOST_FLICKERS) return;
    row->flickers.push_back(flicker);
    if (isWorse(flicker, row->flickers[0])) std::swap(row->flickers[0], row->flickers.back());
    auto mark = std::find_if(row->marks.begin(), row->marks.end(), isOf);
    if (mark == row->marks.end()) {
        Mark read{};
        read.shape = Mark::READ;
        read.lane = lane;
        read.answer = flicker.answer;
        read.failed = flicker.failed;
        read.thread = flicker.thread;
        read.startUs = read.endUs = flicker.timeUs;
        read.line = flicker.line;
        mark = row->marks.insert(row->marks.end(), read);
    }
    mark->flickers = true;
    if (flicker.isFallBack()) mark->other = flicker.answeredBy;
}

void Timeline::count(Camera& camera, RowId id, size_t lane, const Tally& more) {
    mLanes[lane].tally.add(more);
    camera.tally.add(more);
    camera.bins[{id.stream, id.frame >> camera.binShift}].add(more);
}

/// Remembers the newest frame, and drops old rows now and then.
void Timeline::meet(Camera& camera, RowId id) const {
    if (!(camera.newest < id)) return;
    camera.newest = id;
    ++camera.frames;
    camera.bins.try_emplace({id.stream, id.frame >> camera.binShift});
    if (camera.bins.size() > MOST_BINS) {
        std::map<RowId, Tally> wider;
        for (const auto& [bin, tally] : camera.bins) wider[{bin.stream, bin.frame >> 1}].add(tally);
        camera.bins.swap(wider);
        ++camera.binShift;
    }
    if (!mChoice.around && camera.rows.size() > camera.pruneAt) prune(camera);
}

/// Drops old rows. Keeps rows that may still change, the worst ones, and the newest quiet ones, which are shown if
/// there are no flickers.
void Timeline::prune(Camera& camera) const {
    camera.pruneAt = 2 * camera.rows.size() + mChoice.frames;
    if (camera.rows.size() <= mChoice.frames) return;
    const Index young = mEvents - std::min(mEvents, 2 * FlickerFinder::LOOK_AHEAD);
    const auto newest = std::prev(camera.rows.end(), static_cast<std::ptrdiff_t>(mChoice.frames));
    Rows old;
    for (auto row = camera.rows.begin(); row != newest;) {
        const auto next = std::next(row);
        if (row->second.touched < young) old.insert(camera.rows.extract(row));
        row = next;
    }
    for (const RowId& worst : worstOf(old, 2 * mChoice.frames)) camera.rows.insert(old.extract(worst));
    camera.pruneAt = 2 * camera.rows.size() + mChoice.frames;
}

std::set<RowId> Timeline::shown(const Camera& camera) const {
    std::set<RowId> shown;
    const bool isShort = camera.rows.size() <= mChoice.frames;
    if (!isShort) shown = worstOf(camera.rows, mChoice.frames);
    const size_t newest = isShort ? camera.rows.size() : shown.empty() ? std::min(QUIET_ROWS, mChoice.frames) : 0;
    auto row = camera.rows.rbegin();
    for (size_t i = 0; i < newest; ++i, ++row) shown.insert(row->first);
    return shown;
}

bool Timeline::isEmpty() const {
    return std::all_of(mCameras.begin(), mCameras.end(), [](const auto& camera) { return camera.second.rows.empty(); });
}

void Timeline::finish(const Tags& tags) {
    mTags = &tags;
    mFinder.finish(tags);
    for (auto& [cam, camera] : mCameras) {
        takeEnds(camera, mChoice.around.has_value());
        if (mChoice.around) continue;
        const std::set<RowId> kept = shown(camera);
        for (auto row = camera.rows.begin(); row != camera.rows.end();) {
            row = kept.count(row->first) != 0 ? std::next(row) : camera.rows.erase(row);
        }
    }
}

}  // namespace pslog
