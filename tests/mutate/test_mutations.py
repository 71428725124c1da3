#!/usr/bin/env python3
"""Which changes scripts/mutate would make to a source, and that it leaves the rest alone."""

import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "lib"))
from mutations import mutations_in  # noqa: E402


def changes(text):
    """What could be changed: place, kind, and the text before and after."""
    return [
        (f"{m.line}:{m.column}", m.kind, text[m.start : m.end], m.replacement)
        for m in mutations_in("a.cpp", text)
    ]


def changes_in_body(body):
    """Likewise of a function's body, without places."""
    return [change[1:] for change in changes(f"void f() {{\n  {body}\n}}\n")]


class Mutations(unittest.TestCase):
    def test_constants(self):
        self.assertEqual(
            changes("constexpr int kBig = 1'000u;\nconst mode_t kMode = 0666;\nconst bool kOn = true;\n"),
            [
                ("1:22", "constant", "1'000u", "1001u"),
                ("2:22", "constant", "0666", "0667"),
                ("3:18", "constant", "true", "false"),
            ],
        )
        self.assertEqual(changes("const char kC = '\\0';\n"), [("1:17", "constant", "'\\0'", "'~'")])

    def test_messages_keep_their_end_of_line(self):
        self.assertEqual(
            changes('const char* a = "[%s] x\\n";\nconst char* b = "";\n'),
            [("1:17", "message", '"[%s] x\\n"', '"[%s] x~\\n"'), ("2:17", "message", '""', '"~"')],
        )

    def test_what_does_not_run_is_left_alone(self):
        self.assertEqual(changes('#include "a.h"\n#define A \\\n  1\n// 1 == 2\n/* "x" */\n'), [])
        self.assertEqual(changes('static_assert(sizeof(int) == 4, "four");\n'), [])
        self.assertEqual(changes_in_body('throw "never seen";'), [])

    def test_operators_are_told_from_brackets_and_references(self):
        self.assertEqual(
            changes_in_body("const bool b = static_cast<int>(x) < y;"),
            [("boundary", "<", "<=")],
        )
        self.assertEqual(changes_in_body("auto&& [a, b] = pair;"), [])
        self.assertEqual(changes_in_body("const int n = -a * +b;"), [("arithmetic", "*", "/")])

    def test_conditions(self):
        self.assertEqual(
            changes_in_body("if (ready()) g();"),
            [("condition", "ready()", "!(ready())"), ("statement", "g();", ";")],
        )
        self.assertEqual(
            changes_in_body("if (int n = count(); n > k) g();")[0],
            ("condition", "n > k", "!(n > k)"),
        )
        # To negate an equation is to turn its operator around, which is there already.
        self.assertEqual(
            changes_in_body("if (a == b) g();"),
            [("comparison", "==", "!="), ("statement", "g();", ";")],
        )
        self.assertEqual(changes_in_body("const int n = on ? a : b;"), [("condition", "a : b", "b : a")])
        self.assertEqual(
            changes_in_body("if (a && b) g();")[:2],
            [("condition", "a && b", "!(a && b)"), ("logic", "&&", "||")],
        )

    def test_statements(self):
        self.assertEqual(changes_in_body("::chmod(p, m);")[0], ("statement", "::chmod(p, m);", ";"))
        self.assertEqual(changes_in_body("a.b[i] = c;"), [("statement", "a.b[i] = c;", ";")])
        for declaration in ("const T a(b);", "T a = b;", "T* a = b;", "T& a = b;", "v<T> a{};", "struct s a {};"):
            self.assertEqual(changes_in_body(declaration), [], declaration)
        self.assertEqual(
            changes_in_body("for (T i = a; i < b; i = c) g();"),
            [("boundary", "<", "<="), ("statement", "g();", ";")],
        )
        self.assertEqual(
            changes_in_body("call([a] {\n    return a;\n  });"),
            [("statement", "call([a] {\n    return a;\n  });", ";")],
        )

    def test_only_an_early_end_is_taken_away(self):
        self.assertEqual(
            changes_in_body("if (a) return b;\n  return c;"),
            [("condition", "a", "!(a)"), ("jump", "return b;", ";")],
        )
        self.assertEqual(
            changes_in_body("while (a) {\n    if (b) break;\n  }")[-1], ("jump", "break;", ";")
        )
        self.assertEqual(changes_in_body("return {{a, b}, {c, d}};"), [])

    def test_arguments(self):
        self.assertEqual(
            [c for c in changes_in_body("g(a, h(b, c), a);") if c[0] == "arguments"],
            [
                ("arguments", "a, h(b, c)", "h(b, c), a"),
                ("arguments", "h(b, c), a", "a, h(b, c)"),
                ("arguments", "b, c", "c, b"),
            ],
        )
        # A declaration's parameters are no arguments.
        self.assertEqual(changes("int f(int a, int b);\n"), [])

    def test_a_change_applied(self):
        text = "constexpr int kTen = 10;\n"
        (only,) = mutations_in("kernel/a.cpp", text)
        self.assertEqual(only.id, "kernel/a.cpp:1:22:constant")
        self.assertEqual(only.applied_to(text), "constexpr int kTen = 11;\n")


if __name__ == "__main__":
    unittest.main()
