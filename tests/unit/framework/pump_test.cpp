#include "framework/pump.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <ostream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "framework/child_process.h"

namespace {

using mgr_proc::Pipe;
using mgr_proc::Pump;
using mgr_proc::SecretBuffer;
using mgr_proc::Sink;

Pump::Time In(int milliseconds) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

TEST(Sink, KeepsTheFirstBytesAndCountsTheRest) {
  Sink sink(5);
  sink.Add("abc");
  EXPECT_EQ(0u, sink.dropped());
  sink.Add("defg");
  sink.Add("h");
  EXPECT_EQ("abcde", sink.Text());
  EXPECT_EQ(3u, sink.dropped());
}

TEST(Sink, PutsPiecesOfManySizesTogether) {
  Sink sink(std::size_t{10} << 20);
  std::string expected;
  for (std::size_t size = 1; size < 4000000; size = size * 3 + 1) {
    const std::string part(size, static_cast<char>('a' + size % 26));
    sink.Add(part);
    expected += part;
  }
  EXPECT_TRUE(expected == sink.Text());
}

// A pump between this test and a child that the test plays itself.
class PumpTest : public ::testing::Test {
 protected:
  Pump MakePump(Descriptor in) {
    return {
        std::move(in), input_, {std::move(out_.read), &output_}, {std::move(err_.read), &errors_}};
  }
  void End() const { ASSERT_EQ(0, ::eventfd_write(end_.get(), 1)); }

  SecretBuffer input_;
  Sink output_{std::size_t{1} << 20};
  Sink errors_{std::size_t{1} << 20};
  Pipe out_ = Pipe::Make();
  Pipe err_ = Pipe::Make();
  Descriptor end_{::eventfd(0, EFD_CLOEXEC)};
};

TEST_F(PumpTest, RunsUntilTheEndIsSeen) {
  Pump pump = MakePump(Descriptor());
  EXPECT_FALSE(pump.RunUntilEnd(end_.get(), In(10)));
  End();
  EXPECT_TRUE(pump.RunUntilEnd(end_.get(), In(10000)));
}

TEST_F(PumpTest, WithoutADescriptorTheChildHasEnded) {
  EXPECT_TRUE(MakePump(Descriptor()).RunUntilEnd(-1, In(10000)));
}

TEST_F(PumpTest, DrainTakesWhatLiesInThePipesAndNoMoreThanOneHolds) {
  Pump pump = MakePump(Descriptor());
  ASSERT_EQ(3, ::write(out_.write.get(), "out", 3));
  ASSERT_EQ(3, ::write(err_.write.get(), "err", 3));
  pump.Drain();
  EXPECT_EQ("out", output_.Text());
  EXPECT_EQ("err", errors_.Text());
  ASSERT_EQ(4, ::write(out_.write.get(), " put", 4));
  pump.Drain();
  EXPECT_EQ("out put", output_.Text());
}

TEST(SendAhead, PutsAShortInputWholeIntoThePipeAndWipesIt) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{65536}}) {
    SCOPED_TRACE(size);
    SecretBuffer input;
    std::ostream(&input) << std::string(size, 'x');
    Pipe pipe = Pipe::Make();
    mgr_proc::SendAhead(pipe.write, input);
    EXPECT_FALSE(pipe.write);
    EXPECT_EQ("", input.Text());
    std::string got(size + 1, '-');
    EXPECT_EQ(static_cast<ssize_t>(size), ::read(pipe.read.get(), got.data(), got.size()));
    EXPECT_EQ(0, ::read(pipe.read.get(), got.data(), got.size()));
  }
}

TEST(SendAhead, MakesRoomInASmallPipe) {
  SecretBuffer input;
  std::ostream(&input) << std::string(20000, 'x');
  Pipe pipe = Pipe::Make();
  ASSERT_EQ(4096, ::fcntl(pipe.write.get(), F_SETPIPE_SZ, 4096));
  mgr_proc::SendAhead(pipe.write, input);
  std::string got(30000, '-');
  EXPECT_EQ(20000, ::read(pipe.read.get(), got.data(), got.size()));
}

TEST(SendAhead, LeavesALongInputToThePump) {
  SecretBuffer input;
  std::ostream(&input) << std::string(65537, 'x');
  Pipe pipe = Pipe::Make();
  mgr_proc::SendAhead(pipe.write, input);
  EXPECT_TRUE(pipe.write);
  EXPECT_EQ(65537u, input.Text().size());
  int lying = -1;
  ASSERT_EQ(0, ::ioctl(pipe.read.get(), FIONREAD, &lying));
  EXPECT_EQ(0, lying);
}

TEST(SendAhead, FailsRatherThanSendAPart) {
  SecretBuffer input;
  std::ostream(&input) << std::string(65536, 'x');
  Pipe pipe = Pipe::Make();
  ASSERT_EQ(1, ::write(pipe.write.get(), "y", 1));
  EXPECT_THROW(mgr_proc::SendAhead(pipe.write, input), std::system_error);
}

TEST_F(PumpTest, MovesInputAndOutputTogether) {
  const std::string text(500000, 'x');
  std::ostream(&input_) << text;
  Pipe in = Pipe::Make();
  std::thread child([this, from = std::move(in.read)] {
    char bytes[1000];
    for (ssize_t got = 1; got > 0;) {
      got = ::read(from.get(), bytes, sizeof(bytes));
      EXPECT_EQ(got, ::write(out_.write.get(), bytes, static_cast<std::size_t>(got)));
    }
    End();
  });
  Pump pump = MakePump(std::move(in.write));
  EXPECT_TRUE(pump.RunUntilEnd(end_.get(), In(20000)));
  child.join();
  pump.Drain();
  EXPECT_TRUE(text == output_.Text());
  EXPECT_EQ("", input_.Text());
}

TEST_F(PumpTest, InputThatNobodyReadsIsWipedAndForgotten) {
  std::ostream(&input_) << std::string(500000, 'x');
  Pipe in = Pipe::Make();
  in.read.Close();
  Pump pump = MakePump(std::move(in.write));
  End();
  EXPECT_TRUE(pump.RunUntilEnd(end_.get(), In(10000)));
  EXPECT_EQ("", input_.Text());
}

}  // namespace
