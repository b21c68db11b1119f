"""Makes docs/message-index.md: every message of the command in every language, from the resources.

    python3 scripts/message_index.py [--check]

With --check nothing is written: the status is 1 if the file is not what would be written.
"""
import pathlib
import re
import sys
import textwrap

TOP = pathlib.Path(__file__).resolve().parent.parent
INDEX = TOP / "docs/message-index.md"
WIDTH = 120
INTRODUCTION = """\
# Index of messages

Every message of `tarvel` in each of its fourteen languages. A message is printed without its number. Search this page
for the text on the screen, or for its first words, and follow the number: [messages.md](messages.md) says what the
message means, what is on disk then and what to do. Messages 30, 31, 34 to 36, 41, 43 and 45 are in the program, but no
run prints them. A slash with blanks around it stands for a line break.

This page is made by `scripts/message-index` from `resources/messages.*.rc`. Do not edit it.
"""
OWN_NAMES = {
    "cs": "čeština", "de": "Deutsch", "en": "English", "es": "español", "fr": "français", "hu": "magyar",
    "it": "italiano", "ja": "日本語", "ko": "한국어", "pl": "polski", "pt-BR": "português (Brasil)", "ru": "русский",
    "zh-CN": "简体中文", "zh-TW": "繁體中文",
}


def read_numbers():
    text = (TOP / "resources/messages.h").read_text(encoding="utf-8")
    return {name: int(number) for name, number in re.findall(r"^#define (IDS_\w+) (\d+)$", text, re.M)}


def read_table(path, numbers):
    """Returns the English name of a table's language, and its texts by number."""
    content = path.read_text(encoding="utf-8")
    language = re.match(r"// (.*) console messages\.", content)
    texts = {numbers[name]: text for name, text in re.findall(r'^    (IDS_\w+) "(.*)"$', content, re.M)}
    if not language or set(texts) != set(numbers.values()):
        sys.exit(f"{path}: not a table of all messages")
    return language[1], texts


def make_index():
    numbers = read_numbers()
    sections = []
    for path in (TOP / "resources").glob("messages.*.rc"):
        language, texts = read_table(path, numbers)
        own_name = OWN_NAMES.get(path.name.split(".")[1])
        lines = [f"## {language}: {own_name}" if own_name else f"## {language}", ""]
        for number, text in sorted(texts.items()):
            item = f"- [{number}](messages.md#message-{number}): " + text.replace(r"\n", " / ")
            lines += textwrap.wrap(item, WIDTH, subsequent_indent="  ", break_long_words=False, break_on_hyphens=False)
        sections.append("\n".join(lines))
    return "\n".join([INTRODUCTION, "\n\n".join(sorted(sections))]) + "\n"


def main():
    index = make_index()
    if "--check" not in sys.argv:
        INDEX.write_text(index, encoding="utf-8", newline="\n")
    elif not INDEX.exists() or INDEX.read_text(encoding="utf-8") != index:
        sys.exit("docs/message-index.md is out of date: run scripts/message-index")


main()
