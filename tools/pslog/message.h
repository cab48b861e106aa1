// The messages of the store, as in its sources, and their arguments.

#ifndef PSLOG_MESSAGE_H
#define PSLOG_MESSAGE_H

#include <array>
#include <cstdint>
#include <string_view>

namespace pslog {

enum class Kind : uint8_t {
    REGISTERED,
    ENTERED,     ///< a plain get or set has begun, also one by which an erase saves a value
    ASKED,       ///< a synchronous get has begun
    DELIVERING,  ///< a synchronous set has begun, and does not hold the store's mutex yet
    LATE,        ///< a plain call at or below the erase point
    LATE_SYNC,   ///< a synchronous call at or below the erase point
    SEARCHED,    ///< the frame that was asked for, and the checkpoint that answers
    RELATED,     ///< the same, with camera, pipe and tag
    NEW_FRAME,   ///< a call for a frame that does not exist
    FRAME_DELETED,
    CHECKPOINT,
    QUEUE_TRIMMED,
    TRIMMED,
    NOTIFIED,
    GOT,
    GET_FAILED,
    SET,
    SET_FAILED,
    GOT_SYNC,
    GET_SYNC_FAILED,
    DELIVERED,
    DELIVER_FAILED,
    WAITED,
    TIMED_OUT,
    ERASE_BEGUN,
    ERASE_ENDED,
    ERASE_TAG,
    SAVE_FAILED,
    METADATA_SET,
    METADATA_GOT,
    METADATA_FELL_BACK,
    CAMERA_LIMIT,
    PIPE_LIMIT,
    PIPE_LIMIT_PLAIN,  ///< a line about the failure follows
    ERASE_LIMIT,
    METADATA_LIMIT,
    EXTERNAL_FAILED,
    STORE_MADE,
    STORE_ENDED,
    NO_USE  ///< not needed by this program
};

struct Arguments {
    std::array<int64_t, 7> number{};       ///< %d, %u; the whole part of %f; for %p 0 if null, else 1
    std::array<std::string_view, 2> text;  ///< %s
};

/// Finds the message that a function logged with this text. Returns false if there is none, for example if the text was
/// cut.
bool findMessage(std::string_view function, std::string_view text, Kind& kind, Arguments& arguments);

/// Whether the store has messages of a function of this name.
bool isStoresFunction(std::string_view function);

}  // namespace pslog

#endif  // PSLOG_MESSAGE_H
