#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "machine/comm/Communicator.h"
#include "machine/monitor/Profile.h"
#include "machine/monitor/ProfileRecorder.h"
#include "neo/Controller.h"

namespace tolm {
namespace {

// What a communicator tells its recorder around one call.
void call(ProfileRecorder& recorder, const char* operation, std::uint64_t bytes) {
    recorder.open(operation, bytes);
    recorder.close(-1);
}

TEST(ProfileRecorder, CountsCallsAndBytesPerOperationInOrderOfFirstUse) {
    ProfileRecorder recorder;
    call(recorder, "Communicator::Broadcast", 8);
    call(recorder, "Communicator::Send", 100);
    call(recorder, "Communicator::Broadcast", 24);
    // The same name from another library's copy of the literal is the same operation.
    const std::string copy = "Communicator::Send";
    call(recorder, copy.c_str(), 1);

    ASSERT_EQ(recorder.operations().size(), 2u);
    EXPECT_EQ(recorder.operations()[0].name, "Communicator::Broadcast");
    EXPECT_EQ(recorder.operations()[0].count, 2u);
    EXPECT_EQ(recorder.operations()[0].bytes, 32u);
    EXPECT_EQ(recorder.operations()[1].name, "Communicator::Send");
    EXPECT_EQ(recorder.operations()[1].count, 2u);
    EXPECT_EQ(recorder.operations()[1].bytes, 101u);
    EXPECT_GE(recorder.communicationSeconds(), 0.0);
}

TEST(ProfileRecorder, WhileStartedItRecordsCommunicationAndRegisteredCommands) {
    Controller& controller = Controller::getSingleton();
    controller.registerCommand("ProfiledWork", [](const Properties&, Properties&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    ProfileRecorder recorder;
    recorder.start();
    EXPECT_EQ(Communicator::getStatisticsRecorder(), &recorder);
    controller.execute(Properties(R"({"command":"ProfiledWork"})"));
    controller.execute(Properties(R"({"command":"ProfiledWork"})"));
    controller.execute(Properties(R"({"command":"NoSuchCommand"})"));
    recorder.stop();
    controller.execute(Properties(R"({"command":"ProfiledWork"})"));

    EXPECT_EQ(Communicator::getStatisticsRecorder(), nullptr);
    ASSERT_EQ(recorder.commands().size(), 1u) << "unknown commands are not profiled";
    const ProfileRecorder::CommandTimes& work = recorder.commands().at("ProfiledWork");
    EXPECT_EQ(work.count, 2u) << "a stopped recorder went on counting";
    EXPECT_GE(work.seconds, 0.004);  // the handler's sleeps, at the least
}

Properties record(const char* json) {
    return Properties(json);
}

TEST(Profile, CombinesTheProcessesRecords) {
    const Properties profile = Profile::combine({
        record(R"({"commands":{"Solve":{"count":1,"seconds":2.0},"Echo":{"count":3,"seconds":0.5}},
                   "operations":[{"name":"Communicator::Send","count":4,"bytes":400}],
                   "communicationSeconds":0.25})"),
        record(R"({"commands":{"Solve":{"count":1,"seconds":4.0}},
                   "operations":[{"name":"Communicator::AllReduce","count":2,"bytes":16},
                                 {"name":"Communicator::Send","count":1,"bytes":8}],
                   "communicationSeconds":0.75})"),
    });
    EXPECT_EQ(profile.get<unsigned>("processes"), 2u);
    const Properties::Value& commands = profile.value().at("commands");
    const Properties::Value& solve = commands.at("Solve");
    EXPECT_EQ(solve.at("count").get<unsigned long>(), 1u);
    EXPECT_DOUBLE_EQ(solve.at("wall").at("min").get<double>(), 2.0);
    EXPECT_DOUBLE_EQ(solve.at("wall").at("average").get<double>(), 3.0);
    EXPECT_DOUBLE_EQ(solve.at("wall").at("max").get<double>(), 4.0);
    EXPECT_DOUBLE_EQ(solve.at("imbalance").get<double>(), 4.0 / 3.0);
    // A command one process never ran counts as zero seconds there.
    const Properties::Value& echo = commands.at("Echo");
    EXPECT_EQ(echo.at("count").get<unsigned long>(), 3u);
    EXPECT_DOUBLE_EQ(echo.at("wall").at("min").get<double>(), 0.0);
    EXPECT_DOUBLE_EQ(echo.at("imbalance").get<double>(), 2.0);

    EXPECT_EQ(profile.value().at("communicationSeconds"), Properties::Value::parse("[0.25,0.75]"));
    EXPECT_EQ(profile.value().at("operations"),
              Properties::Value::parse(R"([{"name":"Communicator::Send","messages":5,"bytes":408},
                                           {"name":"Communicator::AllReduce","messages":2,"bytes":16}])"));
}

TEST(Profile, TableNamesEveryCommandAndOperationAndTheRanksOfTheExtremes) {
    const Properties profile = Profile::combine({
        record(R"({"commands":{"Solve":{"count":1,"seconds":2.0}},
                   "operations":[{"name":"Communicator::Send","count":4,"bytes":400}],
                   "communicationSeconds":0.5})"),
        record(R"({"commands":{"Solve":{"count":1,"seconds":4.0}},"operations":[],
                   "communicationSeconds":0.25})"),
    });
    EXPECT_EQ(Profile::format(profile),
              "Profile of the job over 2 processes (wall seconds of each command's handler, over "
              "the processes)\n"
              "command                         count          min      average          max  "
              "imbalance\n"
              "Solve                               1     2.000000     3.000000     4.000000       "
              "1.33\n"
              "Seconds inside communication per rank: min 0.250000 (rank 1), average 0.375000, "
              "max 0.500000 (rank 0)\n"
              "operation (all processes)              messages            bytes\n"
              "Communicator::Send                            4              400\n");
}

}  // namespace
}  // namespace tolm
