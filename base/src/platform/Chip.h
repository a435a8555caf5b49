#pragma once
#include <string>

namespace tolm {

// The processor this process runs on.
class Chip {
  public:
    // The widest vector instruction set the processor offers, as a short name ("avx512f",
    // "avx2", "avx", "sse4.2", "sse2", or "scalar" where none is known). Processes whose
    // names differ run code of different vector widths.
    std::string vectorizationLevel() const;
};

}  // namespace tolm
