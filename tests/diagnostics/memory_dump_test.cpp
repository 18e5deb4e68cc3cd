// The crash service without installed handlers, run in
// the test process itself: settings, the heap check thread, validating
// heaps and the signal-safe formatting.
#include "vyn/diagnostics/memory_dump.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "tests/diagnostics/crash_test_support.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"
#include "vyn/core/status.h"
#include "vyn/diagnostics/internal/decimal_value.h"
#include "vyn/diagnostics/internal/signal_safe_format.h"
#include "vyn/log/system_log.h"
#include "vyn/platform/dump_writer_process.h"
#include "vyn/platform/guarded_heap.h"
#include "vyn/threads/thread_monitor.h"

namespace vyn::test {
namespace {

bool IsRegistered(const std::string& name) {
  const std::vector<std::string> names = GetVYNThreadMonitor().GetRegisteredThreadNames();
  return std::find(names.begin(), names.end(), name) != names.end();
}

TEST(MemoryDumpTest, WithoutHandlersNothingIsProvokedAndTheHeapCheckStartsOnceAndStops) {
  TempDir folder;
  ScopedCurrentDirectory current(folder.path());
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  ASSERT_EQ(log.Initialize(nullptr, "heap check test", "1"), VYN_STATUS_SUCCESS);
  {
    CVYNMemoryDump dump;
    EXPECT_EQ(dump.ProvokeCrash(), VYN_STATUS_NOT_INITIALIZED);
    EXPECT_EQ(dump.ProvokeHang(), VYN_STATUS_NOT_INITIALIZED);
    EXPECT_EQ(dump.ProvokeHeapCorruption(), VYN_STATUS_NOT_INITIALIZED);
    EXPECT_EQ(dump.CreateMemoryDump(), VYN_STATUS_NOT_INITIALIZED);
    EXPECT_EQ(dump.RunHeapCheckThread(), VYN_STATUS_NOT_INITIALIZED);  // no thread
    EXPECT_EQ(dump.SetDEPPolicy(1), VYN_STATUS_NOT_FOUND);
    EXPECT_EQ(dump.SetDumpAfterHeapCorruption(false), VYN_STATUS_SUCCESS);
    EXPECT_EQ(dump.SetCyclicHeapCheck(0), VYN_STATUS_SUCCESS);  // nothing runs
    EXPECT_EQ(dump.SetCyclicHeapCheck(60000), VYN_STATUS_SUCCESS);
    EXPECT_TRUE(WaitUntil([] { return IsRegistered("VYN Heap Check"); }));
    EXPECT_EQ(dump.SetCyclicHeapCheck(60000), VYN_STATUS_SUCCESS);
    EXPECT_EQ(dump.Terminate(), VYN_STATUS_SUCCESS);
    EXPECT_FALSE(IsRegistered("VYN Heap Check"));
    // The interval is kept: the same one starts nothing, 0 and back does.
    EXPECT_EQ(dump.SetCyclicHeapCheck(60000), VYN_STATUS_SUCCESS);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(IsRegistered("VYN Heap Check"));
    EXPECT_EQ(dump.SetCyclicHeapCheck(0), VYN_STATUS_SUCCESS);
    EXPECT_EQ(dump.SetCyclicHeapCheck(1000), VYN_STATUS_SUCCESS);
    EXPECT_TRUE(WaitUntil([] { return IsRegistered("VYN Heap Check"); }));
    EXPECT_EQ(dump.SetCyclicHeapCheck(0), VYN_STATUS_SUCCESS);  // waits for the end
    EXPECT_FALSE(IsRegistered("VYN Heap Check"));
  }
  log.Terminate();
  const std::string logged = LoggedText(folder.path());
  EXPECT_EQ(CountOf(logged, "heap check has been started."), 2u) << logged;
  EXPECT_EQ(CountOf(logged, "heap check has been stopped."), 2u) << logged;
}

TEST(MemoryDumpDeathTest, TerminationOnHeapCorruptionCannotBeSwitchedOffAndEndsAtFree) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        CVYNMemoryDump dump;
        if (dump.SetDumpAfterHeapCorruption(true) != VYN_STATUS_SUCCESS) std::_Exit(10);
        if (dump.SetDumpAfterHeapCorruption(true) != VYN_STATUS_SUCCESS) std::_Exit(11);
        if (dump.SetDumpAfterHeapCorruption(false) != VYN_STATUS_UNSPECIFIC_ERROR) std::_Exit(12);
        vyn::platform::GuardedHeap heap;
        void* block = heap.Allocate(40);
        heap.DamageBlockEnd(block);
        heap.Free(block);  // ends the process: no handlers, so by abort
        std::_Exit(13);
      },
      ::testing::KilledBySignal(SIGABRT), "");
}

TEST(GuardedHeapTest, DamageOnEitherSideOfABlockIsFoundAndTheBlockKept) {
  using vyn::platform::HeapValidity;
  auto heap = std::make_unique<vyn::platform::GuardedHeap>();
  const uint64_t id = heap->id();
  std::vector<unsigned char*> blocks;
  for (size_t size : {0, 1, 7, 64, 4096}) {
    blocks.push_back(static_cast<unsigned char*>(heap->Allocate(size)));
    ASSERT_NE(blocks.back(), nullptr);
    std::fill(blocks.back(), blocks.back() + size, 0xEE);  // the whole block is usable
  }
  EXPECT_TRUE(heap->Validate());
  EXPECT_TRUE(heap->Free(blocks[1]));
  EXPECT_EQ(vyn::platform::ValidateProcessHeap(id), HeapValidity::kIntact);

  heap->DamageBlockEnd(blocks[2]);  // an overrun
  EXPECT_FALSE(heap->Validate());
  EXPECT_EQ(vyn::platform::ValidateProcessHeap(id), HeapValidity::kDamaged);
  EXPECT_FALSE(heap->Free(blocks[2]));  // refused, still listed
  EXPECT_FALSE(heap->Validate());

  auto other = std::make_unique<vyn::platform::GuardedHeap>();
  unsigned char* block = static_cast<unsigned char*>(other->Allocate(16));
  block[-1] ^= 0x01;  // an underrun into the front guard word
  EXPECT_FALSE(other->Validate());
  block[-1] ^= 0x01;
  EXPECT_TRUE(other->Validate());

  const size_t count = vyn::platform::GetProcessHeaps(nullptr, 0);
  std::vector<uint64_t> ids(count);
  EXPECT_EQ(vyn::platform::GetProcessHeaps(ids.data(), ids.size()), count);
  EXPECT_NE(std::find(ids.begin(), ids.end(), id), ids.end());
  heap.reset();  // blocks go with it, damaged or not
  EXPECT_EQ(vyn::platform::ValidateProcessHeap(id), HeapValidity::kGone);
  EXPECT_EQ(vyn::platform::GetProcessHeaps(nullptr, 0), count - 1);
}

template <typename... Arguments>
void ExpectLikePrintf(const char* format, Arguments... arguments) {
  char expected[256];
  char actual[256];
  std::snprintf(expected, sizeof expected, format, arguments...);
  vyn::diagnostics::FormatSignalSafe(actual, sizeof actual, format, {arguments...});
  EXPECT_STREQ(actual, expected) << format;
}

TEST(SignalSafeFormatTest, MatchesPrintfForTheTextsOfTheCrashPath) {
  ExpectLikePrintf("%s (GetLastError() = 0x%08x):\r\n\r\n%s", "The dumpfile could not be created",
                   20, "/tmp/a b.dmp");
  ExpectLikePrintf("%s (GetLastError() = 0x%08x):", "x", -1);
  ExpectLikePrintf(" %04d-%02d-%02d %02d-%02d-%02d (%02d).dmp", 2024, 1, 31, 0, 5, 59, 123);
  ExpectLikePrintf("%s\r\n\r\n%s", "", "");
  ExpectLikePrintf("%i%% and %u and %d", -42, -42, 0);
  char small[8];
  EXPECT_EQ(vyn::diagnostics::FormatSignalSafe(small, sizeof small, "%s", {"far too long"}), 7u);
  EXPECT_STREQ(small, "far too");
}

TEST(SignalSafeFormatTest, LocalTimeAgreesWithTheLibrary) {
  vyn::platform::PrepareDumpWriter();
  const std::time_t before = std::time(nullptr);
  const SYSTEMTIME now = vyn::platform::SignalSafeLocalTime();
  std::tm local{};
  localtime_r(&before, &local);
  EXPECT_EQ(now.wYear, local.tm_year + 1900);
  EXPECT_EQ(now.wMonth, local.tm_mon + 1);
  EXPECT_EQ(now.wDay, local.tm_mday);
  EXPECT_EQ(now.wDayOfWeek, local.tm_wday);
  EXPECT_EQ(now.wHour, local.tm_hour);
  EXPECT_LE(std::abs(now.wMinute * 60 + now.wSecond - (local.tm_min * 60 + local.tm_sec)), 2);
}

TEST(DecimalValueTest, ReadsAsAtoiAndClampsInsteadOfOverflowing) {
  for (const char* text : {"", "0", "42", "  -17x", "+8", "\t\n 5", "abc", "0x15", "- 3",
                           "2147483647", "-2147483648"}) {
    EXPECT_EQ(vyn::diagnostics::DecimalValue(text), std::atoi(text)) << text;
  }
  EXPECT_EQ(vyn::diagnostics::DecimalValue("99999999999999999999"), INT32_MAX);
  EXPECT_EQ(vyn::diagnostics::DecimalValue("-99999999999999999999"), INT32_MIN);
}

}  // namespace
}  // namespace vyn::test
