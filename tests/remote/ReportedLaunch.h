#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine/core/Machine.h"
#include "machine/remote/RemoteShellFactory.h"
#include "platform/Pipe.h"
#include "support/Argv.h"
#include "unit/ProcessReporterSupport.h"

namespace tolm::test {

// The default launcher as the option "-rsh" `command` sets it.
inline RemoteProcessLauncher& launcherFromRshOption(const std::string& command) {
    parseCommonOptions({"server", "-s", "-rsh", command});
    return RemoteShellFactory::getSingleton().getRemoteProcessLauncher();
}

// Runs `arguments` on `host` through `launcher` and follows its output with a reporter:
// the lines it printed, and in `status` its exit status (-1 when it did not end in time).
inline std::vector<std::string> runReported(const RemoteProcessLauncher& launcher,
                                            const std::wstring& host, const std::wstring& user,
                                            const std::vector<std::wstring>& arguments,
                                            int& status) {
    Pipe pipe;
    LineCollector lines;
    ProcessReporter reporter(pipe, {&lines});
    auto child = launcher.spawnProcessNoWait(host, user, arguments, &pipe);
    ReporterThread thread(reporter);
    EXPECT_TRUE(thread.finished(std::chrono::seconds(20)));
    status = child->waitFor(std::chrono::seconds(10)).value_or(-1);
    EXPECT_EQ(reporter.getErrorState(), "");
    return lines.lines();
}

}  // namespace tolm::test
