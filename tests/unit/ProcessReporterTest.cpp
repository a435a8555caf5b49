#include "machine/remote/ProcessReporter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "neo/Error.h"
#include "platform/Pipe.h"
#include "platform/Process.h"
#include "unit/ProcessReporterSupport.h"

namespace tolm {
namespace {

using namespace std::chrono_literals;
using test::LineCollector;
using test::ReporterThread;
using Lines = std::vector<std::string>;

void write(Pipe& pipe, const std::string& text) {
    ASSERT_EQ(pipe.write(text.data(), static_cast<int>(text.size())), int(text.size()));
}

// A line split across reads is joined; an unfinished last line waits for the end of the pipe.
TEST(ProcessReporter, ALineIsToldOnlyOnceItsEndIsRead) {
    Pipe pipe;
    LineCollector lines;
    ProcessReporter reporter(pipe, {&lines});
    ReporterThread thread(reporter);
    write(pipe, "first\nhel");
    // Once "first" is told, "hel" was read too and waits for the rest of its line.
    ASSERT_EQ(lines.waitFor(1), Lines{"first"});
    write(pipe, "lo\npartial");
    EXPECT_EQ(lines.waitFor(2), (Lines{"first", "hello"}));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(lines.lines(), (Lines{"first", "hello"}));
    pipe.closeWriteEnd();
    EXPECT_TRUE(thread.finished());
    EXPECT_EQ(lines.lines(), (Lines{"first", "hello", "partial"}));
    EXPECT_EQ(reporter.getErrorState(), "");
}

// Lines of one read, and lines longer than the read buffer, are told whole and in order.
TEST(ProcessReporter, WrittenLinesAreToldOneByOneInOrder) {
    const std::string longLine(5 * ProcessReporter::BUF_SIZE + 7, 'x');
    const std::pair<std::string, Lines> cases[] = {
        {"one\ntwo\r\n\nc\rr\n", {"one", "two", "", "c\rr"}},
        {longLine + "\nshort\n" + longLine + "\n", {longLine, "short", longLine}}};
    for (const auto& [written, told] : cases) {
        Pipe pipe;
        LineCollector lines;
        ProcessReporter reporter(pipe, {&lines});
        write(pipe, written);
        pipe.closeWriteEnd();
        reporter.run();
        EXPECT_EQ(lines.lines(), told);
    }
}

TEST(ProcessReporter, StopEndsRunWhileTheChildIsSilent) {
    Pipe pipe;
    std::string error;
    auto child = OS::Process::spawn({"sleep", "30"}, &pipe, error);
    ASSERT_TRUE(child) << error;
    LineCollector lines;
    ProcessReporter reporter(pipe, {&lines});
    ReporterThread thread(reporter);
    std::this_thread::sleep_for(100ms);
    const auto start = std::chrono::steady_clock::now();
    reporter.stop();
    EXPECT_TRUE(thread.finished(6s));
    EXPECT_LE(std::chrono::steady_clock::now() - start, ProcessReporter::READ_TIMEOUT + 500ms);
    EXPECT_EQ(lines.lines(), Lines{});
    EXPECT_EQ(reporter.getErrorState(), "");
}

TEST(ProcessReporter, ObserversFollowTheListAndCopiesKeepIt) {
    Pipe pipe;
    LineCollector detached, kept, later;
    ProcessReporter original(pipe, {&detached, &kept});
    original.detachObserver(detached);
    original.attachObserver(later);
    ProcessReporter copy(original);
    write(pipe, "a\n");
    pipe.closeWriteEnd();
    copy.run();
    EXPECT_EQ(detached.lines(), Lines{});
    EXPECT_EQ(kept.lines(), Lines{"a"});
    EXPECT_EQ(later.lines(), Lines{"a"});
}

// Throws `failure` at the first line it is told.
template <typename Failure>
class FailingObserver : public TypedObserver<const std::string> {
  public:
    explicit FailingObserver(Failure failure) : _failure(failure) {}
    void update(const std::string) override { throw _failure; }

  private:
    Failure _failure;
};

template <typename Failure>
void expectReported(Failure failure, const std::string& text) {
    Pipe pipe;
    LineCollector lines;
    FailingObserver<Failure> failing(failure);
    ProcessReporter reporter(pipe, {&lines, &failing});
    write(pipe, "x\ny\n");
    pipe.closeWriteEnd();
    reporter.run();  // returns normally
    EXPECT_EQ(reporter.getErrorState(), text);
    EXPECT_EQ(lines.lines(), (Lines{"x", text}));
}

TEST(ProcessReporter, FailuresBecomeTheErrorStateAndAreToldLikeALine) {
    expectReported(Error("bad line", 1), "ProcessReporter::Error : bad line");
    expectReported(std::runtime_error("boom"), "ProcessReporter::Exception : boom");
    expectReported(7, "Exception");
}

// Records how many notifications run at once, across all reporters.
class OverlapProbe : public TypedObserver<const std::string> {
  public:
    void update(const std::string) override {
        const int now = ++_active;
        _mostAtOnce = std::max(_mostAtOnce.load(), now);
        std::this_thread::sleep_for(2ms);
        --_active;
        ++_told;
    }
    int mostAtOnce() const { return _mostAtOnce; }
    int told() const { return _told; }

  private:
    std::atomic<int> _active{0}, _mostAtOnce{0}, _told{0};
};

TEST(ProcessReporter, NotificationsOfDifferentReportersNeverOverlap) {
    Pipe first, second;
    OverlapProbe probe;
    ProcessReporter one(first, {&probe}), two(second, {&probe});
    std::string text;
    for (int i = 0; i < 40; ++i)
        text += "line " + std::to_string(i) + "\n";
    write(first, text);
    write(second, text);
    first.closeWriteEnd();
    second.closeWriteEnd();
    {
        ReporterThread threadOne(one), threadTwo(two);
        EXPECT_TRUE(threadOne.finished());
        EXPECT_TRUE(threadTwo.finished());
    }
    EXPECT_EQ(probe.told(), 80);
    EXPECT_EQ(probe.mostAtOnce(), 1);
}

}  // namespace
}  // namespace tolm
