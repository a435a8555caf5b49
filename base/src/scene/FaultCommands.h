#pragma once

namespace tolm {

class Controller;

// Commands that make faults happen on purpose, to show and test how the job handles them:
//   "Fail"                     fails on the ranks listed under "ranks" (every rank when the
//                              list is absent); with "nonRecoverable": true the failure ends
//                              the job.
//   "RaiseFloatingPointError"  divides by zero on the rank given under "rank".
//   "Sleep"                    sleeps for "seconds" on every rank.
void registerFaultCommands(Controller& controller);

}  // namespace tolm
