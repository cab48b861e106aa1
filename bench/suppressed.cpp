// A statement whose level is not printed, alone in a function, so that its cost can be read off the disassembly.

#include "platform/log.h"

extern "C" void suppressedMessage(int frame) {
    PS_LOG(5, "add checkPoint[%d] size:%d", frame, 1);
}
