"""The documents agree with each other and with the sources: links, modules, tests and libraries."""

import re
import shutil
import subprocess
import unittest

from tests.checks import layering
from tests.documents.pages import BUILD, DOCUMENTS, ROOT, read


class PagesTest(unittest.TestCase):
    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is not installed")
    def test_manual_pages_are_well_formed(self) -> None:
        for page in sorted((ROOT / "docs").glob("*.1")):
            check = subprocess.run(["mandoc", "-Tlint", "-Wwarning", page], capture_output=True, text=True,
                                   check=False)
            self.assertEqual((check.returncode, check.stdout), (0, ""))

    def test_links_have_targets(self) -> None:
        for document in DOCUMENTS:
            text = document.read_text(encoding="utf-8")
            for target, anchor in re.findall(r"\]\(([^)#:]*)(?:#([^)]*))?\)", text):
                path = document.parent / target if target else document
                self.assertTrue(path.exists(), f"{document.name}: {target}")
                if anchor:
                    headings = re.findall("^#+ (.*)$", path.read_text(encoding="utf-8"), re.MULTILINE)
                    self.assertIn(anchor, [re.sub(r"[^\w -]", "", heading).lower().replace(" ", "-")
                                           for heading in headings])

    def test_modules(self) -> None:
        modules = dict(re.findall(r"^\| `(\w+)` \| [^|]+ \| ([^|]+) \|$", read("docs/architecture.md"),
                                re.MULTILINE))
        others = {"all others": set(layering.MAY_INCLUDE) - {"app"}, "nothing": set()}
        described = {module: others[builds_on] if builds_on in others else set(re.findall(r"\w+", builds_on))
                     for module, builds_on in modules.items()}
        self.assertEqual(described, layering.MAY_INCLUDE)

    def test_each_threat_has_tests(self) -> None:
        listing = subprocess.run(["ctest", "--test-dir", BUILD, "--show-only"], check=True,
                                 capture_output=True, text=True).stdout
        known = re.findall(r"^ *Test +#\d+: (\S+)", listing, re.MULTILINE)
        self.assertGreater(len(known), 500)
        table = read("docs/security.md").split("| threat |", 1)[1].split("\n\n", 1)[0]
        rows = [row.strip("|").split("|") for row in table.splitlines()[2:]]
        self.assertGreater(len(rows), 20)
        for threat, _, tests in rows:
            names = re.findall(r"`([^`]+)`", tests)
            self.assertTrue(names, threat)
            for name in names:
                self.assertTrue(any(test.startswith(name) for test in known), name)

    def test_notices_name_what_is_linked(self) -> None:
        """The static libraries of the release build, and the header-only libraries."""
        notices = read("packaging/NOTICES").lower()
        libraries = {name for description in (ROOT / "platform").rglob("CMakeLists.txt")
                     for name in re.findall(r"\blib(\w+)\.a\b|find_package\((OpenSSL)",
                                            description.read_text())}
        names = {library.lower() or package.lower() for library, package in libraries}
        self.assertLessEqual({"openssl", "uuid"}, names)
        for name in names | {"rapidjson", "rapidxml", "libstdc++", "libgcc"}:
            self.assertIn(name, notices)


if __name__ == "__main__":
    unittest.main()
