// If an allocation of the library fails, prints a line and ends the process. (Not so for a std::string, whose memory
// the C++ library may allocate itself.) The library is built without exceptions: one that passed through it would leave
// its mutex locked, even if the caller caught it. The version script hides this operator new from the program.
// It calls the global one, which a program may replace.

#include <new>

#include "platform/calls.h"

void* operator new(std::size_t size) {
    void* memory = ::operator new(size, std::nothrow);
    if (memory == nullptr) zarn::endProcess("paramset: out of memory");
    return memory;
}
