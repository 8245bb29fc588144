import copy
import json
import tempfile
import unittest
from pathlib import Path
from typing import Any, Callable

from quillmark_sandbox.command import SAMPLE_DATA
from quillmark_sandbox.data import load
from quillmark_sandbox.errors import StartError

from support import data


class DataFileTest(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.file = Path(folder.name) / "data.json"

    def refusal(self, content: bytes) -> str:
        self.file.write_bytes(content)
        with self.assertRaises(StartError) as caught:
            load(self.file)
        self.assertTrue(str(caught.exception).startswith(f"data file {self.file}: "))
        return str(caught.exception).removeprefix(f"data file {self.file}: ")

    def refusal_after(self, change: Callable[[Any], Any]) -> str:
        document = copy.deepcopy(data())
        change(document)
        return self.refusal(json.dumps(document).encode())

    def test_a_right_file_is_read_as_it_stands(self) -> None:
        self.file.write_text(json.dumps(data()))
        ann, ben = load(self.file).users
        self.assertEqual((ann.login, ann.password, ann.high_resolution), ("ann", "ann's password", True))
        self.assertEqual([event.id for event in ben.events], ["b1", "b2"])
        self.assertEqual(ben.events[0].categories[0].name, "<写真>")
        self.assertEqual(ben.pricing_templates[0].name, "<i>Prints</i> & more")

    def test_the_sample_shows_every_kind_of_account_and_event(self) -> None:
        users = load(SAMPLE_DATA).users
        events = [event for user in users for event in user.events]
        names = "".join(event.name for event in events)
        self.assertGreater(len(users), 2)
        self.assertEqual({user.high_resolution for user in users}, {True, False})
        self.assertEqual({min(len(event.categories), 20) for event in events} & {0, 2, 20}, {0, 2, 20})
        self.assertFalse(names.isascii())
        self.assertTrue(set('<>&"') <= set(names))

    def test_what_is_no_json_document_is_refused(self) -> None:
        self.assertIn("line 1 column", self.refusal(b"{"))
        self.assertIn("utf-8", self.refusal(b'{"users": "\xff"}'))
        self.assertIn("nested too deeply", self.refusal(b"[" * 100_000))
        self.assertIn("stands twice", self.refusal(b'{"users": [], "users": []}'))

    def test_a_missing_file_is_refused(self) -> None:
        with self.assertRaisesRegex(StartError, "No such file"):
            load(self.file)

    def test_each_departure_from_the_form_is_refused_with_its_place(self) -> None:
        def put(value: Any, *path: Any) -> Callable[[Any], None]:
            def change(document: Any) -> None:
                for key in path[:-1]:
                    document = document[key]
                document[path[-1]] = value

            return change

        user, event = ("users", 0), ("users", 0, "events", 0)
        category, pricing = (*event, "categories", 0), (*user, "pricingTemplates", 0)
        cases = {
            "users: at least one": put([], "users"),
            "the file.users: a list": put({}, "users"),
            "'colour' is not a known key": put("red", *user, "colour"),
            "users[0].highResolution: true or false": put(1, *user, "highResolution"),
            "users[0].id: '../x'": put("../x", *user, "id"),
            "users[0].id: ''": put("", *user, "id"),
            "users: the id '1002' stands twice": put("1002", *user, "id"),
            "users: the login 'ben+zoë@example' stands twice": put("ben+zoë@example", *user, "login"),
            'users[0].login: "anonymous"': put("Anonymous", *user, "login"),
            "users[0].password: an empty": put("", *user, "password"),
            "users[0].password: control": put("a\r\nb", *user, "password"),
            "users[0].displayName: control": put("\ud800", *user, "displayName"),
            "users[0].displayName: longer": put("ü" * 101, *user, "displayName"),
            "users[0].events[0]: an object": put("Wedding", *event),
            "users[0].events[0].id: a text": put(77, *event, "id"),
            "users[0].events: the id 'e1' stands twice": put("e1", *event, "id"),
            "categories[0].name: '../x' can't be": put("../x", *category, "name"),
            "categories[0].name: '..' can't be": put("..", *category, "name"),
            "categories: the id '2' stands twice": put("2", *category, "id"),
            'pricingTemplates[0].id: "0" stands for': put("0", *pricing, "id"),
            "pricingTemplates[0]: 'name' is missing": lambda document: document["users"][0][
                "pricingTemplates"
            ][0].pop("name"),
        }
        for expected, change in cases.items():
            with self.subTest(expected):
                self.assertIn(expected, self.refusal_after(change))


if __name__ == "__main__":
    unittest.main()
