#pragma once
// The allocation countdown: fails the Nth host allocation (zelm_*) of one
// operand request, for N = 1, 2, ... until the request runs to its end
// without reaching N, in the manner of SQLite's malloc tests.

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "PluginHarness.h"

namespace cstest {

struct CountdownReport {
  long points = 0;  // host allocations of the request, each made to fail once
  std::map<TErrorCode, long> outcomes;
};

// Each request runs in a plug-in lifetime of its own. A failed request must
// give a code with an empty result, or success with the good result; the
// same plug-in must then answer the same request with the good result, so a
// fault is never remembered as a broken scanner. Failures are added to the
// running test.
CountdownReport allocationCountdown(const std::wstring& operand, const Properties& properties,
                                    const Evaluation& good);
// "N allocation points; code C xK ..."
std::string describe(const CountdownReport& report);
// Adds a failure for every outcome not in allowed.
void expectOutcomesAmong(const CountdownReport& report, const std::set<TErrorCode>& allowed);

}  // namespace cstest
