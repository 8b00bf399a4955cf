"""The mutation check: which changes it makes, and what it says of them."""

import contextlib
import io
import pathlib
import tempfile
import textwrap
import unittest
from unittest import mock

from simulator import sandbox
from tests.mutation import mutate
from tests.mutation.operators import mutations


def changes(text, operator):
    """What one operator makes of a text: pairs of old and new."""
    return [(found.old, found.new) for found in mutations("a.cc", textwrap.dedent(text))
            if found.operator == operator]


class Operators(unittest.TestCase):
    def test_operators_between_blanks_are_swapped(self):
        self.assertEqual(changes("x = a < b == c;", "swapped comparison"),
                         [("<", "<="), ("<", ">"), ("==", "!=")])
        self.assertEqual(changes("x = a && !b || c;", "swapped logic"),
                         [("&&", "||"), ("||", "&&")])
        self.assertEqual(changes("x = a && !b;", "dropped not"), [("!", "")])
        self.assertEqual(changes("x = a + b *\n  c;", "swapped arithmetic"),
                         [("+", "-"), ("*", "/")])
        self.assertEqual(changes("++i;", "swapped step"), [("++", "--")])

    def test_types_are_left_alone(self):
        text = "std::map<int, T>& f(const T* a, T&& b) { return *a; }"
        self.assertEqual(mutations("a.cc", text), [])

    def test_constants_are_off_by_one(self):
        text = "a = 0; b = 9U; c = 0x10; d = 'a'; e1 = 1.5;"
        self.assertEqual(changes(text, "constant off by one"),
                         [("0", "1"), ("9", "10"), ("9", "8"), ("0x10", "0x11"), ("0x10", "0xf"),
                          ("'a'", "'b'")])
        self.assertEqual(changes("bool a = true;", "swapped truth"), [("true", "false")])

    def test_texts_become_others_of_the_file(self):
        self.assertEqual(changes('f("a"); f("\\"b"); f("a");', "swapped text"),
                         [('"a"', '"\\"b"'), ('"\\"b"', '"a"'), ('"a"', '"\\"b"')])
        self.assertEqual(changes('f("a");', "swapped text"), [('"a"', '"mutant"')])

    def test_conditions_are_negated(self):
        text = """
            void f() {
              if (a) g();
              if (const int b = g(1); b > 2) g();
              while (h(a) || c) g();
              for (int i = 0; i < 2; ++i) g();
              for (int i : c) g();
              if (a == b) g();
            }"""
        self.assertEqual(changes(text, "negated condition"),
                         [(condition, f"!({condition})")
                          for condition in ("a", "b > 2", "h(a) || c", "i < 2")])

    def test_statements_are_removed(self):
        text = """
            struct T { int a = 0; void f(); };
            int T::f() const {
              int b = 1;
              const T c{1, 2};
              if (b) return 1;
              for (int i : a) {
                g("a", [&] { h(i); });
                break;
              }
              else b = 2;
              switch (b) {
                case A::k: return 3;
              }
              T d = 1;
              return b;
            }"""
        self.assertEqual(changes(text, "removed statement"),
                         [(statement, "") for statement in
                          ('g("a", [&] { h(i); })', "h(i)", "break", "b = 2")])
        self.assertEqual(changes(text, "removed return"), [("return 1", ""), ("return 3", "")])

    def test_what_does_not_run_is_left_alone(self):
        for text in ('#include "a"', "// a == 1", '/* "b" */', 'extern "C" int f();',
                     'static_assert(1 == 1, "c");'):
            self.assertEqual(mutations("a.cc", text), [])

    def test_mutants_differ_in_that_one_place(self):
        text = "int f() { return 1; }\nint g() { return a == 1; }\n"
        swap = [found for found in mutations("a.cc", text) if found.old == "=="]
        self.assertEqual([found.apply(text) for found in swap], [text.replace("==", "!=")])
        self.assertEqual([str(found) for found in swap],
                         ["a.cc:2:20: swapped comparison: == -> !="])


_SOURCE = """\
int Larger(int left, int right) {
  if (left > right) return left;
  return right;
}
void Wait(long steps) {
  while (steps != 0) {
    --steps;
  }
}
const char kName[2] = "a";
"""
_CHECK = """\
int Larger(int left, int right);
void Wait(long steps);
int main() {
  if (Larger(2, 1) != 2 || Larger(1, %d) != 2) return 1;
  Wait(3);
}
"""


@unittest.skipIf(sandbox.refusal(), "mutants run in a sandbox")
class Verdicts(unittest.TestCase):
    """On a program of two files, whose tests say nothing of what comes of equal numbers."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()  # pylint: disable=consider-using-with
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.stages = (mutate.Stage(("larger.cc", "check.cc"), (("./check",),)),)

    def judge(self, expected_number):
        """The counts of the verdicts on all mutants, and what is printed."""
        (self.folder / "larger.cc").write_text(_SOURCE, encoding="utf-8")
        (self.folder / "check.cc").write_text(_CHECK % expected_number, encoding="utf-8")
        printed = io.StringIO()
        with mock.patch.object(mutate, "_PATIENCE", (10, 1)), contextlib.redirect_stdout(printed):
            counts = mutate.judge_all([mutate.Tree(self.folder, ["c++", "-o", "check"])],
                                      mutations("larger.cc", _SOURCE), lambda _: self.stages)
        self.assertEqual((self.folder / "larger.cc").read_text(encoding="utf-8"), _SOURCE)
        return counts, printed.getvalue()

    def test_tell_what_the_tests_notice(self):
        counts, printed = self.judge(2)
        self.assertEqual(counts, {
            # The comparison the other way round or negated, the return removed.
            mutate.NOTICED: 3,
            # No step, or upwards.
            mutate.ENDLESS: 2,
            # A text that is too long for the array, or the array too short.
            mutate.NOT_BUILT: 2,
            mutate.SURVIVED: 4})
        self.assertEqual(printed.splitlines(), [f"survived: larger.cc:{mutation}" for mutation in (
            "2:12: swapped comparison: > -> >=",
            "6:16: swapped comparison: != -> ==",
            "6:19: constant off by one: 0 -> 1",
            "10:18: constant off by one: 2 -> 3")])

    def test_are_none_where_the_unmutated_tree_fails(self):
        with self.assertRaisesRegex(SystemExit, r"the unmutated tree fails: \./check"):
            self.judge(3)

    def test_are_none_where_the_unmutated_tree_cannot_be_built(self):
        self.stages = (mutate.Stage(("missing.cc",), (("./check",),)),)
        with self.assertRaisesRegex(SystemExit, "the unmutated tree cannot be built"):
            self.judge(2)


class Stages(unittest.TestCase):
    def test_every_room_begins_with_its_own_tests(self):
        for room in mutate.ROOMS:
            stages = mutate.stages_of(f"{room}/file.cc")
            self.assertEqual(stages[0].build, (f"kx_{room}_tests",))
            self.assertEqual({target for stage in stages[:2] for target in stage.build},
                             {f"kx_{other}_tests" for other in (*mutate.ROOMS, "faults")})
            self.assertIn("KXTool", stages[3].build)


if __name__ == "__main__":
    unittest.main()
