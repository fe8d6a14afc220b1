"""The messages that the program can log, read from its sources."""

import re

import sources

VARIES = "…"
SYSTEM_LOG = "System log"

LEVELS = {"alert": "Alert", "error": "Error", "warning": "Warning", "notice": "Notice",
          "info": "Info", "debug": "Debug", "debugPlus": "Debug+"}

CALL = re.compile(r"\b(writeLog|systemLog|quit|snprintf)\(")
TOKEN = re.compile(r"""
    (?P<comment>//[^\n]*)
  | "(?P<literal>(?:\\.|[^"\\])*)"
  | '(?:\\.|[^'\\])'
  | \w+ | \s+ | .
""", re.VERBOSE | re.DOTALL)

# First parameters and arguments that are no message of their own: the logging functions themselves,
# and the places where one hands on what it was given.
HANDED_ON = {"std::string_view message", "const std::string& message", "message",
             "message.data()"}


def source_files():
    return sorted(path for folder in ("Source", "Utilities", "Platform")
                  for path in (sources.ROOT / folder).rglob("*.cpp"))


def arguments(source, start):
    """The arguments of the call whose parenthesis opens before `start`: lists of tokens, each with
    the depth of parentheses that it stands in."""
    found, depth = [[]], 0
    for token in TOKEN.finditer(source, start):
        text = token.group()
        if depth == 0 and text == ")":
            return found
        depth += (text in "([{") - (text in ")]}")
        if depth == 0 and text == ",":
            found.append([])
        elif not token["comment"]:
            found[-1].append((token, depth))
    raise AssertionError("a call without an end")


def as_written(tokens):
    return "".join(token.group() for token, _ in tokens).strip()


def unescaped(literal):
    return literal.replace('\\"', '"').replace("\\t", "\t")


def piece(tokens):
    """The text of neighbouring literals, or the sign for what varies."""
    meaningful = [token for token in tokens if not token.group().isspace()]
    if all(token["literal"] is not None for token in meaningful):
        return "".join(unescaped(token["literal"]) for token in meaningful)
    return VARIES


def template(tokens):
    """A text that is put together with `+`."""
    pieces = [[]]
    for token, depth in tokens:
        if depth == 0 and token.group() == "+":
            pieces.append([])
        else:
            pieces[-1].append(token)
    return "".join(map(piece, pieces))


def level_of(function, given):
    if function != "writeLog":
        return "Error" if function == "quit" else SYSTEM_LOG
    return LEVELS[as_written(given[1]).removeprefix("LogLevel::")]


def messages_in(source):
    """Pairs of a message and its level."""
    for call in CALL.finditer(source):
        given = arguments(source, call.end())
        if call[1] == "snprintf":
            yield re.sub(r"%\w", VARIES, template(given[2])), SYSTEM_LOG
        elif as_written(given[0]) not in HANDED_ON:
            yield template(given[0]), level_of(call[1], given)


def all_messages():
    found = {(" ".join(message.split()), level) for path in source_files()
             for message, level in messages_in(path.read_text(encoding="utf-8"))}
    # What has a level goes to the system log as well, be it by a way of its own.
    with_level = {message for message, level in found if level != SYSTEM_LOG}
    return {(message, level) for message, level in found
            if level != SYSTEM_LOG or message not in with_level}
