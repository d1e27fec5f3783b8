#!/usr/bin/env python3
"""Renders docs/integrating.md as the signing.so(7) manual page:

    scripts/md2man.py docs/integrating.md > docs/man/signing.so.7

It knows the Markdown the page uses: "#" title (its text after the dash is
the NAME line), "##" and "###" headings, paragraphs, "-" lists (with
indented continuation lines), fenced code blocks, pipe tables, and `code`,
**bold** and *italic* inside text. The install test checks that the
checked-in page is this script's output."""
import re
import sys

HEADER = '\'\\" t\n.TH SIGNING.SO 7 "2026" "signing 1.0.0" "Miscellaneous Information Manual"\n.ad l\n'


def escape(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return text


def inline(text):
    out = []
    for piece in re.split(r"(`[^`]*`)", text):
        if piece.startswith("`") and piece.endswith("`") and len(piece) >= 2:
            out.append("\\fB" + escape(piece[1:-1]) + "\\fR")
            continue
        piece = escape(piece)
        piece = re.sub(r"\*\*([^*]+)\*\*", r"\\fB\1\\fR", piece)
        piece = re.sub(r"(?<![\w*])\*([^*\s][^*]*)\*(?![\w*])", r"\\fI\1\\fR", piece)
        piece = re.sub(r"\[([^\]]+)\]\([^)]+\)", r"\1", piece)
        out.append(piece)
    line = "".join(out)
    if line.startswith(".") or line.startswith("'"):
        line = "\\&" + line
    return line


def table(rows):
    cells = [[c.strip() for c in row.strip().strip("|").split("|")] for row in rows]
    cells = [row for row in cells if not all(re.fullmatch(r":?-+:?", c) for c in row)]
    columns = len(cells[0])
    out = [".PP", ".TS", "allbox tab(|);", " ".join(["lb"] * columns), " ".join(["lx"] * columns) + "."]
    for index, row in enumerate(cells):
        row = (row + [""] * columns)[:columns]
        rendered = [inline(c).replace("|", "\\(ba") for c in row]
        if index == 0:
            out.append("|".join(rendered))
        else:
            out.append("|".join("T{\n" + c + "\nT}" for c in rendered))
    out.append(".TE")
    return out


def render(lines):
    out = [HEADER.rstrip("\n")]
    paragraph = []
    i = 0

    def flush():
        if paragraph:
            out.append(".PP")
            out.extend(inline(p) for p in paragraph)
            paragraph.clear()

    while i < len(lines):
        line = lines[i].rstrip("\n")
        if line.startswith("# "):
            flush()
            title = line[2:]
            name, _, summary = title.partition(" - ")
            out.append(".SH NAME")
            out.append(escape(name.strip("`")) + " \\- " + escape(summary or name))
        elif line.startswith("## "):
            flush()
            out.append(".SH " + inline(line[3:].upper()))
        elif line.startswith("### "):
            flush()
            out.append(".SS " + inline(line[4:]))
        elif line.startswith("```"):
            flush()
            out.extend([".PP", ".RS 4", ".nf"])
            i += 1
            while not lines[i].startswith("```"):
                code = escape(lines[i].rstrip("\n"))
                if code.startswith(".") or code.startswith("'"):
                    code = "\\&" + code
                out.append(code)
                i += 1
            out.extend([".fi", ".RE"])
        elif line.startswith("|"):
            flush()
            rows = []
            while i < len(lines) and lines[i].startswith("|"):
                rows.append(lines[i].rstrip("\n"))
                i += 1
            out.extend(table(rows))
            continue
        elif re.match(r"^\s*(-|\d+\.) ", line):
            flush()
            indent = len(line) - len(line.lstrip())
            marker, _, item = line.strip().partition(" ")
            bullet = "\\(bu" if marker == "-" else marker
            text = [item]
            while i + 1 < len(lines) and lines[i + 1].startswith(" " * (indent + 2)) and \
                    not re.match(r"^\s*(-|\d+\.) ", lines[i + 1]):
                i += 1
                text.append(lines[i].strip())
            if indent:
                out.append(".RS 4")
            out.append('.IP "%s" 4' % bullet)
            out.extend(inline(t) for t in text)
            if indent:
                out.append(".RE")
        elif not line.strip():
            flush()
        else:
            paragraph.append(line.strip())
        i += 1
    flush()
    return "\n".join(out) + "\n"


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as source:
        sys.stdout.write(render(source.readlines()))
