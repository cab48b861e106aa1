// See interpreter.h.

#include "interpreter.h"

#include <algorithm>

#include "paramset.h"

namespace pslog {

namespace {

/// Bounds the number of open requests: a damaged log may never close them.
constexpr size_t MOST_OPEN = 4096;

constexpr int64_t METADATA_RETAIN = 6;
constexpr int64_t STATIC_TYPE = 1;
constexpr int TRACED_LEVEL = 4;

uint32_t frameOf(int64_t number) {
    return static_cast<uint32_t>(number);
}

/// The tag as it was registered: the store prints tags above 2147483647 as negative numbers.
int64_t tagOf(int64_t number) {
    return static_cast<uint32_t>(number);
}

/// @param found  the checkpoint that answered; later than the frame only in a damaged log
Answer answerOf(uint32_t frame, uint32_t found) {
    if (found == 0) return Answer::FRAME_0;
    return found == frame ? Answer::ITSELF : found < frame ? Answer::EARLIER : Answer::NOT_KNOWN;
}

Key keyOf(const Arguments& a, size_t cam, size_t pipe, size_t tag) {
    return {a.number[cam], a.number[pipe], tagOf(a.number[tag])};
}

/// Whether the store prints this without its mutex, perhaps between the lines of another call.
bool isUnlocked(Kind kind) {
    switch (kind) {
        case Kind::DELIVERING:
        case Kind::WAITED:
        case Kind::TIMED_OUT:
        case Kind::REGISTERED:
        case Kind::CAMERA_LIMIT:
        case Kind::ERASE_LIMIT:
        case Kind::METADATA_LIMIT:
        case Kind::EXTERNAL_FAILED:
        case Kind::STORE_MADE:
        case Kind::STORE_ENDED:
        case Kind::NO_USE: return true;
        default: return false;
    }
}

template <typename Map>
void bound(Map& map) {
    if (map.size() > MOST_OPEN) map.clear();
}

}  // namespace

void Interpreter::take(const Line& line, Kind kind, const Arguments& a, uint64_t number) {
    mLine = number;
    mThread = line.thread;
    mHasThreads = mHasThreads || line.thread != 0;
    tick(line);
    Call& call = callOf(line);
    if (takeMetadata(call, kind, a) || takeSync(call, kind, a) || takeRejection(kind, a)) return;
    if (kind == Kind::STORE_MADE) return emit(event(EventType::STORE_MADE, {}, 0));
    if (kind == Kind::STORE_ENDED) return emit(event(EventType::STORE_ENDED, {}, 0));
    if (kind == Kind::LATE || kind == Kind::LATE_SYNC) return takeLate(call, kind, a);
    if (takeErase(call, kind, a)) return;
    takeFacts(call, kind, a);
    takeEnd(call, kind, a, line.level);
    if (kind != Kind::REGISTERED) return;
    mTags[tagOf(a.number[0])] = {std::string(a.text[0]), std::string(a.text[1]), a.number[1], a.number[2], a.number[3]};
}

void Interpreter::finish() {
    for (auto& [thread, call] : mCalls) {
        if (call.metadata) emit(*call.metadata);
        emitLate(call, {}, Access::NOT_KNOWN);
    }
    mCalls.clear();
    mListener.finish(mTags);
}

Event Interpreter::event(EventType type, const Key& key, uint32_t frame) const {
    Event event{};
    event.type = type;
    event.key = key;
    event.frame = frame;
    event.timeUs = mTimeUs;
    event.thread = mThread;
    event.line = mLine;
    return event;
}

void Interpreter::tick(const Line& line) {
    mHasTimes = mHasTimes || line.timeUs >= 0;
    if (line.timeUs >= 0) mClock = line.clock;
    mTimeUs = line.timeUs >= 0 ? line.timeUs : mTimeUs + 1;
}

Interpreter::Call& Interpreter::callOf(const Line& line) {
    bound(mCalls);
    return mCalls[uint64_t{line.process} << 32 | line.thread];
}

/// A new call begins: drops what is left of the call before it.
void Interpreter::beginCall(Call& call) {
    emitLate(call, {}, Access::NOT_KNOWN);
    std::optional<Erase> erase = call.erase;
    call = {};
    call.erase = erase;
}

/// The synchronous get has begun its wait: the next lines belong to another call, or come after the wait.
void Interpreter::leaveAsk(Call& call) {
    call.asked = false;
}

bool Interpreter::takeSync(Call& call, Kind kind, const Arguments& a) {
    const Key key = keyOf(a, 0, 1, 3);
    const uint32_t frame = frameOf(a.number[2]);
    const FrameKey frameKey(key.cam, key.pipe, key.tag, frame);
    if (kind == Kind::ASKED) {
        call.erase.reset();
        beginCall(call);
        call.key = key;
        call.frame = frame;
        call.asked = true;
        bound(mAsked);
        if (!mHasTimes) mAsked[frameKey].push_back(mTimeUs);
        emit(event(EventType::ASK, key, frame));
    } else if (kind == Kind::TIMED_OUT) {
        bound(mTimeouts);
        ++mTimeouts[frameKey];
        emit(event(EventType::TIMEOUT, key, frame));
    } else if (kind == Kind::WAITED) {
        const auto asked = mAsked.find(frameKey);
        if (asked != mAsked.end()) mTimeUs = std::max(mTimeUs, asked->second.front() + a.number[4] * 1000);
        Event waited = event(EventType::WAIT, key, frame);
        waited.count = a.number[4];
        const auto timeout = mTimeouts.find(frameKey);
        waited.timedOut = timeout != mTimeouts.end();
        if (waited.timedOut && --timeout->second == 0) mTimeouts.erase(timeout);
        emit(waited);
    } else {
        return kind == Kind::DELIVERING;
    }
    return true;
}

bool Interpreter::takeErase(Call& call, Kind kind, const Arguments& a) {
    if (kind == Kind::ERASE_BEGUN) {
        beginCall(call);
        call.erase = Erase{{a.number[0], a.number[1], UNKNOWN}, frameOf(a.number[2]), 0};
        emit(event(EventType::ERASE_CALL, call.erase->key, call.erase->frame));
    } else if (kind == Kind::ERASE_ENDED) {
        call = {};
    } else if (kind == Kind::ERASE_TAG && call.erase) {
        call.erase->key.tag = tagOf(a.number[0]);
        call.erase->size = a.number[1];
        const uint32_t at = call.erase->frame;
        if (call.erase->key.tag == METADATA_TAG) eraseCheckpoints(call, at == THE_LAST ? at : at - METADATA_RETAIN);
    } else if (kind == Kind::SAVE_FAILED && call.erase) {
        Event failure = event(EventType::FAILURE, call.erase->key, call.erase->frame);
        failure.text = "a value could not be saved to frame 0";
        emit(failure);
    } else if (kind == Kind::FRAME_DELETED && (call.erase || call.trim)) {
        const int64_t pipe = call.erase ? call.erase->key.pipe : call.trim->pipe;
        emit(event(EventType::FRAME_REMOVED, {a.number[0], pipe, UNKNOWN}, frameOf(a.number[1])));
    } else if (kind == Kind::ENTERED && call.erase && call.erase->key == keyOf(a, 0, 1, 3)) {
        // The erase reads the value of the newest checkpoint that it removes, to save it to frame 0.
        if (a.number[2] != 0) eraseCheckpoints(call, frameOf(a.number[2]));
    } else if (kind == Kind::SET || kind == Kind::SET_FAILED) {
        const Key key = keyOf(a, 0, 1, 3);
        const bool isPipes = call.erase && call.erase->key.cam == key.cam && call.erase->key.pipe == key.pipe;
        return isPipes && a.number[2] == 0;  // the erase saves a value to frame 0
    } else {
        return call.erase && kind == Kind::RELATED;
    }
    return true;
}

/// The erase removes the tag's checkpoints up to this one. Some checkpoints were made before the log began: only their
/// number is known, and they are older than all others.
void Interpreter::eraseCheckpoints(Call& call, uint32_t newest) {
    std::vector<uint32_t>& known = mCheckpoints[call.erase->key];
    const auto knownSize = static_cast<int64_t>(known.size());
    const auto kept = std::upper_bound(known.begin(), known.end(), newest);
    Event erased = event(EventType::ERASE, call.erase->key, newest);
    erased.other = call.erase->frame;
    erased.count = kept - known.begin();
    if (knownSize < call.erase->size) erased.count += call.erase->size - knownSize;
    known.erase(known.begin(), kept);
    if (erased.count > 0) emit(erased);
}

bool Interpreter::takeMetadata(Call& call, Kind kind, const Arguments& a) {
    if (call.metadata && !isUnlocked(kind)) {
        const uint32_t frame = call.metadata->frame;
        if (kind == Kind::METADATA_FELL_BACK) {
            call.metadata->answer = Answer::FRAME_0;
        } else if (kind == Kind::SEARCHED && call.metadata->answer == Answer::NOT_KNOWN &&
                   frameOf(a.number[0]) == frame) {
            const uint32_t found = frameOf(a.number[1]);
            call.metadata->other = found;
            call.metadata->answer = answerOf(frame, found);
            return true;  // the next line may say that this frame no longer exists
        }
        emit(*call.metadata);
        call.metadata.reset();
    }
    if (kind != Kind::METADATA_SET && kind != Kind::METADATA_GOT) return kind == Kind::METADATA_FELL_BACK;
    beginCall(call);
    call.erase.reset();
    const Key key{a.number[0], 0, METADATA_TAG};
    const uint32_t frame = frameOf(a.number[1]);
    const bool late = frame != 0 && frame <= frameOf(a.number[2]);
    if (kind == Kind::METADATA_SET) {
        call.checkpoint = frame == 0 || late ? std::nullopt : std::optional(Checkpoint{frame, MOST_OPEN});
        stored(call, key, frame, false);
    } else {
        call.metadata = event(EventType::GET, key, frame);
        call.metadata->answer = frame == 0 || late ? Answer::FRAME_0 : Answer::NOT_KNOWN;
        call.metadata->erased = late;
    }
    return true;
}

bool Interpreter::takeRejection(Kind kind, const Arguments& a) {
    Event failure = event(EventType::FAILURE, {}, 0);
    switch (kind) {
        case Kind::CAMERA_LIMIT:
            failure.key = {a.number[0], UNKNOWN, tagOf(a.number[1])};
            failure.text = "camera out of limit";
            break;
        case Kind::PIPE_LIMIT:
            failure.key = {UNKNOWN, a.number[0], tagOf(a.number[1])};
            failure.text = "pipe out of limit";
            break;
        case Kind::ERASE_LIMIT:
            failure.key = {a.number[0], a.number[1], UNKNOWN};
            failure.text = "erase: camera or pipe out of limit";
            break;
        case Kind::METADATA_LIMIT:
            failure.key = {a.number[0], 0, METADATA_TAG};
            failure.text = "metadata: camera out of limit";
            break;
        case Kind::EXTERNAL_FAILED: failure.text = "external processor: no such command, operation or data"; break;
        default: return false;
    }
    emit(failure);
    return true;
}

/// Handles the lines between the first and the last one of a call.
void Interpreter::takeFacts(Call& call, Kind kind, const Arguments& a) {
    const int64_t retain = kind == Kind::QUEUE_TRIMMED ? mTags[tagOf(a.number[1])].retain : 0;
    switch (kind) {
        case Kind::ENTERED:
            beginCall(call);
            call.erase.reset();
            call.key = keyOf(a, 0, 1, 3);
            call.frame = frameOf(a.number[2]);
            call.entered = true;
            return;
        case Kind::RELATED:
            call.related = Related{keyOf(a, 0, 1, 2), frameOf(a.number[3]), frameOf(a.number[4])};
            break;
        case Kind::CHECKPOINT: call.checkpoint = Checkpoint{frameOf(a.number[0]), a.number[1]}; break;
        case Kind::QUEUE_TRIMMED:
            call.trim = Trim{UNKNOWN, a.number[0], tagOf(a.number[1]), 0};
            if (retain != UNKNOWN && a.number[3] >= retain) call.trim->count = a.number[3] - retain + 1;
            break;
        case Kind::TRIMMED: call.trim = Trim{a.number[0], a.number[1], tagOf(a.number[2]), 1}; break;
        case Kind::NOTIFIED: call.notified = true; break;
        case Kind::NEW_FRAME: break;
        default: return;
    }
    leaveAsk(call);
}

void Interpreter::takeEnd(Call& call, Kind kind, const Arguments& a, int level) {
    const Key key = keyOf(a, 0, 1, 3);
    uint32_t frame = frameOf(a.number[2]);
    const bool isEntered = call.entered && call.key == key;
    const bool synchronous = kind == Kind::GOT_SYNC || kind == Kind::DELIVERED;
    call.newest = !synchronous && isEntered && frame == THE_LAST;
    if (call.newest) frame = call.frame;
    switch (kind) {
        case Kind::GOT:
        case Kind::GOT_SYNC: got(call, key, frame, synchronous, level == TRACED_LEVEL); break;
        case Kind::SET:
        case Kind::DELIVERED: stored(call, key, frame, synchronous); break;
        case Kind::GET_FAILED:
        case Kind::GET_SYNC_FAILED: failed(a, key, frame, Access::READ, kind == Kind::GET_SYNC_FAILED); break;
        case Kind::SET_FAILED:
        case Kind::DELIVER_FAILED: failed(a, key, frame, Access::WRITE, kind == Kind::DELIVER_FAILED); break;
        default: return;
    }
    if (call.late && call.late->frame == frame) {
        const bool read = kind == Kind::GOT || kind == Kind::GET_FAILED || kind == Kind::GET_SYNC_FAILED;
        emitLate(call, key, read || kind == Kind::GOT_SYNC ? Access::READ : Access::WRITE);
        call.late.reset();
    }
    if (kind == Kind::GOT_SYNC || kind == Kind::GET_SYNC_FAILED) {
        const auto asked = mAsked.find({key.cam, key.pipe, key.tag, frame});
        if (asked != mAsked.end()) asked->second.erase(asked->second.begin());
        if (asked != mAsked.end() && asked->second.empty()) mAsked.erase(asked);
    }
    // Frames that were trimmed in this call were deleted before this line. A running erase goes on.
    const std::optional<Erase> erase = call.erase;
    call = {};
    call.erase = erase;
}

/// A call at or below the erase point. This line does not name the call. The line before it tells a plain call, or a
/// synchronous get that has not waited yet; a synchronous set is known only from its last line.
void Interpreter::takeLate(Call& call, Kind kind, const Arguments& a) {
    if (call.erase) return;
    emitLate(call, {}, Access::NOT_KNOWN);
    const uint32_t frame = frameOf(a.number[0]);
    call.late = Late{std::string(a.text[0]), frame, frameOf(a.number[1]), a.number[2]};
    if (kind != Kind::LATE_SYNC || !call.asked || call.frame != frame) return;
    const auto tag = mTags.find(call.key.tag);
    if (tag != mTags.end() && tag->second.name != a.text[0]) return;
    emitLate(call, call.key, Access::READ);
    call.late.reset();
    leaveAsk(call);  // a call prints this line only once
}

void Interpreter::emitLate(const Call& call, const Key& key, Access access) {
    if (!call.late) return;
    Event late = event(EventType::LATE, key, call.late->frame);
    late.access = access;
    late.other = call.late->erasePoint;
    late.count = call.late->needed;
    late.text = call.late->name;
    emit(late);
}

/// @param traced  the line has the level of a traced tag; the call's first line is then only in a log of all levels
void Interpreter::got(Call& call, const Key& key, uint32_t frame, bool synchronous, bool traced) {
    Event got = event(EventType::GET, key, frame);
    got.synchronous = synchronous;
    got.newest = call.newest;
    const bool isRelated = call.related && call.related->key == key && call.related->frame == frame;
    const bool isLate = call.late && !synchronous;
    got.erased = isLate;
    if (isLate) got.count = call.late->needed;
    if (frame == 0 || isLate || (!synchronous && isStatic(key.tag))) {
        got.answer = Answer::FRAME_0;
    } else if (isRelated) {
        got.other = call.related->found;
        got.answer = answerOf(frame, got.other);
    } else if (synchronous || traced || (call.entered && call.key == key && call.frame == frame)) {
        got.answer = Answer::ITSELF;
    }
    emit(got);
}

void Interpreter::stored(Call& call, const Key& key, uint32_t frame, bool synchronous) {
    std::vector<uint32_t>& known = mCheckpoints[key];
    if (call.trim && call.trim->tag == key.tag && call.trim->count > 0) {
        const auto gone =
            static_cast<std::ptrdiff_t>(std::min<size_t>(known.size(), static_cast<size_t>(call.trim->count)));
        Event trimmed = event(EventType::TRIM, key, gone > 0 ? known[static_cast<size_t>(gone) - 1] : 0);
        trimmed.other = frame;
        trimmed.count = call.trim->count;
        known.erase(known.begin(), known.begin() + gone);
        emit(trimmed);
    }
    Event set = event(EventType::SET, key, frame);
    set.synchronous = synchronous;
    set.notified = call.notified;
    if (call.checkpoint && call.checkpoint->frame == frame) {
        set.newCheckpoint = true;
        known.insert(std::upper_bound(known.begin(), known.end(), frame), frame);
        const auto surplus = static_cast<int64_t>(known.size()) - std::max<int64_t>(call.checkpoint->size, 0);
        if (surplus > 0) known.erase(known.begin(), known.begin() + surplus);
    }
    emit(set);
}

void Interpreter::failed(const Arguments& a, const Key& key, uint32_t frame, Access access, bool synchronous) {
    Event failure = event(EventType::FAILURE, key, frame);
    failure.access = access;
    failure.synchronous = synchronous;
    if (static_cast<uint64_t>(key.pipe) >= MAX_PIPE_NUM) {
        failure.text = "pipe out of limit";
    } else if (a.number[6] == 0) {
        failure.text = "tag not registered";
        failure.failure = Failure::NOT_REGISTERED;
    } else if (a.number[5] == 0) {
        failure.text = "no data";
    } else {
        failure.text = "no buffer: the checkpoint's frame is gone, or memory ran out";
        failure.failure = Failure::NO_BUFFER;
    }
    emit(failure);
}

bool Interpreter::isStatic(int64_t tag) const {
    const auto it = mTags.find(tag);
    return it != mTags.end() && it->second.type == STATIC_TYPE;
}

}  // namespace pslog
