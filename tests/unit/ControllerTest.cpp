#include <gtest/gtest.h>

#include <sstream>

#include "neo/Controller.h"
#include "neo/Error.h"
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

}  // namespace
}  // namespace tolm
