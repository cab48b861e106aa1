// A function with nothing but a log statement. Its disassembly shows the cost if the level is not printed.

#include "platform/log.h"

extern "C" void suppressedMessage(int frame) {
    PS_LOG(5, "add checkPoint[%d] size:%d", frame, 1);
}
