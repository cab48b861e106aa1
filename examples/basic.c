/* The store in a few lines of C: a value handed from one module to another. */

#include <stdio.h>

#include "paramset.h"

enum { CAMERA = 0, PIPE = 2, GAIN_TAG = 0x100 };

int basic_example(void) {
    registerPsDynamicParam(GAIN_TAG, sizeof(float), 0, "gain", "float");

    /* A module sets the gain of frame 1, and delivers that of frame 2: that wakes whoever waits for it. */
    float gain = 1.5f;
    if (setPsParam(CAMERA, PIPE, 1, GAIN_TAG, &gain) != PS_OK) return 1;
    gain = 2.0f;
    if (setPsParamSyn(CAMERA, PIPE, 2, GAIN_TAG, &gain) != PS_OK) return 1;

    /* Another module reads them: plainly, or waiting up to 50 ms for what was not delivered yet. */
    float got = 0;
    if (getPsParam(CAMERA, PIPE, 1, GAIN_TAG, &got) != PS_OK) return 1;
    printf("gain of frame 1: %.1f\n", got);
    if (getPsParamSyn(CAMERA, PIPE, 2, GAIN_TAG, &got) != PS_OK) return 1;
    printf("gain of frame 2: %.1f\n", got);

    /* Nobody delivers the gain of frame 3: after the wait frame 2 answers, and the result says so. */
    if (getPsParamSyn(CAMERA, PIPE, 3, GAIN_TAG, &got) != PS_NOT_OF_FRAME) return 1;
    printf("gain of frame 3, not delivered in time, so of an earlier one: %.1f\n", got);
    return 0;
}
