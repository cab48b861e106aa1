// A program's own operator new, which fails on request.

#ifndef PARAMSET_TESTS_OUT_OF_MEMORY_H
#define PARAMSET_TESTS_OUT_OF_MEMORY_H

extern bool gIsOutOfMemory;

#endif  // PARAMSET_TESTS_OUT_OF_MEMORY_H
