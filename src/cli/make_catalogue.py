#!/usr/bin/env python3
"""Writes the command line's catalogue of texts, a C++ source, from the Qt
Linguist catalogues the window is translated with, so that both speak the
same words and the command line loads no Qt library to find them.

    make_catalogue.py OUTPUT.cpp LANGUAGE=FILE.ts [LANGUAGE=FILE.ts ...]

Every finished message of every context is kept, keyed by its context and its
English source text."""

import sys
import xml.etree.ElementTree as ElementTree


def literal(text):
    out = []
    for byte in text.encode("utf-8"):
        if byte in (0x22, 0x5C):
            out.append("\\" + chr(byte))
        elif 0x20 <= byte < 0x7F:
            out.append(chr(byte))
        else:
            out.append("\\%03o" % byte)
    return '"' + "".join(out) + '"'


def messages(path):
    root = ElementTree.parse(path).getroot()
    for context in root.findall("context"):
        name = context.findtext("name")
        for message in context.findall("message"):
            translation = message.find("translation")
            if translation is None or translation.get("type") in ("unfinished", "obsolete",
                                                                   "vanished"):
                continue
            yield name, message.findtext("source"), translation.text or ""


def main(arguments):
    output, catalogues = arguments[0], arguments[1:]
    rows = []
    for catalogue in catalogues:
        language, path = catalogue.split("=", 1)
        for context, source, translation in messages(path):
            rows.append("    {%s, %s, %s, %s}," % (literal(language), literal(context),
                                                   literal(source), literal(translation)))
    with open(output, "w", encoding="utf-8") as out:
        out.write("// Made by make_catalogue.py from the translation catalogues; not edited.\n"
                  "#include \"cli/Catalogue.h\"\n\nnamespace cli {\n\n"
                  "const CatalogueEntry kCatalogueEntries[] = {\n")
        out.write("\n".join(rows))
        out.write("\n};\nconst std::size_t kCatalogueEntryCount = %d;\n\n}  // namespace cli\n"
                  % len(rows))


if __name__ == "__main__":
    main(sys.argv[1:])
