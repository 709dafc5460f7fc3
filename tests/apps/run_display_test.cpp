// What `gleanwright run` writes to a pipe: held briefly, but every line arrives, in order, also
// when nothing follows it for a long time and when the run ends by a failure.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "../../apps/gleanwright/run_display.h"

namespace gw::app {
namespace {

class RunDisplayTest : public ::testing::Test {
 protected:
  RunDisplayTest() {
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    read_end_ = fds[0];
    ::fcntl(read_end_, F_SETFL, O_NONBLOCK);
    out_ = ::fdopen(fds[1], "w");
  }
  ~RunDisplayTest() override {
    if (out_) std::fclose(out_);
    ::close(read_end_);
  }

  // What the pipe holds now.
  std::string Arrived() {
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = ::read(read_end_, buffer, sizeof buffer)) > 0;) {
      text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
  }

  // What arrives until `expected` is all there, or ten seconds pass.
  std::string ArrivedWithin10s(const std::string& expected) {
    std::string text;
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (text.size() < expected.size() && std::chrono::steady_clock::now() < give_up) {
      pollfd readable{read_end_, POLLIN, 0};
      ::poll(&readable, 1, 100);
      text += Arrived();
    }
    return text;
  }

  int read_end_ = -1;
  std::FILE* out_ = nullptr;
};

TEST_F(RunDisplayTest, ALineWithNothingAfterItArrivesWhileTheRunWaits) {
  RunDisplay display(out_);
  ASSERT_FALSE(display.IsTerminal());
  display.Status("Downloading http://127.0.0.1/slow  Count: 1");
  display.Transfers(0, 0, 1, 0);
  // Nothing else is written while the download takes its time: both lines still go out.
  EXPECT_EQ(ArrivedWithin10s("Downloading http://127.0.0.1/slow  Count: 1\n"
                             "fetched 0, failed 0, queued 1, 0.0 KB/s\n"),
            "Downloading http://127.0.0.1/slow  Count: 1\n"
            "fetched 0, failed 0, queued 1, 0.0 KB/s\n");
}

TEST_F(RunDisplayTest, EveryLineArrivesInOrderWhenTheRunEndsOrFails) {
  for (const bool finished : {true, false}) {
    SCOPED_TRACE(finished ? "finished" : "failed");
    std::string expected;
    {
      RunDisplay display(out_);
      display.Note("Running package P");
      expected += "Running package P\n";
      for (int k = 1; k <= 300; ++k) {
        const std::string status =
            "Downloading page" + std::to_string(k) + ".htm  Count: " + std::to_string(k);
        display.Status(status);
        expected += status + "\n";
        if (k % 100 == 0) {
          display.Note("note " + std::to_string(k));
          expected += "note " + std::to_string(k) + "\n";
        }
      }
      display.Status("Saving package results.");
      expected += "Saving package results.\n";
      // A failed run leaves without Finish: the display's end pushes the lines out.
      if (finished) display.Finish();
    }
    // Out at once, not by the display's timer.
    EXPECT_EQ(Arrived(), expected);
  }
}

}  // namespace
}  // namespace gw::app
