"""Tests of what the driver makes of figures.

PYTHONPATH=bench/suite python3 -m unittest driver.test_driver
"""

import json
import unittest

from . import machine, plan, tables
from .figures import Figure, Key, advantage, ratio, read_lines, size_value
from .run import Failure, Results
from .targets import TARGETS, judge, unmeasured


def line(**changes) -> str:
    record = {"workload": "hotpin", "peer": "store", "variant": "random", "size": "1e6"}
    return json.dumps({**record, "unit": "ns", "value": 5, **changes})


def figure(peer: str, *values: float, **changes) -> Figure:
    of = {"workload": "hotpin", "limited": False, "size": "1e6", "variant": "random", "unit": "ns"}
    return Figure(Key(peer=peer, **{**of, **changes}), list(values))


def keyed(*figures: Figure) -> dict[Key, Figure]:
    return {figure.key: figure for figure in figures}


def look(compute: float, memory: float, load: float = 1.0, stolen: int = 0) -> machine.Calibration:
    times = {"compute": compute, "memory": memory}
    return machine.Calibration("00:00:00", times, load, 1000 if stolen else 0, stolen)


class FiguresTest(unittest.TestCase):
    def test_lines_are_read_and_others_refused(self):
        found = read_lines(line() + "\n\n" + line(variant="build", value=1.5e9) + "\n", True)
        self.assertEqual([value for _, value in found], [5.0, 1.5e9])
        self.assertTrue(found[0][0].limited)
        self.assertEqual(read_lines("\n", False), [])
        wrong = (
            "hello",
            "[1]",
            "7",
            '{"workload": "hotpin"}',
            line(value="5"),
            line(value=True),
            line(value=float("nan")),
            line(peer=7),
            line(unit="furlong"),
            line() + "\n" + line(value=6),
        )
        for text in wrong:
            with self.subTest(text), self.assertRaises(ValueError):
                read_lines(text, False)

    def test_median_and_noise(self):
        odd = figure("store", 9, 10, 30)
        self.assertEqual((odd.median, odd.spread, odd.noisy), (10, 2.1, True))
        self.assertEqual(figure("store", 10, 12).median, 11)
        self.assertFalse(figure("store", 100, 110, 114).noisy)
        self.assertFalse(figure("store", 0, 0).noisy)
        self.assertTrue(figure("store", 0, 0, 1).noisy)

    def test_ratios_go_round_by_round(self):
        quotient = ratio(figure("a", 10, 22, 30), figure("b", 5, 11, 10))
        self.assertEqual((quotient.median, quotient.low, quotient.high), (2.2, 2, 3))
        self.assertIsNone(ratio(figure("a", 1), figure("b", 0)))
        self.assertEqual(advantage(figure("a", 5), figure("b", 10)).median, 2)
        rates = (figure("a", 5, unit="1/s"), figure("b", 10, unit="1/s"))
        self.assertEqual(advantage(*rates).median, 0.5)

    def test_sizes(self):
        self.assertEqual([size_value(size) for size in ("1e6", "64M", "2G")], [1e6, 2**26, 2**31])
        self.assertIsNone(size_value("8..256"))
        self.assertIsNone(size_value(""))


class TargetsTest(unittest.TestCase):
    def answers(self, *figures: Figure) -> list[tuple[bool | None, bool]]:
        return [(verdict.reached, verdict.in_noise) for verdict in judge(keyed(*figures))]

    def test_times_against_one_peer_and_against_the_best_of_several(self):
        table, bdb, sqlite = (
            figure("pointer table", 10),
            figure("bdb pool", 40),
            figure("sqlite", 300),
        )
        own = figure("store", 14.9)
        self.assertEqual(self.answers(own, table, bdb, sqlite), [(True, False), (True, False)])
        own = figure("store", 16.1)
        self.assertEqual(self.answers(own, table, bdb, sqlite), [(False, False), (False, False)])

    def test_rounds_that_say_otherwise_are_told(self):
        table = figure("pointer table", 10, 10, 10)
        self.assertIn((True, True), self.answers(figure("store", 14, 14.5, 15.5), table))
        self.assertIn((False, True), self.answers(figure("store", 14, 15.5, 16), table))

    def test_numbers(self):
        of = {"workload": "churn", "variant": "bytes a byte fresh", "unit": "bytes/byte"}
        self.assertEqual(self.answers(figure("store", 1.14, **of)), [(True, False)])
        self.assertEqual(self.answers(figure("store", 1.16, **of)), [(False, False)])

    def test_limited_runs_have_targets_of_their_own(self):
        of = {"workload": "paging", "variant": "scan", "unit": "1/s", "size": "2G"}
        both = [
            figure(peer, value, limited=limited, **of)
            for limited in (False, True)
            for peer, value in (("store", 200), ("sqlite", 100))
        ]
        self.assertEqual(self.answers(*both), [(False, False), (True, False)])

    def test_what_is_missing_is_told(self):
        self.assertEqual(self.answers(figure("store", 5)), [(None, False), (None, False)])
        self.assertEqual(self.answers(figure("sqlite", 5)), [])
        self.assertEqual(len(unmeasured({}, {"hotpin"})), 2)
        self.assertEqual(unmeasured(keyed(figure("store", 5)), {"hotpin"}), [])

    def test_every_target_is_of_a_workload_and_in_words(self):
        for target in TARGETS:
            self.assertIn(target.own, plan.WORKLOADS[target.workload].own)
            self.assertTrue(target.wording())


class MachineTest(unittest.TestCase):
    def test_a_machine_that_does_not_keep_still_is_told(self):
        self.assertEqual(machine.complaints([look(2, 100), look(2.05, 110)]), [])
        self.assertEqual(len(machine.complaints([look(2, 100), look(2.2, 130)])), 2)
        self.assertEqual(len(machine.complaints([look(2, 100), look(2, 100, load=3)])), 1)
        self.assertEqual(len(machine.complaints([look(2, 100), look(2, 100, stolen=900)])), 1)


class TablesTest(unittest.TestCase):
    def test_numbers_are_short(self):
        values = (0, 0.01234, 1.25, 12.34, 123.4, 1234, 12345, 999_999, 2_040_000, 3.5e9)
        shown = ["0", "0.0123", "1.25", "12.3", "123", "1234", "12.3k", "1.00M", "2.04M", "3.50G"]
        self.assertEqual([tables.brief(value) for value in values], shown)

    def test_failures_noise_and_gaps_are_reported(self):
        results = Results(looks=[look(2, 100), look(3, 100)], skipped=["paging: no room"])
        results.figures = keyed(figure("store", 5, 9), figure("pointer table", 4, 4))
        case = plan.Case(plan.WORKLOADS["hotpin"], ("--objects", "1e6"))
        results.failures = [Failure(case, "sqlite", "status 1: disk | full")]
        report = tables.markdown(results, plan.QUICK, {"kernel": "1"}, {"hotpin"})
        for part in (
            "This was a quick run",
            "Median of 2 interleaved rounds",
            "too noisy",
            "paging: no room",
            "## Pin, read, dismiss\n\n![Pin, read, dismiss](hotpin.svg)",
            "| **store** | ~7.00 (5.00–9.00) ∣ 1.75 |",
            "| sqlite | hotpin --objects 1e6 | status 1: disk \\| full |",
            "at most 1.5 times pointer table",
        ):
            self.assertIn(part, report)

    def test_peers_are_narrowed_down_to_some_beside_our_own(self):
        case = plan.Case(plan.WORKLOADS["paging"]).with_peers(("sqlite", "lmdb"))
        self.assertEqual(case.peers, ("store", "sqlite", "lmdb"))
        case = plan.Case(plan.WORKLOADS["nextfit"], peers=("pool", "arena", "malloc"))
        self.assertEqual(case.with_peers(("malloc", "jemalloc")).peers, case.peers)
        self.assertEqual(case.with_peers(("jemalloc",)).peers, ("pool", "arena"))

    def test_every_scale_has_a_case_for_every_workload(self):
        for scale in (plan.FULL, plan.QUICK, plan.SMOKE):
            names = {case.workload.name for case in plan.cases(scale, large=False)}
            self.assertEqual(names, set(plan.WORKLOADS))


if __name__ == "__main__":
    unittest.main()
