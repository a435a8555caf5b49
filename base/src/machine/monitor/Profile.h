#pragma once
#include <string>
#include <vector>

#include "neo/Properties.h"

namespace tolm {

class ProfileRecorder;

// The profile of a job, from the ProfileRecorder of every process:
//   "processes": the number of processes;
//   "commands": per command name (in name order) "count" (the most runs of any process),
//       "wall" {"min", "average", "max"} over the processes of the seconds its handler ran,
//       and "imbalance", max over average (1 when the average is 0);
//   "communicationSeconds": each process's seconds inside communication, in rank order;
//   "operations": per kind of communicator operation (in order of first use on any process)
//       "messages" (calls) and "bytes", summed over the processes.
class Profile {
  public:
    // Collective over the global communicator in a parallel run: every process's record goes
    // to the master, which returns the job's profile; the others return an empty record.
    static Properties gather(const ProfileRecorder& mine);
    // The job's profile from the processes' records (ProfileRecorder::toProperties), in
    // rank order.
    static Properties combine(const std::vector<Properties>& processes);
    // The profile as the table the server prints at the end of a job run with "-time".
    static std::string format(const Properties& profile);
};

}  // namespace tolm
