// `vyn send` against a line the test plays the device on: only the reply
// that belongs to the request ends the wait with success; notifications,
// other replies and damaged replies are shown or dropped but never count.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/pseudo_terminal.h"
#include "tests/support/child_process.h"
#include "tests/support/test_frames.h"

namespace {

using vyn::test::Bytes;
using vyn::test::CcpuFrame;
using vyn::test::ChildProcess;
using vyn::test::Vyn;

// Reads the 7-byte GetDeviceInfo request from the master side.
bool ReadRequest(int master, Bytes* request) {
  unsigned char byte = 0;
  pollfd watched{master, POLLIN, 0};
  while (request->size() < 7 && poll(&watched, 1, 10000) > 0) {
    const ssize_t got = read(master, &byte, 1);
    if (got == 1) request->push_back(byte);
    if (got < 0 && errno != EAGAIN && errno != EINTR) return false;
  }
  return request->size() == 7;
}

// Runs `vyn send PORT GetDeviceInfo` and answers its request with `answer`.
void SendAndAnswer(ChildProcess& send, vyn::support::PseudoTerminal& line, const Bytes& answer) {
  Bytes request;
  if (!ReadRequest(line.master_descriptor(), &request)) {
    ADD_FAILURE() << "no request came: " << send.output();
    return;
  }
  EXPECT_EQ(request[1], 0x01);  // GetDeviceInfo
  EXPECT_EQ(write(line.master_descriptor(), answer.data(), answer.size()),
            static_cast<ssize_t>(answer.size()));
  EXPECT_TRUE(send.WaitForExit(15000));
}

Bytes Concat(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST(SendReply, OnlyTheMatchingUndamagedReplyCounts) {
  const Bytes notification = CcpuFrame(0x8002, {0x00});
  const Bytes reply = CcpuFrame(0x4001, {0x01, 0x02, 0x03, 0x04});
  Bytes damaged = reply;
  damaged.back() ^= 0x5A;
  const Bytes other_reply = CcpuFrame(0x4052, {0x01, 0x02, 0x03, 0x04});

  struct Case {
    const char* what;
    Bytes answer;
    int exit_code;
    // A reply that counts ends the wait at once; one that does not is
    // waited out, so that wait is kept short.
    const char* wait_ms;
  };
  const Case cases[] = {
      {"notification, then a damaged reply", Concat(notification, damaged), 1, "700"},
      {"notification, then the reply to another request", Concat(notification, other_reply), 1,
       "700"},
      {"notification, then the reply", Concat(notification, reply), 0, "20000"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    vyn::support::PseudoTerminal line;
    // Held open here, the slave does not hang up before `vyn send` opens it.
    ASSERT_TRUE(line.Open() && line.HoldSlaveOpen());
    ChildProcess send(Vyn({"send", line.slave_path(), "GetDeviceInfo", "-w", c.wait_ms}));
    SendAndAnswer(send, line, c.answer);
    EXPECT_EQ(send.exit_code(), c.exit_code) << send.output();
    // The notification is shown as it passes in every case.
    EXPECT_NE(send.output().find("RX "), std::string::npos) << send.output();
    if (c.exit_code != 0) {
      EXPECT_NE(send.output().find("no reply within 700 ms"), std::string::npos) << send.output();
    }
  }
}

}  // namespace
