/* A module written in C that includes only the public header: it compiles as C11, links and works. */

#include "paramset.h"

static int gLastArgument;

static int program(void* handle, int64_t argument, void* in) {
    (void)handle;
    (void)in;
    gLastArgument = (int)argument;
    return 0;
}

static int read(void* handle, int32_t argument, void* in) {
    (void)handle;
    (void)argument;
    return (int)(uintptr_t)in;
}

/* Returns the number of the first step that fails, 0 if none does. The store must exist. */
int runCClient(zarn_ops* ops) {
    const uint32_t tag = 0x500;
    uint32_t in = 17;
    uint32_t out = 0;

    registerPsStaticParam(tag + 1, sizeof(in), 1, "cStatic", "uint32_t");
    registerPsDynamicParam(tag, sizeof(in), 0, "cDynamic", "uint32_t");
    registerPsQueueParam(tag + 2, sizeof(in), 2, "cQueue", "uint32_t", 10);
    registerPsDynamicParamWithExtendingLife(tag + 3, sizeof(in), 0, "cLong", "uint32_t", 20);
    ops->cmd0 = program;
    ops->cmd3 = read;

    if (setPsParam(MAX_CAM_NUM - 1, MAX_PIPE_NUM - 1, 10, tag, &in) != PS_OK) return 1;
    if (getPsParam(4, 13, 12, tag, &out) != PS_OK || out != in) return 2;
    if (getPsParam(4, 13, THE_LAST, tag, &out) != PS_OK) return 3;
    if (getPsParam(MAX_CAM_NUM, 0, 1, tag, &out) != PS_OUT_OF_LIMIT) return 4;
    if (getPsParam(0, MAX_PIPE_NUM, 1, tag, &out) != PS_NO_BUFFER) return 5;
    if (setPsParamSyn(0, 0, 5, tag, &in) != PS_OK) return 6;
    out = 0;
    if (getPsParamSyn(0, 0, 5, tag, &out) != PS_OK || out != in) return 7;
    if (getPsParamSynTimeout(0, 0, 6, tag, &out, 1) != PS_NOT_OF_FRAME) return 8;
    if (getPsParamSynTimeout(0, 0, 0, tag, &out, 1) != PS_TIMED_OUT) return 9;
    if (erasePs(0, 0, THE_LAST) != PS_OK) return 10;
    if (getPsParam(0, 0, 5, tag, 0) != PS_NO_DATA) return 11;
    if (ioctrlOutsidePsParam(0, 0x8000, 3, 0, 0) != PS_NO_DATA) return 12;
    return 0;
}

int cClientLastArgument(void) {
    return gLastArgument;
}
