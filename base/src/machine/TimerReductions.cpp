// Temporary, until the collectives of Communicator arrive: the all-reduce and the gather that
// Timer's statistics call, with the signatures the collectives will have, for the element
// type Timer uses. Delete this file and the block marked "Temporary" in Communicator.h then.
#include "machine/CommunicatorCall.h"

namespace tolm {

template <typename T>
void Communicator::allReduce(T* data, std::uint64_t count, int op) {
    const int n = MessageLimits::toInt(count);
    communicate("Communicator::AllReduce", count * sizeof(T), -1, [&] {
        return QMX_MPI_Allreduce(QMX_MPI_IN_PLACE, data, n, MpiDatatype<T>::value, op, _handle);
    });
}

template <typename T>
void Communicator::gather(const T* send, std::uint64_t count, T* recv, unsigned int root) {
    const int n = MessageLimits::toInt(count);
    communicate("Communicator::Gather", count * sizeof(T) * _size, -1, [&] {
        return QMX_MPI_Gather(send, n, MpiDatatype<T>::value, recv, n, MpiDatatype<T>::value,
                              static_cast<int>(root), _handle);
    });
}

template void Communicator::allReduce<double>(double*, std::uint64_t, int);
template void Communicator::gather<double>(const double*, std::uint64_t, double*, unsigned int);

}  // namespace tolm
