#pragma once
// Shared by every fuzz target and its replay driver: the libFuzzer entry
// points, a quiet trace sink, and a check that aborts with the failed
// condition so that the fuzzer and the replay test both report it.

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace csfuzz {

// Installs a trace sink that builds every record (so the record texts are
// exercised on hostile input) and writes none of them.
void installQuietTrace();

[[noreturn]] void checkFailed(const char* condition, const char* file, int line,
                              const std::string& detail);

// Printable form of a byte string for failure messages.
std::string escape(const std::string& bytes);

}  // namespace csfuzz

#define CSFUZZ_CHECK(cond, detail)                                           \
  do {                                                                       \
    if (!(cond)) ::csfuzz::checkFailed(#cond, __FILE__, __LINE__, (detail)); \
  } while (false)
