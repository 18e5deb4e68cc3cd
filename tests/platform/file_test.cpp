// Written files: every byte goes out through signals and short writes, and a
// failure says why.
#include "vyn/platform/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/wait_helpers.h"
#include "tests/support/temp_dir.h"
#include "vyn/platform/scoped_descriptor.h"

namespace {

using vyn::platform::File;
using vyn::platform::FileCreateResult;

TEST(FileTest, WritesEverythingThroughSignalsAndShortWritesOrSaysWhyNot) {
  vyn::test::TempDir directory;
  const std::string fifo = directory.File("pipe");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  // A pipe with a slow reader: the writer blocks, signals cut its writes
  // short, and WriteAll has to go on from wherever each one stopped. The
  // reading end is opened first, so that opening the writing end never waits.
  const vyn::platform::ScopedDescriptor in(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  File pipe;
  ASSERT_TRUE(pipe.OpenForWriting(fifo)) << pipe.GetLastErrorText();
  fcntl(in.get(), F_SETFL, 0);
  std::vector<uint8_t> sent(size_t{2} * 1024 * 1024);
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<uint8_t>(i * 7 + i / 251);
  std::vector<uint8_t> received(sent.size() + 1);
  size_t got = 0;
  std::thread reader([&] {
    ssize_t count = 0;
    while ((count = read(in.get(), &received[got],
                         std::min<size_t>(16384, received.size() - got))) > 0) {
      got += static_cast<size_t>(count);
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
  });
  {
    const int before = vyn::test::signals_delivered;
    vyn::test::SignalStorm storm;
    size_t written = 0;
    EXPECT_TRUE(pipe.WriteAll(sent.data(), sent.size(), &written)) << pipe.GetLastErrorText();
    EXPECT_EQ(written, sent.size());
    EXPECT_GT(vyn::test::signals_delivered - before, 0);
  }
  pipe.Close();
  reader.join();
  received.resize(got);
  EXPECT_TRUE(received == sent) << got << " of " << sent.size() << " bytes";

  // A device that takes nothing: false, nothing written, and the reason.
  File full;
  ASSERT_TRUE(full.OpenForWriting("/dev/full"));
  size_t written = 99;
  EXPECT_FALSE(full.WriteAll(sent.data(), 10, &written));
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(full.GetLastErrorText(), "No space left on device");
  // New files are new: an existing one is never reused, a missing
  // directory is a failure with its reason.
  File file;
  EXPECT_EQ(file.CreateNew(fifo), FileCreateResult::kExists);
  EXPECT_EQ(file.CreateNew(directory.File("no/such")), FileCreateResult::kFailed);
  EXPECT_EQ(file.GetLastErrorText(), "No such file or directory");
  EXPECT_FALSE(file.IsOpen());
}

}  // namespace
