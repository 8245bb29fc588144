import socket
import ssl
import time
import unittest
import xml.etree.ElementTree as ElementTree

from support import DEADLINE_S, WEB_HOST, SandboxTest, ask

LOGIN = "/instantupload/login.php"
EVENTS = "/instantupload/eventlist.php"
CATEGORIES = "/instantupload/categorylist.php"
PROCESS = "/instantupload/processimages.php"
BEN = ("ben%2Bzo%C3%AB%40example", "50%25%2B%3D%C3%BC")


class LoginTest(SandboxTest):
    def login_answer(self, query: str) -> dict[str, str]:
        status, body = self.sandbox.get(f"{LOGIN}?{query}")
        self.assertEqual(status, 200)
        answer = ElementTree.fromstring(body)
        self.assertEqual(answer.tag, "Login")
        return {element.tag: element.text for element in answer}

    def test_a_right_login_gets_every_field(self) -> None:
        answer = self.login_answer("user=ann&pwd=ann%27s%20password")
        token = answer.pop("Password")
        self.assertEqual(
            answer,
            {"Success": "1", "UserId": "1001", "LoggedInName": "Ann Smith", "AllowHighResUploads": "1"},
        )
        self.assertRegex(token, r"^[A-Za-z0-9_-]{32}$")

    def test_an_account_for_small_images_is_told_so(self) -> None:
        answer = self.login_answer("user={}&pwd={}".format(*BEN))
        self.assertEqual((answer["AllowHighResUploads"], answer["LoggedInName"]), ("0", "Ben & <Zoë>"))

    def test_values_count_the_same_verbatim_and_percent_encoded(self) -> None:
        verbatim = (
            f"GET {LOGIN}?user=ben+zoë@example&pwd=50%+=ü HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"
        )
        with self.sandbox.secure_socket() as connection:
            connection.sendall(verbatim.encode())
            answer = connection.makefile("rb").read()
        self.assertIn(b"<Success>1</Success>", answer)

    def test_a_wrong_login_is_answered_with_success_0_alone(self) -> None:
        for query in (
            "user=ann&pwd=wrong",
            "user=Ann&pwd=ann%27s%20password",
            "user=nobody&pwd=",
            "user=ann&pwd=",
            "user=ann",
            "user=(null)&pwd=(null)",
            "",
        ):
            with self.subTest(query):
                self.assertEqual(self.login_answer(query), {"Success": "0"})

    def test_each_login_has_a_token_of_its_own_and_all_stay_valid(self) -> None:
        first, second = self.sandbox.login(), self.sandbox.login()
        self.assertNotEqual(first, second)
        for user, token in (first, second):
            self.assertEqual(self.sandbox.get(f"{EVENTS}?uid={user}&pwd={token}&obn=1")[0], 200)


class ListTest(SandboxTest):
    def test_events_and_pricing_templates_come_in_their_order(self) -> None:
        status, body = self.sandbox.get("{}?uid={}&pwd={}&obn=1".format(EVENTS, *self.sandbox.login()))
        answer = ElementTree.fromstring(body)
        events = [(event.get("id"), event.findtext("Name")) for event in answer.iter("Event")]
        templates = [(each.get("id"), each.findtext("Name")) for each in answer.iter("PricingTemplate")]
        self.assertEqual(status, 200)
        self.assertEqual(events[:2], [("e0", "Wedding 0"), ("e1", "Wedding 1")])
        self.assertEqual(templates, [("5", "Standard")])

    def test_names_with_markup_come_through_whole(self) -> None:
        user, token = self.sandbox.login(*BEN)
        events = ElementTree.fromstring(self.sandbox.get(f"{EVENTS}?uid={user}&pwd={token}&obn=1")[1])
        categories = ElementTree.fromstring(
            self.sandbox.get(f"{CATEGORIES}?uid={user}&pwd={token}&eid=b1")[1]
        )
        names = [element.text for element in events.iter("Name")]
        self.assertEqual(names, ["<b>\"Łódź\" & 'Kraków'</b>", "Nothing yet", "<i>Prints</i> & more"])
        self.assertEqual([(each.get("id"), each.findtext("Name")) for each in categories], [("1", "<写真>")])

    def test_an_event_without_categories_has_an_empty_list(self) -> None:
        user, token = self.sandbox.login(*BEN)
        status, body = self.sandbox.get(f"{CATEGORIES}?uid={user}&pwd={token}&eid=b2")
        self.assertEqual((status, list(ElementTree.fromstring(body))), (200, []))

    def test_a_wrong_token_is_forbidden(self) -> None:
        user, token = self.sandbox.login()
        other, _ = self.sandbox.login(*BEN)
        for credentials in (
            f"uid={user}&pwd={token}x",
            f"uid={user}&pwd={token[:-1]}",
            f"uid={other}&pwd={token}",
            f"uid={user}&pwd=ann%27s%20password",
            f"uid={user}&pwd=",
            "uid=&pwd=",
            "",
        ):
            for request in (
                f"{EVENTS}?{credentials}&obn=1",
                f"{CATEGORIES}?{credentials}&eid=e0",
                f"{PROCESS}?{credentials}&id=e0&pptid=0",
            ):
                with self.subTest(request):
                    self.assertEqual(self.sandbox.get(request)[0], 403)

    def test_an_event_that_is_not_the_users_is_forbidden(self) -> None:
        user, token = self.sandbox.login()
        for event in ("b1", "unknown", "", "(null)", "../1002/b1", "%2e%2e", "e0%00"):
            with self.subTest(event):
                self.assertEqual(self.sandbox.get(f"{CATEGORIES}?uid={user}&pwd={token}&eid={event}")[0], 403)


class ProtocolTest(SandboxTest):
    def answer_to(self, request: bytes) -> bytes:
        with self.sandbox.secure_socket() as connection:
            connection.sendall(request)
            return connection.makefile("rb").read()

    def test_the_certificate_is_good_for_the_services_names_only(self) -> None:
        for host in (WEB_HOST, "ftp.quillmark.example", "localhost", "127.0.0.1"):
            with self.subTest(host):
                self.sandbox.secure_socket(host).close()
        with self.assertRaises(ssl.SSLCertVerificationError):
            self.sandbox.secure_socket("quillmark.example")

    def test_a_connection_serves_many_requests(self) -> None:
        connection = self.sandbox.https()
        first = connection.sock
        for _ in range(3):
            connection.request("GET", f"{LOGIN}?user=ann&pwd=wrong")
            self.assertIn(b"<Success>0</Success>", connection.getresponse().read())
            self.assertIs(connection.sock, first)
        connection.close()

    def test_a_head_request_gets_the_head_alone(self) -> None:
        answer = self.answer_to(f"HEAD {LOGIN} HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n".encode())
        self.assertTrue(answer.startswith(b"HTTP/1.1 200 "))
        self.assertTrue(answer.endswith(b"\r\n\r\n"))

    def test_other_paths_are_not_found(self) -> None:
        for path in (
            "/instantupload/",
            "/instantupload/login.php/",
            "/instantupload/../login.php",
            "/%2e%2e/ca-key.pem",
            "/ca-key.pem",
            "/../ca-key.pem",
            "*",
        ):
            with self.subTest(path):
                self.assertEqual(self.sandbox.get(path)[0], 404)

    def test_plain_http_serves_no_endpoint(self) -> None:
        for path in (LOGIN, EVENTS, CATEGORIES, PROCESS):
            self.assertEqual(self.sandbox.gallery(f"{path}?user=ann&pwd=ann%27s%20password")[0], 404)

    def test_a_query_that_is_not_utf8_is_refused(self) -> None:
        for value in ("%ff", "%C3", "%ED%A0%80"):
            with self.subTest(value):
                self.assertEqual(self.sandbox.get(f"{LOGIN}?user=ann&pwd={value}")[0], 400)

    def test_a_huge_query_is_refused_and_the_refusal_arrives(self) -> None:
        for length in (9_000, 70_000, 1_000_000):
            with self.subTest(length):
                self.assertEqual(self.sandbox.get(f"{LOGIN}?user={'a' * length}")[0], 414)

    def test_a_client_that_is_still_sending_is_not_cut_off_with_its_refusal(self) -> None:
        address = ("127.0.0.1", self.sandbox.gallery_port)
        with socket.create_connection(address, timeout=DEADLINE_S) as connection:
            connection.sendall(b"GET /" + b"a" * 70_000)
            self.assertTrue(connection.makefile("rb").read().startswith(b"HTTP/1.1 414 "))
            # As a slow client does that has not looked at the answer yet.
            for _ in range(25):
                connection.sendall(b"a" * 1000)
                time.sleep(0.02)

    def test_too_many_headers_are_refused(self) -> None:
        status, _, _ = ask(self.sandbox.https(), LOGIN, headers={f"X-{number}": "x" for number in range(200)})
        self.assertEqual(status, 431)

    def test_a_request_with_a_body_is_refused_and_its_body_is_no_request(self) -> None:
        hidden = f"GET {LOGIN} HTTP/1.1\r\nHost: x\r\n\r\n"
        for header in (f"Content-Length: {len(hidden)}", "Transfer-Encoding: chunked"):
            with self.subTest(header):
                answer = self.answer_to(
                    f"GET {LOGIN} HTTP/1.1\r\nHost: x\r\n{header}\r\n\r\n{hidden}".encode()
                )
                self.assertTrue(answer.startswith(b"HTTP/1.1 400 "))
                self.assertEqual(answer.count(b"HTTP/1.1 "), 1)

    def test_what_is_no_request_is_refused(self) -> None:
        for request in (
            b"\x16\x03\x01\r\n\r\n",
            b"GET\r\n\r\n",
            b"POST / HTTP/1.1\r\nHost: x\r\n\r\n",
            b"GET / HTTP/9.9\r\n\r\n",
            b"GET / / HTTP/1.1\r\n\r\n",
        ):
            with self.subTest(request):
                self.assertRegex(self.answer_to(request), rb"^HTTP/1\.1 (400|501|505) ")

    def test_silent_clients_keep_nobody_waiting(self) -> None:
        address = ("127.0.0.1", self.sandbox.https_port)
        silent = [socket.create_connection(address, timeout=DEADLINE_S) for _ in range(20)]
        halfway = [self.sandbox.secure_socket() for _ in range(20)]
        for connection in halfway:
            connection.sendall(b"GET /instantupload/lo")
        began = time.monotonic()
        self.sandbox.login()
        self.assertLess(time.monotonic() - began, 5)
        for connection in silent + halfway:
            connection.close()


if __name__ == "__main__":
    unittest.main()
