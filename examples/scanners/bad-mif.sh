#!/bin/sh
# Writes MIF that parses but whose table cannot be built: the second row has
# one value fewer than the group has attributes, so the whole class fails with
# CUSTOM_SCAN_PLUGIN_ERROR_TABLE_DEFINITION_NOT_MATCHED. Try:
#   examples/scanners/bad-mif.sh | customscan mif check -
cat <<'MIF'
start component
  start group
    class = "Services"
    key = 1
    start attribute
      id = 1
      name = "Name"
      value = ""
    end attribute
    start attribute
      id = 2
      name = "State"
      value = "unknown"
    end attribute
  end group
  start table
    class = "Services"
    {"ssh", "running"}
    {"cron"}
  end table
end component
MIF
