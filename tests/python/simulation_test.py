# SPDX-License-Identifier: Apache-2.0
"""Simulations of one process, one after the other."""
import pytest
import veltra

TIMEOUT_S = 30


def level_of(session):
    return next(session.latest().temp_level for _ in session.events(TIMEOUT_S) if session.latest().temp_level).value


def test_simulations_follow_each_other():
    for level in (1, 4):
        with veltra.simulated({"curves": {"tempLevel": level}}):
            assert veltra.get_device_info()["temp_level"] == level
            with veltra.Session() as session:
                assert level_of(session) == level
        with pytest.raises(veltra.VeltraError, match="RESULT_NO_SERVICE"):
            veltra.get_device_info()


def test_a_simulation_that_fails_leaves_nothing_behind(tmp_path):
    with veltra.simulated({}):
        with pytest.raises(RuntimeError, match="end it before"), veltra.simulated({}):
            pass
        veltra.call_auth()  # the first one goes on
    with pytest.raises(FileNotFoundError), veltra.simulated(tmp_path / "missing.json"):
        pass
    with pytest.raises(ZeroDivisionError), veltra.simulated({}):
        veltra.call_auth()
        raise ZeroDivisionError
    with veltra.simulated({"curves": {"tempLevel": 2}}):
        assert veltra.get_device_info()["temp_level"] == 2
