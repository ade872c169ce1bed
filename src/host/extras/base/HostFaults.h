#pragma once
// Fault injection for tests: the environment seam of the host stand-in.
// Each countdown fails the Nth call from now (1 = the next call); -1 is off.
// Nothing here is touched by a host that does not ask for faults.

struct HostFaults {
  // Runtime::exec returns null on the Nth call.
  long failProcessCreationAt = -1;
  // Process::getInputStream returns null for processes created while set;
  // such a child runs normally with its output going to /dev/null.
  bool noOutputStream = false;
  // The output stream of processes created while set reports its end after
  // this many bytes (-1: never early) and closes the pipe then, so a child
  // still writing ends by SIGPIPE instead of blocking its waiter.
  long streamEndAfterBytes = -1;
  // zelm_malloc / zelm_realloc return null on the Nth call.
  long failAllocationAt = -1;
  // Number of allocations made through zelm_malloc / zelm_realloc so far.
  long allocationCount = 0;

  static HostFaults& instance();
  // Turns every fault off.
  static void reset();
};
