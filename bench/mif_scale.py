#!/usr/bin/env python3
"""Writes the MIF texts that show whether `customscan mif` stays linear.

    python3 bench/mif_scale.py classes N     N groups, each its own scalar class
    python3 bench/mif_scale.py wide A R      one template class of A attributes and R rows
    python3 bench/mif_scale.py long R A      one template class of R rows of A attributes
    python3 bench/mif_scale.py deep D        D scopes, each inside the one before

The text goes to standard output, for example
    python3 bench/mif_scale.py classes 8000 > classes.mif
    hyperfine 'build/release/src/customscan mif check classes.mif'
"""

import sys


def classes(count):
    out = ["start component"]
    for i in range(count):
        out += ["start group", 'class = "C%d"' % i, "id = %d" % i,
                "start attribute", "id = 1", 'name = "Name"', 'value = "n%d"' % i, "end attribute",
                "start attribute", "id = 2", 'name = "Value"', 'value = "%d"' % i, "end attribute",
                "end group"]
    out.append("end component")
    return out


def template(attributes, rows):
    out = ["start component", "start group", 'class = "Wide"', "key = 1"]
    for a in range(attributes):
        out += ["start attribute", "id = %d" % (a + 1), 'name = "A%d"' % a, 'value = ""', "end attribute"]
    out += ["end group", "start table", 'class = "Wide"']
    for r in range(rows):
        out.append("{" + ", ".join('"r%d"' % r if a == 0 else str(a) for a in range(attributes)) + "}")
    out += ["end table", "end component"]
    return out


def wide(attributes, rows):
    return template(attributes, rows)


def long(rows, attributes):
    return template(attributes, rows)


def deep(depth):
    return ["start s%d" % i for i in range(depth)] + ["end s%d" % i for i in reversed(range(depth))]


def main(argv):
    kinds = {"classes": (classes, 1), "wide": (wide, 2), "long": (long, 2), "deep": (deep, 1)}
    if len(argv) < 2 or argv[1] not in kinds or len(argv) != 2 + kinds[argv[1]][1]:
        sys.stderr.write(__doc__)
        return 2
    make, _ = kinds[argv[1]]
    sys.stdout.write("\n".join(make(*(int(n) for n in argv[2:]))) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
