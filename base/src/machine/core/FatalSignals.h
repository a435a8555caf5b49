#pragma once

namespace tolm {

// A fatal signal on any process ends the whole job. SIGSEGV, SIGBUS, SIGILL, SIGABRT and SIGFPE
// (SIGFPE only while "-fpe" does not trap it) print one line naming the rank and the signal,
//     Error: rank 3 ended by signal SIGSEGV (segmentation fault)
// and ask MPI to abort the job with the non-recoverable exit code, so that no launcher is left
// with the other ranks waiting for this one. Should the abort itself not return control to
// the launcher (the fault may lie inside the MPI library), an alarm ends the process after
// `abortSeconds` with the original signal.
class FatalSignals {
  public:
    static constexpr unsigned int abortSeconds = 5;

    // After MPI started, over any handler the MPI library installed.
    static void install(unsigned int rank);
};

}  // namespace tolm
