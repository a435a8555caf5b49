#pragma once
#include <cstddef>
#include <type_traits>

#include "machine/hybrid/ShmemWindowBase.h"

namespace tolm {

// `count` values of T shared by the processes of a host (or of `comm`), constructed by none:
// T must be trivially copyable, and the block starts zeroed only where MPI zeroes it.
//
//     ShmemWindow<double> block(n);
//     if (Machine::sharedMemCommunicator(HOST_SCOPE).myRank() == 0) block[0] = 1.0;
//     block.fence();   // every process now reads block[0] == 1.0
template <typename T>
class ShmemWindow : public ShmemWindowBase {
    static_assert(std::is_trivially_copyable_v<T>, "shared memory holds plain values");

  public:
    explicit ShmemWindow(std::size_t count)
        : ShmemWindowBase(count * sizeof(T), sizeof(T)), _count(count) {}
    ShmemWindow(std::size_t count, Communicator& comm)
        : ShmemWindowBase(count * sizeof(T), sizeof(T), comm), _count(count) {}

    std::size_t size() const { return _count; }
    T* data() const { return static_cast<T*>(getBaseAddress()); }
    T& operator[](std::size_t i) const { return data()[i]; }
    using ShmemWindowBase::fence;

  private:
    std::size_t _count;
};

}  // namespace tolm
