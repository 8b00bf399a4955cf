"""Fetching installation links through the maker's library in the working directory."""

import os

from simulator import installation
from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase
from tests.end_to_end.installer_case import MEDIA

WORDS = ("-slUrl", "https://console.example.net", "-apiKey", "k3y", "-packageName", "Default")
ARGUMENTS = "https://console.example.net|k3y|Default"
LIBRARY = "libsl.dylib"
GOOD = {"build": "complete", "signature": "maker"}
NO_SUCH_FILE = -67068  # what stands for ENOENT among the signature check's statuses
REFUSED = f'Invalid signature for "{LIBRARY}"'


def whole(lines, code):
    """The log of an option whose operation logged `lines` and returned `code`."""
    failure = [] if code == 0 else [
        f"Failed to retrieve installation links. Exit code:{code}"]
    return ["Getting installation link", "Retrieving installation link",
            f'Searching for "{LIBRARY}"', *lines, *failure, "Finished retrieving links"]


def called(code):
    """Up to the function's code."""
    return [*t.check(LIBRARY), 'Set the "GetInstallationLinks" handle',
            f"Method finished with exit code: {code}"]


class LinksCase(EndToEndCase):
    """Base of these tests."""

    def fetch(self, wanted, code, output, lines, words=WORDS, **options):
        run = self.run_tool("-getInstallationLink", *words, scenario=wanted, **options)
        self.assert_answer(run, code % 256, output)
        self.assert_log(run, whole(lines, code))
        return run


class Success(LinksCase):
    """The library is called."""

    def test_whole_transcript(self):
        self.fetch("healthy", 0, f"{ARGUMENTS}|1", called(0))

    def test_switch_turns_the_flag_off(self):
        self.fetch("healthy", 0, f"{ARGUMENTS}|0", called(0), (*WORDS, "-SetupDownloaderLink"))

    def test_product_need_not_be_installed(self):
        self.fetch("not-installed", 0, f"{ARGUMENTS}|1", called(0))

    def test_pairs_in_any_order_and_capitals(self):
        words = ("-PACKAGENAME", "Default", "-slurl", "https://console.example.net", "-ApiKey",
                 "k3y")
        self.fetch("healthy", 0, f"{ARGUMENTS}|1", called(0), words)

    def test_repeated_name_overwrites_and_the_missing_one_is_empty(self):
        words = ("-slUrl", "u", "-slUrl", "v", "-packageName", "p")
        self.fetch("healthy", 0, "v||p|1", called(0), words)

    def test_values_are_passed_on_untouched(self):
        words = ("-slUrl", "-apiKey", "-apiKey", "$(touch x) `y` \"z\"",
                 "-packageName", "für|alle\n")
        self.fetch("healthy", 0, "-apiKey|$(touch x) `y` \"z\"|für|alle\n|1", called(0), words)

    def test_bytes_that_are_no_characters(self):
        words = ("-slUrl", os.fsdecode(b"\xff\xfe"), "-apiKey", "", "-packageName", "p")
        self.fetch("healthy", 0, b"\xff\xfe||p|1", called(0), words)

    def test_long_answer(self):
        text = "https://links.example.net/" + "x" * 200_000
        self.fetch({"links": {"text": text}}, 0, text, called(0))

    def test_answer_with_a_nul_and_characters_beyond_ascii(self):
        text = "first\0zweite Übung"
        self.fetch({"links": {"text": text}}, 0, text, called(0))

    def test_empty_answer(self):
        self.fetch({"links": {"text": ""}}, 0, "", called(0))


class Failures(LinksCase):
    """One row of the failure table each; the answer is printed as far as there is one."""

    def test_functions_code_and_text_are_passed_on(self):
        self.fetch("links-fail", 7, "no such package", called(7))

    def test_functions_code_is_cut_off_by_the_exit_status_only(self):
        for code in (-1, 256, -2147483648, 2147483647):
            with self.subTest(code=code):
                self.fetch({"links": {"code": code, "text": "text"}}, code, "text", called(code))

    def test_no_library(self):
        self.fetch("links-missing", NO_SUCH_FILE, "", [
            *t.check_without_code(LIBRARY, NO_SUCH_FILE),
            f'Cannot check signature for "{LIBRARY}". Exit code: {NO_SUCH_FILE}'])

    def test_no_signature_of_the_makers(self):
        for wanted, outcome in (("links-unsigned", "invalid"),
                                ("links-other-maker", "other signer"),
                                ({"links": {"signature": "otherTeam"}}, "other signer"),
                                ({"links": {"signature": "tampered"}}, "invalid"),
                                ({"links": {"signature": "unknownRoot"}}, "invalid"),
                                ({"product": {"trust": "absent"}}, "invalid")):
            with self.subTest(scenario=wanted):
                self.fetch(wanted, 22, "", [*t.check(LIBRARY, outcome), REFUSED])

    def test_another_library_than_the_one_that_is_signed(self):
        with self.endpoint(scenario="healthy") as endpoint:
            place = endpoint.path(installation.WORKING_DIRECTORY)
            MEDIA.write_application(place / "Versions/Current")
            (place / "Info.plist").write_text(
                f"<plist><dict><key>CFBundleExecutable</key><string>{LIBRARY}</string></dict>"
                "</plist>")
            (place / f"{LIBRARY}.codesignature").unlink()
            run = self.run_tool_on(endpoint, "-getInstallationLink", *WORDS)
            self.assert_answer(run, 22, "")
            self.assert_log(run, whole([*t.check(LIBRARY, "invalid"), REFUSED], 22))

    def test_check_that_cannot_be_completed(self):
        for signature, outcome in (("adHoc", "no certificate"), ("noTeam", "no team")):
            with self.subTest(signature=signature):
                self.fetch({"links": {"signature": signature}}, 2, "", [
                    *t.check(LIBRARY, outcome),
                    f'Cannot check signature for "{LIBRARY}". Exit code: 2'])

    def test_not_loadable(self):
        self.fetch({"links": {"build": "notALibrary"}}, 35, "",
                   [*t.check(LIBRARY), "Library not found"])

    def test_without_the_function(self):
        self.fetch({"links": {"build": "withoutExport"}}, 2, "", [
            *t.check(LIBRARY), 'Set the "GetInstallationLinks" handle', "Handle not found"])


class Loading(LinksCase):
    """The library is loaded only when it has been accepted, and from where it was checked."""

    def trace(self, wanted, prepare=None):
        """The exit status, and what the loader says of the library when it is asked to."""
        with self.endpoint(scenario=wanted) as endpoint:
            if prepare is not None:
                prepare(endpoint)
            run = self.run_script_on(
                endpoint, f"LD_DEBUG=files exec $TOOL -getInstallationLink {' '.join(WORDS)}")
            return run.status, [line for line in run.errors.decode().splitlines()
                                if LIBRARY in line and "generating link map" in line]

    def test_loaded_by_its_full_path_and_not_searched_for(self):
        status, loaded = self.trace("healthy")
        self.assertEqual(status, 0)
        self.assertEqual(len(loaded), 1)
        self.assertIn(f"file={installation.WORKING_DIRECTORY}/{LIBRARY} ", loaded[0])

    def test_not_loaded_when_refused(self):
        for wanted in ("links-unsigned", "links-other-maker", "links-missing"):
            with self.subTest(scenario=wanted):
                status, loaded = self.trace(wanted)
                self.assertNotEqual(status, 0)
                self.assertEqual(loaded, [])

    def test_one_elsewhere_is_not_looked_for(self):
        def move(endpoint):
            source = endpoint.path(f"{installation.WORKING_DIRECTORY}/{LIBRARY}")
            for file in (source, source.with_name(f"{LIBRARY}.codesignature")):
                file.rename(endpoint.path(f"{installation.TOOL_DIRECTORY}/{file.name}"))

        status, loaded = self.trace("healthy", move)
        self.assertEqual((status, loaded), (NO_SUCH_FILE % 256, []))
