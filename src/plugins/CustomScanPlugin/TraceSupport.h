#pragma once
// Trace conventions of the plug-in: every trace goes to component 5; a traced
// operation opens a scope labelled with its name; a record has a level
// (1 error, 2 warning, 3 detail), the source position and text pieces, and is
// emitted by Trace::End. Every source file that traces defines kSourceLabel.

#include "trace/Trace.h"

namespace CustomScanPlugin {
const Tracer::Component kTraceComponent = 5;

// Whether the host keeps records of this level at all. A record nobody keeps
// would be dropped by Trace itself, but only after a call for every piece of
// it; the record macros ask this first and build nothing then.
inline bool traceWanted(int level) {
  const TraceSink* sink = Tracer::getSink();
  return sink != nullptr && sink->maxLevel() >= level;
}

// Makes a streamed record one void expression, so that a record macro is the
// second branch of a conditional and stays a single statement wherever it
// stands (an unbraced if/else included).
struct TraceVoid {
  void operator&(const Trace&) const {}
};
}  // namespace CustomScanPlugin

#define CS_TRACE_SCOPE(label) \
  Trace csTraceScope(Tracer::getInstance(::CustomScanPlugin::kTraceComponent), label)
// Starts a record; stream the text pieces, then Trace::End. Nothing after
// the macro is evaluated when no sink keeps records of this level.
#define CS_TRACE_RECORD(level, label, source, line)                                       \
  !::CustomScanPlugin::traceWanted(level)                                                 \
      ? static_cast<void>(0)                                                              \
      : ::CustomScanPlugin::TraceVoid() &                                                 \
            Trace(Tracer::getInstance(::CustomScanPlugin::kTraceComponent), label, level) \
                << Trace::pos(source, line)
#define CS_TRACE_AT(level, label, line) CS_TRACE_RECORD(level, label, kSourceLabel, line)
#define CS_TRACE(level, label) CS_TRACE_AT(level, label, __LINE__)
