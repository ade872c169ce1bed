#include "common/CommandGate.h"

#include <utility>

#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "base/File.h"

// Records of the gate carry the owner's label and source; the line is the gate's.
#define CS_GATE_TRACE(level) CS_TRACE_RECORD(level, traceLabel, sourceLabel, __LINE__)

namespace CustomScanPlugin {

namespace {
constexpr wchar_t kQuote = L'"';
// The only separator between the program name and its parameters; tabs are not.
constexpr wchar_t kBlank = L' ';
}  // namespace

TErrorCode CommandGate::resolve(const String& directory, const char* traceLabel,
                                const char* sourceLabel, const String& command, String& resolved) {
  Trace scope(Tracer::getInstance(kTraceComponent), traceLabel);

  if (command.length() == 0) {
    CS_GATE_TRACE(Trace::Error) << "Empty command specified" << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT;
  }
  CS_GATE_TRACE(Trace::Detail) << "input command is [" << command << "]" << Trace::End;

  String line(command);
  line.trim();
  const int length = line.length();

  // The program name ends at the first blank outside quotes, or at the
  // closing quote of a name that opens with one.
  bool quoted = false;
  int i = 0;
  for (; i < length; ++i) {
    const wchar_t c = line.charAt(i);
    if (c != kQuote) {
      if (c == kBlank && !quoted) break;
      continue;
    }
    if (quoted) break;
    if (i != 0) {
      CS_GATE_TRACE(Trace::Error) << "double quotes found in a wrong position in command ["
                                  << command << "]" << Trace::End;
      return CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT;
    }
    quoted = true;
  }
  if (quoted && i == length) {
    CS_GATE_TRACE(Trace::Error) << "no closing quote specified for the command[" << command << "]"
                                << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_FORMAT;
  }

  // substring(0, i) includes index i: the separating blank or the closing
  // quote, both dropped here.
  String name = i < length ? line.substring(0, i) : line;
  name.trim();
  if (name.charAt(name.length() - 1) == kQuote) name.deleteCharAt(name.length() - 1);
  if (name.charAt(0) == kQuote) name.deleteCharAt(0);
  name.trim();
  CS_GATE_TRACE(Trace::Detail) << "input command without parameter is [" << name << "]"
                               << Trace::End;

  String absolute(directory);
  absolute.concat(File::pathSeparator);
  absolute.concat(name);
  CS_GATE_TRACE(Trace::Detail) << "the absolute path for the command is [" << absolute << "]"
                               << Trace::End;

  String normalized = File::NormalizePath(absolute);
  CS_GATE_TRACE(Trace::Detail) << "the normalized path for the command is [" << normalized << "]"
                               << Trace::End;
  CS_GATE_TRACE(Trace::Detail) << "the custom scanners directory is [" << directory << "]"
                               << Trace::End;

  // A plain prefix test against the directory as configured. An unset
  // directory would be a prefix of every path, so it confines nothing and
  // is refused. So is a directory that holds a double quote: the host takes
  // quotes as quoting, so the program it started would not be the one
  // checked here (the name itself can hold no quote by now).
  if (directory.length() == 0 || directory.indexOf(kQuote) >= 0 ||
      !normalized.startsWith(directory, 0)) {
    CS_GATE_TRACE(Trace::Error) << "the command [" << command
                                << "] is not located in the custom scanner directory [" << directory
                                << "]" << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH;
  }

  // A regular file exists: the common case asks the file system once, and
  // only a refused path asks again which of the two it is.
  const File file(normalized, nullptr);
  const String& path = normalized;
  if (!file.isFile()) {
    if (!file.exists()) {
      CS_GATE_TRACE(Trace::Error) << "the command [" << path << "] does not exist" << Trace::End;
      return CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST;
    }
    // Not a regular file (a directory, a device): reported with the same code
    // as a missing one; CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_IS_NOT_A_FILE is
    // never returned, hosts know this code.
    CS_GATE_TRACE(Trace::Error) << "the command [" << path << "] is not a file" << Trace::End;
    return CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PATH_DOES_NOT_EXIST;
  }

  // The host splits the line at blanks outside quotes: a path that holds a
  // blank (a scanner directory such as "/opt/my scanners") is quoted even when
  // the name was not, or the host would start the program "/opt/my", outside
  // the directory.
  const bool quotePath = quoted || path.indexOf(kBlank) >= 0;
  resolved = String();
  if (quotePath) resolved.concat(kQuote);
  resolved.concat(path);
  if (quotePath) resolved.concat(kQuote);
  // Everything after the end of the name is passed on as given, behind one
  // blank: extra blanks and quotes in the parameters are kept.
  if (i + 1 < length) {
    resolved.concat(kBlank);
    resolved.concat(line.substring(i + 1));
  }
  CS_GATE_TRACE(Trace::Detail) << "valid command identified [" << resolved << "]" << Trace::End;
  return 0;
}

}  // namespace CustomScanPlugin
