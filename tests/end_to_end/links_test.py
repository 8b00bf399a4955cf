"""Fetching installation links through the vendor's library in the working directory."""

import os

from simulator import installation
from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase
from tests.end_to_end.installer_case import MEDIA

WORDS = ("-slUrl", "https://console.example.net", "-apiKey", "k3y", "-packageName", "Default")
ARGUMENTS = "https://console.example.net|k3y|Default"
LIBRARY = "libsl.dylib"
NO_SUCH_FILE = -67068  # the status of the signature check for a missing file
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
    """Compares answers and whole logs."""

    def fetch(self, wanted, code, output, lines, words=WORDS):
        run = self.run_tool("-getInstallationLink", *words, scenario=wanted)
        self.assert_answer(run, code % 256, output)
        self.assert_log(run, whole(lines, code))


class Success(LinksCase):
    """The library is called."""

    def test_whole_transcript(self):
        self.fetch("healthy", 0, f"{ARGUMENTS}|1", called(0))

    def test_product_need_not_be_installed(self):
        self.fetch("not-installed", 0, f"{ARGUMENTS}|1", called(0))

    def test_any_order_and_any_case_with_the_switch(self):
        words = ("-PACKAGENAME", "Default", "-slurl", "https://console.example.net", "-ApiKey",
                 "k3y", "-SetupDownloaderLink")
        self.fetch("healthy", 0, f"{ARGUMENTS}|0", called(0), words)

    def test_last_value_of_a_name_counts_and_missing_ones_are_empty(self):
        words = ("-slUrl", "u", "-slUrl", "v", "-packageName", "p")
        self.fetch("healthy", 0, "v||p|1", called(0), words)

    def test_values_are_passed_on_untouched(self):
        words = ("-slUrl", os.fsdecode(b"-apiKey \xff\xfe"), "-apiKey", "$(touch x) `y` \"z\"",
                 "-packageName", "für|alle\n")
        self.fetch("healthy", 0, b"-apiKey \xff\xfe|$(touch x) `y` \"z\"|f\xc3\xbcr|alle\n|1",
                   called(0), words)

    def test_answers_are_printed_as_they_are(self):
        for text in ("https://links.example.net/" + "x" * 200_000, "first\0zweite Übung", ""):
            self.fetch({"links": {"text": text}}, 0, text, called(0))


class Failures(LinksCase):
    """Each row of the failure table. Whatever the function has answered is printed."""

    def test_code_and_text_of_the_function_are_passed_on(self):
        self.fetch("links-fail", 7, "no such package", called(7))
        self.fetch({"links": {"code": -2147483648, "text": "text"}}, -2147483648, "text",
                   called(-2147483648))

    def test_no_library(self):
        self.fetch("links-missing", NO_SUCH_FILE, "", [
            *t.check_without_code(LIBRARY, NO_SUCH_FILE),
            f'Cannot check signature for "{LIBRARY}". Exit code: {NO_SUCH_FILE}'])

    def test_library_of_another_vendor(self):
        for wanted, outcome in (("links-unsigned", "invalid"),
                                ("links-other-vendor", "other signer")):
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
        self.fetch({"links": {"signature": "adHoc"}}, 2, "", [
            *t.check(LIBRARY, "no certificate"),
            f'Cannot check signature for "{LIBRARY}". Exit code: 2'])

    def test_not_loadable(self):
        self.fetch({"links": {"build": "notALibrary"}}, 35, "",
                   [*t.check(LIBRARY), "Library not found"])

    def test_without_the_function(self):
        self.fetch({"links": {"build": "withoutExport"}}, 2, "", [
            *t.check(LIBRARY), 'Set the "GetInstallationLinks" handle', "Handle not found"])


class Loading(LinksCase):
    """The library is loaded only if it was accepted, and by the path that was checked."""

    def trace(self, wanted, prepare=None):
        """The exit status, and what the loader reports about the library."""
        with self.endpoint(scenario=wanted) as endpoint:
            if prepare is not None:
                prepare(endpoint)
            run = self.run_script_on(
                endpoint, f"LD_DEBUG=files exec $TOOL -getInstallationLink {' '.join(WORDS)}")
            return run.status, [line for line in run.errors.decode().splitlines()
                                if LIBRARY in line and "generating link map" in line]

    def test_loaded_by_its_full_path(self):
        status, loaded = self.trace("healthy")
        self.assertEqual(status, 0)
        self.assertEqual(len(loaded), 1)
        self.assertIn(f"file={installation.WORKING_DIRECTORY}/{LIBRARY} ", loaded[0])

    def test_not_loaded_if_refused(self):
        for wanted in ("links-unsigned", "links-other-vendor", "links-missing"):
            with self.subTest(scenario=wanted):
                status, loaded = self.trace(wanted)
                self.assertNotEqual(status, 0)
                self.assertEqual(loaded, [])

    def test_library_elsewhere_is_not_searched_for(self):
        def move(endpoint):
            source = endpoint.path(f"{installation.WORKING_DIRECTORY}/{LIBRARY}")
            for file in (source, source.with_name(f"{LIBRARY}.codesignature")):
                file.rename(endpoint.path(f"{installation.TOOL_DIRECTORY}/{file.name}"))

        status, loaded = self.trace("healthy", move)
        self.assertEqual((status, loaded), (NO_SUCH_FILE % 256, []))
