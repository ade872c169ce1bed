#!/bin/sh
# Fails on purpose: writes a line, complains on standard error and exits with
# status 3, so that every operand answers CUSTOM_SCAN_PLUGIN_ERROR_CUSTOM_SCAN_FAILED.
#   customscan eval RunCommand path=failing.sh
echo "partial output that the plug-in discards"
echo "failing.sh: this scanner fails on purpose" >&2
exit 3
