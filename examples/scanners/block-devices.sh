#!/bin/sh
# Block devices from /proc/partitions, as a MIF template group of class
# "BlockDevices" whose key is composite: the major and the minor device
# number, asked for as MAJOR#MINOR:
#   customscan eval CustomScanList command=block-devices.sh class=BlockDevices
#   customscan eval CustomScanInfo command=block-devices.sh class=BlockDevices code=8#0 field=Name
set -u

cat <<'MIF'
start component
  name = "Block devices"
  start group
    name = "Block devices"
    class = "BlockDevices"
    key = 1,2
    start attribute
      id = 1
      name = "Major"
      type = integer
      value = ""
    end attribute
    start attribute
      id = 2
      name = "Minor"
      type = integer
      value = ""
    end attribute
    start attribute
      id = 3
      name = "Name"
      type = string
      value = ""
    end attribute
    start attribute
      id = 4
      name = "SizeKiB"
      type = integer
      value = "0"
    end attribute
  end group
  start table
    name = "Block devices"
    class = "BlockDevices"
MIF

# After its header line and a blank line, /proc/partitions has one line per
# device: major, minor, size in 1 KiB blocks, name.
if [ -r /proc/partitions ]; then
  awk 'NR > 2 && NF == 4 && $1 ~ /^[0-9]+$/ { printf "    {%s, %s, \"%s\", %s}\n", $1, $2, $4, $3 }' /proc/partitions
fi

cat <<'MIF'
  end table
end component
MIF
