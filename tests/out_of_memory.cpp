// See out_of_memory.h.

#include "tests/out_of_memory.h"

#include <cstdlib>
#include <new>

bool gIsOutOfMemory = false;

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return gIsOutOfMemory ? nullptr : std::malloc(size);
}

void* operator new(size_t size) {
    void* memory = operator new(size, std::nothrow);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
