#!/usr/bin/env python3
"""A short Python parser of the MIF subset the plug-in reads: the rows of one
template class, keyed as the plug-in keys them. Prints the number of rows.

    mif_baseline.py FILE CLASS
"""
import sys


def split_row(inner):
    items, item, quoted, escaped = [], [], False, False
    for c in inner:
        if escaped:
            escaped = False
        elif c == "\\":
            escaped = True
        elif c == '"':
            quoted = not quoted
        elif c == "," and not quoted:
            items.append("".join(item))
            item = []
            continue
        item.append(c)
    items.append("".join(item))
    return items


def unquote(s):
    if s.startswith('"'):
        s = s[1:]
    if s.endswith('"'):
        s = s[:-1]
    return s


def unescape(s):
    return s.replace('\\\\', '\\').replace('\\"', '"') if "\\" in s else s


def parse(path, class_name):
    scopes, rows = [], {}
    group, template, in_table = None, None, False
    with open(path, encoding="utf-8", errors="surrogateescape", newline="\n") as f:
        for line in f:
            line = line.strip()
            if not line or line.startswith("//"):
                continue
            head = line[:6].lower()
            if len(line) > 6 and head == "start ":
                name = line[6:].strip().lower()
                scopes.append(name)
                if name == "group":
                    group = {"class": None, "key": None, "attributes": []}
                elif name == "attribute" and len(scopes) > 1 and scopes[-2] == "group":
                    group["attributes"].append({})
                elif name == "table":
                    in_table = False
                continue
            if len(line) > 4 and head[:4] == "end ":
                name = line[4:].strip().lower()
                if not scopes or scopes.pop() != name:
                    raise ValueError("scope mismatch")
                if name == "group" and template is None and group["class"] == class_name and group["key"]:
                    template = group
                    ids = [a.get("id") for a in group["attributes"]]
                    template["columns"] = [ids.index(i) for i in group["key"].split(",") if i in ids]
                    template["defaults"] = [a.get("value", "") for a in group["attributes"]]
                continue
            if line[0] == "{" and line[-1] == "}":
                if not in_table:
                    continue
                items = [i.strip() for i in split_row(line[1:-1])]
                defaults = template["defaults"]
                if len(items) != len(defaults):
                    raise ValueError("row does not match its template")
                row = [unescape(unquote(v)) if v else d for v, d in zip(items, defaults)]
                key = ""
                for c in template["columns"]:
                    key = key + "#" + row[c] if key else row[c]
                rows.setdefault(key, row)
                continue
            name, sep, value = line.partition("=")
            if not sep:
                raise ValueError("malformed line")
            name, value = name.strip().lower(), unquote(value.strip())
            scope = scopes[-1]
            if scope == "attribute" and group and group["attributes"]:
                if name in ("id", "name", "value"):
                    group["attributes"][-1][name] = value
            elif scope == "group" and name in ("class", "key"):
                group[name] = value
            elif scope == "table" and name == "class":
                in_table = template is not None and value == class_name
    return rows


if __name__ == "__main__":
    print("rows=%d" % len(parse(sys.argv[1], sys.argv[2])))
