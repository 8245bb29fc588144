import json
import unittest
from html.parser import HTMLParser

from support import SandboxTest, ask, jpeg

HOSTILE = "<script>alert(1)</script>\"'&amp; 写真"
VOID_ELEMENTS = {"meta", "link", "img"}


class Page(HTMLParser):
    """A page's texts, elements and attributes; fails where elements don't nest."""

    def __init__(self, content: bytes) -> None:
        super().__init__()
        self.texts: list[str] = []
        self.elements: list[tuple[str, dict[str, str]]] = []
        self._open: list[str] = []
        self.feed(content.decode())
        self.close()
        assert not self._open, self._open

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str]]) -> None:
        self.elements.append((tag, dict(attrs)))
        if tag not in VOID_ELEMENTS:
            self._open.append(tag)

    def handle_endtag(self, tag: str) -> None:
        assert self._open.pop() == tag, tag

    def handle_data(self, text: str) -> None:
        self.texts.append(text)

    def attributes(self, tag: str, name: str) -> list[str]:
        return [
            attributes[name] for element, attributes in self.elements if element == tag and name in attributes
        ]


class GalleryPageTest(SandboxTest):
    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        document = json.loads(cls.sandbox.data_file.read_text())
        document["users"][0]["events"][0]["name"] = HOSTILE
        document["users"][0]["displayName"] = HOSTILE
        document["users"][0]["pricingTemplates"][0]["name"] = HOSTILE
        cls.sandbox.stop()
        cls.sandbox.data_file.write_text(json.dumps(document))
        cls.sandbox.start()
        category, name = HOSTILE.replace("/", ""), f"{HOSTILE.replace('/', '')}.jpg"
        cls.sandbox.upload("e0", category, {name: jpeg(1600, 900), "b.jpg": jpeg()})
        cls.sandbox.upload("e0", "Party", {"c.jpg": jpeg()})
        cls.sandbox.finish("e0", "5")
        cls.sandbox.upload("e1", "Party", {"waits.jpg": jpeg()})

    def page(self, path: str) -> Page:
        status, headers, body = self.sandbox.gallery(path)
        self.assertEqual((status, headers["Content-Type"]), (200, "text/html; charset=UTF-8"))
        self.assertIn(
            "default-src 'none'; img-src 'self'; style-src 'self';", headers["Content-Security-Policy"]
        )
        return Page(body)

    def test_the_first_page_leads_to_each_event(self) -> None:
        page = self.page("/")
        self.assertIn("/gallery/events/1001/e0", page.attributes("a", "href"))
        self.assertIn("3 photographs, 2 categories", page.texts)
        self.assertIn("1 uploaded file not processed yet.", page.texts)
        self.assertIn("No photographs yet.", page.texts)

    def test_an_event_shows_its_categories_and_photographs(self) -> None:
        page = self.page("/gallery/events/1001/e0")
        self.assertEqual(len(page.attributes("img", "src")), 3)
        self.assertTrue({"Party", "c.jpg", "b.jpg", f"{HOSTILE.replace('/', '')}.jpg"} <= set(page.texts))
        self.assertTrue(any(text.startswith("1600 × 900, ") for text in page.texts), page.texts)

    def test_texts_stay_texts(self) -> None:
        for path in ("/", "/gallery/events/1001/e0"):
            page = self.page(path)
            self.assertIn(HOSTILE, page.texts)
            self.assertEqual({tag for tag, _ in page.elements} & {"script", "style", "iframe", "form"}, set())
            names = {name for _, attributes in page.elements for name in attributes}
            self.assertLessEqual(
                names,
                {
                    "lang",
                    "charset",
                    "name",
                    "content",
                    "rel",
                    "href",
                    "class",
                    "id",
                    "src",
                    "alt",
                    "width",
                    "height",
                    "loading",
                    "decoding",
                },
            )

    def test_photographs_and_style_are_served(self) -> None:
        page = self.page("/gallery/events/1001/e0")
        kinds = [(path, "image/jpeg") for path in page.attributes("img", "src")]
        kinds += [(path, "text/css; charset=UTF-8") for path in page.attributes("link", "href")]
        for path, kind in kinds:
            status, headers, body = self.sandbox.gallery(path)
            self.assertEqual((status, headers["Content-Type"]), (200, kind))
            self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
            self.assertEqual(len(body), int(headers["Content-Length"]))
        self.assertEqual(len(kinds), 4)

    def test_the_gallery_is_there_over_https_too(self) -> None:
        for path in ("/gallery", "/gallery.json", "/gallery/events/1001/e0", "/gallery/style.css"):
            with self.subTest(path):
                self.assertEqual(self.sandbox.get(path)[0], 200)

    def test_nothing_but_the_gallery_is_served(self) -> None:
        for path in (
            "/gallery/photographs/../../ca-key.pem",
            "/gallery/photographs/%2e%2e/gallery.sqlite",
            f"/gallery/photographs/{'0' * 32}.jpg",
            "/gallery/photographs/",
            "/gallery/events/1001/e1",
            "/gallery/events/1001/../../x",
            "/gallery/events/1001/e0'--",
            "/gallery.sqlite",
            "/favicon.ico",
        ):
            with self.subTest(path):
                self.assertEqual(self.sandbox.gallery(path)[0], 404)

    def test_a_name_that_is_not_this_machines_is_turned_away(self) -> None:
        """Otherwise another site could have its own name point here, and read the gallery through a browser."""
        for host in ("evil.example", "127.0.0.1.evil.example", "localhost.evil.example:80", ""):
            for connection in (self.sandbox.http(), self.sandbox.https()):
                with self.subTest(host):
                    self.assertEqual(ask(connection, "/gallery.json", headers={"Host": host})[0], 421)
        for host in ("localhost", "LOCALHOST:8080", "127.0.0.1:1"):
            with self.subTest(host):
                self.assertEqual(ask(self.sandbox.http(), "/gallery.json", headers={"Host": host})[0], 200)


if __name__ == "__main__":
    unittest.main()
