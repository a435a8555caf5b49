#pragma once
// Helpers of the file tests: a directory shared by the ranks of a job, and working
// directories that differ by rank, so that a relative name can name a file only one rank sees.
#include <unistd.h>

#include <filesystem>
#include <string>

#include "machine/CommunicatorTesting.h"
#include "support/ChildRun.h"

namespace tolm::mpitest {

using test::readTextFile;

// Made by the master, with a subdirectory "rank<N>" per rank; removed again by the master.
class JobDirectory {
  public:
    JobDirectory() {
        if (Machine::isMaster())
            _path = test::makeTemporaryDirectory();
        world().broadcast(_path, Communicator::masterRank());
        std::filesystem::create_directory(rankPath());
        world().synchronise();
    }
    ~JobDirectory() {
        world().synchronise();
        if (Machine::isMaster())
            std::filesystem::remove_all(_path);
    }
    JobDirectory(const JobDirectory&) = delete;
    JobDirectory& operator=(const JobDirectory&) = delete;

    const std::string& path() const { return _path; }
    std::string rankPath() const { return _path + "/rank" + std::to_string(world().myRank()); }

  private:
    std::string _path;
};

// This rank's own working directory for the scope's duration.
class RankWorkingDirectory {
  public:
    explicit RankWorkingDirectory(const JobDirectory& job)
        : _saved(std::filesystem::current_path()) {
        std::filesystem::current_path(job.rankPath());
    }
    ~RankWorkingDirectory() { std::filesystem::current_path(_saved); }
    RankWorkingDirectory(const RankWorkingDirectory&) = delete;
    RankWorkingDirectory& operator=(const RankWorkingDirectory&) = delete;

  private:
    std::filesystem::path _saved;
};

}  // namespace tolm::mpitest
