/**
 * @file
 * paramset: the parameter store of a camera pipeline.
 *
 * One process-wide store of typed values, keyed by camera, pipe, frame id and tag. A module registers a tag once.
 * After that, any module can set the tag's bytes for a frame, and any module can get them, or wait a bounded time for
 * them. If a frame has no value of its own, the newest earlier frame that was given one (a *checkpoint*) answers. If
 * there is none, the pipe's standing *frame 0* answers. A tag's *erase point* is a frame id: the tag's values of this
 * frame and of all frames before it are gone, and frame 0 answers for these frames.
 *
 * A C compiler sees the limits, the result codes, `zarn_ops` and the C functions; a C++ compiler sees everything.
 *
 * Words used below, each with one meaning:
 *   thread-safe   any thread may call it, at any time;
 *   set-up only   call it before other threads use what it changes;
 *   answered by   the frame whose buffer serves a read;
 *   delivered     written by a synchronous set.
 *
 * Ownership: a value is a plain run of bytes, as many as its tag was registered with. A set copies it in and a get
 * copies it out, under the store's mutex. The store keeps no pointer to a caller's memory. It returns pointers to its
 * own memory only where this header says so. Every get, set, erase and forwarded command keeps the store alive until
 * it returns, even if the store is destroyed meanwhile. Four operations are called on a pointer to the store
 * (setPsOps, setPsHandle, getPsHandle, getParamExternal): their caller must keep the store alive.
 *
 * Logging: every message has the module tag "ParamSet" and a level (1 failures, 2 fall-backs and time-outs, 3 life
 * cycle, 4 and 5 tracing). It begins with the source line and the name of the function that logs.
 *
 * Registering: any thread may register tags at any time. Finish registering a tag before any thread uses it. Do not
 * register one tag on two threads at once: either registration may win.
 *
 * Exit: when the process exits, the store is destroyed before the registry. Running calls finish. Later calls find no
 * store and register nothing. Before the library is unloaded (dlclose), stop all threads that call it.
 *
 * Out of memory: a failed allocation ends the process, after a line on standard error; on a device the line also goes
 * to the abort message and the log. There are three exceptions. If a value buffer cannot be allocated, the get or set
 * fails. If metadata cannot be copied, the frame has none. If a long name or data type cannot be copied in a
 * registration or in getTagInfo, the C++ library may throw std::bad_alloc; then nothing is registered and no mutex is
 * held.
 */
#ifndef PARAMSET_H
#define PARAMSET_H

#include <stdint.h>

/** Marks what the library exports. */
#if defined(__GNUC__)
#define PARAMSET_API __attribute__((visibility("default")))
#else
#define PARAMSET_API
#endif

/** @cond */
/*
 * Which mutex a private operation needs. The library's own build with clang and libc++ defines PARAMSET_CHECK_LOCKS,
 * and the compiler checks it. Everywhere else these macros are empty.
 */
#if defined(PARAMSET_CHECK_LOCKS)
#define PARAMSET_LOCK_ATTRIBUTE(...) __attribute__((__VA_ARGS__))
#else
#define PARAMSET_LOCK_ATTRIBUTE(...)
#endif
/* The caller holds the mutex. */
#define PARAMSET_REQUIRES(mutex) PARAMSET_LOCK_ATTRIBUTE(requires_capability(mutex))
/* The caller does not hold the mutex. */
#define PARAMSET_EXCLUDES(mutex) PARAMSET_LOCK_ATTRIBUTE(locks_excluded(mutex))
/* The mutex guards what the pointer points to, not the pointer. */
#define PARAMSET_PT_GUARDED_BY(mutex) PARAMSET_LOCK_ATTRIBUTE(pt_guarded_by(mutex))
/** @endcond */

/** The platform's camera metadata record; opaque here. */
struct camera_metadata;

#ifdef __cplusplus
extern "C" {
#endif

/** Limits and fixed numbers of the store. */
enum {
    MAX_CAM_NUM = 5,       /**< camera ids are 0 to 4 */
    MAX_PIPE_NUM = 14,     /**< pipe indexes are 0 to 13 */
    DEFAULT_WAIT_MS = 50,  /**< wait of a synchronous get that names no time-out, in milliseconds */
    METADATA_TAG = 0x20001 /**< reserved tag id that camera metadata is listed under; never register it */
};

/** As a frame id, the newest frame of the pipe in a plain get or set, and every frame of the pipe in an erase. */
static const uint32_t THE_LAST = 0xFFFFFFFFu;

/** Result codes. Each function names those that it returns, with their causes. */
#define PS_OK 0u                 /**< done */
#define PS_OUT_OF_LIMIT 1u       /**< camera or pipe out of limit; nothing was done */
#define PS_NO_DATA 2u            /**< null data, or no store; nothing was done */
#define PS_NOT_OF_FRAME 3u       /**< the frame is erased, or got no value in time and an earlier frame answered */
#define PS_TIMED_OUT 6u          /**< the synchronous wait ended by its time-out */
#define PS_NO_BUFFER 0xFFFFFFFFu /**< no buffer was found or could be made; nothing was copied */

/**
 * The operations of the external processor, installed by zarn::ParamSet::setPsOps.
 *
 * A command code of ioctrlOutsidePsParam selects the slot of the same number (0x8000 is `cmd0`, 0x800A is `cmd10`).
 * The first argument is one of the camera's seven handles; @p in and @p out are the caller's pointers, passed through
 * untouched. What an operation returns becomes the result of the call. A null slot means: there is no such operation.
 * The operations run on the caller's thread, with no lock of the store held; they may run on several threads at once,
 * and must not throw.
 */
typedef struct zarn_ops {
    int (*cmd0)(void* handle0, int64_t arg, void* in);                   /**< 0x8000 */
    int (*cmd1)(void* handle0, int64_t arg, void* in);                   /**< 0x8001 */
    int (*cmd2)(void* handle4, int64_t arg, void* in);                   /**< 0x8002 */
    int (*cmd3)(void* handle6, int32_t arg, void* in);                   /**< 0x8003, and getParamExternal */
    int (*cmd4)(void* handle0, uint32_t cam, void* in);                  /**< 0x8004 */
    int (*cmd5)(void* handle0, uint32_t cam, void* in);                  /**< 0x8005 */
    int (*cmd6)(void* handle0, uint32_t cam, uint32_t value, void* out); /**< 0x8006; value is the uint32 at in */
    int (*cmd7)(void* handle0, uint8_t value, void* out);                /**< 0x8007; value is the byte at in */
    int (*cmd8)(void* handle5, void* in);                                /**< 0x8008 */
    int (*cmd9)(void* handle0, void* in);                                /**< 0x8009 */
    int (*cmd10)(void* handle0, uint32_t value);                         /**< 0x800A; value is the uint32 at in */
} zarn_ops;

/**
 * Registers a tag with a retain number of 1 if @p tagType is 1, else 6.
 *
 * The first registration of a tag counts: a later one changes nothing and logs nothing. If a tag is set twice before it
 * is registered, the second set gives it an empty registry entry, and the tag gets no buffers for the life of the
 * process. Entries are never removed, so registering new tag ids without end grows the registry.
 *
 * @param tag       id of the tag; any number but METADATA_TAG
 * @param size      bytes of a value; 0 makes a value of one byte that starts as zero. A size above 2147483647 gives no
 *                  buffer: every get and set of the tag fails
 * @param tagType   1: no history; frame 0 serves every frame (except that a synchronous set writes the frame it names).
 * 2: the history holds as many frames as the retain number; new frames push out the oldest, and an ordinary erase skips
 * the tag. Any other: up to 300 frames, erased by erasePs
 * @param name      name of the tag, for the log; copied. Null counts as an empty text
 * @param dataType  the type of its value, for the log; copied. Null counts as an empty text
 *
 * Thread-safe. Waits for other registrations; no get, set or erase waits for it. Works with or without a store. Logs
 * the registration at level 3.
 */
PARAMSET_API void registerPsStaticParam(uint32_t tag, uint32_t size, int tagType, const char* name,
                                        const char* dataType);

/** Registers a tag with a retain number of 6 (1 if @p tagType is 1). Otherwise the same as registerPsStaticParam. */
PARAMSET_API void registerPsDynamicParam(uint32_t tag, uint32_t size, int tagType, const char* name,
                                         const char* dataType);

/**
 * Registers a tag with a retain number that the caller chooses.
 *
 * @param retainNum  an erase of a frame removes the values that are this many or more frames behind it. For type 2 it
 *                   is the number of checkpoints that the history holds. Numbers below 7 are ignored: they give 6, or 1
 *                   if @p tagType is 1
 *
 * An ordinary erase frees nothing of a tag of type 2. If its history never reaches the retain number, the store grows.
 *
 * Otherwise the same as registerPsStaticParam.
 */
PARAMSET_API void registerPsQueueParam(uint32_t tag, uint32_t size, int tagType, const char* name, const char* dataType,
                                       int retainNum);

/** The same as registerPsQueueParam, for a tag whose values must outlive the usual six frames. */
PARAMSET_API void registerPsDynamicParamWithExtendingLife(uint32_t tag, uint32_t size, int tagType, const char* name,
                                                          const char* dataType, int retainNum);

/**
 * Copies the value of @p tag for frame @p frame into @p data. Does not wait for it.
 *
 * Answered by the frame itself if it was given the tag, else by the newest earlier frame that was, else by frame 0.
 * Frame 0 also answers for frame 0, for a tag of type 1, and for a frame at or below the tag's erase point. If frame 0
 * never received the tag, its value is all zeros (or what the program's own creator makes).
 *
 * @param cam    camera id, 0 to 4
 * @param pipe   pipe index, 0 to 13
 * @param frame  frame id; 0 is the pipe's standing frame, THE_LAST its newest (frame 0 if it has none)
 * @param tag    id of a registered tag
 * @param data   receives as many bytes as the tag was registered with
 * @return PS_OK (0): copied.
 *         PS_OUT_OF_LIMIT (1): the camera is out of limit.
 *         PS_NO_DATA (2): @p data is null, or there is no store.
 *         PS_NO_BUFFER (0xFFFFFFFF): the pipe is out of limit, the tag is not registered, the checkpoint that should
 *         answer has no buffer, or there was no memory for frame 0's.
 *         @p data is untouched unless the result is 0.
 *
 * Thread-safe; waits only for the store's mutex. Logs at level 1 a camera or a pipe out of limit and a failure; at
 * level 2 a frame at or below the erase point, with the retain number that would have been enough; at level 5 (4 for
 * the traced tag) how the get was answered.
 *
 * A get of an unregistered tag leaves an erase point in the pipe. A get of a frame above 0 also leaves an empty
 * checkpoint list. If that frame is at or below the tag's erase point, the get also leaves an empty registry entry.
 * Asking for new tag ids without end grows the store.
 */
PARAMSET_API uint32_t getPsParam(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data);

/**
 * Copies the value of @p tag for frame @p frame from @p data into the store. Wakes nobody: see setPsParamSyn.
 *
 * A set of frame 0, of a tag of type 1, or of a frame at or below the erase point writes to frame 0. For any other
 * frame: if it does not exist, it is made; if it does not have the tag yet, it gets a buffer and a checkpoint; if it
 * has the tag, its value is overwritten in place. Before a checkpoint is added, the history is trimmed: to 299
 * checkpoints, or for type 2 to one less than the retain number. The last checkpoint that is trimmed becomes the erase
 * point.
 *
 * @param cam    camera id, 0 to 4
 * @param pipe   pipe index, 0 to 13
 * @param frame  frame id; 0 is the pipe's standing frame, THE_LAST its newest (frame 0 if it has none)
 * @param tag    id of a registered tag
 * @param data   holds as many bytes as the tag was registered with
 * @return PS_OK (0): copied.
 *         PS_OUT_OF_LIMIT (1): the camera is out of limit.
 *         PS_NO_DATA (2): @p data is null, or there is no store.
 *         PS_NO_BUFFER (0xFFFFFFFF): the pipe is out of limit, the tag is not registered, or there was no memory for
 *         its value. The frame and the checkpoint may have been made nevertheless.
 *
 * Thread-safe; waits only for the store's mutex. Logs as getPsParam does, and each new frame and checkpoint at level 5.
 *
 * Each unregistered tag that is set leaves a frame and a checkpoint without a value. If it is set a second time, it
 * gets an empty registry entry, and cannot be registered any more. Setting new tag ids without end grows the store.
 */
PARAMSET_API uint32_t setPsParam(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data);

/** getPsParamSynTimeout with a time-out of DEFAULT_WAIT_MS (50 ms). */
PARAMSET_API uint32_t getPsParamSyn(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data);

/**
 * Copies the value of @p tag for frame @p frame into @p data. If it is not there yet, waits once for setPsParamSyn to
 * deliver it.
 *
 * It does not wait if the frame has the tag and the tag was delivered there. For frame 0 it does not wait if the tag
 * was delivered to frame 0 after the last erase of everything in the pipe. If the frame does not exist, it is made,
 * without a checkpoint. A plain set does not end the wait; an erase that reaches the frame does. If the frame has a
 * value from a plain set only, the wait lasts until its time-out: neither a delivery nor an erase ends it, unless
 * another get waited there before.
 *
 * @param cam      camera id, 0 to 4
 * @param pipe     pipe index, 0 to 13
 * @param frame    frame id; 0 is the pipe's standing frame. THE_LAST has no special meaning here: it is an ordinary id
 * @param tag      id of a registered tag
 * @param data     receives as many bytes as the tag was registered with
 * @param timeout  longest wait in milliseconds; 0 means DEFAULT_WAIT_MS
 * @return PS_OK (0): the value was there, or came in time; for frame 0 also if an erase of everything ended the wait.
 *         PS_OUT_OF_LIMIT (1): the camera or the pipe is out of limit.
 *         PS_NO_DATA (2): @p data is null, or there is no store.
 *         PS_NOT_OF_FRAME (3): the frame is at or below the erase point, or had no value when the wait ended and an
 *         earlier frame (or frame 0) answered.
 *         PS_TIMED_OUT (6): the wait timed out. The frame has a value by then, or it is frame 0.
 *         The code does not tell whether bytes were copied: for an unregistered tag nothing is copied, whatever the
 *         code.
 *
 * Thread-safe; blocks for at most @p timeout plus the wait for the store's mutex. Logs at level 1 a camera or a pipe
 * out of limit and a copy that was not done; at level 2 a frame at or below the erase point and a time-out; at level 4
 * the milliseconds of each wait and, for THE_LAST, the newest frame; at level 5 the request (4 for the traced tag) and
 * the copy.
 *
 * The wait uses the monotonic clock: setting the wall clock neither shortens nor lengthens it. A wake-up is lost if it
 * comes in the instant in which the wait begins. The result is then PS_TIMED_OUT, with the frame's own bytes.
 *
 * Each synchronous get of a new frame makes that frame. If nobody delivers or erases such frames, the store grows;
 * trimming does not remove them. An ordinary erase removes them only if some tag that is not of type 2 was written in
 * that pipe, or read through its checkpoints (metadata in pipe 0 counts as such a tag). Without metadata it removes
 * only frames below 2147483648. Each tag, registered or not, leaves a status record in the frame that it was asked for,
 * so asking for new tag ids without end grows the store.
 */
PARAMSET_API uint32_t getPsParamSynTimeout(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data,
                                           uint32_t timeout);

/**
 * Copies a value as setPsParam does, marks it delivered and wakes every synchronous get that waits for it (except those
 * that found a value from a plain set, see getPsParamSynTimeout).
 *
 * Always writes the named frame, and makes it if it does not exist; never redirects to frame 0. THE_LAST is an ordinary
 * frame id here. For a tag of type 1, and at or below the erase point, a plain get looks in frame 0 and so does not
 * find what was delivered.
 *
 * @param cam    camera id, 0 to 4
 * @param pipe   pipe index, 0 to 13
 * @param frame  frame id; 0 is the pipe's standing frame
 * @param tag    id of a registered tag
 * @param data   holds as many bytes as the tag was registered with
 * @return PS_OK (0): copied. Or the frame is above the erase point, and nothing was copied because the tag is
 *         unregistered or memory ran out.
 *         PS_OUT_OF_LIMIT (1): the camera or the pipe is out of limit.
 *         PS_NO_DATA (2): @p data is null, or there is no store.
 *         PS_NOT_OF_FRAME (3): not copied, for one of these two reasons, and the frame is at or below the erase point.
 *         Even if nothing was copied, the value counts as delivered and the waiting gets are woken. Only the log shows
 *         that nothing was copied.
 *
 * Thread-safe; waits only for the store's mutex. Logs at level 1 a camera or a pipe out of limit and a copy that was
 * not done; at level 2 a frame at or below the erase point; at level 4, for THE_LAST, the newest frame; at level 5 the
 * request (4 for the traced tag), the waking of waiters and the copy.
 *
 * New frames and new tag ids without end grow the store as with getPsParamSynTimeout, except that trimming removes the
 * frames that were given a value.
 */
PARAMSET_API uint32_t setPsParamSyn(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data);

/**
 * Erases the old frames of a pipe: for each tag those at or below @p frame minus the tag's retain number.
 *
 * Each tag that has a checkpoint list in the pipe is erased up to its own limit, which is @p frame minus its retain
 * number. The newest value at or below the limit is copied to frame 0. The checkpoints and values at or below the limit
 * are removed. Synchronous gets that wait for the tag there are woken. If the pipe has any frame at or below the limit,
 * the limit becomes the tag's erase point. A frame without any value left is removed; a frame that stays gets a status
 * record of each tag that was erased from it. Metadata is erased with pipe 0, up to the frame six behind @p frame, and
 * is not copied to frame 0. The erase skips tags of type 2. It also skips tags other than metadata whose limit is below
 * 1 or above 2147483647: values of frames from 2147483648 on are removed only by trimming or by THE_LAST. If @p frame
 * is below 8, nothing is erased.
 *
 * @param cam    camera id, 0 to 4
 * @param pipe   pipe index, 0 to 13
 * @param frame  newest frame id. THE_LAST erases everything in the pipe, type 2 and metadata included. If the pipe has
 *               any frame, it also sets the erase points back to 0 and marks all tags of frame 0 as not delivered
 * @return PS_OK (0): done.
 *         PS_OUT_OF_LIMIT (1): the camera or the pipe is out of limit.
 *         PS_NO_DATA (2): there is no store.
 *         PS_NO_BUFFER (0xFFFFFFFF): the last value that was to be saved to frame 0 could not be; the rest is done.
 *
 * Thread-safe; waits only for the store's mutex. Logs at level 1 a camera or a pipe out of limit and a value that could
 * not be saved; at level 2 a value to be saved that is at or below its erase point; at level 4 an erase of everything;
 * at level 5 the erase's beginning and end, each tag and each saved value. While erases are traced, the beginning and
 * the tags are at level 4 until the first value is saved.
 */
PARAMSET_API uint32_t erasePs(uint32_t cam, int32_t pipe, uint32_t frame);

/**
 * Forwards a command to the external processor, see zarn_ops.
 *
 * @param cam   camera id, 0 to 4
 * @param code  command code, 0x8000 to 0x800A
 * @param arg   passed on by the codes 0x8000 to 0x8003
 * @param in    passed on, or read: 0x8006 and 0x800A read a uint32 there, 0x8007 a byte; those three need it
 * @param out   passed on by 0x8006 and 0x8007
 * @return what the operation returns, or
 *         0: also for an unknown code. This is intended; the code is logged at level 1.
 *         PS_OUT_OF_LIMIT (1): there is no such camera (logged at level 1).
 *         PS_NO_DATA (2): no store, no such operation, or a null @p in where it is read (logged at level 1).
 *
 * Thread-safe once the handles and operations are set. Takes no lock; blocks as long as the operation does.
 */
PARAMSET_API uint32_t ioctrlOutsidePsParam(uint32_t cam, uint32_t code, int32_t arg, void* in, void* out);

#ifdef __cplusplus
} /* extern "C" */

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zarn {

using ::DEFAULT_WAIT_MS;
using ::MAX_CAM_NUM;
using ::MAX_PIPE_NUM;
using ::METADATA_TAG;
using ::THE_LAST;

class ParamSet;
class PipeStore;
class StoreLock;
class TagReader;
struct IndexedFrame;
struct RegisteredTag;

/**
 * Makes the value buffers of one tag. Owned by the registry.
 *
 * Everything here is inline: the library is built without run-time type information, and a program that derives from
 * this class with run-time type information would otherwise miss symbols.
 */
class creator_base_t {
public:
    /**
     * Makes a buffer, filled from @p src unless that is null. Returns a shared pointer to null if the allocation
     * failed.
     *
     * The store calls it with its mutex held, so it must not get, set, erase or throw, nor register a tag while another
     * thread may hold gRigisterMutex. It may use the operations of the frame that the buffer is for (which does not
     * have the tag yet), and it may destroy the store, which then lives until the call returns.
     *
     * If a get makes the buffer, it returns the bytes as a program's own creator leaves them. The buffers of the C
     * registration functions begin as zeros then.
     *
     * The store calls a program's own creator for every buffer. For a tag that was registered with a C function, it may
     * reuse an erased buffer instead.
     */
    virtual std::shared_ptr<void> create(void* src) const = 0;
    virtual ~creator_base_t() = default;
};

template <typename T>
class param_creator_t;

/** Makes buffers of a fixed number of bytes. */
template <>
class param_creator_t<char> : public creator_base_t {
public:
    /** @param size  bytes of a buffer; 0 makes buffers of one byte that start as zero */
    explicit param_creator_t(uint32_t size)
        : mSize(size != 0 ? static_cast<int32_t>(size) : 1), mUseMalloc(size != 0) {}

    /** The bytes are undefined when @p src is null and the size is not 0. */
    std::shared_ptr<void> create(void* src) const override {
        // What a program's operator new throws must not pass through the store: it ends the process here.
        const auto make = [this]() noexcept -> std::shared_ptr<void> {
            if (mUseMalloc == 0) return std::shared_ptr<char>(new char(0));
            return std::shared_ptr<void>(std::malloc(static_cast<size_t>(mSize)), std::free);
        };
        std::shared_ptr<void> buffer = make();
        if (src != nullptr && buffer != nullptr) std::memcpy(buffer.get(), src, static_cast<size_t>(mSize));
        return buffer;
    }

    int32_t mSize;        ///< bytes of a buffer
    uint32_t mUseMalloc;  ///< nonzero unless the registered size was 0
};

/** What the registry knows of a tag. */
struct tag_info_t {
    std::string mDataType;                     ///< type of the value, only logged
    std::string mName;                         ///< name of the tag, only logged
    std::shared_ptr<creator_base_t> mCreator;  ///< null: the tag counts as unregistered when a buffer is wanted
    int32_t mTagType = 0;                      ///< 1: frame 0 only; 2: trimmed to mRetainNum; others: erased explicitly
    int32_t mSize = 0;                         ///< bytes of a value
    int32_t mRetainNum = 0;                    ///< an erase of frame F removes values at or below F - mRetainNum
};

/**
 * The registry: tag id to what is known of the tag. It lives from load to unload of the library, with or without a
 * store. The library only adds entries, with gRigisterMutex held.
 *
 * A program may read it and add to it with gRigisterMutex held. While there is no store and no call runs, a program may
 * also change and remove entries: the next store starts with the registry as it is then.
 */
extern PARAMSET_API std::map<uint32_t, tag_info_t> gTagInfo;

/**
 * Held while the registry changes. No operation of the store waits for it, so a program that holds it may call the
 * store, but must not register tags. While it is held, operations find the tags that the library registered; a store
 * that was built meanwhile finds none. Two things happen only at the first look-up of a tag after the mutex was
 * released: a tag that a program added is found, and the empty entry of an unregistered tag is made.
 */
extern PARAMSET_API std::mutex gRigisterMutex;

/**
 * Log switches, read from the properties "persist.vendor.cam.log.ps", ".tag" and ".erase" when a store is built; 0 when
 * unset. They choose levels, and suppress nothing. Shared by all threads without a lock: read and write them with
 * relaxed atomic builtins.
 */
extern PARAMSET_API int ps_log;        ///< nonzero while a call handles the traced tag: it is traced at level 4, not 5
extern PARAMSET_API int ps_log_tag;    ///< the tag to trace
extern PARAMSET_API int ps_log_erase;  ///< nonzero traces every explicit erase

/** The record through which a synchronous set wakes the synchronous gets of the same tag and frame. */
struct FrameStatus {
    uint32_t mFrameID = 0;          ///< frame id of the last get that began to wait here; stays 0 in frame 0
    int32_t mState = 0;             ///< 0: nothing yet; 1: delivered; 2: waited for. Changes under the store's mutex
    std::condition_variable mCond;  ///< notified by a synchronous set and by an erase
    std::mutex mMutex;              ///< held only by a waiting get, around its timed wait; a set never takes it
};

/**
 * The values of one frame of one pipe: a buffer per tag, the frame's metadata, the status records.
 *
 * Takes no lock: the caller must make sure that no other thread uses the frame. The store uses its mutex for that.
 */
class ParamFrame {
public:
    /**
     * @param camID    camera id, only logged
     * @param frameID  frame id, only logged
     * @param owner    the store; kept, not used, may be null
     * @param tagInfo  the registry to find creators in; must outlive the frame
     *
     * Logs at level 5, as does the destructor.
     */
    PARAMSET_API ParamFrame(uint32_t camID, uint32_t frameID, ParamSet* owner, std::map<uint32_t, tag_info_t>* tagInfo);
    PARAMSET_API ~ParamFrame();
    ParamFrame(const ParamFrame&) = delete;
    ParamFrame& operator=(const ParamFrame&) = delete;

    /**
     * Makes a new buffer for the tag, filled from @p src unless that is null. Existing references to the old one stay
     * valid. The frame has the new one only after the tag's creator has returned.
     *
     * @return the buffer; empty if the tag is not registered (logged at level 1), or if the allocation failed
     */
    PARAMSET_API std::shared_ptr<void> createTag(uint32_t tag, void* src);

    /**
     * The tag's buffer, shared; empty if the frame has none.
     *
     * An erase releases only the frame's reference. If there is no other reference then, the store may reuse the buffer
     * for a later frame. A std::weak_ptr to the buffer may then stay valid, and refer to the value of that frame.
     */
    PARAMSET_API std::shared_ptr<void> getTag(uint32_t tag);

    /** Whether the frame has an entry for the tag. */
    PARAMSET_API bool existTag(uint32_t tag);

    /** Removes the tag's buffer, if there is one. The status record stays. Always 0. */
    PARAMSET_API int eraseTag(uint32_t tag);

    /** The number of tags that the frame has. */
    PARAMSET_API uint32_t getActiveTagSize();

    /** The frame's own metadata, null if none; valid until the next setMetadata or the end of the frame. */
    PARAMSET_API camera_metadata* getMetadata();

    /** Keeps a clone of @p src; frees the clone it had before (logged at level 5). Always 0. */
    PARAMSET_API int setMetadata(const camera_metadata* src);

    ParamSet* mParamSet;                              ///< the store; not owned
    uint32_t mCamID;                                  ///< camera id
    uint32_t mFrameID;                                ///< frame id, 0 for a pipe's frame 0
    std::map<uint32_t, tag_info_t>* mTagInfo;         ///< the registry; not owned
    std::map<uint32_t, std::shared_ptr<void>> mTags;  ///< tag id to value buffer
    std::shared_ptr<camera_metadata> mMetadata;       ///< own copy, or null
    std::map<uint32_t, FrameStatus> mStatus;          ///< tag id to status record
};

/** One pipe of a camera. Guarded by the store's mutex. */
struct pipe_elem {
    std::shared_ptr<ParamFrame> mF0;                                         ///< frame 0; never erased
    std::map<uint32_t, std::shared_ptr<ParamFrame>> mFrames;                 ///< live frames, by frame id
    std::map<uint32_t, std::shared_ptr<std::vector<uint32_t>>> mCheckPoint;  ///< by tag: ascending ids of frames that
                                                                             ///< were given a value; may be null
    std::map<uint32_t, uint32_t> mErasePoint;                                ///< by tag: last erased frame id
};

/** One camera. */
struct cam_elem {
    pipe_elem mPipe[MAX_PIPE_NUM];  ///< by pipe index
    void* mHandle[7];               ///< the external processor's handles; not owned
};

/**
 * The store. A process has at most one at a time.
 *
 * A static operation does the same as the C function with a similar name: getParam is getPsParam, and so on.
 */
class ParamSet {
public:
    /**
     * Builds the store, or returns the one that exists. Cameras 0 to 4 each get 14 pipes with a frame 0, and the log
     * switches are read.
     *
     * Thread-safe. If another thread calls destroyInstance at the same time, the pointer that this returns may already
     * be dangling. If a program holds gRigisterMutex, waits for it up to half a second. Logs at level 3 when it builds.
     *
     * @return the store; owned by the library, valid until destroyInstance. Null only if the process is exiting
     */
    PARAMSET_API static ParamSet* createInstance();

    /** The store, or null; owned by the library, valid until destroyInstance. Thread-safe, logs nothing. */
    PARAMSET_API static ParamSet* getInstance();

    /**
     * Destroys the store. A call that begins after this has returned, or after getInstance has returned null, finds no
     * store. Running calls finish on the old store, and the last of them destroys it. Registered tags stay; values,
     * handles and operations are lost. Thread-safe; may be called within a command, a creator or the log. Logs at
     * level 3.
     */
    PARAMSET_API static void destroyInstance();

    /**
     * What the C registration functions call.
     *
     * @param creator  made with new; the library takes ownership, even if the tag is registered already. If it is null,
     *                 the tag gets an entry without buffers
     *
     * Otherwise the same as registerPsQueueParam.
     */
    template <typename T>
    static void register_tag(uint32_t tag, param_creator_t<T>* creator, int tagType, const char* name,
                             const char* dataType, int retainNum);

    /**
     * Copies the registry into @p out, replacing what it holds. Thread-safe. Logs nothing.
     *
     * If a program holds gRigisterMutex, waits for it up to half a second; while there is a store only a millisecond,
     * after which it leaves out what only a program has added.
     */
    PARAMSET_API static void getTagInfo(std::map<uint32_t, tag_info_t>& out);

    /** See getPsParam. */
    PARAMSET_API static uint32_t getParam(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data);
    /** See setPsParam. */
    PARAMSET_API static uint32_t setParam(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data);
    /** See getPsParamSyn. */
    PARAMSET_API static uint32_t getParamSyn(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data);
    /** See getPsParamSynTimeout. */
    PARAMSET_API static uint32_t getParamSynTimeout(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data,
                                                    uint32_t timeout);
    /** See setPsParamSyn. */
    PARAMSET_API static uint32_t setParamSyn(uint32_t cam, int pipe, uint32_t frame, uint32_t tag, void* data);
    /** See erasePs. */
    PARAMSET_API static uint32_t erase(uint32_t camID, int pipe, uint32_t frameID);

    /**
     * The metadata of a frame of a camera. If the frame has none, the newest earlier frame that has some answers; if
     * there is none, frame 0. Frame 0 also answers for a frame at or below the metadata's erase point.
     *
     * @param camID    camera id, 0 to 4
     * @param frameID  frame id; 0 is the standing frame, THE_LAST is an id like others
     * @return the store's own copy; the caller must not free it. Null if there is none (also if the frame that had it
     * was erased and made again), if there is no store, or if the camera is out of limit. Valid until metadata is
     * stored for the same frame again (for frame 0's: for any frame at or below the erase point) or the frame is
     * erased. No lock protects the reader
     *
     * Thread-safe; waits only for the store's mutex. Logs at level 1 a camera out of limit; at level 2 a fall-back to
     * frame 0 because of the erase point, or because the frame that had the metadata is gone.
     */
    PARAMSET_API static camera_metadata* getMetadata(uint32_t camID, uint32_t frameID);

    /**
     * Keeps a clone of @p metadata for a frame of a camera, in pipe 0, and frees the frame's earlier clone. For a frame
     * at or below the metadata's erase point, frame 0 keeps the clone. A frame that does not exist is made.
     *
     * @param camID     camera id, 0 to 4
     * @param frameID   frame id; 0 is the standing frame, THE_LAST is an id like others
     * @param metadata  owned by the caller; not used after the call
     * @return PS_OK (0): stored. PS_OUT_OF_LIMIT (1): the camera is out of limit. PS_NO_DATA (2): @p metadata is null,
     *         or there is no store.
     *
     * Thread-safe; waits only for the store's mutex. Logs at level 1 a camera out of limit; at level 2 that frame 0
     * keeps the clone; at level 5 each freed clone.
     *
     * Metadata is erased with its frame in pipe 0: if only other pipes are erased, the store grows with every frame
     * that is given metadata. Its list of frames grows with each call until pipe 0 is erased, even if trimming removes
     * the frames, and even if all calls name the same frame.
     */
    PARAMSET_API static uint32_t setMetadata(uint32_t camID, uint32_t frameID, const camera_metadata* metadata);

    /** Installs a copy of the operations table, replacing all of the earlier one. @p ops not null. Set-up only. */
    PARAMSET_API void setPsOps(zarn_ops* ops);

    /**
     * Keeps the seven handles of a camera, in order. The store neither owns nor dereferences them, and passes handles 1
     * to 3 to no operation. Set-up only. For a camera out of limit nothing is kept. Logs nothing.
     */
    PARAMSET_API void setPsHandle(uint32_t cam, void* handle0, void* handle1, void* handle2, void* handle3,
                                  void* handle4, void* handle5, void* handle6);

    /**
     * The camera's record; owned by the store. The store's mutex guards the pipes, and a caller cannot lock it: use the
     * record only in tests, tools and set-up. If there is no such camera, returns null and logs at level 1; otherwise
     * logs at level 5.
     *
     * Only read the members, and change a frame only through its own operations. The store remembers positions in the
     * maps. After any other change, call this function again before the store is used. Without that call the store
     * notices if the size of a map, frame 0 or the frame in an entry has changed. It does not notice if a program adds
     * as many entries as it removes, and may then use freed memory.
     */
    PARAMSET_API cam_elem* getPsHandle(uint32_t cam);

    /**
     * Reads a parameter of the external processor through `cmd3`. Passes it handle 6, the tag, and the address 8 bytes
     * past @p data (the address 8 if @p data is null). @p pipe and @p frame are not used.
     *
     * @return what `cmd3` returns; -1, with a line at level 1, if there is no `cmd3` or no such camera
     *
     * Thread-safe once the handles and operations are set. Takes no lock; blocks as long as the operation does.
     */
    PARAMSET_API int getParamExternal(uint32_t cam, int32_t pipe, uint32_t frame, uint32_t tag, void* data);

    /** See ioctrlOutsidePsParam. */
    PARAMSET_API static uint32_t ioctrlOutsideParam(uint32_t cam, uint32_t code, int32_t arg, void* in, void* out);

    /** Public only for the library's own pointer to the store, which calls it when the last call has returned. */
    ~ParamSet();
    ParamSet(const ParamSet&) = delete;
    ParamSet& operator=(const ParamSet&) = delete;

private:
    friend struct IndexCheck;  // in tests/index_test.cpp

    class Hold;       // keeps the store alive for the length of a call
    class Pipes;      // the pipes of all cameras, and the registry as the store reads it
    struct Request;   // an access to a value
    struct Answer;    // what answers it
    struct Awaited;   // what a synchronous get found
    struct Writable;  // where a synchronous set writes
    struct Erasure;   // the outcome of an erase
    struct Command;   // for the external processor
    struct Layout;    // checks at compile time that no data member moves

    ParamSet();

    // Begins an access to a pipe: if a program has changed the pipe, forgets the remembered addresses. Camera and pipe
    // must be within their limits.
    PipeStore& pipeStore(uint32_t camID, int pipe) PARAMSET_REQUIRES(mMutex);
    // The registry as this store reads it.
    TagReader& tagReader() PARAMSET_REQUIRES(mMutex);
    // Begins an access to a value.
    Request requestFor(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, int modifiable)
        PARAMSET_REQUIRES(mMutex);

    // Resolution. A buffer is returned as a reference to the frame's own entry, without counting a reference. An empty
    // shared pointer means that there is no buffer.

    // What answers a plain get, or where a plain set writes. Refuses a pipe out of limit.
    Answer getParamInternal(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, int modifiable)
        PARAMSET_REQUIRES(mMutex);
    // The check before a synchronous access: PS_NOT_OF_FRAME if the frame is erased for the tag.
    uint32_t preproc(const Request& request) PARAMSET_REQUIRES(mMutex);
    // The buffer of a frame that the pipe has, or what permiProc finds or makes.
    const std::shared_ptr<void>& getDirectly(const Request& request, IndexedFrame& frame) PARAMSET_REQUIRES(mMutex);
    // Frame 0's buffer, made if there is none.
    const std::shared_ptr<void>& getF0(const Request& request) PARAMSET_REQUIRES(mMutex);
    // A read: the buffer of the newest checkpoint, or frame 0's. A write: adds a checkpoint and makes the frame's
    // buffer; the pipe must have the frame.
    const std::shared_ptr<void>& permiProc(const Request& request) PARAMSET_REQUIRES(mMutex);
    // As permiProc, for a frame that the pipe does not have; a write makes the frame.
    const std::shared_ptr<void>& createNew(const Request& request) PARAMSET_REQUIRES(mMutex);
    // The bytes of a tag's values; 0 if it is not registered.
    static uint32_t getSize(const RegisteredTag* registered);
    // The newest of the ids at or before an id; 0 if there is none. Null is an empty list.
    static uint32_t findRelated(const std::vector<uint32_t>* ids, uint32_t desID);

    // The plain get and set, which copy.
    uint32_t _getParam(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data) PARAMSET_REQUIRES(mMutex);
    uint32_t _setParam(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data) PARAMSET_REQUIRES(mMutex);

    // The synchronous get and set. Both take the mutex.
    uint32_t _getParamSyn(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data, uint32_t timeout)
        PARAMSET_EXCLUDES(mMutex);
    uint32_t _setParamSyn(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag, void* data)
        PARAMSET_EXCLUDES(mMutex);
    // What answers the synchronous get of frame 0, or of another frame. The lock holds mMutex. A wait releases it, so
    // everything that was looked up before the wait must be looked up again.
    Awaited awaitF0(const Request& request, StoreLock& lock, uint32_t timeout) PARAMSET_REQUIRES(mMutex);
    Awaited awaitFrame(const Request& request, StoreLock& lock, uint32_t timeout) PARAMSET_REQUIRES(mMutex);
    // The frame that is named, made if there is none, and its buffer.
    Writable findWritable(const Request& request) PARAMSET_REQUIRES(mMutex);

    // What erasePs does.
    Erasure _erase(uint32_t camID, int pipe, uint32_t frameID) PARAMSET_REQUIRES(mMutex);
    // Copies the value that a get of the frame would find into frame 0. Returns the result of that set.
    uint32_t saveToF0(uint32_t camID, int pipe, uint32_t frameID, uint32_t tag) PARAMSET_REQUIRES(mMutex);
    // What saveToF0 does if there is no value to copy. Returns the result of a set without data.
    uint32_t saveNothingToF0(uint32_t camID, int pipe, uint32_t tag) PARAMSET_REQUIRES(mMutex);

    // What getMetadata and setMetadata do.
    camera_metadata* _getMetadata(uint32_t camID, uint32_t frameID) PARAMSET_REQUIRES(mMutex);
    uint32_t _setMetadata(uint32_t camID, uint32_t frameID, const camera_metadata* metadata) PARAMSET_REQUIRES(mMutex);

    // The same as the public function, for the library itself, which only reads the camera's element. Both log the same
    // name.
    const cam_elem* getPsHandle(uint32_t cam) const;
    // Calls the operation of a command code.
    uint32_t forward(const cam_elem* elem, const Command& command) PARAMSET_EXCLUDES(mMutex);

    static std::shared_ptr<ParamSet> sInstance;  // atomic operations on shared pointers only

    zarn_ops mOps;                                   // set-up only
    std::mutex mMutex;                               // guards what each pipe holds
    std::map<int, std::shared_ptr<cam_elem>> mElem;  // cameras 0 to 4 from construction to destruction
    // The pipes of all cameras. Constant from construction to destruction.
    std::unique_ptr<Pipes> mPipes PARAMSET_PT_GUARDED_BY(mMutex);
};

/** The only specialisation: values are plain bytes. */
template <>
PARAMSET_API void ParamSet::register_tag<char>(uint32_t tag, param_creator_t<char>* creator, int tagType,
                                               const char* name, const char* dataType, int retainNum);

}  // namespace zarn
#endif /* __cplusplus */

#endif /* PARAMSET_H */
