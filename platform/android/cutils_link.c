/* A stub to link with: the symbol of the device's libcutils that the library calls. */

int property_get(void);

int property_get(void) {
    return 0;
}
