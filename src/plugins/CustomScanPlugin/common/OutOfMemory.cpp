#include "common/OutOfMemory.h"

#include <new>
#include <stdexcept>

#include "TraceSupport.h"

namespace CustomScanPlugin {

namespace {
void traceOutOfMemory(const char* label, const char* source, int line, const char* what) {
  // The host's trace never throws; without room for the record it is lost.
  CS_TRACE_RECORD(Trace::Error, label, source, line) << "Out of memory: " << what << Trace::End;
}
}  // namespace

TErrorCode outOfMemory(const char* label, const char* source, int line) {
  try {
    throw;
  } catch (const std::bad_alloc& e) {
    traceOutOfMemory(label, source, line, e.what());
  } catch (const std::length_error& e) {
    traceOutOfMemory(label, source, line, e.what());
  }
  return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
}

}  // namespace CustomScanPlugin
