#pragma once

namespace tolm {

// The extent of a shared-memory communicator: the processes of one NUMA node, of one socket or
// of one host. The values index Machine's arrays of scope communicators.
enum ShmemScope : unsigned {
    NUMA_SCOPE = 0,
    SOCKET_SCOPE = 1,
    HOST_SCOPE = 2,
};

inline constexpr unsigned numberOfShmemScopes = 3;

// "numa", "socket", "host"
inline const char* shmemScopeName(ShmemScope scope) {
    switch (scope) {
        case NUMA_SCOPE:
            return "numa";
        case SOCKET_SCOPE:
            return "socket";
        default:
            return "host";
    }
}

}  // namespace tolm
