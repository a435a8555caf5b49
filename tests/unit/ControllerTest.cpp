#include <gtest/gtest.h>

#include <memory>
#include <sstream>

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

}  // namespace
}  // namespace tolm
