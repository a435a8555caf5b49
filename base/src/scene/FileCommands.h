#pragma once

namespace tolm {

class Controller;

// The file commands of the scene module. Every process of the job runs them.
//   "WriteField"    {"filename", "valuesPerRank"}: writes a field of doubles through MPI-IO,
//                   each process its own block of "valuesPerRank" values in rank order, then
//                   opens the file again and has each process read back its neighbour's block.
//                   A file that cannot be written whole, or does not read back as written, is
//                   deleted and the command fails. Answers "values" and "bytes".
//   "ReadField"     {"filename"}: reads a field file, written by a job of any size, and checks
//                   every value. Answers "values" and "bytes".
//   "RestoreState"  {"filename"}: the master reads a state file ("TolmState 1", then pairs of
//                   words "key value") and hands every word to all processes. Answers
//                   "entries" and "ranksAgree" (every process restored the same entries).
// The field commands need MPI: in a serial run they fail.
void registerFileCommands(Controller& controller);

}  // namespace tolm
