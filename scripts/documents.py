"""Finds lines of documents that are longer than 120 characters; with --fix wraps their paragraphs.

    python3 scripts/documents.py [--fix] FILE...

Rows of tables and code may be longer: they cannot be wrapped.
"""
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


def main():
    fix = "--fix" in sys.argv
    found = False
    for name in (word for word in sys.argv[1:] if word != "--fix"):
        with open(name, encoding="utf-8") as file:
            before = file.read().split("\n")
        after = []
        for wrappable, block in blocks(before):
            is_long = wrappable and any(len(line) > WIDTH for line in block)
            result = wrapped(block) if is_long else block
            if is_long and not fix and result != block:
                print(f"{name}:{len(after) + 1}: a line is longer than {WIDTH} characters")
                found = True
            after += block if not fix else result
        if fix and after != before:
            with open(name, "w", encoding="utf-8") as file:
                file.write("\n".join(after))
    return found


sys.exit(main())
