#pragma once
// Typed front-ends of Communicator's collectives; included by Communicator.h after the class.
#include <type_traits>

#include "machine/comm/Communicator.h"

namespace tolm::detail {

template <typename SizeType>
SizeType narrowCount(std::uint64_t count) {
    if constexpr (std::is_same_v<SizeType, int>) {
        return MessageLimits::toInt(count);
    } else {
        return MessageLimits::toUnsigned(count);
    }
}

template <typename SizeType, typename T>
ConstBufferBase<SizeType> constView(const T* data, std::uint64_t count) {
    return {data, narrowCount<SizeType>(elementsOf<T>(count)), MpiDatatype<T>::value,
            elementSizeOf<T>()};
}

template <typename SizeType, typename T>
BufferBase<SizeType> view(T* data, std::uint64_t count) {
    return {data, narrowCount<SizeType>(elementsOf<T>(count)), MpiDatatype<T>::value,
            elementSizeOf<T>()};
}

// Per-rank counts and displacements of T values as counts of wrapper elements.
template <typename T, typename SizeType>
std::vector<SizeType> inElements(const std::vector<SizeType>& values) {
    if constexpr (MpiDatatype<T>::isNative) {
        return values;
    } else {
        std::vector<SizeType> elements(values.size());
        for (std::size_t i = 0; i < values.size(); ++i) {
            elements[i] = narrowCount<SizeType>(elementsOf<T>(std::uint64_t(values[i])));
        }
        return elements;
    }
}

template <typename T>
constexpr void requireNativeForReduction() {
    static_assert(MpiDatatype<T>::isNative, "reductions need an arithmetic element type");
}

}  // namespace tolm::detail

namespace tolm {

template <typename T>
void Communicator::gather(const T* send, std::uint64_t count, T* recv, unsigned int root) {
    const std::uint64_t received = myRank() == root ? count * size() : 0;
    gather(detail::constView<unsigned int>(send, count), detail::view<unsigned int>(recv, received),
           root);
}

template <typename T>
void Communicator::gather(const T& value, std::vector<T>& recv, unsigned int root) {
    recv.assign(myRank() == root ? size() : 0, T{});
    gather(&value, 1, recv.data(), root);
}

template <typename T>
void Communicator::allGather(const T* send, std::uint64_t count, T* recv) {
    allGather(detail::constView<unsigned int>(send, count),
              detail::view<unsigned int>(recv, count * size()));
}

template <typename T>
void Communicator::allGather(const T& value, std::vector<T>& recv) {
    recv.assign(size(), T{});
    allGather(&value, 1, recv.data());
}

template <typename T>
void Communicator::scatter(const T* send, std::uint64_t count, T* recv, unsigned int root) {
    const std::uint64_t sent = myRank() == root ? count * size() : 0;
    scatter(detail::constView<unsigned int>(send, sent), detail::view<unsigned int>(recv, count),
            root);
}

template <typename T, typename SizeType>
void Communicator::gatherVector(const T* send, SizeType sendCount, T* recv,
                                const std::vector<SizeType>& counts,
                                const std::vector<SizeType>& displacements, unsigned int root) {
    std::uint64_t total = 0;
    for (const SizeType count : counts)
        total += std::uint64_t(count);
    MessageLimits::checkTotalCount(total);
    gatherVector(detail::constView<SizeType>(send, std::uint64_t(sendCount)),
                 detail::view<SizeType>(recv, myRank() == root ? total : 0),
                 detail::inElements<T>(counts), detail::inElements<T>(displacements), root);
}

template <typename T>
void Communicator::allGatherVector(const T* send, unsigned int sendCount, T* recv,
                                   const UnsignedCounts& counts,
                                   const UnsignedCounts& displacements) {
    std::uint64_t total = 0;
    for (const unsigned int count : counts)
        total += count;
    MessageLimits::checkTotalCount(total);
    allGatherVector(detail::constView<unsigned int>(send, sendCount),
                    detail::view<unsigned int>(recv, total), detail::inElements<T>(counts),
                    detail::inElements<T>(displacements));
}

template <typename T, typename SizeType>
void Communicator::scatterVector(const T* send, const std::vector<SizeType>& counts,
                                 const std::vector<SizeType>& displacements, T* recv,
                                 SizeType recvCount, unsigned int root) {
    std::uint64_t total = 0;
    for (const SizeType count : counts)
        total += std::uint64_t(count);
    MessageLimits::checkTotalCount(total);
    scatterVector(detail::constView<SizeType>(send, myRank() == root ? total : 0),
                  detail::inElements<T>(counts), detail::inElements<T>(displacements),
                  detail::view<SizeType>(recv, std::uint64_t(recvCount)), root);
}

template <typename T>
void Communicator::allToAll(const T* send, std::uint64_t count, T* recv) {
    allToAll(detail::constView<int>(send, count * size()), detail::view<int>(recv, count * size()));
}

template <typename T>
void Communicator::allToAllVector(const T* send, const IntCounts& sendCounts,
                                  const IntCounts& sendDispl, T* recv, const IntCounts& recvCounts,
                                  const IntCounts& recvDispl) {
    std::uint64_t sent = 0, received = 0;
    for (const int count : sendCounts)
        sent += std::uint64_t(count);
    for (const int count : recvCounts)
        received += std::uint64_t(count);
    allToAllVector(detail::constView<int>(send, sent), detail::inElements<T>(sendCounts),
                   detail::inElements<T>(sendDispl), detail::view<int>(recv, received),
                   detail::inElements<T>(recvCounts), detail::inElements<T>(recvDispl));
}

template <typename T>
void Communicator::reduceScatter(const T* send, T* recv, std::uint64_t recvCount, int op) {
    detail::requireNativeForReduction<T>();
    reduceScatter(detail::constView<int>(send, recvCount * size()),
                  detail::view<int>(recv, recvCount), op);
}

template <typename T>
void Communicator::reduce(T* data, std::uint64_t count, int op, unsigned int root) {
    detail::requireNativeForReduction<T>();
    _reduce(detail::view<int>(data, count), op, root);
}

template <typename T>
void Communicator::allReduce(T* data, std::uint64_t count, int op) {
    detail::requireNativeForReduction<T>();
    _allReduce(detail::view<int>(data, count), op);
}

template <typename T>
void Communicator::scan(T* data, std::uint64_t count, int op) {
    detail::requireNativeForReduction<T>();
    _scan(detail::view<int>(data, count), op);
}

}  // namespace tolm
