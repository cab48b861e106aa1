// See recent.h.

#include "recent.h"

#include <algorithm>

#include "paramset.h"

namespace pslog {

namespace {

/// A hash of the thread and the kinds of two events in a row. If two hashes collide, their usual times are mixed.
uint64_t kindOf(uint32_t thread, const Event& from, const Event& to) {
    uint64_t kind = thread;
    const auto add = [&kind](int64_t number) { kind = (kind ^ static_cast<uint64_t>(number)) * 0x9E3779B97F4A7C15; };
    for (const Event* event : {&from, &to}) {
        add(static_cast<int64_t>(event->type));
        add(event->key.cam * MAX_PIPE_NUM + event->key.pipe);
        add(event->key.tag);
    }
    return kind;
}

uint64_t kindOfWait(uint32_t thread, const Event& waited) {
    return kindOf(thread, waited, waited);
}

/// The greatest number of reads whose thread is not known yet. In a log without thread ids the next delivery tells it.
constexpr size_t MOST_UNASSIGNED = 64;

/// A wait ends at most this long after its time-out, if its thread gets a processor.
constexpr int64_t OVERSHOOT_MS = 2;

bool isOfRead(const Event& event) {
    switch (event.type) {
        case EventType::ASK:
        case EventType::TIMEOUT:
        case EventType::WAIT:
        case EventType::GET: return true;
        case EventType::FAILURE: return event.access == Access::READ;
        default: return false;
    }
}

}  // namespace

Index Value::setAfter(Index index) const {
    const Index plainly = plain > index ? plain : NEVER;
    const Index delivery = delivered > index ? delivered : NEVER;
    return std::min(plainly, delivery);
}

void Recent::Usual::add(int64_t us) {
    size_t power = 0;
    while (us >> power > 0 && power + 1 < times.size()) ++power;
    ++times[power];
    ++total;
}

int64_t Recent::Usual::median() const {
    uint64_t seen = 0;
    for (size_t power = 0; power < times.size(); ++power) {
        if (2 * (seen += times[power]) >= total) return int64_t{1} << power;
    }
    return 0;
}

Index Recent::add(const Event& event) {
    const Index index = mSize++;
    note(index) = {event, 0, NEVER};
    note(index).event.text = {};  // it is valid only during the call
    if (event.thread != 0) {
        assign(index, event.thread);
    } else {
        assignByOrder(index);
    }
    switch (event.type) {
        case EventType::SET: addSet(index); break;
        case EventType::TRIM:
        case EventType::ERASE: addErase(index); break;
        case EventType::ERASE_CALL: {
            std::deque<Index>& erases = mErases[{event.key.cam, event.key.pipe}];
            erases.push_back(index);
            if (erases.size() > MOST_ERASES) erases.pop_front();
            break;
        }
        case EventType::WAIT: addWait(index); break;
        case EventType::FAILURE:
            if (event.failure == Failure::NOT_REGISTERED && event.key.tag != UNKNOWN) {
                factsOf(event.key).isUnregistered = true;
            }
            break;
        case EventType::STORE_ENDED: mStoreEnded = std::min(mStoreEnded, index); break;
        default: break;
    }
    return index;
}

void Recent::forget() {
    for (auto& [key, facts] : mKeys) {
        facts.values.clear();
        facts.newestSet = facts.goneUpTo = facts.saved = 0;
    }
    mErases.clear();
    for (auto& [number, thread] : mThreads) thread.last = NEVER;
    mUnassigned.clear();
    mStoreEnded = NEVER;
}

void Recent::assign(Index index, uint32_t number) {
    if (mThreads.size() > MOST_THREADS) mThreads.clear();
    Thread& thread = mThreads[number];
    Note& own = note(index);
    own.thread = number;
    own.before = thread.last;
    thread.last = index;
    // A delivery is more typical of a thread than a plain set.
    if (own.event.type == EventType::SET) thread.sets[own.event.key] += own.event.synchronous ? 2 : 1;
    const Event* before = at(own.before);
    if (before == nullptr) return;
    if (own.event.type == EventType::GET || own.event.type == EventType::FAILURE) addAnswer(index);
    const uint64_t kind =
        own.event.type == EventType::WAIT ? kindOfWait(number, own.event) : kindOf(number, *before, own.event);
    // A wait that timed out is not usual, even if its thread had no other wait for this tag.
    if (own.event.type != EventType::WAIT || !own.event.timedOut) mUsual[kind].add(stretchTo(index).us);
}

void Recent::assignByOrder(Index index) {
    const Event& event = note(index).event;
    if (isOfRead(event)) mUnassigned.push_back(index);
    if (mUnassigned.size() > MOST_UNASSIGNED) mUnassigned.erase(mUnassigned.begin());
    if (event.type != EventType::SET || event.key.tag == METADATA_TAG) return;
    const uint32_t thread = UNNAMED | factsOf(event.key).number;
    // Reads of this tag are those of another thread: a module does not read what it delivers.
    const auto isOthers = [&](Index read) {
        const Event* of = at(read);
        return of == nullptr || of->key.cam != event.key.cam || of->key == event.key;
    };
    const auto others = std::stable_partition(mUnassigned.begin(), mUnassigned.end(), isOthers);
    for (auto read = others; read != mUnassigned.end(); ++read) assign(*read, thread);
    mUnassigned.erase(others, mUnassigned.end());
    assign(index, thread);
}

KeyFacts& Recent::factsOf(const Key& key) {
    const auto [facts, isNew] = mKeys.try_emplace(key);
    if (isNew) facts->second.number = static_cast<uint32_t>(mKeys.size());
    return facts->second;
}

void Recent::addSet(Index index) {
    const Event& event = note(index).event;
    if (event.frame == 0) return;
    KeyFacts& facts = factsOf(event.key);
    facts.thread = note(index).thread;
    if (event.frame > facts.newestSet) {
        if (facts.newestSet != 0) ++(event.frame == facts.newestSet + 1 ? facts.nextFrames : facts.gaps);
        facts.newestSet = event.frame;
    }
    facts.goneUpTo = std::min(facts.goneUpTo, event.frame - 1);
    Value& value = facts.values[event.frame];
    const Event* erase = at(value.gone);
    if (erase != nullptr && erase->other == THE_LAST) value = {};  // another stream
    if (event.synchronous && value.delivered == NEVER) {
        value.delivered = index;
        value.notified = event.notified;
    }
    if (!event.synchronous && value.plain == NEVER) value.plain = index;
    if (facts.values.size() > MOST_FRAMES) facts.values.erase(facts.values.begin());
}

void Recent::addErase(Index index) {
    const Event& event = note(index).event;
    KeyFacts& facts = factsOf(event.key);
    auto value = facts.values.upper_bound(facts.goneUpTo);
    for (; value != facts.values.end() && value->first <= event.frame; ++value) {
        if (value->second.gone == NEVER) value->second.gone = index;
    }
    facts.goneUpTo = std::max(facts.goneUpTo, event.frame);
    if (event.type == EventType::ERASE) facts.saved = event.frame;
    if (event.other == THE_LAST) facts.newestSet = 0;
}

void Recent::addWait(Index index) {
    const Event& event = note(index).event;
    if (!event.timedOut) return;
    TimeOut& timeOut = mTimeOuts[{event.key, event.thread}];
    if (timeOut.times == 0 || event.count + OVERSHOOT_MS < timeOut.ms) timeOut = {event.count, 0};
    if (event.count <= timeOut.ms + OVERSHOOT_MS) ++timeOut.times;
    KeyFacts& facts = factsOf(event.key);
    const auto value = facts.values.find(event.frame);
    if (value != facts.values.end() && value->second.delivered != NEVER) ++value->second.missed;
}

/// Adds the answer to the event of the wait before it.
void Recent::addAnswer(Index index) {
    const Event& event = note(index).event;
    if (!event.synchronous || at(note(index).before) == nullptr) return;
    Event& before = note(note(index).before).event;
    if (before.type != EventType::WAIT || !(before.key == event.key) || before.frame != event.frame) return;
    before.answer = event.answer;
    before.other = event.other;
    before.failure = event.failure;
}

Recent::TimeOut Recent::timeOutOf(const Key& key, uint32_t thread) const {
    const auto timeOut = mTimeOuts.find({key, thread});
    return timeOut != mTimeOuts.end() ? timeOut->second : TimeOut{};
}

const Recent::Note* Recent::noteAt(Index index) const {
    if (index >= mSize || mSize - index > CAPACITY) return nullptr;
    return &mNotes[index % CAPACITY];
}

const Event* Recent::at(Index index) const {
    const Note* note = noteAt(index);
    return note != nullptr ? &note->event : nullptr;
}

uint32_t Recent::threadOf(Index index) const {
    const Note* note = noteAt(index);
    return note != nullptr ? note->thread : 0;
}

const KeyFacts* Recent::find(const Key& key) const {
    const auto facts = mKeys.find(key);
    return facts != mKeys.end() ? &facts->second : nullptr;
}

Value Recent::valueOf(const Key& key, uint32_t frame) const {
    const KeyFacts* facts = find(key);
    if (facts == nullptr) return {};
    const auto value = facts->values.find(frame);
    return value != facts->values.end() ? value->second : Value{};
}

/// The stretch that ends with this event. A wait begins with its get; the line of its time-out is part of it.
Stretch Recent::stretchTo(Index index) const {
    const Note& end = *noteAt(index);
    Stretch stretch = {end.before, index, end.event.type == EventType::WAIT, 0, 0};
    const Note* before = noteAt(end.before);
    if (stretch.isWait) {
        if (before != nullptr && before->event.type == EventType::TIMEOUT) stretch.begin = before->before;
        stretch.us = end.event.count * 1000;
    } else if (before != nullptr) {
        stretch.us = std::max<int64_t>(0, end.event.timeUs - before->event.timeUs);
    }
    return stretch;
}

std::vector<Stretch> Recent::stretchesBefore(Index index, int64_t sinceUs) const {
    std::vector<Stretch> stretches;
    for (const Note* note = noteAt(index); note != nullptr && note->event.timeUs >= sinceUs; note = noteAt(index)) {
        Stretch stretch = stretchTo(index);
        const Event* begin = at(stretch.begin);
        if (begin == nullptr && !stretch.isWait) break;
        const auto usual = mUsual.find(stretch.isWait ? kindOfWait(note->thread, note->event)
                                                      : kindOf(note->thread, *begin, note->event));
        if (usual != mUsual.end()) stretch.usualUs = usual->second.median();
        stretches.push_back(stretch);
        index = stretch.begin;
    }
    return stretches;
}

std::vector<Index> Recent::erasesBetween(const Key& key, Index begin, Index end) const {
    const auto erases = mErases.find({key.cam, key.pipe});
    if (erases == mErases.end()) return {};
    const auto first = std::upper_bound(erases->second.begin(), erases->second.end(), begin);
    return {first, std::lower_bound(first, erases->second.end(), end)};
}

const Key* Recent::mostSetBy(uint32_t number) const {
    const auto thread = mThreads.find(number);
    if (thread == mThreads.end() || thread->second.sets.empty()) return nullptr;
    const auto isFewer = [](const auto& a, const auto& b) { return a.second < b.second; };
    return &std::max_element(thread->second.sets.begin(), thread->second.sets.end(), isFewer)->first;
}

}  // namespace pslog
