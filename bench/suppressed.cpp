// A log statement alone in a function. The disassembly shows what it costs if its level is not printed.

#include "platform/log.h"

extern "C" void suppressedMessage(int frame) {
    PS_LOG(5, "add checkPoint[%d] size:%d", frame, 1);
}
