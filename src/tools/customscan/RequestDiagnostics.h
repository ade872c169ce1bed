#pragma once
// Finds out, for each expression the tool evaluates, what a user needs to
// know when it fails: the plug-in's error records for that request, the
// process it ran (why it could not be started, how it ended, its captured
// standard error) and, for a MIF query that found no class, field or row,
// what the scanner's text does hold. The plug-in itself says none of this
// in its answer; the host and the tool see it.

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "CollectingTraceSink.h"
#include "Evaluation.h"
#include "NameValue.h"
#include "StderrTraceSink.h"

namespace CustomScanTool {

class RequestDiagnostics {
 public:
  // Collects trace records, passing them on to the sink in place (--trace's)
  // while it lives.
  RequestDiagnostics();
  RequestDiagnostics(const RequestDiagnostics&) = delete;
  RequestDiagnostics& operator=(const RequestDiagnostics&) = delete;

  // Before a request: forgets the records and the last process.
  void begin();
  // After it: fills the evaluation's reason, near names, records and process.
  void finish(Evaluation& evaluation, const std::vector<NameValue>& properties);

  // The MIF texts kept for hints: at most this much in all (the oldest go
  // first) and, through the host setting, per scanner run.
  static constexpr std::size_t kKeptTextBytes = std::size_t{64} << 20;
  static constexpr std::size_t kKeptOutputBytes = std::size_t{16} << 20;

 private:
  void keepText(const std::string& key, std::string text);
  const std::string* keptText(const std::string& key) const;

  CollectingTraceSink m_Collector;
  TraceSinkScope m_Scope;
  // The text that each (command, output) request last parsed in this
  // plug-in life, newest last: a later query of the same scanner is answered
  // from the plug-in's cache without a run.
  std::deque<std::pair<std::string, std::string>> m_Texts;
  std::size_t m_TextBytes = 0;
  // Why each MIF request (command, output, class) first failed, for the
  // plug-in's "failed before" answer to the same request.
  std::map<std::string, std::string> m_Failures;
};

}  // namespace CustomScanTool
