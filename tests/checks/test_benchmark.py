"""The report of ./bench.sh: ratios, those that mean nothing, and the table of targets."""
import os
import socket
import struct
import sys
import time
import unittest

ROOT = os.path.abspath(sys.argv.pop(1))
sys.path[:0] = [os.path.join(ROOT, folder) for folder in ("benchmarks", "tests/support/programs")]
import picture  # pylint: disable=wrong-import-position
import report  # pylint: disable=wrong-import-position
import targets  # pylint: disable=wrong-import-position
from processor_clock import ProcessorClock  # pylint: disable=wrong-import-position
from results import Results, middle_of_all, percentile  # pylint: disable=wrong-import-position

WORK = "form of 1 KB"


def rounds(client, times, per_turn=3, work=WORK):
    """The lines of one sample a round that took so long, and half as much of a processor."""
    for number, time in enumerate(times):
        yield from [f"sample\t{work}\t{client}\t{number}\t{time}\n"] * per_turn
        yield f"turn\t{work}\t{client}\t{number}\t{time / 2 * per_turn}\t{per_turn}\n"


def results_of(unit, component, *more):
    return Results([*rounds("unit", unit), *rounds("component", component), *more])


class ResultsTest(unittest.TestCase):
    def test_ratio_is_that_of_the_middle_times(self):
        results = results_of([2.0] * 9 + [200.0], [3.0] * 9 + [300.0])
        self.assertEqual(results.time_ratio(WORK, "component"), (1.5, 1.5, 1.5))
        self.assertEqual(results.time_ratio(WORK, "unit").value, 1)
        self.assertEqual(percentile(results.all_times(WORK, "component"), 99), 300)

    def test_times_around_two_values_are_told_by_how_many_there_are_of_each(self):
        self.assertAlmostEqual(middle_of_all([[2.0] * 11 + [4.0] * 9]), 2.8)

    def test_processor_ratio_is_that_of_the_middle_turns(self):
        results = results_of([2.0] * 20 + [90.0], [3.0] * 20 + [9.0])
        self.assertAlmostEqual(results.processor_ratio(WORK, "component").value, 1.5)
        self.assertAlmostEqual(results.processor_time(WORK, "component"), 1.5)

    def test_rounds_that_differ_together_do_not_spoil_a_ratio(self):
        unit = [2.0 + number / 10 for number in range(10)]
        ratio = results_of(unit, [time * 1.02 for time in unit]).time_ratio(WORK, "component")
        self.assertAlmostEqual(ratio.value, 1.02)

    def test_ratio_of_rounds_that_disagree_is_refused(self):
        ratio = results_of([2.0] * 10, [1.0] * 5 + [4.0] * 5).time_ratio(WORK, "component")
        self.assertIsNone(ratio.value)
        self.assertEqual(report.cell(ratio), "(0.5 to 2.0)")

    def test_ratio_of_one_round_or_of_no_time_is_refused(self):
        self.assertIsNone(results_of([2.0], [2.0]).time_ratio(WORK, "component").value)
        self.assertIsNone(results_of([0.0] * 10, [2.0] * 10).processor_ratio(WORK, "component").value)

    def test_client_that_cannot_do_the_work_has_no_ratio(self):
        failed = [*rounds("XMLHTTP", [2.0] * 3), f"none\t{WORK}\tXMLHTTP\twrites no file\n"]
        results = results_of([2.0] * 10, [2.0] * 10, *failed)
        self.assertIsNone(results.time_ratio(WORK, "XMLHTTP"))
        self.assertEqual(report.cell(None), "n/a")
        self.assertIn([WORK, "XMLHTTP", "writes no file", "", "", "", ""], report.detail_table(results))

    def test_rounds_that_only_one_of_two_took_part_in_do_not_count(self):
        results = results_of([2.0] * 10, [3.0] * 20)
        self.assertAlmostEqual(results.time_ratio(WORK, "component").value, 1.5)
        self.assertAlmostEqual(results_of([2.0] * 20, [3.0] * 10).processor_ratio(WORK, "component").value, 1.5)

    def test_repeated_exchanges_are_counted(self):
        self.assertEqual(results_of([2.0], [2.0], "lost\tcomponent\n", "lost\tcomponent 1 ms\n").lost, 2)

    def test_picture_has_a_bar_for_each_ratio_that_means_something(self):
        drawn = picture.draw(results_of([2.0] * 10, [3.0] * 10, *rounds("XMLHTTP", [1.0, 9.0] * 5)))
        self.assertIn(">1.50<", drawn)
        self.assertEqual(drawn.count("<rect"), 1 + len(picture.SHOWN) + 2)


class ProcessorClockTest(unittest.TestCase):
    def test_tells_what_the_process_has_used(self):
        with ProcessorClock() as clock, socket.create_connection(("127.0.0.1", clock.port), 10) as client:
            client.sendall(f"{os.getpid()}\n".encode())
            for _ in range(2):
                before = time.process_time()
                client.sendall(b"?")
                told = struct.unpack("<d", client.recv(8, socket.MSG_WAITALL))[0] / 1000
                self.assertLessEqual(before, told)
                self.assertLessEqual(told, time.process_time())


class TargetsTest(unittest.TestCase):
    def test_verdict(self):
        for value, limit, below, verdict in ((1.05, 1.05, False, "reached"), (1.06, 1.05, False, "not reached"),
                                             (1.0, 1.0, True, "not reached"), (0.9, 1.0, True, "reached"),
                                             (None, 1.05, False, "cannot be told")):
            with self.subTest(value=value, limit=limit, below=below):
                self.assertEqual(targets.row("what", value, limit, below=below)[3], verdict)

    def test_refused_ratio_tells_only_what_its_interval_does(self):
        ratio = results_of([2.0] * 10, [1.0] * 5 + [4.0] * 5).time_ratio(WORK, "component")
        for limit, verdict in ((2.1, "reached"), (1.9, targets.CANNOT_TELL), (0.4, "not reached")):
            with self.subTest(limit=limit):
                self.assertEqual(targets.ratio_row("what", ratio, limit)[2:], ("0.50 to 2.00", verdict))
        self.assertEqual(targets.ratio_row("what", None, 1)[2:], ("n/a", targets.CANNOT_TELL))

    def test_text_is_compared_with_both_units(self):
        results = results_of([2.0] * 10, [3.0] * 10, *rounds("unit, text", [2.5] * 10))
        self.assertEqual([row[1:] for row in targets.text_rows(results, WORK, 1.25)],
                         [("1.25", "1.50", "not reached"), ("1.25", "1.20", "reached")])


unittest.main()
