"""Checks the documents: lines of at most 120 characters besides rows of tables and code, no heading that two documents
share, no link that leads nowhere. With --fix wraps the paragraphs that have longer lines.

    python3 scripts/documents.py [--fix] FILE...
"""
import collections
import os
import pathlib
import re
import sys
import textwrap

WIDTH = 120
ITEM = re.compile(r"\s*([-*+]|\d+[.)])\s+")
BEGINS_SOMETHING = re.compile(r"([-+*>|]|#+|\d+[.)])(\s|$)|```")


def blocks(lines):
    """Yields (wrappable, lines): a paragraph, an item of a list, or what must stay as it is."""
    block, code = [], False
    for line in lines:
        fence = line.lstrip().startswith("```")
        prose = not code and not fence and line.strip() and not line.lstrip().startswith(("|", "#", "<", ">"))
        if block and (not prose or ITEM.match(line)):
            yield True, block
            block = []
        if prose:
            block.append(line)
        else:
            yield False, [line]
        code ^= fence
    if block:
        yield True, block


def wrapped(block):
    item = ITEM.match(block[0])
    first = item[0] if item else re.match(r"\s*", block[0])[0]
    text = " ".join(line.strip() for line in block)[len(first.lstrip()):]
    for width in range(WIDTH, 60, -1):  # narrower while a line would begin something else
        lines = textwrap.wrap(text, width, initial_indent=first, subsequent_indent=" " * len(first),
                              break_long_words=False, break_on_hyphens=False)
        if not any(BEGINS_SOMETHING.match(line.strip()) for line in lines[1:]):
            return lines
    return block


def wrap(name, text, fix):
    """Returns the lines that are too long, or wraps them in the file."""
    found, after = [], []
    for wrappable, block in blocks(text.split("\n")):
        is_long = wrappable and any(len(line) > WIDTH for line in block)
        result = wrapped(block) if is_long else block
        if result != block:
            found.append(f"{name}:{len(after) + 1}: a line is longer than {WIDTH} characters")
        after += result if fix else block
    if fix and found:
        pathlib.Path(name).write_text("\n".join(after), encoding="utf-8")
    return [] if fix else found


def headings_and_links(texts):
    prose = {name: re.sub(r"^\s*```.*?^\s*```", "", text, flags=re.M | re.S) for name, text in texts.items()}
    headings = {name: re.findall(r"^#+ +(.+)", text, re.M) for name, text in prose.items()}
    for title, count in collections.Counter(title for titles in headings.values() for title in set(titles)).items():
        if count > 1:
            yield " and ".join(name for name in headings if title in headings[name]) + f' share the heading "{title}"'
    places = {name: {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles} |
              set(re.findall(r'id="([^"]*)"', prose[name])) for name, titles in headings.items()}
    for name, text in prose.items():
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            file, _, place = target.partition("#")
            path = os.path.normpath(os.path.join(os.path.dirname(name), file)) if file else name
            if "://" not in target and (not os.path.exists(path) or place and place not in places.get(path, ())):
                yield f"{name}: the link to {target} leads nowhere"


def main():
    texts, found = {}, []
    for word in sys.argv[1:]:
        if word != "--fix":
            name = os.path.normpath(word)
            texts[name] = pathlib.Path(name).read_text(encoding="utf-8")
            found += wrap(name, texts[name], "--fix" in sys.argv)
    found += headings_and_links(texts)
    print(*found, sep="\n", end="\n" if found else "")
    return bool(found)


sys.exit(main())
