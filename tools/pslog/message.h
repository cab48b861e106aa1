// The messages of the store, as its sources have them, and their arguments.

#ifndef PSLOG_MESSAGE_H
#define PSLOG_MESSAGE_H

#include <array>
#include <cstdint>
#include <string_view>

namespace pslog {

enum class Kind : uint8_t {
    REGISTERED,
    ENTERED,     ///< a plain get or set, or the saving of an erase
    ASKED,       ///< a synchronous get
    DELIVERING,  ///< a synchronous set, before it has the store's mutex
    LATE,        ///< a request at or below the erase point, plain
    LATE_SYNC,   ///< the same, synchronous
    SEARCHED,    ///< the checkpoint that answers: frame asked for and found
    RELATED,     ///< the same, with everything that it is of
    NEW_FRAME,   ///< a request for a frame that is not there
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
    PIPE_LIMIT_PLAIN,  ///< a line that tells of the failure follows
    ERASE_LIMIT,
    METADATA_LIMIT,
    EXTERNAL_FAILED,
    STORE_MADE,
    STORE_ENDED,
    NO_USE  ///< nothing here needs it
};

struct Arguments {
    std::array<int64_t, 7> number{};       ///< %d, %u; the whole part of %f; for %p 0 if null, else 1
    std::array<std::string_view, 2> text;  ///< %s
};

/// Finds the message that a function logged with this text. Returns false if there is none such, as when it was cut.
bool findMessage(std::string_view function, std::string_view text, Kind& kind, Arguments& arguments);

/// Whether the store has messages of a function of this name.
bool isStoresFunction(std::string_view function);

}  // namespace pslog

#endif  // PSLOG_MESSAGE_H
