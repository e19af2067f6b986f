#!/usr/bin/env python3
"""What doxygen needs to take a page as it is: page_filter.py PAGE

Headings get the anchors that links to them use, with the page's name before them since doxygen knows one
name once. Links to folders become text: the site has no page for them.
"""
import os
import re
import sys

page = os.path.abspath(sys.argv[1])
root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def name_of(path):
    """One name for each page, of its path."""
    return os.path.relpath(path, root).removesuffix(".md").replace(os.sep, "-").lower()


def anchor_of(heading):
    text = re.sub(r"[^\w\- ]", "", heading.replace("`", "").lower())
    return text.strip().replace(" ", "-")


def link(match):
    text, target = match.groups()
    if target.startswith(("http:", "https:")):
        return match.group(0)
    path, _, anchor = target.partition("#")
    full = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
    if os.path.isdir(full) and os.path.exists(os.path.join(full, "README.md")):
        full = os.path.join(full, "README.md")
    if not full.endswith(".md"):
        return text
    return f"[{text}](#{name_of(full)}{'-' + anchor if anchor else ''})"


fenced = False
first = True
for line in open(page, encoding="utf-8"):
    line = line.rstrip("\n")
    if line.startswith("```"):
        fenced = not fenced
    elif not fenced:
        line = re.sub(r"(?<!\\)\[([^\]]*)\]\(([^)\s]+)\)", link, line)
        heading = re.match(r"#+ (.*)", line)
        if heading:
            # A page is known by its first heading.
            line += f" {{#{name_of(page)}{'' if first else '-' + anchor_of(heading.group(1))}}}"
            first = False
    print(line)
