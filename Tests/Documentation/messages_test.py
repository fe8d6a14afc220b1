"""Holds the page of messages against the messages of the program."""

import re
import unittest

import messages
import sources

PAGE = sources.read("Documentation/troubleshooting.md")
ENTRY = re.compile(r"^### `(?P<message>.+)`\n\n\*(?P<level>[^*]+)\.\* (?P<meaning>.+)",
                   re.MULTILINE)


def entries():
    return [(entry["message"], entry["level"]) for entry in ENTRY.finditer(PAGE)]


class MessagesTest(unittest.TestCase):
    def test_source_has_messages_of_every_kind(self):
        levels = {level for _, level in messages.all_messages()}
        self.assertEqual(levels, {*messages.LEVELS.values(), messages.SYSTEM_LOG})

    def test_no_message_is_a_riddle_to_this_test(self):
        self.assertNotIn(messages.VARIES, {message for message, _ in messages.all_messages()})

    def test_every_message_is_explained_with_its_level(self):
        self.assertEqual(messages.all_messages() - set(entries()), set())

    def test_every_explained_message_exists_with_its_level(self):
        self.assertEqual(set(entries()) - messages.all_messages(), set())

    def test_no_message_is_explained_twice(self):
        self.assertEqual(len(entries()), len(set(entries())))

    def test_every_heading_of_a_message_has_its_explanation(self):
        self.assertEqual(len(entries()), len(re.findall(r"^### ", PAGE, re.MULTILINE)))

    def test_table_tells_what_each_word_lets_through(self):
        names = list(messages.LEVELS)
        for word, last in sources.level_words().items():
            passing = [messages.LEVELS[name] for name in names[:names.index(last) + 1]]
            self.assertRegex(PAGE, rf"\n\| `{word}`.* \| {re.escape(', '.join(passing))} \|\n")

    def test_program_reports_in_no_other_way(self):
        other_way = re.compile(r"std::cerr|std::clog|fprintf|fputs|perror|syslog|sd_journal|NSLog")
        for path in messages.source_files():
            if path.name != "SystemLog.cpp":
                with self.subTest(path):
                    self.assertNotRegex(path.read_text(encoding="utf-8"), other_way)


if __name__ == "__main__":
    unittest.main()
