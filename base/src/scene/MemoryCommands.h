#pragma once

namespace tolm {

class Controller;

// The memory monitor's commands (the server runs with "-memorymonitor SECONDS"; without it
// they fail with an error that says so). Every process takes part; the master answers.
//   "MemoryUsage"           every process's current and peak figures, every host's sums and
//                           the job's minimum, maximum and sum of each metric, in bytes
//   "StartMemoryRecording"  starts recording the history; answers "recording" and "time"
//   "StopMemoryRecording"   stops it; the same answer
//   "ExportMemoryHistory"   writes the recorded history to "filename" as CSV (see
//                           scripts/plot-memory-history.sh to plot it)
void registerMemoryCommands(Controller& controller);

}  // namespace tolm
