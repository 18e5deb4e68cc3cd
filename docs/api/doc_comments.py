#!/usr/bin/env python3
"""Doxygen input filter: the headers' plain // contract comments become
documentation, so the headers need no second comment syntax.

- The comment at the top of a header documents the file; when it opens with
  "Name: ..." and the header declares that class or struct, it documents
  that type as well.
- A // block directly above a declaration (no blank line between them)
  documents the declaration; a block followed by a blank line is a section
  note and stays a plain comment.
- A // block directly above a run of constants, macros or enumerators
  (the lines up to the next blank line or comment) documents each of them
  that has no comment of its own.
- A // comment after code on the same line documents that line's member.
"""
import re
import sys

COMMENT = re.compile(r"^(\s*)//(?!/)\s?(.*)$")
VALUE = re.compile(r"^\s*((inline\s+)?constexpr\s|#\s*define\s|[A-Z_][A-Za-z0-9_]*\s*(=[^=].*)?,?\s*(//.*)?$)")
TRAILING = re.compile(r"^(.*?[;,{}\w)\]])(\s+)//(?!/)\s?(.*)$")


def main(path):
    with open(path, encoding="utf-8") as source:
        lines = source.read().split("\n")
    out = []
    i = 0
    # The file's own comment: everything before the first other line.
    top = []
    while i < len(lines) and COMMENT.match(lines[i]):
        top.append(COMMENT.match(lines[i]).group(2))
        i += 1
    trailer = []
    if top:
        # "#pragma once" gives up its line to "@file", so that the rest
        # keeps its line numbers and warnings point at the header's lines.
        out.append("/** @file")
        out.extend(top)
        out[-1] += " */"
        if i < len(lines) and lines[i].strip() == "#pragma once":
            i += 1
        else:
            out.append("#pragma once")
        named = re.match(r"(\w+): ", top[0])
        body = "\n".join(lines[i:])
        if named and re.search(r"\b(class|struct)\s+(VYN_EXPORT\s+)?%s\b" % named.group(1), body):
            trailer = ["/** @class %s" % named.group(1)] + top + ["*/"]
    while i < len(lines):
        line = lines[i]
        match = COMMENT.match(line)
        if match:
            block = []
            while i < len(lines) and COMMENT.match(lines[i]):
                block.append(lines[i])
                i += 1
            following = lines[i].strip() if i < len(lines) else ""
            documents = following != "" and (not following.startswith("#") or
                                             re.match(r"#\s*define\s", following) is not None)
            for comment in block:
                m = COMMENT.match(comment)
                out.append("%s%s %s" % (m.group(1), "///" if documents else "//", m.group(2)))
            if documents and VALUE.match(lines[i]):
                end = i
                while end + 1 < len(lines) and VALUE.match(lines[end + 1]):
                    end += 1
                if end > i:
                    # A member group, marked on lines the header has anyway
                    # so that warnings keep pointing at the right line;
                    # DISTRIBUTE_GROUP_DOC hands the block to each member.
                    out[-1] += " @{"
                    for k in range(i, end + 1):
                        text = lines[k]
                        trailing = TRAILING.match(text)
                        if trailing and '"' not in trailing.group(1):
                            text = "%s%s///< %s" % trailing.groups()
                        out.append(text)
                    i = end + 1
                    if i < len(lines) and lines[i].strip() == "":
                        out.append("/** @} */")
                        i += 1
                    else:
                        out[-1] += "\n/** @} */"
            continue
        trailing = TRAILING.match(line)
        if trailing and '"' not in trailing.group(1):
            out.append("%s%s///< %s" % trailing.groups())
        else:
            out.append(line)
        i += 1
    sys.stdout.write("\n".join(out + trailer))


if __name__ == "__main__":
    main(sys.argv[1])
