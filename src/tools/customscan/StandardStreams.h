#pragma once
// The standard descriptors the tool was started with. One that the caller
// left closed (`>&-`, `<&-`) is held by a placeholder, so that no file,
// pipe or library the tool or the plug-in opens later takes its number: an
// answer must not land in a scanner's pipe, nor a child's error output in
// the tool's input. The placeholder refuses the use the descriptor is for (a
// closed standard output still cannot be written, a closed standard input
// still cannot be read), so the failure stays visible and is reported.

namespace CustomScanTool {

class StandardStreams {
 public:
  // Checks descriptors 0, 1 and 2 and holds the closed ones. Call once,
  // first thing in main().
  static void hold();
  // Closes the placeholders again, so that the tool ends with the
  // descriptors it was given. Call last in main().
  static void release();
  // Whether descriptor fd (0, 1 or 2) was closed when hold() ran.
  static bool wasClosed(int fd);
};

}  // namespace CustomScanTool
