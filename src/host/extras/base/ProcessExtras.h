#pragma once
// What the stand-in's process runner offers the tool and the tests beyond the
// operations a plug-in may use.

#include <string>
#include <vector>

#include "base/Runtime.h"

// The argument vector that Runtime::exec makes of a command line: split at
// runs of blanks outside double quotes, the quotes removed.
std::vector<std::string> hostSplitCommandLine(const String& commandLine);

// The process id of a child that Runtime::exec started.
int hostProcessId(const Process& process);
