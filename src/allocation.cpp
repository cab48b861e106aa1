// What the library does when there is no memory (but for a string's, where the C++ library allocates it): it says so,
// and ends the process. It is built without exceptions, and one that passed through it would leave its mutex locked
// behind a caller that catches it. The version script keeps this to the library: a program's own operator new is what
// it falls back on, as everywhere.

#include <new>

#include "platform/calls.h"

void* operator new(std::size_t size) {
    void* memory = ::operator new(size, std::nothrow);
    if (memory == nullptr) zarn::endProcess("paramset: out of memory");
    return memory;
}
