#pragma once
// Trace conventions of the plug-in: every trace goes to component 5; a traced
// operation opens a scope labelled with its name; a record has a level
// (1 error, 2 warning, 3 detail), the source position and text pieces, and is
// emitted by Trace::End. Every source file that traces defines kSourceLabel.

#include "trace/Trace.h"

namespace CustomScanPlugin {
const Tracer::Component kTraceComponent = 5;

}  // namespace CustomScanPlugin

#define CS_TRACE_SCOPE(label) \
  Trace csTraceScope(Tracer::getInstance(::CustomScanPlugin::kTraceComponent), label)
// Starts a record; stream the text pieces, then Trace::End. A record that no
// sink keeps is dropped by the host's Trace at the cost of a test per piece.
#define CS_TRACE_RECORD(level, label, source, line)                             \
  Trace(Tracer::getInstance(::CustomScanPlugin::kTraceComponent), label, level) \
      << Trace::pos(source, line)
#define CS_TRACE_AT(level, label, line) CS_TRACE_RECORD(level, label, kSourceLabel, line)
#define CS_TRACE(level, label) CS_TRACE_AT(level, label, __LINE__)
