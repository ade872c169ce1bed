// The "output" file of a MIF request when it is not a plain readable file:
// missing, a FIFO, endless, truncated while it is read. Decisions pinned here
// (and explained in docs/reliability.md):
//  - A FIFO is opened as any file is, with fopen "r", which waits until some
//    process opens it for writing. A writer that appears later is read to its
//    end; a FIFO that nobody ever writes blocks the request, as a scanner
//    that never closes its output does. The scanner itself cannot be that
//    writer (it has ended before the file is opened).
//  - An endless file (/dev/zero) is read until the buffer cannot grow: at the
//    allocator's first refusal, or at the buffer's 4 GiB bound, the request
//    fails with CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE and
//    nothing is remembered. The tests bound it with the allocation seam.
//  - A file truncated while it is read gives the bytes read up to its new
//    end: a prefix of what was there.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "CustomScanConstants.h"
#include "MifSamples.h"
#include "PluginHarness.h"
#include "ProcessHygiene.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/HostFaults.h"

using cstest::Evaluation;
using cstest::PluginHarness;
using cstest::Properties;

namespace {

std::wstring wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

class OutputFileFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HostFaults::reset();
    m_Sandbox.installScript("noop", "exit 0");
    m_Sandbox.installScript("count", "echo run >> '" + m_Sandbox.root() + "/runs'");
  }
  void TearDown() override {
    HostFaults::reset();
    EXPECT_FALSE(m_Sandbox.canaryRan());
    m_Hygiene.verify();
  }
  Properties list(const std::string& command, const std::string& output) {
    return {{L"command", wide(command)}, {L"class", L"Disks"}, {L"output", wide(output)}};
  }
  int runs() {
    if (!cstest::fileExists(m_Sandbox.root() + "/runs")) return 0;
    std::string text = cstest::readFile(m_Sandbox.root() + "/runs");
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
  }

  cstest::ProcessHygiene m_Hygiene;
  cstest::ScannerSandbox m_Sandbox;
};

const std::vector<std::wstring> kDisksKeys = {L"sda", L"sdb", L"sdc"};

TEST_F(OutputFileFaultTest, MissingFileFailsEveryTimeAndRunsTheScannerEveryTime) {
  PluginHarness host;
  const std::string missing = m_Sandbox.root() + "/never-written.mif";
  EXPECT_EQ(host.evaluateOnce(L"CustomScanList", list("count", missing)).code,
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
  EXPECT_EQ(host.evaluateOnce(L"CustomScanList", list("count", missing)).code,
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
  EXPECT_EQ(runs(), 2);
  // Once the file is there, the same request succeeds: nothing was remembered.
  cstest::writeFile(missing, cstest::kDisksMif);
  Evaluation e = host.evaluateOnce(L"CustomScanList", list("count", missing));
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.vector, kDisksKeys);
}

// Opens the FIFO for writing once a reader waits on it (never blocking the
// test if none comes), writes text and closes it.
void writeFifoWhenRead(const std::string& fifo, const std::string& text, std::atomic<bool>& wrote) {
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  int fd = -1;
  while (fd < 0 && std::chrono::steady_clock::now() < deadline) {
    fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (fd < 0) return;
  ::fcntl(fd, F_SETFL, 0);
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(fd);
  wrote = done == text.size();
}

TEST_F(OutputFileFaultTest, FifoIsReadOnceAWriterAppears) {
  const std::string fifo = m_Sandbox.root() + "/out.fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> wrote{false};
  // More than a pipe holds, so the reader must keep up with the writer.
  std::string text = std::string(cstest::kDisksMif) + std::string(200000, '\n');
  std::thread writer(writeFifoWhenRead, fifo, text, std::ref(wrote));
  PluginHarness host;
  Evaluation e = host.evaluateOnce(L"CustomScanList", list("noop", fifo));
  writer.join();
  EXPECT_TRUE(wrote);
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.vector, kDisksKeys);
}

TEST_F(OutputFileFaultTest, FifoWhoseWriterClosesAtOnceIsAnEmptyText) {
  const std::string fifo = m_Sandbox.root() + "/empty.fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> wrote{false};
  std::thread writer(writeFifoWhenRead, fifo, std::string(), std::ref(wrote));
  PluginHarness host;
  Evaluation e = host.evaluateOnce(L"CustomScanList", list("noop", fifo));
  writer.join();
  EXPECT_TRUE(wrote);
  EXPECT_EQ(e.code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF);
}

TEST_F(OutputFileFaultTest, EndlessFileFailsWhenTheBufferCannotGrowAndIsRetried) {
  PluginHarness host;
  // About 200 growths of the buffer (some 800 KiB of zeros), then the
  // allocator refuses.
  HostFaults::instance().failAllocationAt = 200;
  Evaluation e = host.evaluateOnce(L"CustomScanList", list("noop", "/dev/zero"));
  EXPECT_LE(HostFaults::instance().failAllocationAt, 0) << "the allocation fault was not reached";
  EXPECT_EQ(e.code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
  EXPECT_TRUE(e.vector.empty());
  HostFaults::instance().failAllocationAt = 100;
  // Not remembered: the same request reads again, and fails again.
  EXPECT_EQ(host.evaluateOnce(L"CustomScanList", list("noop", "/dev/zero")).code,
            CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE);
}

TEST_F(OutputFileFaultTest, FileTruncatedWhileReadGivesAPrefixOfIt) {
  // The MIF text, then 2 MiB of comment lines. While the plug-in reads the
  // file, a second thread keeps cutting it back to the MIF text and writing
  // the same comments again, so every byte at an offset is always the same
  // and each read ends at whatever end the file has at that moment: the
  // plug-in sees the MIF text and a prefix of the comments. The outcome is
  // the table, or a parse failure when a cut left a lone "/" on the last line.
  const std::string file = m_Sandbox.root() + "/shrinking.mif";
  const std::string head = cstest::kDisksMif;
  std::string comments;
  const std::string line = "// " + std::string(60, 'c') + "\n";
  while (comments.size() < (2u << 20)) comments += line;
  cstest::writeFile(file, head + comments);

  std::atomic<bool> stop{false};
  std::atomic<long> cuts{0};
  std::thread cutter([&] {
    int fd = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return;
    while (!stop) {
      if (::ftruncate(fd, static_cast<off_t>(head.size())) != 0) break;
      ++cuts;
      std::size_t done = 0;
      while (done < comments.size()) {
        ssize_t n = ::pwrite(fd, comments.data() + done, comments.size() - done,
                             static_cast<off_t>(head.size() + done));
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
      }
    }
    ::close(fd);
  });
  PluginHarness host;
  int successes = 0;
  for (int round = 0; round < 20; ++round) {
    Evaluation e =
        host.evaluateOnce(L"CustomScanList", list("noop " + std::to_string(round), file));
    EXPECT_TRUE(e.code == 0 || e.code == CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF)
        << "round " << round << ": " << e.code;
    if (e.code == 0) {
      ++successes;
      EXPECT_EQ(e.vector, kDisksKeys);
    }
  }
  stop = true;
  cutter.join();
  EXPECT_GT(cuts.load(), 0);
  EXPECT_GT(successes, 0);
}

TEST_F(OutputFileFaultTest, FileOfExactlyTheBufferSizeIsReadWhole) {
  // 4096 bytes: the buffer's first size. The terminator needs one more step.
  std::string text = cstest::kDisksMif;
  text += std::string(4096 - text.size(), ' ');
  const std::string file = m_Sandbox.root() + "/exact.mif";
  cstest::writeFile(file, text);
  PluginHarness host;
  Evaluation e = host.evaluateOnce(L"CustomScanList", list("noop", file));
  EXPECT_EQ(e.code, 0);
  EXPECT_EQ(e.vector, kDisksKeys);
}

}  // namespace
