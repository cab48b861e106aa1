// Plain and synchronous access.

#include <thread>

#include "guide.h"

using namespace std::chrono_literals;

constexpr Parameter<int> AE_RESULT{0x301, "aeResult", dynamicKind()};

int main() {
    const Store store;
    registerOrEnd(AE_RESULT);
    int got = 0;

    // the delivery wakes the waiting get; if the wake-up is lost, the get finds the value when its time is over
    std::thread producer([] { CLAIM(AE_RESULT.deliver(CAMERA, PIPE, Frame{1}, 100) == Result::OK); });
    CLAIM(AE_RESULT.wait(CAMERA, PIPE, Frame{1}, got, 10s) != Result::NOT_OF_FRAME && got == 100);
    producer.join();

    // a value that was delivered before is returned at once
    CLAIM(AE_RESULT.wait(CAMERA, PIPE, Frame{1}, got, 60s) == Result::OK && got == 100);

    // if nothing is delivered in time, the frame before answers, and the result says so
    CLAIM(AE_RESULT.wait(CAMERA, PIPE, Frame{2}, got, 5ms) == Result::NOT_OF_FRAME && got == 100);

    // a plain set delivers nothing: the get waits for its whole time and then finds the value
    setValue(AE_RESULT, Frame{3}, 300);
    CLAIM(AE_RESULT.wait(CAMERA, PIPE, Frame{3}, got, 5ms) == Result::TIMED_OUT && got == 300);

    // a plain get does not wait
    CLAIM(valueOf(AE_RESULT, Frame{4}) == 300);
}
