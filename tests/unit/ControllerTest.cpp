#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "machine/comm/Communicator.h"
#include "machine/monitor/Profile.h"
#include "machine/monitor/ProfileRecorder.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "neo/EventTracker.h"
#include "neo/NonRecoverableError.h"

namespace tolm {
namespace {

class ControllerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Controller::reset();
        controller().registerCommand("Add", [](const Properties& command, Properties& response) {
            response.set("sum", command.get<int>("a") + command.get<int>("b"));
        });
        controller().registerCommand("Fatal", [](const Properties&, Properties&) {
            throw NonRecoverableError("cannot go on");
        });
    }
    void TearDown() override { Controller::reset(); }
    static Controller& controller() { return Controller::getSingleton(); }

    std::string runLoop(const std::string& input) {
        std::istringstream in(input);
        std::ostringstream out;
        controller().setCommandStreams(in, out);
        controller().processCommands();
        return out.str();
    }
};

TEST_F(ControllerTest, HandlerFailuresBecomeErrorResponses) {
    Properties response;
    EXPECT_FALSE(controller().executeCommand(Properties(R"({"command":"Add","a":1})"), response));
    EXPECT_EQ(Error::getMessage(response), "Property \"b\" is missing");

    EXPECT_EQ(Error::getMessage(controller().execute(Properties(R"({"command":"Nope"})"))),
              "Unknown command: Nope");
    EXPECT_EQ(Error::getMessage(controller().execute(Properties(R"({"x":1})"))),
              "Command has no \"command\" entry");
    EXPECT_THROW(controller().execute(Command::make("Fatal")), NonRecoverableError);
}

TEST_F(ControllerTest, OnlyTheOutermostExecutionIsAnnounced) {
    controller().registerCommand("Twice", [](const Properties&, Properties& response) {
        Properties inner(R"({"command":"Add","a":2,"b":3})");
        response.set("inner", Controller::getSingleton().execute(inner).get<int>("sum"));
    });
    int scatters = 0, gathers = 0;
    FunctionObserver<Properties&> scatter([&](Properties&) { ++scatters; });
    FunctionObserver<Properties&> gather([&](Properties&) { ++gathers; });
    controller().getMasterScatterCommandObservable().attach(scatter);
    controller().getMasterGatherResponseObservable().attach(gather);

    EXPECT_EQ(controller().execute(Command::make("Twice")).get<int>("inner"), 5);
    EXPECT_EQ(scatters, 1);
    EXPECT_EQ(gathers, 1);
}

TEST_F(ControllerTest, ScatterObserverMayReplaceTheCommand) {
    FunctionObserver<Properties&> scatter([](Properties& command) {
        command = Properties(command.toString());
        command.set("b", 10);
    });
    controller().getMasterScatterCommandObservable().attach(scatter);
    EXPECT_EQ(controller().execute(Properties(R"({"command":"Add","a":1,"b":0})")).get<int>("sum"),
              11);
}

TEST_F(ControllerTest, LoopAnswersEveryLineAndSurvivesMalformedOnes) {
    const std::string out = runLoop(
        "{\"command\":\"Add\",\"a\":1,\"b\":2}\n"
        "\n"
        "{\"command\":\"Add\",\n"
        "   {\"command\":\"Add\",\"a\":3,\"b\":4}   \r\n"
        "{\"command\":\"Add\",\"a\":5,\"b\":6}");  // last line without a line end
    EXPECT_EQ(out,
              "{\"sum\":3}\n"
              "{\"error\":\"Error\",\"message\":\"Malformed command on line 3: Malformed "
              "properties text: not valid JSON\",\"severity\":1}\n"
              "{\"sum\":7}\n"
              "{\"sum\":11}\n");
    EXPECT_EQ(controller().failedCommandCount(), 1u);
}

TEST_F(ControllerTest, QueuedCommandsRunInOrder) {
    std::istringstream in;
    std::ostringstream out;
    controller().setCommandStreams(in, out);
    controller().queueCommand(Properties(R"({"command":"Add","a":1,"b":1})"));
    controller().queueCommand(Properties(R"({"command":"Add","a":2,"b":2})"));
    EXPECT_TRUE(controller().hasQueuedCommands());
    controller().processQueuedCommands();
    EXPECT_FALSE(controller().hasQueuedCommands());
    EXPECT_EQ(out.str(), "{\"sum\":2}\n{\"sum\":4}\n");
}

TEST(Subject, ObserversMayDetachWhileBeingNotified) {
    TypedSubject<int> subject;
    std::vector<int> seen;
    FunctionObserver<int> second([&](int value) { seen.push_back(value * 10); });
    FunctionObserver<int> first([&](int value) {
        seen.push_back(value);
        subject.detach(second);
    });
    subject.attach(first);
    subject.attach(second);
    subject.attach(first);  // attaching twice keeps one entry
    subject.notify(1);
    subject.notify(2);
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_EQ(subject.size(), 1u);
}

// Both ways of walking the observers: a few copied onto the stack, many into a vector.
TEST(Subject, ObserversAttachedWhileBeingNotifiedHearOnlyLaterEvents) {
    for (const std::size_t count : {1u, 6u}) {
        TypedSubject<int> subject;
        std::vector<int> seen;
        FunctionObserver<int> late([&](int value) { seen.push_back(-value); });
        std::vector<std::unique_ptr<FunctionObserver<int>>> observers;
        for (std::size_t i = 0; i < count; ++i) {
            observers.push_back(std::make_unique<FunctionObserver<int>>([&](int value) {
                seen.push_back(value);
                subject.attach(late);
            }));
            subject.attach(*observers.back());
        }
        subject.notify(1);
        EXPECT_EQ(seen, std::vector<int>(count, 1)) << count << " observers";
        seen.clear();
        subject.notify(2);
        std::vector<int> expected(count, 2);
        expected.push_back(-2);
        EXPECT_EQ(seen, expected) << count << " observers";
    }
}

// Scopes are counted by their texts, wherever those texts are stored.
TEST(EventTracker, ScopesWithEqualNamesShareOneEntry) {
    EventTracker::reset();
    const std::string category = "CommandController";
    const std::string name = "scatterCommand";
    { const EventTracker::Track track("CommandController", "scatterCommand"); }
    { const EventTracker::Track track(category.c_str(), name.c_str()); }
    { const EventTracker::Track track("CommandController", "gatherResponse"); }
    const auto& totals = EventTracker::totals();
    ASSERT_EQ(totals.size(), 2u);
    EXPECT_EQ(totals.at({"CommandController", "scatterCommand"}).count, 2u);
    EXPECT_EQ(totals.at({"CommandController", "gatherResponse"}).count, 1u);
    EXPECT_GE(totals.at({"CommandController", "scatterCommand"}).seconds, 0.0);
    EventTracker::reset();
}

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
    // A command one process never ran counts as zero seconds there.
    EXPECT_EQ(profile.value().at("commands"), Properties::Value::parse(R"({
        "Echo":{"count":3,"wall":{"min":0.0,"average":0.25,"max":0.5},"imbalance":2.0},
        "Solve":{"count":1,"wall":{"min":2.0,"average":3.0,"max":4.0},"imbalance":1.3333333333333333}})"));
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
