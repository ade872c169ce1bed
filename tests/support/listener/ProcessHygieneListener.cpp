// Linked into every test program: after each test, this process must have no
// child left unreaped and exactly the open descriptors it had before the test.
// A test that breaks this is named on standard error and the program exits
// with status 1 at its end, so that the test run fails.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

std::string descriptorTarget(int fd) {
  char target[4096];
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
  return n < 0 ? std::string("?") : std::string(target, static_cast<std::size_t>(n));
}

class ProcessHygieneListener : public ::testing::EmptyTestEventListener {
 public:
  void OnTestStart(const ::testing::TestInfo&) override {
    m_Before = sorted(cstest::openDescriptors());
  }

  void OnTestEnd(const ::testing::TestInfo& test) override {
    std::vector<int> after = sorted(cstest::openDescriptors());
    std::string problem;
    if (after != m_Before) {
      for (int fd : after) {
        if (!std::binary_search(m_Before.begin(), m_Before.end(), fd)) {
          problem +=
              " descriptor " + std::to_string(fd) + " (" + descriptorTarget(fd) + ") left open;";
        }
      }
      for (int fd : m_Before) {
        if (!std::binary_search(after.begin(), after.end(), fd)) {
          problem += " descriptor " + std::to_string(fd) + " closed;";
        }
      }
    }
    if (cstest::hasZombieChildren()) problem += " a child left unreaped;";
    if (problem.empty()) return;
    std::fprintf(stderr, "process hygiene: %s.%s:%s\n", test.test_suite_name(), test.name(),
                 problem.c_str());
    m_Failed = true;
  }

  void OnTestProgramEnd(const ::testing::UnitTest&) override {
    if (!m_Failed) return;
    std::fprintf(stderr, "process hygiene: failed (see above)\n");
    std::fflush(stderr);
    std::exit(1);
  }

 private:
  static std::vector<int> sorted(std::vector<int> fds) {
    std::sort(fds.begin(), fds.end());
    return fds;
  }
  std::vector<int> m_Before;
  bool m_Failed = false;
};

// Registered before main() runs the tests; gtest owns and deletes it.
const bool kRegistered = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new ProcessHygieneListener);
  return true;
}();

}  // namespace
