#!/usr/bin/env python3
"""Serves the memory figures of a host as Prometheus reads them.

    metrics.py --port 9464 cellhost

Each request of /metrics runs 'kivsd top HOST --once --json'. The host publishes its figures with
kivsdu/publisher.hpp. --print prints the page once instead of serving it.
"""

import argparse
import json
import subprocess
import sys
from collections.abc import Iterator
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

CONTENT_TYPE = "text/plain; version=0.0.4"

# Metric, its help, and the fields of "usage" with the value of the label "part".
GAUGES = [
    ("kivsdu_memory_bytes", "Memory in use", {
        "in_heaps": "thread_heaps", "outside_heaps": "outside_heaps", "aligned": "host_regions"}),
    ("kivsdu_memory_peak_bytes", "Most memory in use at a time", {
        "used_peak": "library", "aligned_peak": "host_regions", "total_peak": "all"}),
]


class NoSample(Exception):
    """kivsd has no sample; the text says why."""


def sample(kivsd: str, host: str | None) -> dict:
    """The host's figures of this moment."""
    command = [kivsd, "top", *([host] if host else []), "--once", "--json"]
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=10, check=False)
    except (OSError, subprocess.TimeoutExpired) as error:
        raise NoSample(f"{kivsd} could not be run: {error}") from error
    if done.returncode != 0:
        raise NoSample(done.stderr.strip())
    return json.loads(done.stdout)


def metric(name: str, kind: str, text: str, values: dict[str, float]) -> Iterator[str]:
    """The lines of a metric: a value for each set of labels."""
    yield f"# HELP {name} {text}"
    yield f"# TYPE {name} {kind}"
    for labels, value in values.items():
        yield f"{name}{{{labels}}} {value}"


def blocks(figures: list[dict], field: str) -> dict[str, float]:
    """Counts by the largest size of a class, in bytes."""
    return {f'up_to="{figure["up_to"] or "+Inf"}"': figure[field] for figure in figures}


def page(figures: dict) -> str:
    """The figures in Prometheus' text format. What the host does not count is left out."""
    lines: list[str] = []
    if figures["usage"] is not None:
        for name, text, parts in GAUGES:
            values = {f'part="{part}"': figures["usage"][field] for field, part in parts.items()}
            lines += metric(name, "gauge", text, values)
    limit = figures["settings"]["limit"]
    if limit != 0:
        lines += metric("kivsdu_memory_limit_bytes", "gauge", "The memory limit", {"": limit})
    if figures["blocks"] is not None:
        for field in ("allocated", "freed"):
            lines += metric(f"kivsdu_blocks_{field}_total", "counter", f"Blocks {field}, by size",
                            blocks(figures["blocks"], field))
    lines += metric("kivsdu_memory_messages_total", "counter", "Messages about short memory",
                    {f'status="{status}"': count for status, count in figures["messages"].items()})
    return "\n".join(lines).replace("{}", "") + "\n"


def handler(kivsd: str, host: str | None) -> type[BaseHTTPRequestHandler]:
    class Handler(BaseHTTPRequestHandler):
        def do_GET(self) -> None:  # the name that the server looks for
            if self.path != "/metrics":
                self.send_error(404, "the page is /metrics")
                return
            try:
                body = page(sample(kivsd, host)).encode()
            except NoSample as error:
                self.send_error(503, "no sample", str(error))
                return
            self.send_response(200)
            self.send_header("Content-Type", CONTENT_TYPE)
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

    return Handler


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("host", nargs="?", help="name or process identifier; the only host if not given")
    parser.add_argument("--kivsd", default="kivsd", help="the command kivsd")
    parser.add_argument("--port", type=int, default=9464)
    parser.add_argument("--address", default="127.0.0.1", help="to listen on; only this machine")
    parser.add_argument("--print", action="store_true", dest="prints", help="print the page once")
    options = parser.parse_args()
    if options.prints:
        try:
            print(page(sample(options.kivsd, options.host)), end="")
        except NoSample as error:
            sys.exit(f"metrics: {error}")
        return
    server = ThreadingHTTPServer((options.address, options.port), handler(options.kivsd, options.host))
    print(f"serving http://{options.address}:{server.server_port}/metrics", flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    main()
