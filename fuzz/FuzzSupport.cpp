#include "FuzzSupport.h"

#include <cstdio>
#include <cstdlib>

#include "trace/TraceSink.h"

namespace {

class QuietTraceSink : public TraceSink {
 public:
  int maxLevel() const override { return Trace::Detail; }
  void record(const TraceRecord&) override {}
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  csfuzz::installQuietTrace();
  return 0;
}

namespace csfuzz {

void installQuietTrace() {
  static QuietTraceSink sink;
  TraceControl::setSink(&sink);
}

void checkFailed(const char* condition, const char* file, int line, const std::string& detail) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n  %s\n", file, line, condition, detail.c_str());
  std::fflush(stderr);
  std::abort();
}

std::string escape(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) {
    if (c >= 0x20 && c < 0x7F && c != '\\') {
      out.push_back(static_cast<char>(c));
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    }
  }
  return out;
}

}  // namespace csfuzz
