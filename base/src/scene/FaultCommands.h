#pragma once

namespace tolm {

class Controller;

// Commands that make faults happen on purpose, to show and test how the job handles them:
//   "Fail"                     fails on the ranks listed under "ranks" (every rank when the
//                              list is absent); with "nonRecoverable": true the failure ends
//                              the job; with "onWorkerThread": true it is raised on a worker
//                              thread; with "beforeCollective": true the other ranks enter an
//                              all-reduce on the global communicator, which the failing ranks
//                              never join (the job hangs until the roll-call ends it).
//   "RaiseFloatingPointError"  divides by zero on the rank given under "rank".
//   "Sleep"                    sleeps for "seconds" on the ranks under "ranks" (every rank
//                              when the list is absent).
void registerFaultCommands(Controller& controller);

}  // namespace tolm
