// Runs the hostile-input catalogue (tests/catalogue/*.cases) through the
// plug-in as a host does: one plug-in lifetime per case, operands created by
// name, properties set, result asked for. Each case names its expected code
// and, where it matters, its expected result. After every case: the canary
// outside the scanner directory has not run, no child is left unreaped and
// no descriptor is left open. The sanitizer pass adds: no leak, no invalid
// access. See tests/catalogue/README.md for the file format.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "CustomScanPlugin.h"
#include "MifTestSupport.h"
#include "ProcessHygiene.h"
#include "ResultCodes.h"
#include "ScannerSandbox.h"
#include "TestSupport.h"
#include "base/WideText.h"
#include "sdk/Expression.h"
#include "sdk/SdkStringExtras.h"

namespace {

const std::string kCatalogueDir = std::string(CUSTOMSCAN_SOURCE_DIR) + "/tests/catalogue";

struct CatalogueCase {
  std::string name;
  std::string file;
  int line = 0;
  std::string operand;
  std::vector<std::pair<std::string, std::string>> properties;  // raw, before expansion
  bool hasMif = false;
  std::string mif;  // raw, before expansion
  bool mifViaFile = false;
  std::string expect;
  bool hasResult = false;
  std::string result;
  std::vector<std::string> items;
  bool hasItems = false;
  long count = -1;
  long length = -1;
  std::string duplicatedKeys;
  // Run in a child process whose address space may grow by this many MiB
  // past its size at the start (-1: in this process, unbounded).
  long memoryMiB = -1;
};

void PrintTo(const CatalogueCase& c, std::ostream* os) {
  *os << c.file << ":" << c.line << " " << c.name;
}

// ---------------------------------------------------------------- text forms

// \n \r \t \s (blank) \\ \xHH; anything else after a backslash stays as written.
std::string unescape(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c != '\\' || i + 1 == text.size()) {
      out.push_back(c);
      continue;
    }
    char n = text[++i];
    switch (n) {
      case 'n':
        out.push_back('\n');
        break;
      case 'r':
        out.push_back('\r');
        break;
      case 't':
        out.push_back('\t');
        break;
      case 's':
        out.push_back(' ');
        break;
      case '\\':
        out.push_back('\\');
        break;
      case 'x':
        if (i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
          out.push_back(static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)));
          i += 2;
          break;
        }
        out += "\\x";
        break;
      default:
        out.push_back('\\');
        out.push_back(n);
        break;
    }
  }
  return out;
}

// ${root} ${dir}: the sandbox paths.
// ${repeat N}TEXT${end}: TEXT N times.
// ${numbered N}TEXT${end}: TEXT N times, each @i replaced by its index.
std::string expand(const std::string& text, const cstest::ScannerSandbox& sandbox) {
  std::string out;
  std::size_t i = 0;
  while (i < text.size()) {
    std::size_t open = text.find("${", i);
    if (open == std::string::npos) {
      out.append(text, i, std::string::npos);
      break;
    }
    out.append(text, i, open - i);
    std::size_t close = text.find('}', open);
    if (close == std::string::npos) throw std::runtime_error("unclosed ${ in " + text);
    std::string macro = text.substr(open + 2, close - open - 2);
    i = close + 1;
    if (macro == "root") {
      out += sandbox.root();
    } else if (macro == "dir") {
      out += sandbox.dir();
    } else if (macro.rfind("repeat ", 0) == 0 || macro.rfind("numbered ", 0) == 0) {
      long n = std::stol(macro.substr(macro.find(' ') + 1));
      std::size_t end = text.find("${end}", i);
      if (end == std::string::npos) throw std::runtime_error("${" + macro + "} without ${end}");
      std::string body = expand(text.substr(i, end - i), sandbox);
      i = end + 6;
      bool numbered = macro[0] == 'n';
      for (long k = 0; k < n; ++k) {
        if (!numbered) {
          out += body;
          continue;
        }
        std::string index = std::to_string(k);
        for (std::size_t p = 0; p < body.size(); ++p) {
          if (body[p] == '@' && p + 1 < body.size() && body[p + 1] == 'i') {
            out += index;
            ++p;
          } else {
            out.push_back(body[p]);
          }
        }
      }
    } else {
      throw std::runtime_error("unknown macro ${" + macro + "}");
    }
  }
  return out;
}

std::wstring wide(const std::string& bytes) { return hostDecodeNarrow(bytes.data(), bytes.size()); }

// ---------------------------------------------------------------- reading

std::vector<std::string> catalogueFiles() {
  std::vector<std::string> files;
  if (DIR* d = ::opendir(kCatalogueDir.c_str())) {
    while (dirent* e = ::readdir(d)) {
      std::string name = e->d_name;
      if (name.size() > 6 && name.compare(name.size() - 6, 6, ".cases") == 0) files.push_back(name);
    }
    ::closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<CatalogueCase> readCatalogue(std::string& error) {
  std::vector<CatalogueCase> cases;
  for (const std::string& file : catalogueFiles()) {
    std::ifstream in(kCatalogueDir + "/" + file, std::ios::binary);
    std::string line;
    int number = 0;
    CatalogueCase* current = nullptr;
    while (std::getline(in, line)) {
      ++number;
      if (line.empty() || line[0] == '#') continue;
      if (line.rfind("case ", 0) == 0) {
        cases.emplace_back();
        current = &cases.back();
        current->name = line.substr(5);
        current->file = file;
        current->line = number;
        continue;
      }
      if (current == nullptr) {
        error = file + ":" + std::to_string(number) + ": text before the first case";
        return {};
      }
      if (line.rfind("mif <<", 0) == 0) {
        std::string terminator = line.substr(6);
        std::string text;
        bool closed = false;
        while (std::getline(in, line)) {
          ++number;
          if (line == terminator) {
            closed = true;
            break;
          }
          text += line + "\\n";
        }
        if (!closed) {
          error = file + ":" + std::to_string(current->line) + ": mif text without " + terminator;
          return {};
        }
        current->hasMif = true;
        current->mif = text;
        continue;
      }
      // "key = value"; "key =" is an empty value (trailing blanks are not
      // trusted to survive editors: write \s for a significant blank).
      std::size_t eq = line.find(" = ");
      std::string key;
      std::string value;
      if (eq != std::string::npos) {
        key = line.substr(0, eq);
        value = line.substr(eq + 3);
      } else if (line.size() > 2 && line.compare(line.size() - 2, 2, " =") == 0) {
        key = line.substr(0, line.size() - 2);
      } else {
        error = file + ":" + std::to_string(number) + ": not a key = value line: " + line;
        return {};
      }
      if (key == "operand") {
        current->operand = value;
      } else if (key == "mif") {
        current->hasMif = true;
        current->mif = value;
      } else if (key == "via") {
        current->mifViaFile = value == "file";
      } else if (key == "expect") {
        current->expect = value;
      } else if (key == "result") {
        current->hasResult = true;
        current->result = value;
      } else if (key == "item") {
        current->hasItems = true;
        current->items.push_back(value);
      } else if (key == "items") {
        current->hasItems = true;  // "items = none": an empty list
      } else if (key == "count") {
        current->count = std::stol(value);
      } else if (key == "length") {
        current->length = std::stol(value);
      } else if (key == "onDuplicatedKeys") {
        current->duplicatedKeys = value;
      } else if (key == "memory") {
        current->memoryMiB = std::stol(value);
      } else if (key == "path" || key == "trim" || key == "command" || key == "class" ||
                 key == "code" || key == "field" || key == "output") {
        current->properties.emplace_back(key, value);
      } else {
        error = file + ":" + std::to_string(number) + ": unknown key " + key;
        return {};
      }
    }
  }
  for (const CatalogueCase& c : cases) {
    if (c.expect.empty())
      error = c.file + ":" + std::to_string(c.line) + ": case " + c.name + " has no expect";
    if (c.operand.empty())
      error = c.file + ":" + std::to_string(c.line) + ": case " + c.name + " has no operand";
  }
  return cases;
}

std::string g_CatalogueError;

std::vector<CatalogueCase> loadCatalogue() {
  std::vector<CatalogueCase> cases = readCatalogue(g_CatalogueError);
  if (cases.empty() && g_CatalogueError.empty())
    g_CatalogueError = "no cases found in " + kCatalogueDir;
  return cases;
}

bool codeOf(const std::string& name, TErrorCode& code) {
  if (name == "0" || name == "SUCCESS") {
    code = 0;
    return true;
  }
  static const std::map<std::string, TErrorCode> codes = {
#define CS_CATALOGUE_CODE(n, v, m) {#n, v},
      CUSTOM_SCAN_PLUGIN_RESULT_CODES(CS_CATALOGUE_CODE)
          CUSTOM_SCAN_HOST_RESULT_CODES(CS_CATALOGUE_CODE)
#undef CS_CATALOGUE_CODE
  };
  auto it = codes.find(name);
  if (it == codes.end()) return false;
  code = it->second;
  return true;
}

// ---------------------------------------------------------------- running

// The results are kept as the host keeps them, narrow and compact, so that a
// case with a memory bound measures the plug-in, not this program.
struct Outcome {
  TErrorCode code = 0;
  bool vector = false;
  std::string scalar;
  PluginSDK::StringVector items;
  // The number of items, when only that came back from a bounded case.
  long itemCount = -1;

  long count() const { return itemCount >= 0 ? itemCount : static_cast<long>(items.size()); }
};

std::vector<std::string> narrowItems(const PluginSDK::StringVector& items) {
  std::vector<std::string> out;
  forEachNarrowItem(items, [&](const std::string& item) { out.push_back(item); });
  return out;
}

Outcome evaluate(const std::wstring& operand,
                 const std::vector<std::pair<std::wstring, std::wstring>>& properties,
                 const std::string& duplicatedKeys) {
  PluginSDK::CustomScanPlugin plugin;
  plugin.initializePlugin();
  if (!duplicatedKeys.empty())
    plugin.setProperty(L"onDuplicatedKeys", wide(duplicatedKeys).c_str());
  Outcome outcome;
  PluginSDK::Expression* expression = nullptr;
  outcome.code = plugin.createExpression(operand.c_str(), &expression);
  if (outcome.code == 0) {
    for (const auto& p : properties) expression->setProperty(p.first.c_str(), p.second.c_str());
    if (auto* scalar = dynamic_cast<PluginSDK::ScalarExpression*>(expression)) {
      PluginSDK::String result;
      outcome.code = scalar->getScalarResult(result);
      outcome.scalar = toNarrow(result);
    } else if (auto* vector = dynamic_cast<PluginSDK::VectorExpression*>(expression)) {
      PluginSDK::StringVector result;
      outcome.code = vector->getVectorResult(result);
      outcome.vector = true;
      outcome.items = std::move(result);
    }
    plugin.destroyExpression(expression);
  }
  plugin.cleanupPlugin();
  return outcome;
}

// ---------------------------------------------------------------- bounded cases

#if defined(__SANITIZE_ADDRESS__)
#define CS_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CS_ADDRESS_SANITIZER 1
#endif
#endif

// The size of this process's address space now.
std::size_t addressSpace() {
  std::ifstream statm("/proc/self/statm");
  std::size_t pages = 0;
  statm >> pages;
  return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

void putNumber(std::string& out, std::uint64_t value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

bool takeNumber(const std::string& in, std::size_t& at, std::uint64_t& value) {
  if (in.size() - at < sizeof value) return false;
  std::memcpy(&value, in.data() + at, sizeof value);
  at += sizeof value;
  return true;
}

bool takeText(const std::string& in, std::size_t& at, std::string& text) {
  std::uint64_t n = 0;
  if (!takeNumber(in, at, n) || in.size() - at < n) return false;
  text.assign(in, at, n);
  at += n;
  return true;
}

bool writeAll(int fd, const std::string& data) {
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// evaluate() in a child process whose address space may grow by memoryMiB
// past its size at the fork; the outcome comes back through a pipe, the
// items only when withItems (else their number). A child that does not come
// back whole (killed, or ended by an exception that left the plug-in) is a
// test failure.
Outcome evaluateBounded(const std::wstring& operand,
                        const std::vector<std::pair<std::wstring, std::wstring>>& properties,
                        const std::string& duplicatedKeys, long memoryMiB, bool withItems) {
  Outcome outcome;
  int channel[2];
  if (::pipe2(channel, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe2: " << std::strerror(errno);
    return outcome;
  }
  const std::size_t limit = addressSpace() + static_cast<std::size_t>(memoryMiB) * 1024 * 1024;
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(channel[0]);
    // Large blocks are mapped as in a fresh process: the large blocks this
    // program freed before (other cases) have raised glibc's threshold for
    // that, and blocks grown on the heap instead are copied as they grow.
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    const rlimit cap = {limit, limit};
    if (::setrlimit(RLIMIT_AS, &cap) != 0) ::_exit(3);
    Outcome bounded = evaluate(operand, properties, duplicatedKeys);
    // Written as it is kept, without a copy: the bound is for the plug-in.
    std::string out;
    putNumber(out, static_cast<std::uint64_t>(static_cast<std::uint32_t>(bounded.code)));
    putNumber(out, bounded.vector ? 1 : 0);
    putNumber(out, bounded.scalar.size());
    bool written = writeAll(channel[1], out) && writeAll(channel[1], bounded.scalar);
    out.clear();
    putNumber(out, bounded.items.size());
    putNumber(out, withItems ? 1 : 0);
    if (withItems)
      forEachNarrowItem(bounded.items, [&](const std::string& item) {
        putNumber(out, item.size());
        out += item;
        if (out.size() >= 65536) {
          written = written && writeAll(channel[1], out);
          out.clear();
        }
      });
    written = written && writeAll(channel[1], out);
    ::_exit(written ? 0 : 4);
  }
  ::close(channel[1]);
  std::string in;
  char block[65536];
  for (;;) {
    const ssize_t n = ::read(channel[0], block, sizeof block);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    in.append(block, static_cast<std::size_t>(n));
  }
  ::close(channel[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    ADD_FAILURE() << "the bounded case did not come back: "
                  << (WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status))
                                          : "exit status " + std::to_string(WEXITSTATUS(status)));
    outcome.code = 1;
    return outcome;
  }
  std::size_t at = 0;
  std::uint64_t code = 0;
  std::uint64_t vector = 0;
  std::uint64_t count = 0;
  std::uint64_t itemsSent = 0;
  bool whole = takeNumber(in, at, code) && takeNumber(in, at, vector) &&
               takeText(in, at, outcome.scalar) && takeNumber(in, at, count) &&
               takeNumber(in, at, itemsSent);
  outcome.code = static_cast<TErrorCode>(static_cast<std::uint32_t>(code));
  outcome.vector = vector != 0;
  if (itemsSent == 0) outcome.itemCount = static_cast<long>(count);
  std::string item;
  for (std::uint64_t i = 0; whole && itemsSent != 0 && i < count; ++i) {
    whole = takeText(in, at, item);
    if (whole) outcome.items.addString(wide(item).c_str());
  }
  EXPECT_TRUE(whole && at == in.size()) << "the bounded case's outcome came back cut";
  return outcome;
}

// The scanner directory every case runs against.
void populate(const cstest::ScannerSandbox& sandbox) {
  sandbox.installScript("ok", "echo ok");
  sandbox.installChild("child");
  sandbox.installScript("my scan.sh", "echo spaced");
  sandbox.installScript("noop", "exit 0");
  sandbox.installScript("fail", "echo failing; exit 3");
  sandbox.installScript("mif", "cat '" + sandbox.root() + "/case.mif'");
  sandbox.installScript("sub/inner", "echo inner");
  sandbox.installScript("caf\xe9", "echo latin1");
  sandbox.installScript("caf\xc3\xa9", "echo utf8");
  sandbox.installScript("-dash", "echo dash");
  sandbox.installScript(".hidden", "echo hidden");
  sandbox.installScript("with\ttab", "echo tab");
  sandbox.installScript("seq", "exec seq 1 \"$1\"");
  sandbox.installScript("args", "for a in \"$@\"; do printf '[%s]' \"$a\"; done; echo");
  cstest::writeFile(sandbox.inDir("plain.txt"), "echo never\n", 0644);
  // A sibling whose name begins with the directory's name: the confinement's
  // prefix test lets it through, and that looseness is kept on purpose.
  cstest::writeScript(sandbox.root() + "/scan2/prog", "echo sibling");
  cstest::writeScript(sandbox.root() + "/scanner-elsewhere", "echo prefix sibling");
}

class HostileInputCatalogueTest : public ::testing::TestWithParam<CatalogueCase> {};

TEST_P(HostileInputCatalogueTest, CaseHasItsExpectedOutcome) {
  const CatalogueCase& c = GetParam();
  cstest::ProcessHygiene hygiene;
  cstest::ScannerSandbox sandbox;
  populate(sandbox);

  std::vector<std::pair<std::wstring, std::wstring>> properties;
  bool hasCommand = false;
  for (const auto& p : c.properties) {
    properties.emplace_back(wide(p.first), wide(unescape(expand(p.second, sandbox))));
    hasCommand = hasCommand || p.first == "command";
  }
  if (c.hasMif) {
    std::string text = unescape(expand(c.mif, sandbox));
    cstest::writeFile(sandbox.root() + "/case.mif", text);
    if (!hasCommand) properties.emplace_back(L"command", c.mifViaFile ? L"noop" : L"mif");
    if (c.mifViaFile) properties.emplace_back(L"output", wide(sandbox.root() + "/case.mif"));
  }

  TErrorCode expected = 0;
  ASSERT_TRUE(codeOf(c.expect, expected)) << "unknown code name " << c.expect;
  Outcome outcome;
  if (c.memoryMiB < 0) {
    outcome = evaluate(wide(c.operand), properties, c.duplicatedKeys);
  } else {
#ifdef CS_ADDRESS_SANITIZER
    GTEST_SKIP() << "a bound on the address space cannot be set under AddressSanitizer, which "
                    "reserves terabytes of it; the other passes run this case";
#endif
    outcome =
        evaluateBounded(wide(c.operand), properties, c.duplicatedKeys, c.memoryMiB, c.hasItems);
  }

  EXPECT_EQ(outcome.code, expected) << c.name;
  if (c.hasResult) {
    EXPECT_EQ(outcome.scalar, unescape(expand(c.result, sandbox))) << c.name;
  }
  if (c.length >= 0) {
    EXPECT_EQ(String(outcome.scalar.data(), outcome.scalar.size()).length(), c.length) << c.name;
  }
  if (c.hasItems) {
    std::vector<std::string> expectedItems;
    for (const std::string& item : c.items)
      expectedItems.push_back(unescape(expand(item, sandbox)));
    EXPECT_EQ(narrowItems(outcome.items), expectedItems) << c.name;
  }
  if (c.count >= 0) {
    EXPECT_EQ(outcome.count(), c.count) << c.name;
  }
  // A failure never carries a partial result.
  if (outcome.code != 0) {
    EXPECT_TRUE(outcome.scalar.empty()) << c.name;
    EXPECT_EQ(outcome.count(), 0) << c.name;
  }
  EXPECT_FALSE(sandbox.canaryRan()) << c.name << ": something outside the scanner directory ran";
  hygiene.verify();
}

std::string caseName(const ::testing::TestParamInfo<CatalogueCase>& info) {
  std::string name;
  for (char ch : info.param.name)
    name.push_back(std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Catalogue, HostileInputCatalogueTest, ::testing::ValuesIn(loadCatalogue()),
                         caseName);

TEST(HostileInputCatalogue, IsReadableAndLargeEnough) {
  std::string error;
  std::vector<CatalogueCase> cases = readCatalogue(error);
  EXPECT_EQ(error, "");
  EXPECT_GE(cases.size(), 60u);
  std::vector<std::string> names;
  for (const CatalogueCase& c : cases) names.push_back(c.name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end())
      << "case names must be unique";
}

// The remedy docs/reliability.md gives for the prefix test's looseness:
// configured with a trailing separator, the directory no longer lets its
// siblings through, and its own programs still run.
TEST(HostileInputCatalogue, TrailingSeparatorOnTheDirectoryClosesThePrefixLooseness) {
  cstest::ProcessHygiene hygiene;
  cstest::ScannerSandbox sandbox;
  populate(sandbox);
  cstest::ScannerDirScope withSeparator(sandbox.dir() + "/");
  const std::vector<std::pair<std::wstring, std::wstring>> sibling = {{L"path", L"../scan2/prog"}};
  const std::vector<std::pair<std::wstring, std::wstring>> fileSibling = {
      {L"path", L"../scanner-elsewhere"}};
  const std::vector<std::pair<std::wstring, std::wstring>> inside = {{L"path", L"ok"}};
  EXPECT_EQ(evaluate(L"RunCommand", sibling, "").code, CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH);
  EXPECT_EQ(evaluate(L"RunCommand", fileSibling, "").code,
            CUSTOM_SCAN_PLUGIN_ERROR_WRONG_COMMAND_PATH);
  Outcome ok = evaluate(L"RunCommand", inside, "");
  EXPECT_EQ(ok.code, 0);
  EXPECT_EQ(ok.scalar, "ok");
  hygiene.verify();
}

// Every prefix of every valid sample (tests/catalogue/samples/*.mif) is fed
// to the plug-in as an output file: only the prefixes that hold the whole
// text (up to trailing white space) succeed, every other one is a parse
// failure, and none crashes, leaks or leaves anything behind.
std::vector<std::string> sampleFiles() {
  std::vector<std::string> files;
  std::string dir = kCatalogueDir + "/samples";
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) {
      std::string name = e->d_name;
      if (name.size() > 4 && name.compare(name.size() - 4, 4, ".mif") == 0)
        files.push_back(dir + "/" + name);
    }
    ::closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string rstrip(const std::string& text) {
  std::size_t end = text.size();
  while (end > 0 && static_cast<unsigned char>(text[end - 1]) <= 0x20) --end;
  return text.substr(0, end);
}

TEST(HostileInputCatalogue, EveryTruncationOfEverySampleIsWholeOrAParseFailure) {
  std::vector<std::string> samples = sampleFiles();
  ASSERT_GE(samples.size(), 3u);
  long prefixes = 0;
  for (const std::string& sample : samples) {
    const std::string text = cstest::readFile(sample);
    // The first line names the class to ask for: "// class: NAME".
    ASSERT_EQ(text.rfind("// class: ", 0), 0u) << sample;
    const std::string className = text.substr(10, text.find('\n') - 10);
    cstest::ProcessHygiene hygiene;
    cstest::ScannerSandbox sandbox;
    populate(sandbox);
    PluginSDK::CustomScanPlugin plugin;
    plugin.initializePlugin();

    auto keysOf = [&](const std::string& file, TErrorCode& code) {
      PluginSDK::Expression* e = nullptr;
      EXPECT_EQ(plugin.createExpression(L"CustomScanList", &e), 0);
      e->setProperty(L"command", L"noop");
      e->setProperty(L"class", wide(className).c_str());
      e->setProperty(L"output", wide(file).c_str());
      PluginSDK::StringVector keys;
      code = dynamic_cast<PluginSDK::VectorExpression*>(e)->getVectorResult(keys);
      plugin.destroyExpression(e);
      std::vector<std::wstring> out;
      for (std::size_t i = 0; i < keys.size(); ++i) out.push_back(toWideString(keys[i]));
      return out;
    };

    cstest::writeFile(sandbox.root() + "/whole.mif", text);
    TErrorCode wholeCode = -1;
    const std::vector<std::wstring> wholeKeys = keysOf(sandbox.root() + "/whole.mif", wholeCode);
    ASSERT_EQ(wholeCode, 0) << sample << " must be valid";
    ASSERT_FALSE(wholeKeys.empty()) << sample;

    for (std::size_t n = 0; n < text.size(); ++n) {
      const std::string prefix = text.substr(0, n);
      const std::string file = sandbox.root() + "/prefix-" + std::to_string(n) + ".mif";
      cstest::writeFile(file, prefix);
      TErrorCode code = -1;
      std::vector<std::wstring> keys = keysOf(file, code);
      ::unlink(file.c_str());
      ++prefixes;
      if (rstrip(prefix) == rstrip(text)) {
        EXPECT_EQ(code, 0) << sample << " cut at " << n;
        EXPECT_EQ(keys, wholeKeys) << sample << " cut at " << n;
      } else {
        EXPECT_EQ(code, CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_PARSE_MIF) << sample << " cut at " << n;
        EXPECT_TRUE(keys.empty()) << sample << " cut at " << n;
      }
    }
    plugin.cleanupPlugin();
    EXPECT_FALSE(sandbox.canaryRan());
    hygiene.verify();
  }
  RecordProperty("prefixes", static_cast<int>(prefixes));
  std::printf("truncations tried: %ld\n", prefixes);
}

}  // namespace

// The cache parses a scanner's bytes a line at a time (MifParser::parseNarrow).
// On every MIF text of the catalogue, and on every prefix of every sample, it
// must make exactly what parsing the text decoded whole makes: the same code,
// tree, element line numbers, trace records and line count.
TEST(HostileInputCatalogue, NarrowFeedMatchesWideFeedOnHostileCatalogue) {
  std::string error;
  const std::vector<CatalogueCase> cases = readCatalogue(error);
  ASSERT_EQ(error, "");
  cstest::ScannerSandbox sandbox;
  long texts = 0;
  long parsed = 0;
  for (const CatalogueCase& c : cases) {
    if (!c.hasMif) continue;
    const std::string text = unescape(expand(c.mif, sandbox));
    const cstest::ParseOutcome whole = cstest::parseWholeWide(text);
    EXPECT_EQ(cstest::parseDifference(whole, cstest::parseNarrowLines(text)), "") << c.name;
    ++texts;
    if (whole.code == 0) ++parsed;
  }
  for (const std::string& sample : sampleFiles()) {
    const std::string text = cstest::readFile(sample);
    for (std::size_t n = 0; n <= text.size(); ++n) {
      const std::string prefix = text.substr(0, n);
      const cstest::ParseOutcome whole = cstest::parseWholeWide(prefix);
      ASSERT_EQ(cstest::parseDifference(whole, cstest::parseNarrowLines(prefix)), "")
          << sample << " cut at " << n;
      ++texts;
      if (whole.code == 0) ++parsed;
    }
  }
  EXPECT_GE(texts, 100);
  EXPECT_GE(parsed, 20);
}
