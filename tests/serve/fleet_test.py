# SPDX-License-Identifier: Apache-2.0
"""Twenty simulated devices, each with its own manager, service and veltra-serve, scraped by a real Prometheus with the
installed configuration and rules. A heat wave on one of them raises the alert about that one. What the rules, the
dashboard and docs/fleet.md name is what is exported.

Usage: fleet_test.py PROGRAMS SOURCE
"""
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

from server import Server, free_port
from tool.harness import WAIT_S, System, require

DEVICES = 20
HOT = 7
SKIPPED = 77
# A value for each metric of a device, so that all of them are exported by one.
VALUES = ["tempLevel=2", "temperature=60", "thermalMargin=20", "thermalTrend=1", "throttling=0", "fanRpm=900",
          "gpuLoadLevel=1", "gpuLoadPercent=25", "vertexLoadLevel=1", "fragmentLoadLevel=1", "textureLoadLevel=1",
          "bandwidthLoadLevel=1", "currentFrequency=800", "gpuFrequencyCap=900", "gpuFrequencyMax=1000",
          "gpuMemoryUsedBytes=1000", "gpuMemoryTotalBytes=2000", "gpuPowerMilliwatts=1500", "cpuLoadPercent=50",
          "cpuPressurePercent=1", "memoryAvailableBytes=1000", "memoryTotalBytes=2000", "memoryPressurePercent=1",
          "batteryPercent=70", "batteryCharging=0", "powerDrawMilliwatts=2500"]


class Prometheus:
    """With the installed files; scrapes and evaluates each second, and an alert is raised after two."""

    def __init__(self, source, folder, ports):
        self.folder = folder
        self.port = free_port()
        installed = pathlib.Path(source, "share/veltra/prometheus")
        config = (installed / "prometheus.yml").read_text()
        rules = (installed / "veltra.rules.yml").read_text()
        (folder / "prometheus.yml").write_text(re.sub(r"(scrape|evaluation)_interval: 15s", r"\1_interval: 1s", config)
                                               .replace("scrape_timeout: 10s", "scrape_timeout: 1s"))
        (folder / "veltra.rules.yml").write_text(re.sub(r"for: \d+m", "for: 2s", rules))
        (folder / "devices.yml").write_text(json.dumps([{"targets": [f"localhost:{port}" for port in ports]}]))
        with (folder / "prometheus.log").open("w") as log:
            self.process = subprocess.Popen(
                ["prometheus", f"--config.file={folder}/prometheus.yml", f"--storage.tsdb.path={folder}/data",
                 f"--web.listen-address=127.0.0.1:{self.port}", "--log.level=warn"], stdout=log, stderr=log)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait(WAIT_S)

    def get(self, path, **query):
        url = f"http://127.0.0.1:{self.port}/api/v1/{path}?{urllib.parse.urlencode(query)}"
        with urllib.request.urlopen(url, timeout=WAIT_S) as answer:
            return json.load(answer)["data"]

    def query(self, expression):
        """Instance (or "") and value of each series."""
        found = self.get("query", query=expression)["result"]
        return {each["metric"].get("instance", ""): float(each["value"][1]) for each in found}

    def firing(self, name):
        alerts = self.get("alerts")["alerts"]
        return {each["labels"]["instance"] for each in alerts
                if each["labels"]["alertname"] == name and each["state"] == "firing"}

    def wait_for(self, found, what):
        """Until `found` returns something true, which is returned."""
        deadline = time.monotonic() + WAIT_S
        while True:
            with contextlib.suppress(OSError):  # it does not listen yet
                if result := found():
                    return result
            log = (self.folder / "prometheus.log").read_text()
            require(self.process.poll() is None and time.monotonic() < deadline, f"{what}; log: {log}")
            time.sleep(0.1)


def check_files(source, folder):
    """What promtool says about the installed files, and about when which alert fires."""
    shutil.copytree(pathlib.Path(source, "share/veltra/prometheus"), folder, dirs_exist_ok=True)
    shutil.copy(pathlib.Path(__file__).parent / "rules_test.yml", folder)
    for words in (["check", "config", "prometheus.yml"], ["check", "rules", "veltra.rules.yml"],
                  ["test", "rules", "rules_test.yml"]):
        done = subprocess.run(["promtool", *words], cwd=folder, text=True, capture_output=True)
        require(done.returncode == 0, f"promtool {' '.join(words)}: {done.stdout}{done.stderr}")


def check_names(source, prometheus):
    """Each metric is in docs/fleet.md, and each name in a file is a metric."""
    exported = {name for name in prometheus.get("label/__name__/values") if name.startswith("veltra_")}
    families = {re.sub(r"^(veltra_call_duration_seconds)_(bucket|count|sum)$", r"\1", name) for name in exported}
    files = pathlib.Path(source, "share/veltra/prometheus")
    documented = set(re.findall(r"\bveltra_\w+", pathlib.Path(source, "docs/fleet.md").read_text()))
    # A virtual machine reports no frequencies of processors, and they cannot be simulated.
    missing = {name for name in documented - families if not name.startswith("veltra_cpu_frequency")}
    require(not missing, f"docs/fleet.md has {missing}, which is not exported")
    require(families <= documented, f"docs/fleet.md does not have {families - documented}")
    for name in ("veltra.rules.yml", "grafana-dashboard.json"):
        used = set(re.findall(r"\bveltra_\w+", (files / name).read_text()))
        require(used <= exported, f"{name} has {used - exported}, which is not exported")


def check_metrics(port):
    with urllib.request.urlopen(f"http://localhost:{port}/metrics", timeout=WAIT_S) as answer:
        text = answer.read()
    done = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True)
    require(done.returncode == 0 and not done.stdout + done.stderr, f"promtool: {done.stdout}{done.stderr}")


def heat_wave(prometheus, device, instance):
    """Half as fast as the scenario has it: level 4 lasts for twenty seconds."""
    require(prometheus.firing("VeltraOverheating") == set(), "an alert without heat")
    device.expect(0, "simulate", "load", "heat-wave")
    device.expect(0, "simulate", "speed", "0.5")
    device.expect(0, "simulate", "set", "throttling=1")
    device.expect(0, "simulate", "seek", "34")
    for alert in ("VeltraOverheating", "VeltraThrottling"):
        fired = prometheus.wait_for(lambda name=alert: prometheus.firing(name), f"{alert} is not raised")
        require(fired == {instance}, f"{alert} is raised for {fired} and not for {instance}")
    require(instance in prometheus.query("veltra_simulation_active == 1"), "the simulation is not exported")
    device.expect(0, "simulate", "off")
    prometheus.wait_for(lambda: prometheus.firing("VeltraOverheating") == set(), "the alert does not end")


def restart(prometheus, device, instance):
    """The exporter starts the service again; its counters begin anew, and the start is counted."""
    before = prometheus.query("veltra_service_start_time_seconds")[instance]
    os.kill(device.service_pid(), signal.SIGKILL)
    prometheus.wait_for(lambda: prometheus.query("veltra_service_starts_total").get(instance) == 2, "no second start")
    prometheus.wait_for(lambda: prometheus.query("veltra_service_start_time_seconds").get(instance, 0) > before,
                        "the service is not exported again")


def main():
    programs, source = sys.argv[1:]
    if shutil.which("prometheus") is None or shutil.which("promtool") is None:
        print("skipped: prometheus is missing; run scripts/setup --browser")
        sys.exit(SKIPPED)
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="veltra-fleet-")))
        check_files(source, folder)
        devices, servers = [], []
        for _ in range(DEVICES):
            device = stack.enter_context(System(programs, source))
            device.write_ability()
            device.start_manager()
            # A call before the exporter runs: it is counted all the same.
            device.expect(0, "call", "CallAuth")
            devices.append(device)
            servers.append(stack.enter_context(Server(device, "--metrics-only", "--start")))
        devices[0].expect(0, "simulate", "set", *VALUES)
        ports = [server.port for server in servers]
        check_metrics(ports[0])
        prometheus = stack.enter_context(Prometheus(source, folder, ports))
        prometheus.wait_for(lambda: prometheus.query("sum(veltra_service_up)").get("") == DEVICES, "not all are scraped")
        instances = [f"localhost:{port}" for port in ports]
        require(prometheus.query("up == 1").keys() == set(instances), "some devices are not up")
        calls = prometheus.query('veltra_calls_total{operation="CallAuth"}')
        require(calls == dict.fromkeys(instances, 1), f"calls {calls}")
        within = prometheus.query("sum by (instance) (veltra_call_duration_seconds_bucket{le=\"+Inf\"})")
        require(within == dict.fromkeys(instances, 1), f"histograms {within}")
        check_names(source, prometheus)
        heat_wave(prometheus, devices[HOT], instances[HOT])
        restart(prometheus, devices[0], instances[0])


main()
