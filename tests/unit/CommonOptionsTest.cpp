#include <gtest/gtest.h>

#include "machine/core/Machine.h"
#include "machine/core/OptionError.h"
#include "machine/core/ParameterInitialValues.h"
#include "machine/core/RendererConfig.h"
#include "machine/core/RollCall.h"
#include "neo/InternalError.h"
#include "neo/SingletonCleaner.h"
#include "platform/StringHelper.h"
#include "support/Argv.h"
#include "support/ChildRun.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using test::Argv;

class CommonOptions : public ::testing::Test {
  protected:
    void SetUp() override { Machine::reset(); }
    void TearDown() override {
        Machine::reset();
        SingletonCleaner::reset();
    }

    Machine::ArgumentMap parse(std::vector<std::string> args) {
        return test::parseCommonOptions(std::move(args));
    }
    std::string failureOf(std::vector<std::string> args) {
        return test::errorOf<OptionError>([&] { parse(std::move(args)); });
    }
};

// Every text an option error shows the user, word for word.
TEST_F(CommonOptions, EveryBadValueFailsWithItsOptionsMessage) {
    for (const char* option :
         {"-module", "-xmpiversion", "-xmpidriver", "-rsh", "-tmpdir", "-iodebug", "-cpubind",
          "-cpubindcontentiontest", "-jobmanagerurl", "-taskid", "-rrthreads", "-rgraphics",
          "-memorymonitor", "-hangtimeout"}) {
        EXPECT_EQ(failureOf({"server", "-s", option}), std::string("Missing ") + option + " arg");
    }
    const std::string file = test::makeTemporaryDirectory() + "/file";
    test::writeTextFile(file, "x");
    const std::string jobManager =
        "Both -jobmanagerurl and -taskid must be specified when using Job Manager";
    const std::string hangTimeout = "-hangtimeout takes a number of seconds from 0 to 604800, not ";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"server", "-s", "-mpi"}, "Missing -mpi arg"},
        {{"server", "-s", "-mpidriver"}, "Missing -mpi arg"},
        {{"server", "-param"}, "Missing -param arg arg"},
        {{"server", "-param", "a"}, "Missing -param arg arg"},
        {{"server", "-tmpdir", "/nonexistent/tmp"},
         "-tmpdir /nonexistent/tmp is not a writable directory: No such file or directory"},
        {{"server", "-tmpdir", file},
         "-tmpdir " + file + " is not a writable directory: Not a directory"},
        {{"server", "-cpubind", "Latency"},
         "-cpubind argument must be latency/leastload/disable (don't specify anything for "
         "bandwidth)"},
        {{"server", "-cpubindcontentiontest", "enabled"},
         "-cpubindcontentiontest argument must either be enabled/disable"},
        {{"server", "-jobmanagerurl", "http://jm", "-taskid", "0"}, jobManager},
        {{"server", "-taskid", "4"}, jobManager},
        {{"server", "-jobmanagerurl", "http://jm"}, jobManager},
        {{"server", "-hangtimeout", "soon"}, hangTimeout + "soon"},
        {{"server", "-hangtimeout", "-1"}, hangTimeout + "-1"},
        {{"server", "-hangtimeout", "1e9"}, hangTimeout + "1e9"},
        {{"server", "-hangtimeout", "10s"}, hangTimeout + "10s"},
        {{"server", "-hangtimeout", ""}, hangTimeout},
    };
    for (const auto& [args, message] : cases)
        EXPECT_EQ(failureOf(args), message) << args[1];
    EXPECT_TRUE(ParameterInitialValues::getSingleton().getParameterValues().empty());
}

TEST_F(CommonOptions, ConsumedMapCountsEntriesAndLeavesOthersToTheServer) {
    const std::string scratch = test::makeTemporaryDirectory();
    const auto consumed =
        parse({"server", "-time", "-nothreads", "-batch", "file", "-tmpdir", scratch, "-param", "p",
               "1", "-dmprojectid", "7", "-dmnoshare", "-unknown", "", "-iodebug", "3",
               "-dmrunfile"});  // a design option without its value is the server's too
    const Machine::ArgumentMap expected{{"-time", 1},  {"-nothreads", 1}, {"-tmpdir", 2},
                                        {"-param", 3}, {"-dmnoshare", 1}, {"-iodebug", 2}};
    EXPECT_EQ(consumed, expected);
    EXPECT_FALSE(Machine::isThreaded());
    EXPECT_EQ(Machine::getIOVerbosityLevel(), 3);
    EXPECT_EQ(Machine::getSingleton().getTemporaryDirectory(), StringHelper::decode(scratch));
    EXPECT_EQ(Machine::getExecutableName().rfind("tolm_unit_tests", 0), 0u);
}

TEST_F(CommonOptions, ParamKeepsTheLastValueForAName) {
    parse({"server", "-param", "speed", "1", "-param", "speed", "2", "-param", "caf\xC3\xA9", "x"});
    const auto& values = ParameterInitialValues::getSingleton().getParameterValues();
    EXPECT_EQ(values.at("speed"), "2");
    EXPECT_EQ(values.at("caf\xC3\xA9"), "x");
    SingletonCleaner::reset();
    EXPECT_TRUE(ParameterInitialValues::getSingleton().getParameterValues().empty());
}

TEST_F(CommonOptions, ValuesReachTheirSettings) {
    parse({"server", "-cpubind", "bandwidth"});
    EXPECT_EQ(Machine::getCpuBindingPolicy(), Machine::Bandwidth);
    parse({"server", "-cpubind", "leastload", "-hangtimeout", "2.5"});
    EXPECT_EQ(Machine::getCpuBindingPolicy(), Machine::LeastLoad);
    EXPECT_EQ(RollCall::getHangTimeout(), 2.5);
    parse({"server", "-cpubind", "disable", "-cpubindcontentiontest", "disable"});
    EXPECT_FALSE(Machine::useInternalBinding());
    EXPECT_FALSE(Machine::isCpuBindingContentionTestEnabled());
    parse({"server", "-hangtimeout", "0"});
    EXPECT_EQ(RollCall::getHangTimeout(), 0.0);
    EXPECT_EQ(Machine::getSingleton().getTaskId(), 0);
    parse({"server", "-taskid", "12", "-jobmanagerurl", "http://jm"});
    EXPECT_EQ(Machine::getSingleton().getJobManagerURL(), L"http://jm");
    EXPECT_EQ(Machine::getSingleton().getTaskId(), 12);
}

TEST_F(CommonOptions, FlagsReachTheirSettings) {
    parse({"server", "-pio", "-printpids", "-xnodeverrors", "-xthreadbindoff",
           "-xthreadbindverbose", "-deleteOnExit", "-rrthreads", "4", "-rgraphics", "software",
           "-xmpidriver", "x", "-xmpiversion", "y"});
    const Machine& machine = Machine::getSingleton();
    EXPECT_TRUE(machine.isParallelIo());
    EXPECT_TRUE(Machine::getPrintpids());
    EXPECT_FALSE(machine.hasDevErrorChecking());
    EXPECT_EQ(Machine::getThreadBindingAttributes(),
              Machine::ThreadBindingOff | Machine::ThreadBindingVerbose);
    EXPECT_TRUE(machine.isDeleteOnExit());
    EXPECT_EQ(RendererConfig::getNumRenderThreads(), 4);
    EXPECT_EQ(RendererConfig::getGraphics(), "software");
}

TEST_F(CommonOptions, BadRendererGraphicsIsAnInternalError) {
    const std::string failure = test::failureOf([&] {
        parse({"server", "-rgraphics", "holographic"});
    });
    EXPECT_TRUE(failure.starts_with("RendererConfig error: ")) << failure;
    EXPECT_TRUE(failure.ends_with(" | error.empty()")) << failure;
}

TEST_F(CommonOptions, TemporaryDirectoryDefaultsToThePlatformOne) {
    setenv("TMPDIR", "/var/tmp/", 1);
    parse({"server"});
    EXPECT_EQ(Machine::getSingleton().getTemporaryDirectory(), L"/var/tmp");
}

TEST(StartCommunicators, SerialFlagsAnywhereGiveASerialRunWithoutMpi) {
    for (const char* flag : {"-s", "-proxyserver", "-proxydaemon"}) {
        Machine::reset();
        Argv args{flag, "-mpi", "nosuchmpi"};  // no MPI is touched, so the driver is not read
        Machine::ArgumentMap consumed;
        Machine::startCommunicators(args.argc(), args.argv(), consumed);
        EXPECT_TRUE(Machine::isSerial()) << flag;
        EXPECT_EQ(consumed, (Machine::ArgumentMap{{flag, 1}}));
        EXPECT_EQ(Machine::isProxyServer(), std::string(flag) == "-proxyserver");
        EXPECT_EQ(Machine::isProxySessionDaemon(), std::string(flag) == "-proxydaemon");
    }
    Machine::reset();
}

}  // namespace
}  // namespace tolm
