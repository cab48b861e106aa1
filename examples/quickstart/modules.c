/* Two modules, one after the other: the first gives a value to the second. */

#include <stdio.h>

#include "paramset.h"

enum { CAMERA = 0, PIPE = 2, GAIN_TAG = 0x100 };

int run_modules(void) {
    registerPsDynamicParam(GAIN_TAG, sizeof(float), 0, "gain", "float");

    /* One module delivers the gain of frame 1. This wakes the readers that wait for it. */
    float gain = 1.5f;
    if (setPsParamSyn(CAMERA, PIPE, 1, GAIN_TAG, &gain) != PS_OK) return 1;

    /* Another module reads it, and waits up to 50 ms if it is not there yet. */
    float got = 0;
    if (getPsParamSyn(CAMERA, PIPE, 1, GAIN_TAG, &got) != PS_OK) return 1;
    printf("gain of frame 1: %.1f\n", got);

    /* Nobody delivers the gain of frame 2. After the wait frame 1 answers, and the result says so. */
    if (getPsParamSyn(CAMERA, PIPE, 2, GAIN_TAG, &got) != PS_NOT_OF_FRAME) return 1;
    printf("gain of frame 2, not delivered in time, so of an earlier frame: %.1f\n", got);
    return 0;
}
