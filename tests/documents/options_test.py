"""The documents and the completions have the options of the tool's table."""

import re
import subprocess
import unittest

from tests.documents import pages
from tests.documents.pages import ROOT, read

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


if __name__ == "__main__":
    unittest.main()
