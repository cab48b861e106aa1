/* A program that uses the store but does not create it. */

#include <paramset.h>

int main(void) {
    uint32_t value = 0;
    registerPsStaticParam(1, sizeof(value), 1, "value", "uint32_t");
    return getPsParam(0, 0, 1, 1, &value) == PS_NO_DATA ? 0 : 1;
}
