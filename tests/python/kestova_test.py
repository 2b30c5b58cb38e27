"""The package against a recording whose every byte is known."""

import ast
import datetime
import gc
import json
import os
import pathlib
import pickle
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import warnings

import kestova
import recorded
from recorded import CELLS, FIRST, LAST, MISSING, RADAR, SPOKES, START, time_of

try:
    import numpy as np
except ImportError:
    np = None

needs_numpy = unittest.skipUnless(np, "NumPy is missing: apt install python3-numpy")
PACKAGE = pathlib.Path(kestova.__file__).parent
WITHOUT_NUMPY = "import sys; sys.modules['numpy'] = None\n"


def run(code, *arguments):
    return subprocess.run([sys.executable, "-c", code, *arguments], capture_output=True, text=True, timeout=300)


class KestovaTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.root = os.path.join(cls.scratch.name, "recordings")
        cls.folder = recorded.record(cls.root)
        cls.numbers = [number for number in range(FIRST, LAST) if number != MISSING]

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    def setUp(self):
        self.rec = kestova.open(self.root)
        self.addCleanup(self.rec.close)


class RecordingTest(KestovaTest):
    def test_says_what_is_in_it(self):
        self.assertEqual(os.path.dirname(self.folder), self.root)
        self.assertEqual(len(self.rec), len(self.numbers) + 5 * 9)
        self.assertEqual(self.rec.info["schema"], "kestova/info/2")
        self.assertEqual(self.rec.streams["gpsDev"]["records"], 45)
        self.assertEqual(self.rec.radars, [RADAR])
        self.assertEqual(self.rec.losses, [{"layer": "wire", "count": 1}])
        self.assertEqual(self.rec.gaps, [])
        self.assertEqual(self.rec.sheet["recorder"]["version"], kestova.__version__)
        self.assertIn("2023-11-14 22:13:20 to 2023-11-14 22:13:2", repr(self.rec))

    def test_gives_records_in_their_order(self):
        records = [record for record in self.rec.records(streams=["imageStream"], groups=RADAR)]
        self.assertEqual([record.time_ms for record in records], [time_of(number) for number in self.numbers])
        self.assertEqual([record.payload for record in records], [recorded.message_of(n) for n in self.numbers])
        self.assertEqual({(record.stream, record.address, record.kind) for record in records}, {("imageStream", RADAR, 0)})
        self.assertEqual([record.sequence for record in self.rec.records()], list(range(len(self.rec))))

    def test_takes_places_and_times(self):
        second = START + 1000
        when = datetime.datetime.fromtimestamp(second / 1000, datetime.timezone.utc)
        places = ["00:00:01", "+1s", second, float(second), when, when.astimezone().replace(tzinfo=None)]
        for place in places + ([np.datetime64(second, "ms")] if np else []):
            with self.subTest(place=place):
                self.assertEqual(next(self.rec.records(start=place)).time_ms, second)
        part = self.rec["00:00:01":second + 500]
        self.assertEqual(len(part), 50 + 5)
        self.assertEqual([r.time_ms for r in part.records(streams="imageStream")][-1], second + 490)
        with self.assertRaises(TypeError):
            self.rec[5]
        with self.assertRaises(kestova.Error):
            self.rec.records(start="soon")

    def test_refuses_in_words(self):
        for thing in (self.rec, self.rec.records()):
            with self.assertRaisesRegex(TypeError, "cannot be pickled"):
                pickle.dumps(thing)
        with self.assertRaises(FileNotFoundError) as caught:
            kestova.open("/nowhere/at/all")
        self.assertIn("/nowhere/at/all", str(caught.exception))
        self.assertEqual(caught.exception.code, -2)
        none = os.path.join(self.scratch.name, "none.data")
        pathlib.Path(none).write_bytes(b"no data file")
        with self.assertRaises(kestova.Damaged):
            kestova.open(none)
        with self.rec:
            pass
        with self.assertRaisesRegex(kestova.Error, "closed"):
            self.rec.records()

    def test_verifies(self):
        result = kestova.verify(self.root)
        self.assertEqual((result["total"]["sound"], len(result["files"])), (1, 1))

    def test_prints_what_is_in_it(self):
        done = subprocess.run([sys.executable, "-m", "kestova", "info", self.root], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("imageStream", done.stdout)

    def test_does_without_numpy(self):
        done = run(
            WITHOUT_NUMPY + "import kestova\n"
            "rec = kestova.open(sys.argv[1])\n"
            "print(rec.info['total']['records'], sum(1 for r in rec.records()), kestova.verify(sys.argv[1])['complete'])\n"
            "for call in (lambda: rec.start, lambda: next(rec.sweeps()).data, lambda: rec.table('own')):\n"
            "    try: call()\n"
            "    except ImportError as error: print(error)\n",
            self.root,
        )
        self.assertEqual(done.stderr, "")
        lines = done.stdout.splitlines()
        self.assertEqual(lines[0], f"{len(self.rec)} {len(self.rec)} True")
        self.assertEqual([("python3-numpy" in line) for line in lines[1:]], [True] * 3)

    def test_ends_with_control_c_while_it_waits(self):
        child = subprocess.Popen(
            [sys.executable, "-c", "import signal, kestova\n"
             "signal.signal(signal.SIGINT, signal.default_int_handler)\n"
             "rec = kestova.open('udp://239.17.93.16:26816', local_ip='127.0.0.1')\n"
             "try:\n"
             "    print('waiting', flush=True)\n"
             "    next(rec.records())\n"
             "except KeyboardInterrupt: print('interrupted')\n"],
            stdout=subprocess.PIPE, text=True)
        self.assertEqual(child.stdout.readline(), "waiting\n")
        child.send_signal(signal.SIGINT)
        self.addCleanup(child.kill)
        self.assertEqual(child.communicate(timeout=60)[0], "interrupted\n")

    def test_long_calls_end_with_control_c(self):
        ended = threading.Event()
        # What runs in the background of a shell ignores the signal.
        self.addCleanup(signal.signal, signal.SIGINT, signal.signal(signal.SIGINT, signal.default_int_handler))

        def interrupt():
            signal.raise_signal(signal.SIGINT)

        def call():
            threading.Timer(0.01, interrupt).start()
            self.assertTrue(ended.wait(300))

        with self.assertRaises(KeyboardInterrupt):
            kestova._library.interruptible(call, ended.set)

    def test_is_written_for_python_3_9(self):
        for file in PACKAGE.glob("*.py"):
            ast.parse(file.read_text(), str(file), feature_version=(3, 9))
        self.assertTrue((PACKAGE / "py.typed").exists())


@needs_numpy
class SweepsTest(KestovaTest):
    def expected(self, turn):
        return [number for number in range(turn * SPOKES, (turn + 1) * SPOKES) if FIRST <= number < LAST != number
                and number != MISSING]

    def check(self, sweep, turn):
        numbers = self.expected(turn)
        self.assertEqual(sweep.sequence.tolist(), numbers)
        self.assertEqual(sweep.time.astype("int64").tolist(), [time_of(number) for number in numbers])
        self.assertEqual(sweep.bearing.tolist(), [number % SPOKES / SPOKES for number in numbers])
        self.assertEqual(sweep.data.shape, (len(numbers), CELLS))
        for row, number in enumerate(numbers):
            cells = recorded.cells_of(number)
            self.assertEqual(sweep.cell_count[row], len(cells))
            self.assertEqual(bytes(sweep.data[row]), cells + bytes(CELLS - len(cells)))

    def test_are_the_turns_of_the_antenna(self):
        sweeps = self.rec.sweeps()
        seen = [sweep for sweep in sweeps]
        self.assertEqual(seen[0].radar, RADAR)
        self.rec.close()
        del sweeps
        gc.collect()
        self.assertEqual(len(seen), 8)
        for turn, sweep in enumerate(seen, 1):
            self.check(sweep, turn)
        self.assertEqual([sweep.missing for sweep in seen], [0, 0, 1, 0, 0, 0, 0, 0])
        sweep = seen[4]
        self.assertEqual((sweep.bits, sweep.reference, sweep.complete, sweep.range_m), (8, "bow", True, 1000.0))
        self.assertEqual(sweep.data.ctypes.data % 64, 0)
        self.assertFalse(sweep.data.flags.writeable or sweep.bearing.flags.writeable)
        self.assertTrue(all((one.heading_deg == 90).all() for one in seen))

    def test_are_a_sequence(self):
        sweeps = self.rec.sweeps()
        self.assertEqual(len(sweeps), 8)
        for place in (0, 3, -1):
            self.check(sweeps[place], range(1, 9)[place])
        with self.assertRaises(IndexError):
            sweeps[8]
        for part in (slice(1, 6, 2), slice(None, None, -3), slice(-2, None), slice(5, 2)):
            with self.subTest(part=part):
                turns = range(1, 9)[part]
                self.assertEqual(len(sweeps[part]), len(turns))
                for sweep, turn in zip(sweeps[part], turns):
                    self.check(sweep, turn)
        self.check(sweeps[2:][1:][0], 4)

    def test_are_thinned_and_partial(self):
        def firsts(**options):
            sweeps = self.rec.sweeps(**options)
            found = [int(sweep.sequence[0]) // SPOKES for sweep in sweeps]
            self.assertEqual(len(sweeps), len(found))
            self.assertEqual([int(sweeps[i].sequence[0]) // SPOKES for i in range(len(sweeps))], found)
            return found

        self.assertEqual(firsts(step=3), [1, 4, 7])
        self.assertEqual(firsts(partial=True), list(range(10)))
        self.assertEqual(firsts(step=2, partial=True), [0, 1, 3, 5, 7, 9])
        self.assertEqual(firsts(start=time_of(2 * SPOKES), end=time_of(4 * SPOKES)), [2, 3])
        self.assertEqual(firsts(start=time_of(2 * SPOKES) + 1, end=time_of(4 * SPOKES), radar=RADAR), [3])

    def test_are_as_many_as_the_pictures(self):
        tool = os.environ.get("KESTOVA_TOOL")
        if not tool:
            self.skipTest("kestova is not built")
        to = os.path.join(self.scratch.name, "turns")
        done = subprocess.run([tool, "picture", self.root, "--every", "revolution", "--to", to, "--size", "64", "--json"],
                              capture_output=True, text=True, check=True)
        partial = [sweep for sweep in self.rec.sweeps(partial=True)]
        self.assertEqual(json.loads(done.stdout)["pictures"], len(partial) - 1)  # which leave out the last part

    def test_become_pictures(self):
        sweep = self.rec.sweeps()[3]
        image, mean = sweep.cartesian(101), sweep.cartesian(101, how="mean")
        turned = sweep.cartesian(101, north_up=True)
        self.assertEqual((image.shape, image.dtype), ((101, 101), np.uint8))
        self.assertTrue((mean <= image).all() and mean.any())
        self.assertTrue((abs(image[5:46, 50].astype(int) - turned[50, 55:96][::-1]) <= 1).all())
        self.assertFalse(sweep.cartesian(100, range_m=3000)[:30].any())
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            first = self.rec.sweeps(partial=True)[0]
            first.cartesian(50, north_up=True)
            self.assertEqual(caught, [])
            self.rec[:"00:00:00.1"].sweeps(partial=True)[0].cartesian(50, north_up=True)
        self.assertEqual(len(caught), 1)
        self.assertEqual(np.isnan(first.heading_deg).tolist(), [True] * 16 + [False] * 32)
        with self.assertRaises(ValueError):
            sweep.cartesian(100, how="median")

    def test_need_a_layout(self):
        with tempfile.TemporaryDirectory() as root:
            recorded.record(root, spoke=None)
            bare = kestova.open(root)
            with self.assertRaises(kestova.NoSpokes):
                bare.sweeps()
            layout = os.path.join(root, "layout.json")
            pathlib.Path(layout).write_text(json.dumps({"spoke": recorded.LAYOUT}))
            for given in (layout, {"spoke": recorded.LAYOUT}, recorded.LAYOUT):
                self.check(kestova.open(root, layout=given).sweeps()[1], 2)

    def test_tables_are_what_sentences_say(self):
        own = self.rec.table("own")
        self.assertEqual(own["time"][0], np.datetime64(time_of(32), "ms"))
        self.assertEqual(len(own["time"]), 18)
        self.assertEqual(own["latitude_deg"][0], 54.0)
        self.assertTrue(np.isnan(own["latitude_deg"][1]) and own["heading_deg"][1] == 90)
        ais = self.rec.table("ais", start=time_of(64), end=time_of(3 * 64))
        self.assertEqual((ais["mmsi"].tolist(), ais["ship_name"].tolist()), ([366053209] * 2, [None] * 2))
        self.assertEqual(self.rec.table("arpa")["bearing_reference"][0], "north")
        self.assertEqual(self.rec.table("depth")["depth_m"].tolist(), [13.0] * 9)
        self.assertEqual(len(self.rec.table("sentences")["valid"]), 45)
        with self.assertRaises(kestova.NotFound):
            self.rec.table("weather")

    def test_plot_where_matplotlib_is(self):
        try:
            import matplotlib
        except ImportError:
            self.skipTest("matplotlib is missing: apt install python3-matplotlib")
        matplotlib.use("Agg")
        axes = self.rec.sweeps()[0].plot_ppi()
        self.assertEqual(axes.get_xlim(), (-1000.0, 1000.0))


if __name__ == "__main__":
    unittest.main()
