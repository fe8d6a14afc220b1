"""Holds the pages to the rules by which their commands are found and tried."""

import re
import unittest

import blocks
import manual
import sources

LANGUAGES = {"sh", "console", "text", "xml"}


def all_pages():
    return [*blocks.pages(), *(page.name for page in manual.pages())]


class BlocksTest(unittest.TestCase):
    def test_every_fence_names_its_language(self):
        for page in blocks.pages():
            fences = re.findall(r"^```(.*)$", sources.read(page), re.MULTILINE)
            self.assertEqual(fences[1::2], [""] * (len(fences) // 2), page)
            self.assertLessEqual(set(fences[::2]), LANGUAGES, page)

    def test_no_commands_hide_in_indented_blocks(self):
        for page in blocks.pages():
            self.assertNotRegex(sources.read(page), r"\n\n    \S", page)

    def test_every_manner_is_a_known_one(self):
        for page in all_pages():
            for block in blocks.commands_of(page):
                if not block.left_out_because():
                    self.assertIn(block.manner, blocks.MANNERS, page)

    def test_only_what_no_test_can_give_excuses_a_block(self):
        for page in all_pages():
            for block in blocks.commands_of(page):
                reason = block.left_out_because()
                if reason:
                    self.assertRegex(block.text, blocks.REASONS[reason], page)

    def test_there_is_something_to_try(self):
        tried = [block for page in all_pages() for block in blocks.commands_of(page)
                 if not block.left_out_because()]
        self.assertGreaterEqual(len(tried), 10)


class LinksTest(unittest.TestCase):
    def test_every_link_to_a_file_leads_to_one(self):
        for page in blocks.pages():
            folder = (sources.ROOT / page).parent
            for target in re.findall(r"\]\((?!https?:)([^)#]+)", sources.read(page)):
                with self.subTest(page=page, target=target):
                    self.assertTrue((folder / target).exists())

    def test_every_link_to_a_heading_leads_to_one(self):
        for page in blocks.pages():
            for target, anchor in re.findall(r"\]\(([^)#]*)#([^)]+)\)", sources.read(page)):
                with self.subTest(page=page, anchor=anchor):
                    self.assertIn(anchor, anchors(page, target))


def anchors(page, target):
    path = (sources.ROOT / page).parent / target if target else sources.ROOT / page
    headings = re.findall(r"^#+ (.*)$", path.read_text(encoding="utf-8"), re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


if __name__ == "__main__":
    unittest.main()
