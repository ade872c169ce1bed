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

#include <cstddef>
#include <string>
#include <vector>

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

 private:
  friend class ProcessInputReader;
};

// Reads a stream exactly as its read() does, one value per call, but holds
// the stream's buffered bytes [next, end) in itself. Made as a local whose
// address is never taken, it lives in registers: a reader of the stream's
// own read() that stores each byte somewhere must reload and store the
// stream's position around every byte (the byte store could alias it); this
// one touches the stream only when its bytes are spent, once per block.
// While a reader exists, read the stream only through it; the position is
// handed back to the stream on every refill and when the reader ends.
class ProcessInputReader {
 public:
  explicit ProcessInputReader(ProcessInputStream& stream)
      : m_Stream(stream), m_Next(stream.m_Next), m_End(stream.m_End) {}
  ProcessInputReader(const ProcessInputReader&) = delete;
  ProcessInputReader& operator=(const ProcessInputReader&) = delete;
  ~ProcessInputReader() { m_Stream.m_Next = m_Next; }

  // The next byte, 0 to 255, or a negative value at the end of the stream.
  int read() {
    if (m_Next != m_End) return *m_Next++;
    return refill();
  }
  // How many bytes read() hands out before the stream is asked for more.
  std::size_t buffered() const { return static_cast<std::size_t>(m_End - m_Next); }
  // The next byte, when buffered() is not 0 (nothing is checked).
  int readBuffered() { return *m_Next++; }

 private:
  int refill() {
    m_Stream.m_Next = m_Next;
    const int c = m_Stream.refill();
    m_Next = m_Stream.m_Next;
    m_End = m_Stream.m_End;
    return c;
  }

  ProcessInputStream& m_Stream;
  const unsigned char* m_Next;
  const unsigned char* m_End;
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
  // The child's process id.
  virtual int pid() const = 0;
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

  // The argument vector that exec makes of a command line.
  static std::vector<std::string> splitCommandLine(const String& commandLine);

 private:
  Runtime() = default;
  Process* spawn(const String& commandLine, const String* const* environment, int count);
};
