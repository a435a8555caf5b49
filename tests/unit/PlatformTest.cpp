#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>

#include "neo/Error.h"
#include "neo/SingletonCleaner.h"
#include "neo/SynchronizedDynamicLoader.h"
#include "platform/DynamicLibraryLoader.h"
#include "platform/FpuHandling.h"
#include "platform/MemoryService.h"
#include "platform/Platform.h"
#include "platform/StringHelper.h"
#include "platform/Thread.h"
#include "support/Failure.h"

namespace tolm {
namespace {

TEST(StringHelper, Utf8RoundTripsThroughWideStrings) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";  // a, e-acute, euro, emoji
    const std::wstring wide = StringHelper::decode(text);
    EXPECT_EQ(wide, (std::wstring{L'a', wchar_t(0xE9), wchar_t(0x20AC), wchar_t(0x1F600)}));
    EXPECT_EQ(StringHelper::toString(wide), text);
}

TEST(StringHelper, InvalidUtf8DecodesToReplacementCharacters) {
    const wchar_t bad = 0xFFFD;
    EXPECT_EQ(StringHelper::decode("\xFF"
                                   "a"),
              (std::wstring{bad, L'a'}));
    EXPECT_EQ(StringHelper::decode("\xE2\x82"), (std::wstring{bad, bad}));           // cut short
    EXPECT_EQ(StringHelper::decode("\xC0\xAF"), (std::wstring{bad, bad}));           // overlong
    EXPECT_EQ(StringHelper::decode("\xED\xA0\x80"), (std::wstring{bad, bad, bad}));  // surrogate
    EXPECT_EQ(StringHelper::toString(std::wstring{wchar_t(0xD800)}), "\xEF\xBF\xBD");
}

TEST(StringHelper, SplitKeepsEmptyPieces) {
    EXPECT_EQ(StringHelper::split("a,,b,", ','), (std::vector<std::string>{"a", "", "b", ""}));
    EXPECT_EQ(StringHelper::trim(" \t x y \r\n"), "x y");
}

// Touched memory shows in the readings: the forked reader below and the monitor tests.
TEST(MemoryService, ParsesProcStatus) {
    const auto parsed = MemoryService::parseStatus(
        "Name:\tx\nVmPeak:\t  2048 kB\nVmSize:\t1024 kB\nVmHWM:\t 512 kB\nVmRSS:\t256 kB\n"
        "VmLib:\t128 kB\n");
    EXPECT_EQ(parsed.virtualBytes, 1024u * 1024);
    EXPECT_EQ(parsed.residentBytes, 256u * 1024);
    EXPECT_EQ(parsed.libraryBytes, 128u * 1024);
    EXPECT_EQ(parsed.virtualPeakBytes, 2048u * 1024);
    EXPECT_EQ(parsed.residentPeakBytes, 512u * 1024);
}

// The reader keeps the parent's status file open; a forked child must see its own memory.
TEST(MemoryService, AReaderInAForkedChildReadsTheChild) {
    const ProcessMemoryReader reader;
    MemoryUsage parent;
    ASSERT_TRUE(reader.read(parent));
    constexpr std::size_t size = 64u << 20;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Only system calls here: the parent's other threads may hold the allocator's lock.
        MemoryUsage before;
        MemoryUsage after;
        bool seen = reader.read(before);
        void* block =
            ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        seen = seen && block != MAP_FAILED;
        if (seen)
            std::memset(block, 1, size);
        seen = seen && reader.read(after) && after.residentBytes >= before.residentBytes + size;
        ::_exit(seen ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "the child's readings did not show the 64 MiB it touched";
}

TEST(FpuHandling, StatusFlagsAreReadAndCleared) {
    FpuHandling::resetEnvironment();
    EXPECT_TRUE(FpuHandling::isFpeStatusClear());
    volatile double zero = 0.0;
    volatile double result = 1.0 / zero;
    (void)result;
    EXPECT_FALSE(FpuHandling::isFpeStatusClear());
    EXPECT_EQ(FpuHandling::getFpeStatusAsString(), "Floating point division by zero");
    FpuHandling::clearFpeStatus();
    EXPECT_TRUE(FpuHandling::isFpeStatusClear());
}

TEST(DynamicLibraryLoader, MissingLibraryReportsTheLoaderText) {
    std::string error;
    EXPECT_EQ(Platform::dynamiclibrary().load("NoSuchLibrary", DynamicLibraryLoader::Symbols::Local,
                                              error),
              nullptr);
    EXPECT_NE(error.find("libNoSuchLibrary.so"), std::string::npos) << error;
    EXPECT_TRUE(test::errorOf<Error>([] {
                    SynchronizedDynamicLoader::load("NoSuchModule");
                }).starts_with("Failed to load module NoSuchModule: "));
    EXPECT_TRUE(SynchronizedDynamicLoader::loadedModules().empty());
}

TEST(SingletonCleaner, CleansUpNewestFirstAndOnlyOnce) {
    std::vector<int> order;
    SingletonCleaner::registerCleanUp([&] { order.push_back(1); });
    SingletonCleaner::registerCleanUp([&] { order.push_back(2); });
    SingletonCleaner::reset();
    SingletonCleaner::reset();
    EXPECT_EQ(order, (std::vector<int>{2, 1}));
}

TEST(Thread, KnowsTheMainThread) {
    EXPECT_TRUE(Thread::isMain());
    bool workerIsMain = true;
    Thread worker("worker");
    worker.start([&] { workerIsMain = Thread::isMain(); });
    worker.join();
    EXPECT_FALSE(workerIsMain);
}

}  // namespace
}  // namespace tolm
