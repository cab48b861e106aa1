/* The declaration of a device's header, for a host that has no such header. A test defines the function. */

#ifndef PARAMSET_TESTS_ANDROID_SET_ABORT_MESSAGE_H
#define PARAMSET_TESTS_ANDROID_SET_ABORT_MESSAGE_H

#ifdef __cplusplus
extern "C"
#endif
    void
    android_set_abort_message(const char* message);

#endif
