#pragma once
#include <vector>

namespace tolm {

// Which processes of a host form one socket (or NUMA-node) shared-memory group, from the
// sockets (nodes) each process's binding touches. Pure arithmetic on the host's shared view,
// so that every process of the host reaches the same answer without further talk.
class ShmemGroups {
  public:
    // units[r]: the sockets (nodes) host rank r may run on, ascending.
    using UnitLists = std::vector<std::vector<unsigned>>;

    ShmemGroups() = delete;

    // Whether some process of the host runs on more than one socket (node).
    static bool anySpansSeveral(const UnitLists& units);
    // The host ranks in the group of `hostRank`, ascending. When a process spans several
    // units, the host's processes are dealt out in `numberOfUnits` blocks of consecutive host
    // ranks (see evenBlock); otherwise processes on the same unit (or the same unknown one,
    // with an empty list) belong together.
    static std::vector<unsigned> membersOf(unsigned hostRank, const UnitLists& units,
                                           unsigned numberOfUnits);
    // The block of `hostRank` when `hostSize` processes are divided into `blocks` blocks of
    // consecutive ranks: the first hostSize % blocks blocks hold one process more.
    static std::vector<unsigned> evenBlock(unsigned hostRank, unsigned hostSize, unsigned blocks);
};

}  // namespace tolm
