#include "base/HostFaults.h"

HostFaults& HostFaults::instance() {
  static HostFaults faults;
  return faults;
}

void HostFaults::reset() { instance() = HostFaults(); }
