#!/bin/sh
# The operating system, as a scalar MIF group of class "OperatingSystem".
# Its key is its first attribute, System (the kernel's name, "Linux"), so:
#   customscan eval CustomScanInfo command=os-release.sh class=OperatingSystem \
#       code=Linux field=PrettyName
set -u

release=/etc/os-release
[ -r "$release" ] || release=/usr/lib/os-release
NAME= VERSION= ID= VERSION_ID= PRETTY_NAME=
if [ -r "$release" ]; then
  # os-release is a list of shell assignments, meant to be sourced.
  . "$release"
fi

# MIF variable values keep their text as written; a double quote or a line
# break inside one would end it early, so both are dropped.
clean() {
  printf '%s' "$1" | tr -d '"\n\r'
}

attribute() {
  printf '    start attribute\n'
  printf '      id = %s\n' "$1"
  printf '      name = "%s"\n' "$2"
  printf '      type = string\n'
  printf '      value = "%s"\n' "$(clean "$3")"
  printf '    end attribute\n'
}

printf 'start component\n'
printf '  name = "Operating system"\n'
printf '  start group\n'
printf '    name = "Operating system"\n'
printf '    class = "OperatingSystem"\n'
printf '    id = 1\n'
attribute 1 System "$(uname -s)"
attribute 2 Name "$NAME"
attribute 3 Version "$VERSION"
attribute 4 Id "$ID"
attribute 5 VersionId "$VERSION_ID"
attribute 6 PrettyName "$PRETTY_NAME"
attribute 7 Kernel "$(uname -r)"
attribute 8 Machine "$(uname -m)"
printf '  end group\n'
printf 'end component\n'
