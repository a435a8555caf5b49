// Translation of the MPI library's error codes to the wrapper's (layout in QmxErrorCodes.h)
// and back. A native code that is a bare error class becomes the wrapper's class; any other
// native code (one that carries a detailed message) is remembered in a small ring, and the
// wrapper code refers to its ring entry, so that QMX_MPI_Error_string can ask MPI for the
// detailed text later. A reference that has been overwritten falls back to the class text.
#pragma once

#include <mpi.h>

#include <array>
#include <cstdint>

namespace tolm::mpidriver {

class ErrorTranslator {
  public:
    ErrorTranslator();

    // The wrapper code of a native return code; needs a running MPI unless code is success.
    int toQmx(int nativeCode) { return nativeCode == MPI_SUCCESS ? 0 : translate(nativeCode); }

    // As toQmx, for codes returned while MPI does not run (MPI_Init, MPI_Finalize), when MPI
    // cannot be asked for a code's class: small codes are read as classes.
    int toQmxWithoutMpi(int nativeCode) const;

    // The native code to ask MPI about for a wrapper code below 0x40000000, or -1 if none.
    int toNative(int qmxCode) const;

  private:
    struct Remembered {
        std::uint32_t reference;
        int nativeCode;
    };

    int translate(int nativeCode);
    int qmxClassOf(int nativeClass) const;

    static constexpr std::size_t classSlots = 128;
    std::array<int, classSlots> qmxClassOfNative_{};
    std::array<int, classSlots> nativeClassOfQmx_{};
    std::array<Remembered, 256> recent_{};
    std::uint32_t nextReference_ = 1;
};

extern ErrorTranslator errors;

// Shorthand used by every driver function.
inline int qmxCode(int nativeCode) {
    return errors.toQmx(nativeCode);
}

}  // namespace tolm::mpidriver
