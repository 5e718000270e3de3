/* spl_require.h - preconditions that stop the program in every build type.
 *
 * The assert macro vanishes under NDEBUG and prints whatever path the build used. These checks guard buffers
 * of fixed size, so they stay, and their messages are the same in every build.
 */
#ifndef SPL_REQUIRE_H
#define SPL_REQUIRE_H

/* glibc declares the handler only where assertions are on. */
#undef NDEBUG
#include <assert.h>

inline void require(bool holds, const char* condition, const char* file, const char* function,
                    unsigned line = __builtin_LINE()) {
    if (!holds) __assert_fail(condition, file, line, function);
}

#endif
