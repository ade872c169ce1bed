#pragma once
// MIF texts shared by the tests of the MIF cache and operands.

namespace cstest {

// A template class "Disks" keyed by Device; row sdb takes the default size 0.
constexpr const char kDisksMif[] =
    "start component\n"
    "start group\n"
    "class = \"Disks\"\n"
    "key = 1\n"
    "start attribute\nid = 1\nname = \"Device\"\nvalue = \"\"\nend attribute\n"
    "start attribute\nid = 2\nname = \"Size\"\nvalue = \"0\"\nend attribute\n"
    "end group\n"
    "start table\n"
    "class = \"Disks\"\n"
    "{\"sdb\", }\n"
    "{\"sda\", 100}\n"
    "{\"sdc\", \"\"}\n"
    "end table\n"
    "end component\n";

// A scalar class "Agents": one row keyed Agent.
constexpr const char kAgentsMif[] =
    "start group\n"
    "class = \"Agents\"\n"
    "id = 3\n"
    "start attribute\nid = 1\nname = \"Name\"\nvalue = \"Agent\"\nend attribute\n"
    "start attribute\nid = 2\nname = \"Version\"\nvalue = \"2.1\"\nend attribute\n"
    "end group\n";

// A template class "Empty" whose table has no rows.
constexpr const char kEmptyTableMif[] =
    "start component\n"
    "start group\nclass = Empty\nkey = 1\n"
    "start attribute\nid = 1\nname = K\nend attribute\n"
    "end group\n"
    "start table\nclass = Empty\nend table\n"
    "end component\n";

// Not MIF at all: the first line is malformed.
constexpr const char kBrokenMif[] = "this is not MIF\n";

}  // namespace cstest
