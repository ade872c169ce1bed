#pragma once
// Who can change what the host runs from its custom scanner directory, and
// what the command gate and process creation make of each entry there. The
// checks look at the file system and change nothing; they serve
// `customscan doctor` and a host that refuses unsafe programs before it
// starts them.
//
// "Trusted" owners are root and the effective user running the check: the
// agent runs scanners as its own user, so anyone else who owns, or may write,
// a scanner or a directory on its way can decide what that user runs.

#include <string>
#include <vector>

enum class ScannerFindingKind {
  Writable,                 // group or others may write the file or directory
  ForeignOwner,             // owned by a user other than root or the one checking
  LinkLeavesDirectory,      // a symbolic link whose target lies outside the directory
  BrokenLink,               // a symbolic link that leads nowhere (missing target, loop)
  NotExecutable,            // a program or script the host cannot start as it is
  NoInterpreterLine,        // executable, but neither a binary nor a script with #!
  InterpreterLineEndsInCr,  // the #! line ends in a carriage return (CR LF line ends)
  MissingInterpreter,       // #! names an interpreter that does not exist or cannot run
  UnreachableName,          // a name the command gate can never resolve to
  SiblingPrefix,            // an entry beside the directory that its prefix test admits
  DirectorySetting,         // the configured text confines nothing or refuses everything
  NotADirectory,            // the configured directory is missing or not a directory
  Uninspectable,            // the check could not look at it, so cannot vouch for it
};

struct ScannerFinding {
  std::string path;  // what the finding is about
  ScannerFindingKind kind = ScannerFindingKind::Uninspectable;
  std::string problem;  // what is wrong, one sentence
  std::string risk;     // why it matters
  std::string fix;      // a shell command that fixes it
  std::string target;   // where a link leads or the interpreter a script names; else empty
};

// A stable lower-case name for the kind ("writable", "owner", "link-outside",
// ...), as printed by `customscan doctor --json`.
const char* scannerFindingKindName(ScannerFindingKind kind);

// The ownership and permission findings of the program at programPath, as
// process creation would reach it: symbolic links resolved, the program file
// and every directory an entry is looked up in on the way (the root
// included), each of them writable by group or others or owned by an
// untrusted user. A directory with the sticky bit (such as /tmp) lets others
// create entries but not replace those of root or the caller, so it is
// reported only through the owner of the entry passed in it. A relative path
// is taken from the current directory. A path that cannot be resolved (it
// does not exist, a link loops) gives one Uninspectable finding. Empty when
// the program is safe to run. Throws nothing but std::bad_alloc.
std::vector<ScannerFinding> checkProgramSafety(const std::string& programPath);

// Every finding about the custom scanner directory configured as directory
// (the text the command gate compares, as the host configuration holds it):
// the text itself, the directories on the path to it and the directory,
// entries beside it that its prefix test admits, and every entry below it
// (sub-directories are walked; symbolic links are reported, not descended).
// Files without any execute permission that look like neither a program nor
// a script (by content or by a script suffix such as .sh) are taken for
// documentation or data and are not reported. Findings come in the order
// found, each (path, kind) once. Throws nothing but std::bad_alloc.
std::vector<ScannerFinding> auditScannerDirectory(const std::string& directory);

// Whether the command gate can resolve a command to the file at relativeName
// (the path below the scanner directory): the gate trims blanks and control
// characters from both ends of a program name and allows a double quote only
// around the whole name. A blank inside a name is reachable when the command
// quotes the name.
bool scannerNameIsReachable(const std::string& relativeName);

// text as one word of a POSIX shell command: as it is when it needs no
// quoting, else in single quotes; control characters and bytes that are not
// UTF-8 as bash's $'\xHH' escapes.
std::string scannerShellWord(const std::string& text);

// The length of the UTF-8 sequence at text[i], or 0 when none starts there:
// how the checks and their reports tell text from bytes to escape.
std::size_t scannerUtf8Length(const std::string& text, std::size_t i);
