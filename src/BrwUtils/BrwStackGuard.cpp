#include "BrwUtils/BrwStackGuard.h"

#include <algorithm>
#include <pthread.h>
#include <sys/resource.h>

namespace Brw {

uintptr_t StackGuard::lowestSafeAddress() {
    static uintptr_t lowest = [] {
        // The main thread's stack grows on demand up to the soft limit, checked at each growth: raising
        // the limit here gives script recursion room before the first deep call.
        struct rlimit limit {};
        if (getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
            limit.rlim_cur < STACK_BYTES) {
            limit.rlim_cur =
                limit.rlim_max == RLIM_INFINITY ? STACK_BYTES : std::min<rlim_t>(STACK_BYTES, limit.rlim_max);
            setrlimit(RLIMIT_STACK, &limit);
        }
        uintptr_t address = 0;
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            void* stackLow = nullptr;
            size_t stackSize = 0;
            if (pthread_attr_getstack(&attributes, &stackLow, &stackSize) == 0 && stackSize > RESERVE_BYTES) {
                address = reinterpret_cast<uintptr_t>(stackLow) + RESERVE_BYTES;
            }
            pthread_attr_destroy(&attributes);
        }
        return address;
    }();
    return lowest;
}

} // namespace Brw
