// The typed header: what it passes to the store, which wrong registrations it finds, and what does not compile.

#include <chrono>
#include <memory>
#include <string>
#include <tuple>

#include "paramset_typed.h"
#include "tests/store_fixture.h"

using namespace std::chrono_literals;
using zarn::Camera;
using zarn::Frame;
using zarn::Parameter;
using zarn::Pipe;
using zarn::Registration;
using zarn::Result;

namespace {

struct Gain {
    float analog;
    float digital;
};

constexpr Parameter<Gain> GAIN{0x51, "gain", zarn::dynamicKind<30>()};
constexpr Parameter<uint32_t> COUNT{0x52, "count", zarn::dynamicKind()};
constexpr Camera CAMERA{0};
constexpr Pipe PIPE{2};

// Whether get, wait or deliver compiles with given arguments.
template <typename Value, typename... Args>
using Get = decltype(std::declval<const Parameter<Value>&>().get(std::declval<Args>()...));
template <typename Value, typename... Args>
using Wait = decltype(std::declval<const Parameter<Value>&>().wait(std::declval<Args>()...));
template <typename Value, typename... Args>
using Deliver = decltype(std::declval<const Parameter<Value>&>().deliver(std::declval<Args>()...));

template <template <typename...> class Call, typename, typename... Args>
struct Compiles : std::false_type {};
template <template <typename...> class Call, typename... Args>
struct Compiles<Call, std::void_t<Call<Args...>>, Args...> : std::true_type {};
template <template <typename...> class Call, typename... Args>
constexpr bool COMPILES = Compiles<Call, void, Args...>::value;

static_assert(COMPILES<Get, Gain, Camera, Pipe, Frame, Gain&>);
static_assert(!COMPILES<Get, Gain, Pipe, Camera, Frame, Gain&>, "camera and pipe swapped");
static_assert(!COMPILES<Get, Gain, Camera, Frame, Pipe, Gain&>, "pipe and frame swapped");
static_assert(!COMPILES<Get, Gain, uint32_t, int32_t, uint32_t, Gain&>, "plain numbers");
static_assert(!COMPILES<Get, Gain, Camera, Pipe, Frame, uint64_t&>, "another type of the same size");
static_assert(!COMPILES<Get, Gain, Camera, Pipe, Frame, const Gain&>, "a value that cannot be written");
static_assert(COMPILES<Deliver, Gain, Camera, Pipe, Frame, const Gain&>);
static_assert(!COMPILES<Deliver, Gain, Camera, Pipe, Frame, uint64_t>);
static_assert(COMPILES<Wait, Gain, Camera, Pipe, Frame, Gain&, std::chrono::seconds>);
static_assert(!COMPILES<Wait, Gain, Camera, Pipe, Frame, Gain&, int>, "a time-out without a unit");
static_assert(!std::is_convertible_v<uint32_t, Frame> && !std::is_convertible_v<Frame, uint32_t>);

class TypedTest : public StoreTest {};

}  // namespace

TEST_F(TypedTest, RegistersItselfWithTheSizeAndNameOfItsTypeAndItsKind) {
    const Parameter<Gain> queue{0x53, "queue", zarn::queueKind<8>()};
    const Parameter<uint8_t> standing{0x54, "standing", zarn::staticKind()};
    EXPECT_EQ(GAIN.registerTag(), Registration::DONE);
    EXPECT_EQ(COUNT.registerTag(), Registration::DONE);
    EXPECT_EQ(queue.registerTag(), Registration::DONE);
    EXPECT_EQ(standing.registerTag(), Registration::DONE);
    const Lines log = takeLog(3);
    ASSERT_EQ(log.size(), 4u);
    EXPECT_NE(log[0].find("Gain, size:8, tagType:0, retainNum:30"), std::string::npos) << log[0];
    EXPECT_EQ(log[1],
              "3 register_tag: ParamSet tag:82, name:count, dataType:unsigned int, size:4, tagType:0, retainNum:6");
    EXPECT_NE(log[2].find("name:queue"), std::string::npos);
    EXPECT_NE(log[2].find("size:8, tagType:2, retainNum:8"), std::string::npos) << log[2];
    EXPECT_NE(log[3].find("size:1, tagType:1, retainNum:1"), std::string::npos) << log[3];
}

TEST_F(TypedTest, FindsAnEarlierRegistrationThatDisagrees) {
    registerPsDynamicParam(GAIN.tag(), sizeof(Gain) - 4, 0, "gain", "OldGain");
    EXPECT_EQ(GAIN.registerTag(), Registration::OTHER_SIZE);
    EXPECT_EQ(COUNT.registerTag(), Registration::DONE);
    EXPECT_EQ(COUNT.registerTag(), Registration::DONE) << "registering again is no fault";
    EXPECT_EQ((Parameter<uint32_t>{COUNT.tag(), "count", zarn::staticKind()}.registerTag()), Registration::OTHER_KIND);
    EXPECT_EQ((Parameter<uint32_t>{COUNT.tag(), "count", zarn::dynamicKind<9>()}.registerTag()),
              Registration::OTHER_KIND);
    EXPECT_EQ((Parameter<uint32_t>{METADATA_TAG, "x", zarn::staticKind()}.registerTag()), Registration::RESERVED_TAG);
    EXPECT_EQ(zarn::gTagInfo.count(METADATA_TAG), 0u);
    // A tag that is set twice before its registration gets an empty entry, which stays.
    const Parameter<uint32_t> early{0x55, "early", zarn::queueKind<6>()};
    EXPECT_EQ(early.set(CAMERA, PIPE, Frame{1}, 1), Result::NO_BUFFER);
    EXPECT_EQ(early.set(CAMERA, PIPE, Frame{2}, 1), Result::NO_BUFFER);
    EXPECT_EQ(early.registerTag(), Registration::OTHER_SIZE);
}

TEST_F(TypedTest, PassesValuesAndResultsUnchanged) {
    ASSERT_EQ(GAIN.registerTag(), Registration::DONE);
    ASSERT_EQ(COUNT.registerTag(), Registration::DONE);
    EXPECT_EQ(GAIN.set(CAMERA, PIPE, Frame{10}, {1.5f, 2.0f}), Result::OK);
    EXPECT_EQ(GAIN.deliver(CAMERA, PIPE, Frame{11}, {3.0f, 4.0f}), Result::OK);
    Gain got{};
    EXPECT_EQ(GAIN.get(CAMERA, PIPE, Frame{10}, got), Result::OK);
    EXPECT_EQ(got.digital, 2.0f);
    EXPECT_EQ(GAIN.get(CAMERA, PIPE, zarn::LATEST, got), Result::OK);
    EXPECT_EQ(got.digital, 4.0f);
    EXPECT_EQ(GAIN.wait(CAMERA, PIPE, Frame{11}, got), Result::OK);
    EXPECT_EQ(GAIN.wait(CAMERA, PIPE, Frame{12}, got, 3ms), Result::NOT_OF_FRAME);
    EXPECT_EQ(GAIN.wait(CAMERA, PIPE, zarn::FRAME_0, got, 1500us), Result::TIMED_OUT);
    EXPECT_EQ(GAIN.get(Camera{5}, PIPE, Frame{10}, got), Result::OUT_OF_LIMIT);
    EXPECT_EQ(GAIN.get(CAMERA, Pipe{14}, Frame{10}, got), Result::NO_BUFFER);
    uint32_t plain = 0;
    EXPECT_EQ(COUNT.set(CAMERA, PIPE, Frame{20}, 77), Result::OK);
    EXPECT_EQ(getPsParam(0, 2, 20, COUNT.tag(), &plain), PS_OK);
    EXPECT_EQ(plain, 77u);
    EXPECT_EQ(zarn::eraseFrames(CAMERA, PIPE, Frame{40}), Result::OK);
    EXPECT_EQ(frames(), std::vector<uint32_t>({11})) << "the gain is kept 30 frames, the count 6";
    zarn::ParamSet::destroyInstance();
    EXPECT_EQ(COUNT.set(CAMERA, PIPE, Frame{20}, 77), Result::NO_DATA);
    EXPECT_STREQ(to_string(Result::TIMED_OUT), "timed out");
    EXPECT_STREQ(to_string(Registration::OTHER_SIZE), "the tag is registered already, with another size");
}

TEST(TypedTimeout, NeverBecomesTheStoresDefaultOrWrapsAround) {
    using zarn::detail::waitOf;
    EXPECT_EQ(waitOf(0ms), 1u);
    EXPECT_EQ(waitOf(-5s), 1u);
    EXPECT_EQ(waitOf(1001us), 2u);
    EXPECT_EQ(waitOf(2s), 2000u);
    EXPECT_EQ(waitOf(std::chrono::hours::max()), 0xFFFFFFFFu);
    EXPECT_EQ(waitOf(std::chrono::milliseconds::max()), 0xFFFFFFFFu);
    EXPECT_EQ(waitOf(std::chrono::duration<double>(0.0101)), 11u);
}
