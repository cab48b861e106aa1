// Turns messages into events: finds the call that a line belongs to, and its result.
//
// The store prints most lines of a call while it holds its mutex, so these are adjacent. It prints some without the
// mutex: the first line of a synchronous set, the lines of a wait, registrations, refused calls, and all lines of the
// external processor and of the creation and destruction of a store. Most lines name their camera, pipe, frame and tag.
// Those that do not ("add checkPoint", "set notify all", deletions) belong to the call whose lines surround them. If
// the format has thread ids, each thread's lines are followed separately.

#ifndef PSLOG_INTERPRETER_H
#define PSLOG_INTERPRETER_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "line.h"
#include "message.h"

namespace pslog {

constexpr int64_t UNKNOWN = -1;

/// A tag in a pipe of a camera; UNKNOWN where the log does not say.
struct Key {
    int64_t cam = UNKNOWN;
    int64_t pipe = UNKNOWN;
    int64_t tag = UNKNOWN;
    bool operator==(const Key& o) const { return cam == o.cam && pipe == o.pipe && tag == o.tag; }
    bool operator<(const Key& o) const { return std::tie(cam, pipe, tag) < std::tie(o.cam, o.pipe, o.tag); }
};

/// A registration.
struct TagInfo {
    std::string name;
    std::string dataType;
    int64_t size = UNKNOWN;
    int64_t type = UNKNOWN;
    int64_t retain = UNKNOWN;
};
using Tags = std::map<int64_t, TagInfo>;

enum class EventType {
    ASK,      ///< a synchronous get has begun
    WAIT,     ///< a synchronous get has waited
    TIMEOUT,  ///< a synchronous get has timed out; a WAIT follows
    GET,
    SET,
    LATE,        ///< a request at or below the erase point
    TRIM,        ///< a new checkpoint pushed out the oldest values
    ERASE,       ///< an explicit erase, of one tag
    ERASE_CALL,  ///< an explicit erase of a pipe has begun
    FRAME_REMOVED,
    FAILURE,
    STORE_MADE,
    STORE_ENDED
};
enum class Failure { OTHER, NOT_REGISTERED, NO_BUFFER };
enum class Answer { NOT_KNOWN, ITSELF, EARLIER, FRAME_0 };
enum class Access { NOT_KNOWN, READ, WRITE };

struct Event {
    EventType type;
    Key key;
    uint32_t frame = 0;  ///< TRIM, ERASE: the newest frame that lost its value; ERASE_CALL: the frame of the call
    Answer answer = Answer::NOT_KNOWN;
    Access access = Access::NOT_KNOWN;
    bool synchronous = false;
    bool newCheckpoint = false;
    bool notified = false;
    bool timedOut = false;
    bool newest = false;  ///< GET: the caller asked for the newest frame
    bool erased = false;  ///< GET: a plain get at or below the erase point
    Failure failure = Failure::OTHER;
    /// GET: the checkpoint that answered, or should have; TRIM: the frame that was set; ERASE: the frame of the call;
    /// LATE: the erase point
    uint32_t other = 0;
    int64_t count = 0;      ///< WAIT: ms; LATE, GET: the needed retain number; TRIM, ERASE: number of removed values
    std::string_view text;  ///< FAILURE: the cause, a literal; LATE: the tag's name, valid only during the call
    int64_t timeUs = 0;
    uint32_t thread = 0;  ///< 0 if the format does not say
    uint64_t line = 0;
};

class Listener {
public:
    virtual ~Listener() = default;
    virtual void take(const Event& event, const Tags& tags) = 0;
    /// Called at the end of the log.
    virtual void finish(const Tags&) {}
};

class Interpreter {
public:
    explicit Interpreter(Listener& listener) : mListener(listener) {}

    void take(const Line& line, Kind kind, const Arguments& arguments, uint64_t number);
    /// Call this after the last line.
    void finish();

    const Tags& tags() const { return mTags; }
    /// Whether the log has times. If not, the clock is made up from the order of the lines and from the waits, so that
    /// no interval is shorter than the waits in it.
    bool hasTimes() const { return mHasTimes; }
    /// The kind of the newest time in the log.
    Clock clock() const { return mClock; }
    bool hasThreads() const { return mHasThreads; }

private:
    struct Late {
        std::string name;
        uint32_t frame, erasePoint;
        int64_t needed;
    };
    struct Related {
        Key key;
        uint32_t frame, found;
    };
    struct Checkpoint {
        uint32_t frame;
        int64_t size;
    };
    struct Trim {
        int64_t cam, pipe, tag, count;
    };
    struct Erase {
        Key key;  ///< the tag that is being erased
        uint32_t frame;
        int64_t size;
    };
    /// What is known of the current call of a thread, or, without thread ids, of the call that holds the store's mutex.
    struct Call {
        Key key;
        uint32_t frame = 0;
        bool entered = false;  ///< key and frame belong to a plain call
        bool asked = false;    ///< key and frame belong to a synchronous get that has not waited yet
        bool notified = false;
        bool newest = false;  ///< a plain call for the newest frame
        std::optional<Late> late;
        std::optional<Related> related;
        std::optional<Checkpoint> checkpoint;
        std::optional<Trim> trim;
        std::optional<Erase> erase;
        std::optional<Event> metadata;  ///< a get of metadata, until it is certain which frame answered
    };
    using FrameKey = std::tuple<int64_t, int64_t, int64_t, uint32_t>;

    Event event(EventType type, const Key& key, uint32_t frame) const;
    void emit(const Event& event) { mListener.take(event, mTags); }
    void tick(const Line& line);
    Call& callOf(const Line& line);
    bool takeSync(Call& call, Kind kind, const Arguments& arguments);
    bool takeErase(Call& call, Kind kind, const Arguments& arguments);
    bool takeMetadata(Call& call, Kind kind, const Arguments& arguments);
    bool takeRejection(Kind kind, const Arguments& arguments);
    void takeFacts(Call& call, Kind kind, const Arguments& arguments);
    void takeEnd(Call& call, Kind kind, const Arguments& arguments, int level);
    void takeLate(Call& call, Kind kind, const Arguments& arguments);
    void got(Call& call, const Key& key, uint32_t frame, bool synchronous, bool traced);
    void stored(Call& call, const Key& key, uint32_t frame, bool synchronous);
    void failed(const Arguments& arguments, const Key& key, uint32_t frame, Access access, bool synchronous);
    void eraseCheckpoints(Call& call, uint32_t newest);
    void emitLate(const Call& call, const Key& key, Access access);
    void beginCall(Call& call);
    static void leaveAsk(Call& call);
    bool isStatic(int64_t tag) const;

    Listener& mListener;
    Tags mTags;
    std::unordered_map<uint64_t, Call> mCalls;          ///< by process and thread
    std::map<Key, std::vector<uint32_t>> mCheckpoints;  ///< the store's checkpoints, as far as the log tells
    std::map<FrameKey, std::vector<int64_t>> mAsked;    ///< when each get began; only if the log has no times
    std::map<FrameKey, uint32_t> mTimeouts;             ///< time-outs whose wait line has not come yet
    int64_t mTimeUs = 0;
    uint32_t mThread = 0;
    uint64_t mLine = 0;
    Clock mClock = Clock::NONE;
    bool mHasTimes = false;
    bool mHasThreads = false;
};

}  // namespace pslog

#endif  // PSLOG_INTERPRETER_H
