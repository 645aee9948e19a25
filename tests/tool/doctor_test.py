# SPDX-License-Identifier: Apache-2.0
"""`veltra doctor` names the right fix for each broken set-up, and finds nothing wrong with a good one.

Usage: doctor_test.py PROGRAMS SOURCE
"""
import concurrent.futures
import os
import signal
import sys
import time

from harness import WAIT_S, System, require

NOBODY = 65534


def good(system):
    system.write_ability(arguments=["--scenario", system.write_scenario(curves={"tempLevel": 2})])
    system.start_manager()


def missing_directory(system):
    del system


def missing_parent(system):
    system.env["TAVO_RUNTIME_DIR"] = str(system.folder / "none/run")


def relative_directory(system):
    system.env["TAVO_RUNTIME_DIR"] = "run"


def open_directory(system):
    system.runtime.mkdir()
    system.runtime.chmod(0o755)


def foreign_directory(system):
    system.runtime.mkdir(mode=0o700)
    if os.geteuid() == 0:
        os.chown(system.runtime, NOBODY, NOBODY)
    else:
        system.env["TAVO_RUNTIME_DIR"] = "/usr"


def no_manager(system):
    system.runtime.mkdir(mode=0o700)


def stopped_manager(system):
    good(system)
    system.manager.send_signal(signal.SIGSTOP)


def no_ability(system):
    (system.abilities / "1.json").write_text('{"id": 1, "program": "/bin/true"}')
    system.start_manager()


def bad_ability(system):
    system.write_ability(argumnets=[])
    system.start_manager()


def no_control_ability(system):
    system.write_ability(control=False)
    system.start_manager()


def missing_program(system):
    system.write_ability("/nonexistent/veltra_server")
    system.start_manager()


def program_that_is_not_executable(system):
    system.write_ability(system.write_program("true", mode=0o644))
    system.start_manager()


def program_that_ends(system):
    system.write_ability(system.write_program("exit 3"))
    system.start_manager()


def program_that_never_registers(system):
    system.write_ability(system.write_program("exec sleep 100"))
    system.start_manager()


def with_faults(*faults):
    def set_up(system):
        system.write_ability(arguments=["--scenario", system.write_scenario(curves={"tempLevel": 2}, faults=list(faults))])
        system.start_manager()
    return set_up


def stopped_service(system):
    good(system)
    system.expect(0, "call", "CallAuth")
    system.stop_service()


def no_sensors(system):
    (system.folder / "root/sys").mkdir(parents=True)
    (system.folder / "root/proc").mkdir()
    system.write_ability(arguments=["--root", system.folder / "root"])
    system.start_manager()


def shell_log(system):
    good(system)
    system.env["TAVO_LOG"] = "verbose"


def manager_log(system):
    system.write_ability()
    system.start_manager(TAVO_LOG="warn,/nonexistent/log")


# Set-up, the check that finds it, its state, a part of what it says, a part of the fix.
ROWS = [
    (missing_directory, "runtimeDirectory", "failed", "No such file", "start tavo_manager"),
    (missing_parent, "runtimeDirectory", "failed", "No such file", "create its parent"),
    (relative_directory, "runtimeDirectory", "failed", "relative path", "give an absolute one"),
    (open_directory, "runtimeDirectory", "failed", "0755", "chmod 0700"),
    (foreign_directory, "runtimeDirectory", "failed", "another user", "directory of your own"),
    (no_manager, "manager", "failed", "no manager runs", "start tavo_manager"),
    (stopped_manager, "manager", "failed", "is stopped", "kill -CONT {manager}"),
    (no_ability, "abilityFiles", "failed", "66006", "install the service"),
    (bad_ability, "abilityFiles", "failed", 'unknown key "argumnets"', "correct that file"),
    (no_control_ability, "abilityFiles", "warning", "66007", "66007.json"),
    (missing_program, "serviceStart", "failed", "/nonexistent/veltra_server", "install the program"),
    (program_that_is_not_executable, "serviceStart", "failed", "Permission denied", "chmod +x"),
    (program_that_ends, "serviceStart", "failed", "exit status 3", "run it by hand"),
    (program_that_never_registers, "serviceStart", "failed", "did not register", "run it by hand"),
    (stopped_service, "call", "failed", "is stopped", "kill -CONT"),
    (with_faults({"kind": "hang", "operation": "CallAuth"}), "call", "failed", "does not answer", "kill -KILL"),
    (with_faults({"kind": "refuse", "operation": "CallAuth", "code": 1010310104}), "call", "failed", "SERVICE_DENIED",
     "as the user that runs the service"),
    (with_faults({"kind": "refuse", "operation": "RegisterCallBack"}), "callback", "failed", "refused", "veltra status"),
    (no_sensors, "sensors", "failed", "SERVICE_NO_SENSOR", "veltra explain"),
    (shell_log, "log", "warning", '"verbose"', "use debug, info"),
    (manager_log, "log", "warning", "/nonexistent/log", "that this user may write"),
    (good, "sensors", "ok", "level is 2", ""),
]


def examine(row):
    set_up, name, state, what, fix = row
    with System(*sys.argv[1:]) as system:
        set_up(system)
        document = system.json("doctor", status=1 if state == "failed" else 0)
        manager = system.manager.pid if system.manager else 0
        checks = {check["name"]: check for check in document["checks"]}
        shown = f"{set_up.__name__}: {document}"
        require(checks[name]["state"] == state, f"{shown}\n{name} is not {state}")
        require(what in checks[name]["detail"], f"{shown}\n{name} does not say: {what}")
        require(fix.format(manager=manager) in checks[name].get("fix", ""), f"{shown}\n{name} has another fix")
        require(checks["restart"]["state"] == "ok", f"{shown}\nthe private copy does not restart")
        others = [each for each in checks.values() if each["state"] == "failed" and each["name"] != name]
        require(not others, f"{shown}\nmore than one check failed")
        require(document["healthy"] == (state != "failed"), shown)


def interrupted():
    """Ctrl-C ends the private copy, and its folder is removed."""
    with System(*sys.argv[1:]) as system:
        service = " ".join(system.command("veltra_server"))
        # A copy never registers, so that the signal comes during the check.
        system.write_ability(system.write_program(f'[ "$TAVO_RUNTIME_DIR" = {system.runtime} ] && exec {service}\n'
                                                  "exec sleep 100"))
        system.start_manager()
        temporary = system.folder / "tmp"
        temporary.mkdir()
        system.env["TMPDIR"] = str(temporary)
        doctor = system.start("doctor")
        deadline = time.monotonic() + WAIT_S
        while not list(temporary.glob("veltra-doctor-*/run/manager")):
            require(time.monotonic() < deadline, "there is no private copy")
        doctor.send_signal(signal.SIGINT)
        doctor.communicate(timeout=WAIT_S)
        require(doctor.returncode == -signal.SIGINT, f"doctor ended with {doctor.returncode}")
        require(not list(temporary.iterdir()), "the folder of the private copy is still there")


def main():
    # Several wait for seconds, so they wait at the same time.
    with concurrent.futures.ThreadPoolExecutor(max_workers=4) as pool:
        examined = [pool.submit(examine, row) for row in ROWS] + [pool.submit(interrupted)]
    faults = [str(each.exception()) for each in examined if each.exception()]
    require(not faults, "\n\n".join(faults))


main()
