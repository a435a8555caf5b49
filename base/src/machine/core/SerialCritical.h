#pragma once
#include "machine/core/Machine.h"

namespace tolm {

// Marks code that runs on one process only, where a collective call would hang the job.
// Guards nest; counting happens on the main thread only. Communication entry points call
// Machine::assertNotSerialCritical, which fails in every build.
class Machine::SerialCritical {
  public:
    SerialCritical();
    ~SerialCritical();
    SerialCritical(const SerialCritical&) = delete;
    SerialCritical& operator=(const SerialCritical&) = delete;
};

}  // namespace tolm
