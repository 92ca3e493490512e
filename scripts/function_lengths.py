#!/usr/bin/env python3
"""Lists the functions in the given C++ files whose bodies are longer than a limit.

A function's length is counted from the line of its opening brace to the line
of its closing brace, both included (for the usual one-line signature, the
whole function). Functions are found by brace matching over the source with
comments, strings and character literals blanked out: a brace opens a function
body when the text before it (since the previous ';', '{' or '}') ends in a
parameter list, optionally followed by qualifiers, a trailing return type, an
initialiser list, or a lambda's capture and parameters. Class, namespace,
enum and initialiser braces are nesting only. Lambdas count as part of the
function they are written in.

Exit status: 0 when every function is within the limit, 1 otherwise.
"""
import re
import sys

LIMIT = 40


def blank(source):
    """The source with comments, strings and characters replaced by spaces (newlines kept)."""
    out = []
    i, n = 0, len(source)
    while i < n:
        c = source[i]
        if source.startswith("//", i):
            j = source.find("\n", i)
            j = n if j == -1 else j
            out.append(" " * (j - i))
            i = j
        elif source.startswith("/*", i):
            j = source.find("*/", i + 2)
            j = n if j == -1 else j + 2
            out.append(re.sub(r"[^\n]", " ", source[i:j]))
            i = j
        elif c == "R" and source.startswith('R"', i) and (i == 0 or not source[i - 1].isalnum()):
            m = re.match(r'R"([^(]*)\(', source[i:])
            end = source.find(")" + m.group(1) + '"', i) + len(m.group(1)) + 2
            out.append(re.sub(r"[^\n]", " ", source[i:end]))
            i = end
        elif c in "\"'":
            if c == "'" and i > 0 and source[i - 1].isalnum() and source[i + 1 : i + 2].isdigit():
                out.append(" ")  # digit separator, as in 30'000
                i += 1
                continue
            j = i + 1
            while j < n and source[j] != c:
                j += 2 if source[j] == "\\" else 1
            out.append(" " * (j + 1 - i))
            i = j + 1
        else:
            out.append(c)
            i += 1
    return "".join(out)


FUNCTION_HEAD = re.compile(
    r"\)\s*(const|noexcept|override|final|mutable|&|&&|\s)*"
    r"(->\s*[\w:<>,\s*&]+)?\s*$"
)
CONTROL = re.compile(r"\b(if|for|while|switch|catch)\s*\(")
NAME = re.compile(r"([~\w:]+)\s*\($")


def head_name(head):
    """The function's name when `head` (text before a '{') opens a function body, else None."""
    text = re.sub(r"\s+", " ", head).strip()
    if not text.endswith(")") and not FUNCTION_HEAD.search(text):
        # A constructor's initialiser list ends in ')' or '}' of its last member.
        if not re.search(r"\)\s*:\s*[\w:]+[({]", text):
            return None
    if text.startswith(("struct ", "class ", "enum ", "namespace ", "union ")):
        return None
    if re.search(r"=\s*$", text) or re.search(r"\breturn\b", text):
        return None
    # Match the parameter list's opening parenthesis.
    depth = 0
    colon_init = re.search(r"\)\s*:\s*[\w:]+[({]", text)
    end = colon_init.start() + 1 if colon_init else text.rfind(")") + 1
    for k in range(end - 1, -1, -1):
        if text[k] == ")":
            depth += 1
        elif text[k] == "(":
            depth -= 1
            if depth == 0:
                before = text[:k].rstrip()
                if CONTROL.search(text[: k + 1]) and re.search(r"\b(if|for|while|switch|catch)$", before):
                    return None
                m = re.search(r"([~\w:]+|operator\s*\S+|\])$", before)
                if m is None or m.group(1) in ("if", "for", "while", "switch", "catch", "sizeof"):
                    return None
                return m.group(1)
    return None


def long_functions(path, limit):
    source = open(path, encoding="utf-8").read()
    text = blank(source)
    stack = []  # (kind, name, line of '{')
    found = []
    start = 0
    line = 1
    for i, c in enumerate(text):
        if c == "\n":
            line += 1
        if c == "{":
            head = text[start:i]
            inside_function = any(kind == "function" for kind, _, _ in stack)
            name = None if inside_function else head_name(head)
            stack.append(("function" if name else "block", name, line))
            start = i + 1
        elif c == "}":
            if stack:
                kind, name, opened = stack.pop()
                if kind == "function":
                    body = line - opened + 1
                    if body > limit:
                        found.append((path, opened, name, body))
            start = i + 1
        elif c == ";":
            start = i + 1
    return found


def main(argv):
    limit = LIMIT
    paths = argv[1:]
    if paths and paths[0].startswith("--limit="):
        limit = int(paths[0].split("=", 1)[1])
        paths = paths[1:]
    found = []
    for path in paths:
        found += long_functions(path, limit)
    for path, line, name, body in found:
        print(f"{path}:{line}: {name} has {body} lines (the limit is {limit})")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
