// Writes a MIF text of about the requested size: one component holding one
// template group of five attributes (a disk inventory, keyed by its first
// attribute) and the table of that class, one row per line. The rows are
// ASCII and their values distinct, so every row makes one table entry.
//
//   cs_mifgen BYTES FILE

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

const char kHeader[] =
    "// Generated for the CustomScan benchmarks.\n"
    "start component\n"
    "  name = \"Bench\"\n"
    "  start group\n"
    "    name = \"Volumes\"\n"
    "    class = \"Bench|Volumes|1.0\"\n"
    "    key = 1\n"
    "    start attribute\n      name = \"Device\"\n      id = 1\n      type = string\n      value "
    "= \"\"\n    end attribute\n"
    "    start attribute\n      name = \"MountPoint\"\n      id = 2\n      type = string\n      "
    "value = \"\"\n    end attribute\n"
    "    start attribute\n      name = \"Size\"\n      id = 3\n      type = integer\n      value = "
    "0\n    end attribute\n"
    "    start attribute\n      name = \"Used\"\n      id = 4\n      type = integer\n      value = "
    "0\n    end attribute\n"
    "    start attribute\n      name = \"FileSystem\"\n      id = 5\n      type = string\n      "
    "value = \"ext4\"\n    end attribute\n"
    "  end group\n"
    "  start table\n"
    "    name = \"Volumes\"\n"
    "    class = \"Bench|Volumes|1.0\"\n";

const char kFooter[] = "  end table\nend component\n";

const char* const kFileSystems[] = {"ext4", "xfs", "btrfs", ""};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: cs_mifgen BYTES FILE\n");
    return 2;
  }
  unsigned long long target = std::strtoull(argv[1], nullptr, 10);
  std::FILE* out = std::fopen(argv[2], "w");
  if (out == nullptr) {
    std::perror(argv[2]);
    return 1;
  }
  unsigned long long written = std::fputs(kHeader, out) >= 0 ? sizeof kHeader - 1 : 0;
  const unsigned long long footer = sizeof kFooter - 1;
  char line[256];
  for (unsigned long long row = 1; written + footer < target; ++row) {
    unsigned long long size = 1073741824ULL + (row * 7919ULL) % 1000000007ULL;
    // Every fourth row leaves its file system to the template's default.
    int n = std::snprintf(line, sizeof line,
                          "    {\"/dev/vd%05llu\", \"/srv/vol%07llu\", %llu, %llu, %s%s%s}\n", row,
                          row, size, size / 3, row % 4 == 3 ? "" : "\"", kFileSystems[row % 4],
                          row % 4 == 3 ? "" : "\"");
    std::fwrite(line, 1, static_cast<std::size_t>(n), out);
    written += static_cast<unsigned long long>(n);
  }
  std::fputs(kFooter, out);
  written += footer;
  if (std::fclose(out) != 0) {
    std::perror(argv[2]);
    return 1;
  }
  return 0;
}
