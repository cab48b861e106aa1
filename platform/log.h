// The one logging statement of the library:
//
//     PS_LOG(5, "add checkPoint[%d] size:%d", frameID, size);
//
// prints one line of the module "ParamSet" that begins with its own source line and function name. A level that is
// not printed costs a compare: no argument is evaluated, nothing is called. The format must be a literal, and the
// compiler checks the arguments against it.

#ifndef PARAMSET_LOG_H
#define PARAMSET_LOG_H

#include "platform/platform.h"

namespace zarn {

inline bool isLogged(int level) {
    return __builtin_expect(level <= __atomic_load_n(&pipeline_log_greatest, __ATOMIC_RELAXED), 0) != 0;
}

/// Called when the store is built and before each erase takes the mutex. That is often enough for a setting that is
/// changed by hand. Not called by a get or a set: on a device, asking for the level takes longer than either.
inline void refreshLogLevel() {
    platform_refresh_log_level();
}

}  // namespace zarn

#define PS_LOG(level, ...) PS_LOG_PICK_(__VA_ARGS__, A, A, A, A, A, A, A, A, A, T, )(level, __VA_ARGS__)

// Two macros, for a text with and without arguments: C++17 has no portable way to drop the comma before no arguments.
#define PS_LOG_PICK_(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, kind, ...) PS_LOG_##kind##_
#define PS_LOG_T_(level, text) PS_LOG_LINE_(level, "%d, %s: " text, __LINE__, __func__)
#define PS_LOG_A_(level, text, ...) PS_LOG_LINE_(level, "%d, %s: " text, __LINE__, __func__, __VA_ARGS__)
#define PS_LOG_LINE_(level, ...)                                                                \
    do {                                                                                        \
        const int level_ = (level);                                                             \
        if (zarn::isLogged(level_)) {                                                           \
            _log("ParamSet", static_cast<pipeline_loglevel>(level_)).__print_log_(__VA_ARGS__); \
        }                                                                                       \
    } while (false)

#endif  // PARAMSET_LOG_H
