// From messages to what happened: which call a line belongs to, and what became of the call.
//
// The store prints the lines of a call while it holds its mutex, so that they follow one another, but for those that it
// prints without: the first line of a synchronous set, the lines of a wait, registrations, rejections, and all of the
// external processor and of the making and the end of a store. Most lines name what they are of; those that do not
// ("add checkPoint", "set notify all", deletions) belong to the call whose lines surround them. Where the format has
// threads, each thread's lines are followed apart.

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
    WAIT,     ///< and has waited
    TIMEOUT,  ///< its wait timed out; the line before WAIT
    GET,
    SET,
    LATE,        ///< a request at or below the erase point
    TRIM,        ///< a new checkpoint made room for itself
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
    uint32_t frame = 0;  ///< TRIM, ERASE: the newest whose value went; ERASE_CALL: the one erased at
    Answer answer = Answer::NOT_KNOWN;
    Access access = Access::NOT_KNOWN;
    bool synchronous = false;
    bool newCheckpoint = false;
    bool notified = false;
    bool timedOut = false;
    bool newest = false;  ///< GET: of whatever frame was the newest
    bool erased = false;  ///< GET: plain, at or below the erase point
    Failure failure = Failure::OTHER;
    /// GET: the checkpoint that answered, or should have; TRIM: the frame set; ERASE: the one erased at; LATE: the
    /// erase point
    uint32_t other = 0;
    int64_t count = 0;      ///< WAIT: ms; LATE, GET: the needed life; TRIM, ERASE: values that went
    std::string_view text;  ///< FAILURE: the cause, a literal; LATE: the tag's name, for the time of the call
    int64_t timeUs = 0;
    uint32_t thread = 0;  ///< 0 if the format does not say
    uint64_t line = 0;
};

class Listener {
public:
    virtual ~Listener() = default;
    virtual void take(const Event& event, const Tags& tags) = 0;
    /// The log has ended.
    virtual void finish(const Tags&) {}
};

class Interpreter {
public:
    explicit Interpreter(Listener& listener) : mListener(listener) {}

    void take(const Line& line, Kind kind, const Arguments& arguments, uint64_t number);
    /// To be called after the last line.
    void finish();

    const Tags& tags() const { return mTags; }
    /// Whether times come from the log. Otherwise the clock is made up of the order of the lines and of the waits: no
    /// interval is shorter than the waits in it.
    bool hasTimes() const { return mHasTimes; }
    /// Of the newest time that the log has.
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
        Key key;  ///< the tag whose turn it is
        uint32_t frame;
        int64_t size;
    };
    /// What is known of the call that a thread (or, without threads, whoever holds the store's mutex) is in.
    struct Call {
        Key key;
        uint32_t frame = 0;
        bool entered = false;  ///< key and frame are of a plain call
        bool asked = false;    ///< key and frame are of a synchronous get that has not yet waited
        bool notified = false;
        bool newest = false;  ///< of a plain call: of the newest frame
        std::optional<Late> late;
        std::optional<Related> related;
        std::optional<Checkpoint> checkpoint;
        std::optional<Trim> trim;
        std::optional<Erase> erase;
        std::optional<Event> metadata;  ///< a get of metadata, until it is sure who answered
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
    std::map<Key, std::vector<uint32_t>> mCheckpoints;  ///< as the store has them, as far as the log tells
    std::map<FrameKey, std::vector<int64_t>> mAsked;    ///< when; only without times
    std::map<FrameKey, uint32_t> mTimeouts;             ///< whose wait line is still to come
    int64_t mTimeUs = 0;
    uint32_t mThread = 0;
    uint64_t mLine = 0;
    Clock mClock = Clock::NONE;
    bool mHasTimes = false;
    bool mHasThreads = false;
};

}  // namespace pslog

#endif  // PSLOG_INTERPRETER_H
