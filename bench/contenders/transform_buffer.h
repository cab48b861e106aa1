// tf2, a transform buffer from robotics: it keeps transforms between named frames of reference, by time. Here a camera
// frame is one second of its clock. A value is always a transform of seven doubles, whatever size is asked for. Between
// two time stamps it interpolates. It refuses a time after the newest stamp, so a read there asks for the newest value
// (time 0). A second value for a stamp is ignored. Values older than the cache time are removed automatically; nothing
// else can be erased.

#ifndef PARAMSET_BENCH_TRANSFORM_BUFFER_H
#define PARAMSET_BENCH_TRANSFORM_BUFFER_H

#include <tf2/buffer_core.h>
#include <tf2/exceptions.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench/contender.h"

namespace bench {

class TransformBuffer {
public:
    static constexpr char kName[] = "tf2";
    static constexpr Abilities kAbilities{"interpolated", "yes, by time", "no", "no", "no", false, false};

    TransformBuffer(uint32_t tags, uint32_t) : mBuffer(ros::Duration(kKeptFrames)) {
        for (uint32_t tag = 0; tag < tags; ++tag) {
            geometry_msgs::TransformStamped value;
            value.header.frame_id = "pipe";
            value.child_frame_id = "tag" + std::to_string(tag);
            value.transform.rotation.w = 1;
            mValues.push_back(value);
        }
    }

    void set(uint32_t, uint32_t frame, uint32_t tag, const void* value) {
        geometry_msgs::TransformStamped& message = mValues[tag];
        message.header.stamp = ros::Time(frame, 0);
        std::memcpy(&message.transform.translation.x, value, sizeof message.transform.translation.x);
        mBuffer.setTransform(message, "bench");
        mNewest = frame;
    }
    bool get(uint32_t, uint32_t frame, uint32_t tag, void* value) {
        const ros::Time time = frame > mNewest ? ros::Time() : ros::Time(frame, 0);
        try {
            const auto found = mBuffer.lookupTransform("pipe", mValues[tag].child_frame_id, time);
            std::memcpy(value, &found.transform.translation.x, sizeof found.transform.translation.x);
            return true;
        } catch (const tf2::TransformException&) {
            return false;
        }
    }
    void erase(uint32_t, uint32_t) {}

private:
    static constexpr double kKeptFrames = 16;

    tf2::BufferCore mBuffer;
    std::vector<geometry_msgs::TransformStamped> mValues;
    uint32_t mNewest = 0;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_TRANSFORM_BUFFER_H
