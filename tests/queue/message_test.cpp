#include "vyn/queue/message.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "vyn/core/status.h"

namespace {

std::vector<unsigned char> BytesOf(const CVYNMessage& message) {
  const unsigned char* data = message.GetBuffer();
  return data == nullptr ? std::vector<unsigned char>()
                         : std::vector<unsigned char>(data, data + message.GetBufferSize());
}

TEST(MessageTest, OwnsACopyOfTheSendersBytesOrNone) {
  unsigned char sent[3] = {1, 2, 3};
  CVYNMessage message(7, sent, 3);
  sent[0] = 9;
  EXPECT_EQ(message.GetMessageType(), 7u);
  EXPECT_EQ(BytesOf(message), (std::vector<unsigned char>{1, 2, 3}));

  const CVYNMessage absent(7, nullptr, 5);
  EXPECT_EQ(absent.GetBuffer(), nullptr);
  EXPECT_EQ(absent.GetBufferSize(), 0);
}

TEST(MessageTest, CopiesAreDeepAndMovesHandOverTheBuffer) {
  unsigned char sent[4] = {4, 3, 2, 1};
  auto source = std::make_unique<CVYNMessage>(1, sent, 4);
  CVYNMessage constructed(*source);
  CVYNMessage assigned(2, sent, 1);
  assigned = *source;
  EXPECT_NE(constructed.GetBuffer(), source->GetBuffer());
  EXPECT_NE(assigned.GetBuffer(), source->GetBuffer());
  source.reset();
  EXPECT_EQ(BytesOf(constructed), (std::vector<unsigned char>{4, 3, 2, 1}));
  EXPECT_EQ(BytesOf(assigned), (std::vector<unsigned char>{4, 3, 2, 1}));
  EXPECT_EQ(assigned.GetMessageType(), 1u);

  CVYNMessage& same = assigned;
  const unsigned char* before = assigned.GetBuffer();
  assigned = same;
  EXPECT_EQ(assigned.GetBuffer(), before);
  EXPECT_EQ(assigned.GetBufferSize(), 4);

  const CVYNMessage without_buffer(6, nullptr, 0);
  assigned = without_buffer;
  EXPECT_EQ(assigned.GetBuffer(), nullptr);
  EXPECT_EQ(assigned.GetBufferSize(), 0);
  EXPECT_EQ(assigned.GetMessageType(), 6u);

  CVYNMessage from(3, sent, 4);
  const unsigned char* bytes = from.GetBuffer();
  CVYNMessage to(std::move(from));
  EXPECT_EQ(to.GetBuffer(), bytes);
  // The moved-from state is defined: without buffer.
  // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
  EXPECT_EQ(from.GetBuffer(), nullptr);
}

TEST(MessageTest, SetBufferAndSetBufferSize) {
  unsigned char data[4] = {10, 20, 30, 40};
  CVYNMessage message(1, data, 4);
  EXPECT_EQ(message.SetBuffer(nullptr, 2), VYN_STATUS_SUCCESS);
  EXPECT_EQ(message.GetBufferSize(), 4);
  // The source may lie in the message's own buffer.
  EXPECT_EQ(message.SetBuffer(message.GetBuffer() + 1, 3), VYN_STATUS_SUCCESS);
  EXPECT_EQ(BytesOf(message), (std::vector<unsigned char>{20, 30, 40}));

  EXPECT_EQ(message.SetBufferSize(-1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(message.GetBufferSize(), 3);
  const unsigned char* kept = message.GetBuffer();
  EXPECT_EQ(message.SetBufferSize(3), 3);
  EXPECT_EQ(message.GetBuffer(), kept);
  EXPECT_EQ(message.SetBufferSize(2), 2);
  EXPECT_EQ(BytesOf(message), (std::vector<unsigned char>{20, 30}));
  EXPECT_EQ(message.SetBufferSize(4), 4);
  EXPECT_EQ(BytesOf(message).at(1), 30);

  EXPECT_EQ(message.SetBuffer(data, 0), VYN_STATUS_SUCCESS);
  EXPECT_NE(message.GetBuffer(), nullptr);
  EXPECT_EQ(message.GetBufferSize(), 0);
  EXPECT_EQ(message.SetBuffer(data, -1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(message.GetBuffer(), nullptr);
  EXPECT_EQ(message.SetBufferSize(2), 2);  // grows from no buffer at all
  EXPECT_NE(message.GetBuffer(), nullptr);
}

TEST(MessageTest, SixteenMegabytesAndEmptyMessagesCopyWhole) {
  std::vector<unsigned char> big(size_t{16} << 20);
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 31 + 7);
  const CVYNMessage original(2, big.data(), static_cast<int32_t>(big.size()));
  const CVYNMessage copy(original);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(BytesOf(copy), big);

  const CVYNMessage empty_copy(CVYNMessage(3, big.data(), 0));
  EXPECT_NE(empty_copy.GetBuffer(), nullptr);
  EXPECT_EQ(empty_copy.GetBufferSize(), 0);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// Runs in a child in which a request of 2 GiB fails: its address space is
// capped at 1 GiB or, under a sanitizer (which reserves far more), the
// sanitizer's allocator refuses requests above 1 GiB.
[[noreturn]] void AllocateBeyondTheCap() {
  const auto fail = [](const char* why) {
    std::fprintf(stderr, "%s\n", why);
    std::_Exit(1);
  };
  const rlimit cap{1UL << 30, 1UL << 30};
  if (!kSanitized && setrlimit(RLIMIT_AS, &cap) != 0) fail("the address space cannot be capped");
  unsigned char small[4] = {1, 2, 3, 4};
  const CVYNMessage constructed(1, small, INT_MAX);
  if (constructed.GetBuffer() != nullptr) fail("a message of 2 GiB got a buffer");
  CVYNMessage message(1, small, 4);
  if (message.SetBufferSize(INT_MAX) != VYN_STATUS_NO_MEMORY)
    fail("growing to 2 GiB: no NO_MEMORY");
  if (message.GetBufferSize() != 4 || message.GetBuffer()[3] != 4) {
    fail("a refused growth changed the buffer");
  }
  if (message.SetBuffer(small, INT_MAX) != VYN_STATUS_NO_MEMORY)
    fail("SetBuffer of 2 GiB: no NO_MEMORY");
  if (message.GetBuffer() != nullptr) fail("a refused SetBuffer kept a buffer");
  std::_Exit(0);
}

TEST(MessageDeathTest, RefusedAllocationsBecomeNoMemory) {
  // The child is a fresh run of this program, started with this environment.
  // No other thread of the test program runs here, so the environment may
  // change.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) {
    const char* options = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    const std::string refusing = std::string(options ? options : "") +
                                 ":allocator_may_return_null=1:max_allocation_size_mb=1024";
    setenv(name, refusing.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  }
  EXPECT_EXIT(AllocateBeyondTheCap(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
