// `vyn send` against a line the test plays the device on: only the reply
// that belongs to the request ends the wait with success; notifications,
// other replies and damaged replies are shown or dropped but never count.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "support/pseudo_terminal.h"
#include "tests/support/child_process.h"
#include "tests/support/test_frames.h"

namespace vyn::test {
namespace {

TEST(SendReply, OnlyTheMatchingUndamagedReplyCounts) {
  const Bytes notification = CcpuFrame(0x8002, {0x00});
  const Bytes reply = CcpuFrame(0x4001, {0x01, 0x02, 0x03, 0x04});
  Bytes damaged = reply;
  damaged.back() ^= 0x5A;
  struct Case {
    Bytes answer;
    // A reply that counts ends the wait at once; one that does not is
    // waited out, so that wait is kept short.
    const char* wait_ms;
  };
  const Case cases[] = {
      {Cat({notification, damaged}), "700"},
      {Cat({notification, CcpuFrame(0x4052, {0x01, 0x02, 0x03, 0x04})}), "700"},  // another's
      {Cat({notification, reply}), "20000"},
  };
  for (const Case& c : cases) {
    const bool counts = &c == &cases[2];
    SCOPED_TRACE(counts ? "the reply" : c.answer.back() == damaged.back() ? "damaged" : "other");
    support::PseudoTerminal line;
    // Held open here, the slave does not hang up before `vyn send` opens it.
    ASSERT_TRUE(line.Open() && line.HoldSlaveOpen());
    ChildProcess send(Vyn({"send", line.slave_path(), "GetDeviceInfo", "-w", c.wait_ms}));
    Bytes request(7);
    pollfd watched{line.master_descriptor(), POLLIN, 0};
    for (size_t got = 0; got < 7 && poll(&watched, 1, 10000) > 0;) {
      const ssize_t n = read(line.master_descriptor(), &request[got], 7 - got);
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    EXPECT_EQ(request[1], 0x01) << send.output();  // GetDeviceInfo
    ASSERT_EQ(write(line.master_descriptor(), c.answer.data(), c.answer.size()),
              static_cast<ssize_t>(c.answer.size()));
    ASSERT_TRUE(send.WaitForExit(30000));
    EXPECT_EQ(send.exit_code(), counts ? 0 : 1) << send.output();
    // The notification is shown as it passes in every case.
    EXPECT_NE(send.output().find("RX "), std::string::npos) << send.output();
    EXPECT_EQ(send.output().find("no reply within 700 ms") == std::string::npos, counts);
  }
}

}  // namespace
}  // namespace vyn::test
