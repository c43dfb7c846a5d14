"""Tests of what is taken for code.

PYTHONPATH=tests/mutation python3 -m unittest test_mutants
"""

import unittest

from mutants import find


def labels(content: str) -> list[str]:
    return [mutant.label for mutant in find("a.cpp", content)]


class MutantsTest(unittest.TestCase):
    def test_operators_constants_and_statements_of_a_function(self):
        content = "int f(int a) {\n  g(a,\n    a);\n  if (!a && b(1'000)) {\n    ++a;\n  }\n  return a - 1;\n}\n"
        self.assertEqual(
            labels(content),
            [
                "left out",
                "'!' becomes ''",
                "'&&' becomes '||'",
                "'1'000' becomes '1001'",
                "'++' becomes '--'",
                "left out",
                "'-' becomes '+'",
                "'1' becomes '2'",
            ],
        )

    def test_mutants_differ_in_what_their_label_says_and_keep_the_lines(self):
        content = "void f() {\n  g(1,\n    b);\n  x = y + 2;\n}\n"
        found = {(mutant.line, mutant.label): mutant.apply(content) for mutant in find("", content)}
        self.assertEqual(found[2, "left out"], "void f() {\n  \n;\n  x = y + 2;\n}\n")
        self.assertEqual(found[4, "'+' becomes '-'"], content.replace("+", "-"))
        self.assertEqual(found[4, "'2' becomes '3'"], content.replace("2;", "3;"))
        self.assertEqual({text.count("\n") for text in found.values()}, {5})

    def test_what_is_not_code_is_left_alone(self):
        for content in (
            "// a < b\n",
            "/* a < b\n   + 1 */\n",
            'const char* text = "a < b + 1 // \\" 2";\n',
            "char c = '<';\n",
            "#define A(b) (b + 1)\n",
            "#if A \\\n    && B > 2\n",
            "  static_assert(a == 8, b);\n",
            "  LIBTCMALLOC_ASSERT(a < b &&\n                     c(2));\n",
            "template <class A, class B> A&& f(B& b, A* a);\n",
            "std::vector<int> v;\nint g(int);\nFoo bar(baz);\n",
            "  os << text << std::endl;\n",
        ):
            with self.subTest(content):
                self.assertEqual([label for label in labels(content) if label != "left out"], [])

    def test_conditions_without_an_operator_are_negated(self):
        self.assertEqual(labels("  if (ready(a)) {\n"), ["'ready(a)' negated"])
        self.assertEqual(labels("  if (a == b) {\n"), ["'==' becomes '!='"])

    def test_a_quoted_assertion_is_left_out_but_not_changed(self):
        self.assertEqual(labels("{\n  QRT_ASSERT(a == 1);\n}\n"), ["left out"])


if __name__ == "__main__":
    unittest.main()
