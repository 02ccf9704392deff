#include "platform/StandardError.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace kv::test {
namespace {

TEST(GatheredOutput, WritesAllPiecesInOneCall) {
  // A datagram is what one call wrote.
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
  const std::string large(5000, 'x');
  for (const std::string& middle : {std::string(), std::string(" and"), large}) {
    const std::vector<std::string_view> pieces = {"", "one", "", middle, " two", "\n", ""};
    outputToDescriptor(ends[0])->write(pieces);
    std::array<char, 8192> received;
    const ssize_t length = ::recv(ends[1], received.data(), received.size(), MSG_DONTWAIT);
    ASSERT_GT(length, 0);
    EXPECT_EQ(std::string_view(received.data(), std::size_t(length)), "one" + middle + " two\n");
  }
  const std::vector<std::string_view> nothing = {"", ""};
  outputToDescriptor(ends[0])->write(nothing);
  char byte = 0;
  EXPECT_EQ(::recv(ends[1], &byte, 1, MSG_DONTWAIT), -1);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(GatheredOutput, GoesOnAfterInterruptionsAndPartialWrites) {
  // A pipe of one page takes a large line in parts only, and each signal interrupts the writer
  // wherever it stands.
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_GT(::fcntl(ends[1], F_SETPIPE_SZ, 4096), 0);
  struct sigaction interrupting {};
  struct sigaction before {};
  interrupting.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &interrupting, &before);

  std::vector<std::string> texts;
  std::string expected;
  for (std::size_t i = 0; i < 40; ++i) {
    texts.push_back(std::string(i * 97 % 7001, static_cast<char>('A' + i)));
    expected += texts.back();
  }
  const std::vector<std::string_view> pieces(texts.begin(), texts.end());
  std::atomic<bool> ended = false;
  std::thread writer([&] {
    outputToDescriptor(ends[1])->write(pieces);
    ::close(ends[1]);
    while (!ended) std::this_thread::yield();  // stays there to be interrupted
  });
  std::string received;
  std::array<char, 1000> buffer;
  for (;;) {
    ::pthread_kill(writer.native_handle(), SIGUSR1);
    const ssize_t length = ::read(ends[0], buffer.data(), buffer.size());
    if (length <= 0) break;
    received.append(buffer.data(), std::size_t(length));
  }
  ended = true;
  writer.join();
  ::close(ends[0]);
  ::sigaction(SIGUSR1, &before, nullptr);
  EXPECT_TRUE(received == expected) << received.size() << " of " << expected.size();
}

TEST(GatheredOutput, LosesWhatTheSystemDoesNotTake) {
  const std::vector<std::string_view> pieces = {"lost"};
  outputToDescriptor(-1)->write(pieces);
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  outputToDescriptor(full)->write(pieces);
  EXPECT_EQ(::close(full), 0);
}

}  // namespace
}  // namespace kv::test
