// Compiled with exactly the include path and flags of the plug-in's own
// sources, once for each probe below. The probe CONTRACT_ONLY uses only host
// operations an agent offers and must compile; each other probe reaches for
// one of the stand-in's extras and must not.

#include "TraceSupport.h"
#include "base/File.h"
#include "base/Memory.h"
#include "base/Runtime.h"
#include "base/String.h"
#include "base/WideText.h"
#include "config/ZelCfg.h"
#include "sdk/Plugin.h"

#if defined(PROBE_CONTRACT_ONLY)
int probe() {
  String text("abc");
  text.concat(L'd').trim();
  const String copy(text.substring(1, 2));
  wchar_t* wide = i_mbstowcs("x");
  zelm_free(wide);
  const File file(ZelCfg::getCustomScannerDir(), L"scanner.sh");
  Trace(Tracer::getInstance(5), "probe", Trace::Detail) << copy << Trace::End;
  return file.isFile() ? text.compareTo(copy, 0) : Runtime::getRuntime() != nullptr;
}
#elif defined(PROBE_TRACE_SINK)
#include "trace/TraceSink.h"
int probe() { return TraceControl::getSink() != nullptr; }
#elif defined(PROBE_TRACER_SINK)
int probe() { return Tracer::getSink() != nullptr; }
#elif defined(PROBE_HOST_SETTINGS)
#include "config/HostSettings.h"
int probe() { return 0; }
#elif defined(PROBE_ZELCFG_SETTER)
int probe() {
  ZelCfg::setCustomScannerDir(String("/tmp"));
  return 0;
}
#elif defined(PROBE_STRING_HASH)
int probe() { return static_cast<int>(String("a").hash()); }
#elif defined(PROBE_STRING_RESERVE)
int probe() {
  String s;
  s.reserve(10);
  return s.length();
}
#elif defined(PROBE_STRING_ASCII_VIEW)
int probe() { return String("a").asciiView() != nullptr; }
#elif defined(PROBE_STRING_EQUALITY)
int probe() { return String("a") == String("a") ? 1 : 0; }
#elif defined(PROBE_WIDE_TEXT_EXTRAS)
int probe() { return hostIsAscii("a", 1) ? 1 : 0; }
#elif defined(PROBE_STREAM_READER)
int probe(ProcessInputStream& stream) {
  ProcessInputReader reader(stream);
  return reader.read();
}
#elif defined(PROBE_HOST_FAULTS)
#include "base/HostFaults.h"
int probe() { return 0; }
#else
#error "no probe chosen"
#endif
