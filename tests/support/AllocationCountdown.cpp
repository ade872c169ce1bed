#include "AllocationCountdown.h"

#include "base/HostFaults.h"

namespace cstest {

CountdownReport allocationCountdown(const std::wstring& operand, const Properties& properties,
                                    const Evaluation& good) {
  CountdownReport report;
  for (long n = 1;; ++n) {
    PluginHarness host;
    HostFaults::reset();
    HostFaults::instance().failAllocationAt = n;
    Evaluation failed = host.evaluateOnce(operand, properties);
    const bool reached = HostFaults::instance().failAllocationAt <= 0;
    HostFaults::reset();
    if (!reached) {
      EXPECT_EQ(failed.code, good.code) << "no fault injected at " << n;
      report.points = n - 1;
      break;
    }
    ++report.outcomes[failed.code];
    if (failed.code != 0) {
      EXPECT_TRUE(failed.scalar.empty()) << "allocation " << n;
      EXPECT_TRUE(failed.vector.empty()) << "allocation " << n;
    } else {
      EXPECT_EQ(failed.scalar, good.scalar) << "allocation " << n;
      EXPECT_EQ(failed.vector, good.vector) << "allocation " << n;
    }
    Evaluation after = host.evaluateOnce(operand, properties);
    EXPECT_EQ(after.code, good.code) << "after a failed allocation " << n;
    EXPECT_EQ(after.scalar, good.scalar) << "after a failed allocation " << n;
    EXPECT_EQ(after.vector, good.vector) << "after a failed allocation " << n;
    if (n > 100000) {
      ADD_FAILURE() << "the countdown does not end";
      break;
    }
  }
  return report;
}

std::string describe(const CountdownReport& report) {
  std::string text = std::to_string(report.points) + " allocation points;";
  for (const auto& o : report.outcomes)
    text += " code " + std::to_string(o.first) + " x" + std::to_string(o.second);
  return text;
}

void expectOutcomesAmong(const CountdownReport& report, const std::set<TErrorCode>& allowed) {
  for (const auto& o : report.outcomes) {
    EXPECT_TRUE(allowed.count(o.first))
        << "unexpected outcome " << o.first << " (" << describe(report) << ")";
  }
}

}  // namespace cstest
