"""The queries on a Mac: the documents' examples, run with the tool that ships against the stand-ins for
the product's libraries, which the simulator's signer has signed. A Mac has no sandbox for them, so the
test writes the product to the Mac's file system. It needs root and a machine without the product."""

import os
import pathlib
import shutil
import subprocess
import sys
import unittest

from simulator import endpoint as launcher
from simulator import installation, scenario
from tests.documents.examples_test import assert_shown, console_examples
from tests.end_to_end.harness import BUILD, ToolRun, read_log

# The folders to which the stand-ins are written.
FOLDERS = ("/Library/Corvane", "/Library/Application Support/Halvard",
           installation.CALLER_DIRECTORY, installation.TOOL_DIRECTORY)
# These need the service processes and the installers of a sandbox.
NOT_QUERIES = ("-detect", "-runInstaller", "-runSetupDownloader")


@unittest.skipUnless(sys.platform == "darwin" and os.geteuid() == 0, "needs root on a Mac")
class QueriesTest(unittest.TestCase):
    maxDiff = None

    def setUp(self) -> None:
        taken = [folder for folder in FOLDERS if os.path.exists(folder)]
        if taken:
            self.fail(f"the product may be installed: found {', '.join(taken)}")
        self.addCleanup(self.remove)

    @staticmethod
    def remove() -> None:
        for folder in FOLDERS:
            shutil.rmtree(folder, ignore_errors=True)

    def run_tool(self, *words: str, scenario_name: str = scenario.DEFAULT,
                 layout: int | None = None, logging: bool = False) -> ToolRun:
        complete = scenario.load(scenario_name)
        complete["product"]["services"] = []
        if layout is not None:
            complete["product"]["layout"] = layout
        self.remove()
        installation.Installation(pathlib.Path("/"), BUILD).write_answers(complete)
        tool = pathlib.Path(installation.TOOL)
        tool.parent.mkdir(parents=True)
        shutil.copy(BUILD / tool.name, tool)
        if logging:
            tool.with_name("configfile.txt").write_text("Logging=true\n", encoding="utf-8")
        run = subprocess.run([tool, *words], cwd=installation.WORKING_DIRECTORY, check=False,
                             stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
        return ToolRun(run.returncode, run.stdout, run.stderr,
                       read_log(pathlib.Path(installation.LOG)), [])

    def test_answer_as_the_documents_say(self) -> None:
        for document, command, expected in console_examples():
            options, words = launcher.parse(command.split())
            if words[0] in NOT_QUERIES:
                continue
            with self.subTest(document=document, command=command):
                run = self.run_tool(*words, scenario_name=options.scenario, layout=options.layout,
                                    logging=options.log)
                self.assertEqual(run.errors, b"")
                assert_shown(self, run, options.log, expected)

    def test_use_no_library_of_another_vendor(self) -> None:
        for name in ("library-other-vendor", "library-other-team"):
            with self.subTest(scenario=name):
                run = self.run_tool("-getProductVersion", scenario_name=name, logging=True)
                self.assertEqual((run.status, run.output), (22, b""))
                self.assertIn("Check complete. File is not signed by Corvane", run.log)


if __name__ == "__main__":
    unittest.main()
