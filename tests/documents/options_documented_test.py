"""The README, the manual page and the completions have the options of the dispatcher's table,
all of them, in its order, with as many arguments as it takes."""

import re
import shutil
import subprocess
import unittest

from tests.documents import option_table
from tests.documents.option_table import DOCUMENTS, ROOT

OPTIONS = option_table.options()
NAMES = [option.name for option in OPTIONS]
BASH_COMPLETIONS = ROOT / "packaging" / "completions" / "KXTool.bash"
# Numbers that are no exit status: of a configuration file that cannot be used, and of a scan.
INNER_CODES = {"9", "5023"}
LINK_NAMES = ["-slUrl", "-apiKey", "-packageName"]


def counts_of(synopsis: str) -> tuple[int, int]:
    """The least and the largest count of words, the program name included."""
    optional = re.findall(r"\[([^]]*)\]", synopsis)
    least = 1 + len(re.sub(r"\[[^]]*\]", "", synopsis).split())
    return least, least + sum(len(part.split()) for part in optional)


def synopses_of(document: str, pattern: str) -> list[str]:
    text = (ROOT / document).read_text(encoding="utf-8")
    return re.findall(pattern, text, re.MULTILINE)


def from_mdoc(item: str) -> str:
    """`Fl a Ar b Op Ar c`, the head of an item of the manual page, as `-a <b> [<c>]`."""
    required, _, optional = item.partition(" Op ")
    words = []
    for part in filter(None, (required, optional)):
        text = re.sub(r"\bFl (\w+)", r"-\1", part)
        text = re.sub(r"\bAr (\w+)", r"<\1>", text)
        words.append(f"[{text}]" if part is optional else text)
    return " ".join(words)


README_SYNOPSES = synopses_of("README.md", r"^\| `(-[^`]*)` \|")


class OptionsDocumentedTest(unittest.TestCase):
    maxDiff = None

    def assert_synopses(self, synopses: list[str]) -> None:
        self.assertEqual(synopses, README_SYNOPSES)

    def test_readme(self) -> None:
        self.assertEqual([synopsis.split()[0] for synopsis in README_SYNOPSES], NAMES)
        for option, synopsis in zip(OPTIONS, README_SYNOPSES):
            self.assertEqual(counts_of(synopsis), (option.minimum_count, option.maximum_count),
                             synopsis)

    def test_readme_has_an_example_of_each(self) -> None:
        readme = (ROOT / "README.md").read_text(encoding="utf-8")
        in_table = re.findall(r"^\| `(-\w+).* \| `([^`]*)` \|$", readme, re.MULTILINE)
        self.assertEqual([name for name, _ in in_table], NAMES)
        runs = re.findall(r"^\$ \./kx run (?:--\S+ (?:[^-\s]\S* )?)*(-\w+).*\n(.*)\n", readme,
                          re.MULTILINE)
        self.assertEqual(set(name for name, _ in runs), set(NAMES))
        for name, answer in in_table:
            self.assertIn((name, answer.replace(r"\|", "|")), runs)

    def test_manual_page(self) -> None:
        text = (ROOT / "docs" / "KXTool.1").read_text(encoding="utf-8")
        description = re.search(r"^\.Sh DESCRIPTION\n(.*?)^\.Sh ", text, re.MULTILINE | re.DOTALL)
        items = re.findall(r"^\.It (Fl .*)$", description[1], re.MULTILINE)
        self.assert_synopses([from_mdoc(item) for item in items])

    def test_codes(self) -> None:
        readme = synopses_of("README.md", r"^\| (\d+) \|")
        self.assertEqual(synopses_of("docs/KXTool.1", r"^\.It (\d+)$"), readme)
        source = synopses_of("app/error_codes.h", r"^inline constexpr int k\w+ = (\d+);")
        self.assertLessEqual(set(readme), set(source))
        self.assertEqual(set(source) - set(readme), INNER_CODES)

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is not installed")
    def test_manual_page_is_well_formed(self) -> None:
        check = subprocess.run(["mandoc", "-Tlint", str(ROOT / "docs" / "KXTool.1")],
                               capture_output=True, text=True, check=False)
        self.assertEqual((check.returncode, check.stdout), (0, ""))

    def completed_by_bash(self, *words: str) -> list[str]:
        """What bash offers for the last of the words behind the program name."""
        script = ('source "$1"; COMP_WORDS=("${@:2}"); COMP_CWORD=$(($# - 2)); _kxtool; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        run = subprocess.run(
            ["bash", "-c", script, "bash", str(BASH_COMPLETIONS), "KXTool", *words],
            cwd=ROOT / "tests" / "documents", capture_output=True, text=True, check=True)
        self.assertEqual(run.stderr, "")
        return run.stdout.split()

    def test_bash_completions(self) -> None:
        self.assertEqual(self.completed_by_bash("-"), NAMES)
        self.assertEqual(self.completed_by_bash("-startF"), ["-startFullScan"])
        for name in ("-runInstaller", "-runSetupDownloader"):
            self.assertEqual(self.completed_by_bash(name, "option_t"), ["option_table.py"])
        for behind in ([], ["-slUrl", "u"], ["-slUrl", "u", "-apiKey", "k"]):
            self.assertEqual(self.completed_by_bash("-getInstallationLink", *behind, ""),
                             LINK_NAMES)
        pairs = [word for name in LINK_NAMES for word in (name, "value")]
        self.assertEqual(self.completed_by_bash("-getInstallationLink", *pairs, ""),
                         ["-setupDownloaderLink"])
        self.assertEqual(self.completed_by_bash("-detect", ""), [])

    def test_zsh_completions(self) -> None:
        text = (ROOT / "packaging" / "completions" / "_KXTool").read_text(encoding="utf-8")
        self.assertEqual(re.findall(r"^  '(-\w+):[^']+'$", text, re.MULTILINE), NAMES)
        taking_words = {name for line in re.findall(r"^  (-\S+)\) ", text, re.MULTILINE)
                        for name in re.findall(r"-\w+", line)}
        self.assertEqual(taking_words,
                         {option.name for option in OPTIONS if option.maximum_count > 2})
        link_names = re.search(r"^  -getInstallationLink:\S+\) compadd -- (.*) ;;$", text,
                               re.MULTILINE)
        self.assertEqual(link_names[1].split(), LINK_NAMES)

    def test_link_arguments(self) -> None:
        synopsis = next(text for text in README_SYNOPSES if text.startswith("-getInst"))
        source = (ROOT / "app" / "options.cc").read_text(encoding="utf-8")
        accepted = re.findall(r'EqualsIgnoringCase\([^,]+, "(-\w+)"\)', source)
        self.assertEqual(re.findall(r"-\w+", synopsis)[1:], accepted)
        self.assertEqual(accepted[:-1], LINK_NAMES)


class LinksTest(unittest.TestCase):
    def test_lead_somewhere(self) -> None:
        for document in DOCUMENTS:
            text = document.read_text(encoding="utf-8")
            for target, anchor in re.findall(r"\]\(([^)#:]*)(?:#([^)]*))?\)", text):
                path = document.parent / target if target else document
                self.assertTrue(path.exists(), f"{document.name}: {target}")
                if anchor:
                    headings = re.findall("^#+ (.*)$", path.read_text(encoding="utf-8"), re.MULTILINE)
                    self.assertIn(anchor, [heading.lower().replace(" ", "-") for heading in headings])


if __name__ == "__main__":
    unittest.main()
