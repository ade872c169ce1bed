#pragma once
// Process creation for the host. Children are started with posix_spawn,
// never through a shell:
//  - the command line is split at runs of blanks outside double quotes, the
//    quotes removed ("" is an empty argument); the first word is the program
//    path, used as it is (no search path);
//  - the environment array is the child's whole environment;
//  - standard input is /dev/null, standard output a pipe read by the host,
//    standard error the host's own; no other descriptor reaches the child;
//  - the child starts with an empty signal mask and default signal actions
//    (the C library's reserved signals 32 and 33 excepted: posix_spawn leaves
//    them ignored).

#include "base/String.h"

// The stream on which a child's output arrives.
class ProcessInputStream {
 public:
  ProcessInputStream() = default;
  ProcessInputStream(const ProcessInputStream&) = delete;
  ProcessInputStream& operator=(const ProcessInputStream&) = delete;
  virtual ~ProcessInputStream() = default;
  // The next byte, 0 to 255, or a negative value at the end of the stream.
  // Bytes already buffered are handed out here, inline; the stream's own
  // refill is called only when they are spent.
  int read() {
    if (m_Next != m_End) return *m_Next++;
    return refill();
  }

 protected:
  // Buffers the next bytes in [m_Next, m_End) and returns the first of them
  // (consumed), or returns a negative value at the end of the stream.
  virtual int refill() = 0;

  const unsigned char* m_Next = nullptr;
  const unsigned char* m_End = nullptr;
};

// A started child. Deleting a process that was not waited for closes its
// output and reaps it (blocking until it ends).
class Process {
 public:
  Process() = default;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  virtual ~Process() = default;
  // The child's output stream, owned by the process object; null if the
  // process has none.
  virtual ProcessInputStream* getInputStream() = 0;
  // Blocks until the child ends and reaps it. Returns its exit status, or
  // 128 + the signal number for a child killed by a signal, or -1 when no
  // status could be obtained (never 0 in that case).
  virtual int waitFor() = 0;
};

class Runtime {
 public:
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;
  // The process-wide runtime object.
  static Runtime* getRuntime();

  // Starts the command line with exactly the given environment (count entries
  // of "NAME=value"). Returns a process the caller owns and deletes, or null
  // when no process could be created (empty command line, program missing or
  // not executable, resources exhausted).
  Process* exec(const String& commandLine, const String* const* environment, int count);

 private:
  Runtime() = default;
  Process* spawn(const String& commandLine, const String* const* environment, int count);
};
