"""The figures halvex-report draws its page from, over a committed log of the
moving sample tablet (tests/fixtures/report/run.log: two daemons, one with
-s 1 -t 1 and one with -s 6 -t 1, their first 13 seconds).

    python3 report_data_test.py REPORT_TOOL DECODER FIXTURE_LOG TABLET_CONFIG EXTENSIONS_LOG

EXTENSIONS_LOG (tests/fixtures/report/extensions.log) is a daemon's threshold,
snapshot and own-cost lines and records over the moving tablet with the
extensions on (tests/fixtures/configs/extensions.json), its first 20 seconds.
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest

TOOL, DECODER, LOG, CONFIG, EXTENSIONS_LOG = sys.argv[1:6]


def figures(log_path, config=None):
    extra = ["--config", config] if config else []
    out = subprocess.run([sys.executable, TOOL, "--decoder", DECODER, "--data", log_path] + extra,
                         stdout=subprocess.PIPE, check=True)
    return json.loads(out.stdout)


def top(report):
    return [(entry["name"], entry["value"]) for entry in report["top"]]


class ReportDataTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.data = figures(LOG)

    def test_usage_reports_and_crossings(self):
        data = self.data
        cases = [
            ("CPU percentiles", data["usage"]["CPUUtilization"],
             [{"line": 13, "time": 3.013, "P50": 51, "P75": 58, "P90": 58, "P99": 58, "P100": 67}]),
            ("memory percentiles", data["usage"]["MemoryUtilization"],
             [{"line": 30, "time": 4.016, "P50": 82, "P75": 83, "P90": 84, "P99": 84, "P100": 86}]),
            # Both daemons log their own crossing; each is a mark of its own.
            ("crossings", [(c["name"], c["time"], c["value"]) for c in data["crossings"]],
             [("CPUUtilization", 9.034, 99), ("MemoryUtilization", 12.04, 97),
              ("MemoryUtilization", 12.051, 97)]),
            ("levels between reports",
             [(p["time"], p["value"]) for p in data["levels"]["CPUUtilization"]],
             [(0.0, 46), (0.01, 46), (9.034, 99)]),
        ]
        for name, got, expected in cases:
            with self.subTest(name):
                self.assertEqual(got, expected)

    def test_per_report_figures(self):
        data = self.data
        kills = data["kills"][0]["counts"]
        memory = data["memory"][0]["kb"]
        cases = [
            # Ties are broken by name; five per report.
            ("top CPU of the first report", top(data["top_cpu"][0]),
             [("system_server", 15.9681), ("init", 11.976), ("m.android.phone", 10.978),
              ("ndroid.systemui", 10.978), ("surfaceflinger", 10.978)]),
            ("CPU reports", len(data["top_cpu"]), 4),
            ("PSS per report", [top(r) for r in data["top_pss"]],
             [[("droid.launcher3", 96285), ("m.android.email", 91946)],
              [("system_server", 168779), ("main", 65483)], [("/system/bin/storaged", 2616)]]),
            ("kills by class", kills,
             {"persistent": 0, "fg": 3, "visible": 7, "perceptible": 20, "backup": 45,
              "other": 281}),
            ("kill reports", [r["counts"]["other"] for r in data["kills"]], [281, 291]),
            ("zram, KSM and swap", memory,
             {"zram_mem_used_kb": 211806, "mem_swap_uncompressed": 653822,
              "mem_ksm_saving": 51972, "mem_ksm_overhead": 3716,
              "swap_used_kb": 2097148 - 1443326}),
            ("disk", [(d["used_percent"], d["free_inodes_percent"]) for d in data["disk"]],
             [({"/data": 7, "/system": 7}, {"/data": 97})] * 2),
        ]
        for name, got, expected in cases:
            with self.subTest(name):
                self.assertEqual(got, expected)

    def test_pressure_reports(self):
        record = ("[metrics] 11-25 01:50:%s 1 1 I metrics.halvexd: PressureMonitorTablet:"
                  "PressureStall:Cpu.Some.Avg10Max=%s;CT;1,Memory.Some.StallMs=7;CT;1:NR\n")
        with tempfile.NamedTemporaryFile("w", suffix=".log", delete=False) as log:
            log.write(record % ("00.000", "13.26") + record % ("30.500", "0"))
        try:
            got = figures(log.name)["pressure"]
        finally:
            os.unlink(log.name)
        self.assertEqual([(p["time"], p["percent"]) for p in got],
                         [(0.0, {"Cpu.Some.Avg10Max": 13.26}), (30.5, {"Cpu.Some.Avg10Max": 0})])
        self.assertEqual(self.data["pressure"], [])

    def test_crossings_with_their_snapshots_and_the_own_cost(self):
        data = figures(EXTENSIONS_LOG)
        cases = [
            ("snapshots after their crossing lines",
             [(s["time"], s["after"], [(e["rank"], e["name"], e["pid"], e["value"], e.get("pss_kb"))
                                       for e in s["top"]][:2]) for s in data["snapshots"]],
             [(9.016, "CPUUtilization crossed 95%. Current - 98%",
               [(1, "ndroid.settings", 3000, 48.75, None),
                (2, "droid.launcher3", 1760, 4.25, None)]),
              (12.023, "MemoryUtilization crossed 95%. Current - 97%",
               [(1, "android.camera2", 3003, 927296, 838284),
                (2, "system_server", 1024, 289324, 136685)])]),
            ("own cost per interval",
             [(c["time"], c["IntervalTicks"], c["longest_check"], c["CpuTimeMs"])
              for c in data["cost"]],
             [(5.009, 5, "ProcessCpuMonitor", 0), (10.017, 5, "ProcessCpuMonitor", 0),
              (15.028, 5, "MemoryUsageMonitor", 10), (20.036, 5, "ProcessCpuMonitor", 0)]),
            ("no snapshot in an ordinary run", self.data["snapshots"] + self.data["cost"], []),
        ]
        for name, got, expected in cases:
            with self.subTest(name):
                self.assertEqual(got, expected)

    def test_structured_records_stand_in_for_missing_plain_ones(self):
        # A configuration with the plain interface off for "PssKB": the same
        # reports come from the structured records, one line per value, which
        # the decoder attributes to "PssKB" through the configuration.
        with open(LOG) as log:
            lines = [l for l in log if "ProcessMemMonitorTablet:PssKB:" not in l]
        with tempfile.NamedTemporaryFile("w", suffix=".log", delete=False) as stripped:
            stripped.writelines(lines)
        try:
            got = figures(stripped.name, CONFIG)
        finally:
            os.unlink(stripped.name)
        self.assertEqual([(r["time"], top(r)) for r in got["top_pss"]],
                         [(r["time"], top(r)) for r in self.data["top_pss"]])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
