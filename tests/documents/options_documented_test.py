"""The contract, the manual page and the completions have the options of the dispatcher's table,
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


SYNOPSES = synopses_of("docs/contract.md", r"^## `(-.*)`$")


class OptionsDocumentedTest(unittest.TestCase):
    maxDiff = None

    def test_contract(self) -> None:
        self.assertEqual([synopsis.split()[0] for synopsis in SYNOPSES], NAMES)
        for option, synopsis in zip(OPTIONS, SYNOPSES):
            self.assertEqual(counts_of(synopsis), (option.least_words, option.most_words), synopsis)

    def test_each_has_an_example(self) -> None:
        shown = {name for document in ("README.md", "docs/contract.md") for name in synopses_of(
            document, r"^\$ \./kx run (?:--\S+ (?:[^-\s]\S* )?)*(-\w+)")}
        self.assertEqual(set(NAMES) - shown, set())

    def test_manual_page(self) -> None:
        text = (ROOT / "docs" / "KXTool.1").read_text(encoding="utf-8")
        description = re.search(r"^\.Sh DESCRIPTION\n(.*?)^\.Sh ", text, re.MULTILINE | re.DOTALL)
        items = re.findall(r"^\.It (Fl .*)$", description[1], re.MULTILINE)
        self.assertEqual([from_mdoc(item) for item in items], SYNOPSES)

    def test_exit_statuses(self) -> None:
        contract = synopses_of("docs/contract.md", r"^\| (\d+) \| [a-z]")
        self.assertGreater(len(contract), 10)
        self.assertEqual(synopses_of("docs/KXTool.1", r"^\.It (\d+)$"), contract)

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
                         {option.name for option in OPTIONS if option.most_words > 2})
        link_names = re.search(r"^  -getInstallationLink:\S+\) compadd -- (.*) ;;$", text,
                               re.MULTILINE)
        self.assertEqual(link_names[1].split(), LINK_NAMES)

    def test_link_arguments(self) -> None:
        synopsis = next(text for text in SYNOPSES if text.startswith("-getInst"))
        self.assertEqual(re.findall(r"-\w+", synopsis)[1:], [*LINK_NAMES, "-setupDownloaderLink"])


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
