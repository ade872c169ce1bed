#pragma once
// Trace conventions of the plug-in: every trace goes to component 5; a traced
// operation opens a scope labelled with its name; a record has a level
// (1 error, 2 warning, 3 detail), the source position and text pieces, and is
// emitted by Trace::End. Every source file that traces defines kSourceLabel.

#include "trace/Trace.h"

namespace CustomScanPlugin {
const Tracer::Component kTraceComponent = 5;

// Whether the host keeps records of this level at all. A record nobody keeps
// is dropped by Trace itself, but building it still costs a few calls; a loop
// that writes one record per item asks this first.
inline bool traceWanted(int level) {
  const TraceSink* sink = Tracer::getSink();
  return sink != nullptr && sink->maxLevel() >= level;
}
}  // namespace CustomScanPlugin

#define CS_TRACE_SCOPE(label) \
  Trace csTraceScope(Tracer::getInstance(::CustomScanPlugin::kTraceComponent), label)
// Starts a record; stream the text pieces, then Trace::End.
#define CS_TRACE_AT(level, label, line)                                         \
  Trace(Tracer::getInstance(::CustomScanPlugin::kTraceComponent), label, level) \
      << Trace::pos(kSourceLabel, line)
#define CS_TRACE(level, label) CS_TRACE_AT(level, label, __LINE__)
