# SPDX-License-Identifier: Apache-2.0
"""pytest -p veltra.pytest_plugin: the fixture veltra_simulation plays the scenario of --veltra-scenario during the whole
run, at --veltra-speed."""
import pytest

from veltra.simulation import simulated


def pytest_addoption(parser):
    parser.addoption("--veltra-scenario", help="the scenario file to play")
    parser.addoption("--veltra-speed", type=float, default=1, help="how many times as fast")
    parser.addoption("--veltra-catalogue", help="the file of the applications that the service knows")


@pytest.fixture(scope="session")
def veltra_simulation(request):
    scenario = request.config.getoption("--veltra-scenario")
    if scenario is None:
        pytest.fail("veltra_simulation needs --veltra-scenario FILE")
    with simulated(scenario, request.config.getoption("--veltra-speed"), request.config.getoption("--veltra-catalogue")):
        yield
