#!/usr/bin/env python3
"""Checks that readers of OpenMetrics and of Prometheus's text format read the same from a file.

usage: check_openmetrics.py OUTPUTS
"""

import shutil
import sys

from viewers import expect_equal, missing, run

try:
    from prometheus_client.openmetrics import parser as openmetrics
    from prometheus_client import parser as older
except ImportError:
    missing("the Python package prometheus_client")

PROGRAM = "C:\\\"app\"\n\x7f"
ALL = {"program": PROGRAM, "pid": "4711"}
SAMPLES = [
    ("qkmem_tag_bytes", {**ALL, "tag": "DT"}, 1040),
    ("qkmem_tag_bytes", {**ALL, "tag": "\"\\"}, 24),
    ("qkmem_handle_bytes", {**ALL, "handle": "1", "tag": "DT"}, 1000),
    ("qkmem_handle_bytes", {**ALL, "handle": "2", "tag": "DT"}, 40),
    ("qkmem_handle_blocks", {**ALL, "handle": "1", "tag": "DT"}, 7),
    ("qkmem_allocations_total", ALL, 181020),
    ("qkmem_peak_bytes", ALL, 3000000000),
    ("qkmem_untracked_bytes", ALL, 0),
]
TYPES = ["gauge", "gauge", "gauge", "unknown", "gauge", "gauge"]


def samples_of(families):
    return [(sample.name, sample.labels, sample.value)
            for family in families for sample in family.samples]


def main():
    written = run(sys.argv[1], "metrics", PROGRAM)
    text = written.decode("utf-8")
    families = list(openmetrics.text_string_to_metric_families(text))
    expect_equal("samples of OpenMetrics", samples_of(families), SAMPLES)
    expect_equal("types of OpenMetrics", [family.type for family in families], TYPES)
    expect_equal("families without a help text",
                 [family.name for family in families if not family.documentation], [])
    expect_equal("samples of the text format",
                 samples_of(older.text_string_to_metric_families(text)), SAMPLES)
    if not shutil.which("promtool"):
        missing("promtool")
    run("promtool", "check", "metrics", given=written)
    print("two parsers and promtool accept the metrics")


if __name__ == "__main__":
    main()
