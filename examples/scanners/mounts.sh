#!/bin/sh
# Mounted file systems from /proc/mounts, as a MIF template group of class
# "FileSystems" keyed by the mount point, and its table:
#   customscan eval CustomScanList command=mounts.sh class=FileSystems
#   customscan eval CustomScanInfo command=mounts.sh class=FileSystems code=/ field=Type
# A mount point mounted twice keeps its first line (the plug-in warns of the
# duplicated key; with the plug-in property onDuplicatedKeys=error it fails).
set -u

cat <<'MIF'
start component
  name = "File systems"
  start group
    name = "Mounted file systems"
    class = "FileSystems"
    key = 1
    start attribute
      id = 1
      name = "MountPoint"
      type = string
      value = ""
    end attribute
    start attribute
      id = 2
      name = "Device"
      type = string
      value = ""
    end attribute
    start attribute
      id = 3
      name = "Type"
      type = string
      value = ""
    end attribute
    start attribute
      id = 4
      name = "Options"
      type = string
      value = ""
    end attribute
  end group
  start table
    name = "Mounted file systems"
    class = "FileSystems"
MIF

# /proc/mounts writes a blank, tab, line feed and backslash in a field as
# \040, \011, \012 and \134. The blank and tab are restored, a line feed stays
# escaped (a MIF row is one line); then backslashes and double quotes are
# escaped for the quoted row value.
awk '
function field(s,    out, i, c, code) {
  out = ""
  for (i = 1; i <= length(s); i++) {
    c = substr(s, i, 1)
    if (c == "\\" && substr(s, i + 1, 3) ~ /^[0-7][0-7][0-7]$/) {
      code = substr(s, i + 1, 3)
      if (code == "040") { out = out " "; i += 3; continue }
      if (code == "011") { out = out "\t"; i += 3; continue }
      if (code == "134") { out = out "\\\\"; i += 3; continue }
    }
    if (c == "\\" || c == "\"") out = out "\\"
    out = out c
  }
  return "\"" out "\""
}
NF >= 4 { printf "    {%s, %s, %s, %s}\n", field($2), field($1), field($3), field($4) }
' /proc/mounts

cat <<'MIF'
  end table
end component
MIF
