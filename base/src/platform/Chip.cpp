#include "platform/Chip.h"

namespace tolm {

std::string Chip::vectorizationLevel() const {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f"))
        return "avx512f";
    if (__builtin_cpu_supports("avx2"))
        return "avx2";
    if (__builtin_cpu_supports("avx"))
        return "avx";
    if (__builtin_cpu_supports("sse4.2"))
        return "sse4.2";
    if (__builtin_cpu_supports("sse2"))
        return "sse2";
    return "scalar";
#elif defined(__aarch64__)
    return "neon";
#else
    return "scalar";
#endif
}

}  // namespace tolm
