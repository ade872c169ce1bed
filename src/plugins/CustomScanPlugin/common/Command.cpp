#include "common/Command.h"

#include <cstring>
#include <memory>

#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "base/Memory.h"
#include "base/Runtime.h"
#include "common/ObjectArray.h"

extern char** environ;

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/common/Command";
constexpr char kRunLabel[] = "Command::run(String&, MemoryBuffer&)";
// The buffer grows by this much whenever the output fills it.
constexpr unsigned kGrowth = 1024;
constexpr int kCarriageReturn = 13;

// Reads the rest of the stream and drops it.
void drain(ProcessInputStream& stream) {
  while (stream.read() >= 0) {
  }
}

// Reads the stream to its end into output, one byte a call, dropping zero
// bytes and carriage returns. Returns false when the output could not be
// stored whole; the stream is still read to its end then, so that the child
// is never left blocked on a full pipe.
bool collectOutput(ProcessInputStream& stream, CustomScanPlugin::MemoryBuffer& output) {
  if (output.resize(kGrowth) == nullptr) {
    drain(stream);
    return false;
  }
  std::uint8_t* data = output.getData();
  std::uint32_t size = output.getSize();
  std::uint32_t n = 0;
  for (;;) {
    const int c = stream.read();
    // One test on the common path: the end, zero and carriage return all
    // lie at or below 13.
    if (c <= kCarriageReturn) {
      if (c < 0) break;
      if (c == 0 || c == kCarriageReturn) continue;
    }
    if (n == size) {
      if (n > CustomScanPlugin::MemoryBuffer::kMaxSize - kGrowth ||
          output.resize(n + kGrowth) == nullptr) {
        drain(stream);
        return false;
      }
      data = output.getData();
      size = output.getSize();
    }
    data[n++] = static_cast<std::uint8_t>(c);
  }
  if (n == size) {
    if (n == CustomScanPlugin::MemoryBuffer::kMaxSize || output.resize(n + 1) == nullptr) {
      return false;
    }
    data = output.getData();
  }
  data[n] = 0;
  return true;
}
}  // namespace

namespace CustomScanPlugin {

TErrorCode Command::run(const String& command, MemoryBuffer& output) {
  CS_TRACE_SCOPE(kRunLabel);
  output.zero();
  Runtime* runtime = Runtime::getRuntime();

  CS_TRACE(Trace::Detail, kRunLabel)
      << "\nPreparing process environment for command " << command << "\n"
      << Trace::End;
  std::unique_ptr<Process> process;
  {
    // The child gets the whole environment as it stands now, made anew for
    // every command and released as soon as the child has it.
    ObjectArray<String> environment(0);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
      if (environment.add(String(*entry), nullptr) != PluginSDK::PLUGIN_OK) {
        CS_TRACE(Trace::Error, kRunLabel)
            << "Unable to prepare the process environment for command " << command << Trace::End;
        return PluginSDK::PLUGIN_ERROR_OUT_OF_MEMORY;
      }
      CS_TRACE(Trace::Detail, kRunLabel) << "\t" << *entry << "\n" << Trace::End;
    }
    CS_TRACE(Trace::Detail, kRunLabel) << Trace::End;

    CS_TRACE(Trace::Detail, kRunLabel) << "Starting command " << command << Trace::End;
    process.reset(runtime->exec(command, environment.getItems(), environment.getLength()));
  }
  if (!process) {
    CS_TRACE(Trace::Error, kRunLabel)
        << "Unable to create the process for command " << command << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_CREATE_PROCESS;
  }

  TErrorCode code = 0;
  ProcessInputStream* stream = process->getInputStream();
  if (stream == nullptr) {
    CS_TRACE(Trace::Error, kRunLabel)
        << "Unable to get the child output stream for command " << command << Trace::End;
    code = CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT;
  } else if (!collectOutput(*stream, output)) {
    CS_TRACE(Trace::Error, kRunLabel)
        << "Unable to store the child output for command " << command << Trace::End;
    code = CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_GET_PROCESS_OUTPUT;
  }

  const int status = process->waitFor();
  if (status != 0) {
    CS_TRACE(Trace::Error, kRunLabel)
        << "Command " << command << " terminated with error " << status << Trace::End;
    code = CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED;
  }
  return code;
}

namespace {
// The working copy of the current tokenisation and the position of its next
// token (null when none is left).
char* g_TokenCopy = nullptr;
char* g_TokenNext = nullptr;

// The last working copy outlives its tokenisation; free it when the library
// is unloaded so that a host that unloads the plug-in loses nothing.
struct TokenCopyRelease {
  TokenCopyRelease() = default;
  TokenCopyRelease(const TokenCopyRelease&) = delete;
  TokenCopyRelease& operator=(const TokenCopyRelease&) = delete;
  ~TokenCopyRelease() {
    zelm_free(g_TokenCopy);
    g_TokenCopy = nullptr;
    g_TokenNext = nullptr;
  }
} g_TokenCopyRelease;

char* nextToken(char separator) {
  if (g_TokenNext == nullptr) return nullptr;
  char* token = g_TokenNext;
  char* found = std::strchr(g_TokenNext, separator);
  if (found != nullptr) {
    *found = 0;
    g_TokenNext = found + 1;
  } else {
    g_TokenNext = nullptr;
  }
  return token;
}
}  // namespace

char* gettoken(char* text, char separator, int index) {
  if (text != nullptr) {
    zelm_free(g_TokenCopy);
    const std::size_t bytes = std::strlen(text) + 1;
    g_TokenCopy = static_cast<char*>(zelm_malloc(bytes));
    if (g_TokenCopy != nullptr) std::memcpy(g_TokenCopy, text, bytes);
    g_TokenNext = g_TokenCopy;
  }
  if (separator == 0) {
    char* rest = index > 0 ? nullptr : g_TokenNext;
    g_TokenNext = nullptr;
    return rest;
  }
  char* token = nextToken(separator);
  for (; token != nullptr && index > 0; --index) token = nextToken(separator);
  return token;
}

}  // namespace CustomScanPlugin
