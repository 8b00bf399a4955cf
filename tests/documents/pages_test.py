"""The documents agree with the sources: options, completions, links, modules, tests and libraries."""

import re
import shutil
import subprocess
import unittest

from tests.checks import layering
from tests.documents import pages
from tests.documents.pages import BUILD, DOCUMENTS, ROOT, read

OPTIONS = pages.options()
NAMES = [option.name for option in OPTIONS]
LINK_NAMES = ["-slUrl", "-apiKey", "-packageName"]
SYNOPSES = re.findall(r"^## `(-.*)`$", read("docs/contract.md"), re.MULTILINE)


def counts_of(synopsis: str) -> tuple[int, int]:
    """The smallest and the largest count of words, including the program name."""
    optional = re.findall(r"\[([^]]*)\]", synopsis)
    least = 1 + len(re.sub(r"\[[^]]*\]", "", synopsis).split())
    return least, least + sum(len(part.split()) for part in optional)


def from_mdoc(item: str) -> str:
    """Turns the head of an item of the manual page, `Fl a Ar b Op Ar c`, into `-a <b> [<c>]`."""
    required, _, optional = item.partition(" Op ")
    words = []
    for part in filter(None, (required, optional)):
        text = re.sub(r"\bFl (\w+)", r"-\1", part)
        text = re.sub(r"\bAr (\w+)", r"<\1>", text)
        words.append(f"[{text}]" if part is optional else text)
    return " ".join(words)


class OptionsTest(unittest.TestCase):
    maxDiff = None

    def test_contract(self) -> None:
        self.assertEqual([synopsis.split()[0] for synopsis in SYNOPSES], NAMES)
        for option, synopsis in zip(OPTIONS, SYNOPSES):
            self.assertEqual(counts_of(synopsis), (option.least_words, option.most_words), synopsis)

    def test_each_has_an_example(self) -> None:
        shown = re.findall(r"^\$ \./kx run (?:--\S+ (?:[^-\s]\S* )?)*(-\w+)",
                           read("README.md") + read("docs/contract.md"), re.MULTILINE)
        self.assertEqual(set(NAMES) - set(shown), set())

    def test_manual_page(self) -> None:
        text = read("docs/KXTool.1")
        description = re.search(r"^\.Sh DESCRIPTION\n(.*?)^\.Sh ", text, re.MULTILINE | re.DOTALL)
        items = re.findall(r"^\.It (Fl .*)$", description[1], re.MULTILINE)
        self.assertEqual([from_mdoc(item) for item in items], SYNOPSES)
        contract = re.findall(r"^\| (\d+) \| [a-z]", read("docs/contract.md"), re.MULTILINE)
        self.assertGreater(len(contract), 10)
        self.assertEqual(re.findall(r"^\.It (\d+)$", text, re.MULTILINE), contract)

    def completed_by_bash(self, *words: str) -> list[str]:
        """What bash offers for the last of the words after the program name."""
        script = ('source "$1"; COMP_WORDS=("${@:2}"); COMP_CWORD=$(($# - 2)); _kxtool; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        completions = ROOT / "packaging" / "completions" / "KXTool.bash"
        run = subprocess.run(["bash", "-c", script, "bash", str(completions), "KXTool", *words],
                             cwd=ROOT / "docs", capture_output=True, text=True, check=True)
        self.assertEqual(run.stderr, "")
        return run.stdout.split()

    def test_bash_completions(self) -> None:
        self.assertEqual(self.completed_by_bash("-"), NAMES)
        self.assertEqual(self.completed_by_bash("-startF"), ["-startFullScan"])
        for name in ("-runInstaller", "-runSetupDownloader"):
            self.assertEqual(self.completed_by_bash(name, "contr"), ["contract.md"])
        pairs = [word for name in LINK_NAMES for word in (name, "value")]
        for before in ([], pairs[:2], pairs[:4]):
            self.assertEqual(self.completed_by_bash("-getInstallationLink", *before, ""), LINK_NAMES)
        self.assertEqual(self.completed_by_bash("-getInstallationLink", *pairs, ""), ["-setupDownloaderLink"])
        self.assertEqual(self.completed_by_bash("-detect", ""), [])

    def test_zsh_completions(self) -> None:
        text = read("packaging/completions/_KXTool")
        self.assertEqual(re.findall(r"^  '(-\w+):[^']+'$", text, re.MULTILINE), NAMES)
        taking_words = {name for line in re.findall(r"^  (-\S+)\) ", text, re.MULTILINE)
                        for name in re.findall(r"-\w+", line)}
        self.assertEqual(taking_words, {option.name for option in OPTIONS if option.most_words > 2})
        link_names = re.search(r"^  -getInstallationLink:\S+\) compadd -- (.*) ;;$", text, re.MULTILINE)
        self.assertEqual(link_names[1].split(), LINK_NAMES)


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
