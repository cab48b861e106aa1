/**
 * @file
 * The parameter store with types. Each parameter is declared once, with the C++ type of its value:
 *
 *     struct Gain { float analog, digital; };
 *     constexpr zarn::Parameter<Gain> GAIN{0x1003, "gain", zarn::dynamicKind<30>()};
 *
 *     if (GAIN.registerTag() != zarn::Registration::DONE) ...        // once, at start-up
 *     if (GAIN.deliver(camera, pipe, frame, gain) != zarn::Result::OK) ...
 *     if (GAIN.wait(camera, pipe, frame, gain, 20ms) != zarn::Result::OK) ...
 *
 * A value of another type does not compile, nor do camera, pipe and frame in another order. Everything here is inline
 * and has no state. It calls the functions of paramset.h, which describes their behaviour, results and log lines. With
 * a constexpr parameter, get, set, deliver and wait compile to the same code as the plain call (g++ 12 and clang 14 at
 * -O2). Only a time-out that is not known at compile time is converted first.
 */
#ifndef PARAMSET_TYPED_H
#define PARAMSET_TYPED_H

#if __cplusplus < 201703L
#error "paramset_typed.h needs C++17"
#else

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <type_traits>

#include "paramset.h"

namespace zarn {

/** A number with a type of its own, so that it cannot be confused with another kind of number. */
template <typename Name, typename Number>
class Id {
public:
    constexpr explicit Id(Number number) : mNumber(number) {} /**< explicit, so that plain numbers are refused */
    /** The plain number, as the plain functions take it. */
    constexpr Number number() const { return mNumber; }

private:
    Number mNumber;
};

using Camera = Id<struct CameraName, uint32_t>; /**< 0 to 4 */
using Pipe = Id<struct PipeName, int32_t>;      /**< 0 to 13 */
using Frame = Id<struct FrameName, uint32_t>;   /**< start-of-frame number */

/** A pipe's standing frame. */
constexpr Frame FRAME_0{0};
/** For get and set the newest frame, for eraseFrames every frame. For wait and deliver it is an ordinary frame id. */
constexpr Frame LATEST{THE_LAST};

/** Result codes of the library. paramset.h says which call returns which, and why. */
enum class [[nodiscard]] Result : uint32_t{OK = PS_OK,
                                           OUT_OF_LIMIT = PS_OUT_OF_LIMIT,
                                           NO_DATA = PS_NO_DATA,
                                           NOT_OF_FRAME = PS_NOT_OF_FRAME,
                                           TIMED_OUT = PS_TIMED_OUT,
                                           NO_BUFFER = PS_NO_BUFFER};

/** In words. */
constexpr const char* to_string(Result result) {
    switch (result) {
        case Result::OK: return "ok";
        case Result::OUT_OF_LIMIT: return "camera or pipe out of limit";
        case Result::NO_DATA: return "no data, or no store";
        case Result::NOT_OF_FRAME: return "not of this frame: erased, or an earlier one answered";
        case Result::TIMED_OUT: return "timed out";
        case Result::NO_BUFFER: return "no buffer: pipe out of limit, or tag not registered";
    }
    return "unknown result";
}

/** Result of a registration. */
enum class [[nodiscard]] Registration{
    DONE,        /**< the tag is registered as declared, now or before */
    OTHER_SIZE,  /**< registered before, with another size, which stays: using the parameter would corrupt memory */
    OTHER_KIND,  /**< registered before, with another tag type or retain number, which stays */
    RESERVED_TAG /**< METADATA_TAG; nothing was registered */
};

/** In words. */
constexpr const char* to_string(Registration registration) {
    switch (registration) {
        case Registration::DONE: return "registered";
        case Registration::OTHER_SIZE: return "the tag is registered already, with another size";
        case Registration::OTHER_KIND: return "the tag is registered already, with another type or retain number";
        case Registration::RESERVED_TAG: return "the tag is reserved for metadata";
    }
    return "unknown registration";
}

/** How a parameter is kept. Made by the functions below. */
struct Kind {
    int32_t tagType; /**< as the registration functions take it */
    int32_t retain;  /**< the retain number */
};

/** No history: frame 0 serves every frame. */
constexpr Kind staticKind() {
    return {1, 1};
}

/** A value per frame; eraseFrames removes it when it is @p Retain frames behind. */
template <int Retain = 6>
constexpr Kind dynamicKind() {
    static_assert(Retain >= 6, "the store keeps no fewer than 6 frames");
    return {0, Retain};
}

/** A value per frame; the newest @p Retain are kept. */
template <int Retain>
constexpr Kind queueKind() {
    static_assert(Retain >= 6, "the store keeps no fewer than 6 values");
    return {2, Retain};
}

namespace detail {

/** The compiler's name of a type, cut out of the name of this function. */
template <typename T>
constexpr std::string_view typeName() {
    std::string_view name = __PRETTY_FUNCTION__;
    name.remove_prefix(name.find("T = ") + 4);
    return name.substr(0, name.find_first_of(";]"));
}

template <typename T>
constexpr auto typeText() {
    std::array<char, typeName<T>().size() + 1> text{};
    for (size_t i = 0; i + 1 < text.size(); ++i) text[i] = typeName<T>()[i];
    return text;
}

template <typename T>
inline constexpr auto kTypeText = typeText<T>();

/** The time-out in milliseconds, rounded up. At least 1, because 0 means the store's default. */
template <typename Rep, typename Period>
constexpr uint32_t waitOf(std::chrono::duration<Rep, Period> timeout) {
    constexpr uint32_t kLongest = 0xFFFFFFFF;
    if constexpr (std::is_same_v<decltype(timeout), std::chrono::milliseconds>) {
        return timeout.count() < 1 ? 1 : timeout.count() > kLongest ? kLongest : static_cast<uint32_t>(timeout.count());
    } else {
        // A double can hold every duration. Below kLongest it is precise enough.
        const double ms = std::chrono::duration<double, std::milli>(timeout).count();
        if (!(ms > 1)) return 1;
        if (ms >= kLongest) return kLongest;
        const auto whole = static_cast<uint32_t>(ms);
        return whole < ms ? whole + 1 : whole;
    }
}

}  // namespace detail

/** A parameter of the store: a tag and the type of its value. Declare it constexpr, once, in a header of all its users.
 */
template <typename Value>
class Parameter {
    static_assert(std::is_trivially_copyable_v<Value>, "a value is copied byte by byte: it must be trivially copyable");
    static_assert(!std::is_const_v<Value>, "gets write into the value");
    static_assert(sizeof(Value) <= 0x7FFFFFFF, "the store keeps no values as large as this");

public:
    /**
     * @param tag   id of the tag; any number but METADATA_TAG
     * @param name  for the log; must live until registerTag() has returned (a literal does)
     * @param kind  how it is kept
     */
    constexpr Parameter(uint32_t tag, const char* name, Kind kind) : mTag(tag), mName(name), mKind(kind) {}

    constexpr uint32_t tag() const { return mTag; }      /**< id of the tag */
    constexpr const char* name() const { return mName; } /**< as declared */
    constexpr Kind kind() const { return mKind; }        /**< as declared */
    /** The value's type, as the compiler writes it. */
    static constexpr const char* dataType() { return detail::kTypeText<Value>.data(); }

    /**
     * Registers the tag with the size and the name of the value's type. Then checks that the registry has the declared
     * size and kind: an earlier registration with others would win and stay unnoticed. Thread-safe; waits for other
     * registrations.
     */
    Registration registerTag() const {
        if (mTag == METADATA_TAG) return Registration::RESERVED_TAG;
        registerPsQueueParam(mTag, sizeof(Value), mKind.tagType, mName, dataType(), mKind.retain);
        const std::lock_guard<std::mutex> lock(gRigisterMutex);
        const auto registered = gTagInfo.find(mTag);
        if (registered == gTagInfo.end() || registered->second.mSize != static_cast<int32_t>(sizeof(Value))) {
            return Registration::OTHER_SIZE;
        }
        const tag_info_t& info = registered->second;
        const bool same = info.mTagType == mKind.tagType && info.mRetainNum == mKind.retain;
        return same ? Registration::DONE : Registration::OTHER_KIND;
    }

    /** Copies the value that answers for the frame into @p value, without waiting. See getPsParam. */
    Result get(Camera camera, Pipe pipe, Frame frame, Value& value) const {
        return Result{getPsParam(camera.number(), pipe.number(), frame.number(), mTag, &value)};
    }

    /** Sets the value of the frame; wakes nobody. See setPsParam. */
    Result set(Camera camera, Pipe pipe, Frame frame, const Value& value) const {
        return Result{setPsParam(camera.number(), pipe.number(), frame.number(), mTag, bytes(value))};
    }

    /** Gets the value of the frame; if it is not delivered yet, waits once, for at most 50 ms. See getPsParamSyn. */
    Result wait(Camera camera, Pipe pipe, Frame frame, Value& value) const {
        return Result{getPsParamSyn(camera.number(), pipe.number(), frame.number(), mTag, &value)};
    }

    /** The same with a time-out, rounded up to whole milliseconds. See getPsParamSynTimeout. */
    template <typename Rep, typename Period>
    Result wait(Camera camera, Pipe pipe, Frame frame, Value& value, std::chrono::duration<Rep, Period> timeout) const {
        return Result{getPsParamSynTimeout(camera.number(), pipe.number(), frame.number(), mTag, &value,
                                           detail::waitOf(timeout))};
    }

    /** Sets the value of the frame and wakes the gets that wait for it. See setPsParamSyn. */
    Result deliver(Camera camera, Pipe pipe, Frame frame, const Value& value) const {
        return Result{setPsParamSyn(camera.number(), pipe.number(), frame.number(), mTag, bytes(value))};
    }

private:
    /** The store only reads what it is given to set. */
    static void* bytes(const Value& value) { return const_cast<Value*>(&value); }

    uint32_t mTag;
    const char* mName;
    Kind mKind;
};

/** Erases the old frames of a pipe; retain numbers count back from @p newest. See erasePs. */
inline Result eraseFrames(Camera camera, Pipe pipe, Frame newest) {
    return Result{erasePs(camera.number(), pipe.number(), newest.number())};
}

}  // namespace zarn

#endif  // __cplusplus

#endif  // PARAMSET_TYPED_H
