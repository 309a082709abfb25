"""Writes the Python classes' docstrings from the public headers: a class's is the first sentence
of its header's opening comment, a member's the first sentence of the comment above its first
declaration. Usage: header_docs.py OUTPUT HEADER..."""

import os
import re
import sys

DECLARATION = re.compile(r"\s+(?:[\w:<>,*&]+\s+)+[&*]?(\w+)\s*\(")


def first_sentence(lines):
    text = " ".join(line.strip() for line in lines)
    end = re.search(r"\.(\s|$)", text)
    return (text[:end.start() + 1] if end else text).strip()


def docs_of(path):
    lines = open(path, encoding="utf-8").read().split("\n")
    opening = []
    for line in lines:
        if not line.startswith("//"):
            break
        opening.append(line[2:])
    members, comment, cls, public = {}, [], None, False
    for line in lines:
        stripped = line.strip()
        found = re.match(r"class QK_API (\w+)", line)
        if found:
            cls, public = found.group(1), True
            continue
        if stripped in ("private:", "protected:"):
            public = False
        if stripped == "public:":
            public = True
        if stripped.startswith("//"):
            comment.append(stripped[2:])
            continue
        declared = DECLARATION.match(line) if cls and public else None
        if declared and declared.group(1) not in members and comment:
            members[declared.group(1)] = first_sentence(comment)
        comment = []
    return cls, first_sentence(opening), members


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def main():
    output, headers = sys.argv[1], sys.argv[2:]
    rows = []
    for header in sorted(headers):
        cls, doc, members = docs_of(header)
        if not cls:
            continue
        rows.append((cls, "", doc))
        rows.extend((cls, name, text) for name, text in members.items())
    body = "".join(f"    {{{quoted(c)}, {quoted(m)}, {quoted(d)}}},\n" for c, m, d in rows)
    text = ("// Made by python/header_docs.py from the public headers; not edited by hand.\n"
            "#pragma once\n\nstruct ClassDoc {\n  const char *cls, *member, *doc;\n};\n"
            f"inline constexpr ClassDoc kClassDocs[] = {{\n{body}}};\n")
    os.makedirs(os.path.dirname(output), exist_ok=True)
    if not os.path.exists(output) or open(output, encoding="utf-8").read() != text:
        with open(output + ".tmp", "w", encoding="utf-8") as out:
            out.write(text)
        os.replace(output + ".tmp", output)


if __name__ == "__main__":
    main()
