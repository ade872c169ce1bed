#pragma once
// The plug-in's one assertion. It guards only states that cannot arise unless
// the program is broken, and prints the checked expression, the source label
// (the source's path below the build tree, without extension), the line and
// the full function signature before ending the process. Every source file
// that asserts or traces defines kSourceLabel.

#include <assert.h>

#ifdef NDEBUG
// <assert.h> declares its reporter only in checked builds; this assertion
// stays on in every build, release included.
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line,
                              const char* function) noexcept __attribute__((__noreturn__));
#endif

// The expression text is taken after macro expansion (NULL reads as __null).
#define CS_ASSERT_AT(expr, line) \
  ((expr) ? static_cast<void>(0) : __assert_fail(#expr, kSourceLabel, line, __PRETTY_FUNCTION__))
#define CS_ASSERT_EXPANDED(expr, line) CS_ASSERT_AT(expr, line)
#define CS_ASSERT(expr) CS_ASSERT_EXPANDED(expr, __LINE__)
// For the few assertions whose reported line is part of the plug-in's contract.
#define CS_ASSERT_LINE(expr, line) CS_ASSERT_EXPANDED(expr, line)
