#!/usr/bin/env python3
"""Installs into a separate folder and builds the examples against that, as a user would: with find_package and with
pkg-config. They must print what a running bridge has, which is the installed one. Usage: installed_package.py BUILD_DIR"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from cockpit import Cockpit


def run(*words, **options):
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, words))}: {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def build_with_cmake(example, prefix, work):
    run("cmake", "-S", example, "-B", work, f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", work)


def build_with_pkg_config(example, prefix, work):
    environment = dict(os.environ, PKG_CONFIG_PATH=str(next(prefix.glob("lib*/**/pkgconfig"))))
    compiler = os.environ.get("CXX", "c++")
    for name, package in (("list_displays", "hmxtolubridge"), ("list_popups", "hmxtolubridge-client")):
        flags = run("pkg-config", "--cflags", "--libs", package, env=environment).split()
        run(compiler, "-std=c++20", "-Wall", "-Wextra", "-Werror", example / f"{name}.cpp", *flags, "-o", work / name)


def complaints_about_files(prefix):
    wanted = ["bin/hmxctl", "bin/hmxsim", "bin/hmxtolubridge", "share/hmxtolubridge/worlds/cockpit.json",
              "share/hmxtolubridge/recordings/phone_call.jsonl", "lib/sysusers.d/hmxgateway.conf",
              "share/bash-completion/completions/hmxctl", "share/zsh/site-functions/_hmxctl",
              "share/fish/vendor_completions.d/hmxctl.fish", "share/doc/hmxtolubridge/docs/operating.md"]
    if shutil.which("scdoc"):
        wanted += ["share/man/man1/hmxctl.1", "share/man/man1/hmxsim.1", "share/man/man8/hmxtolubridge.8"]
    return [f"not installed, or empty: {name}" for name in wanted
            if not (prefix / name).is_file() or (prefix / name).stat().st_size == 0]


# What `systemd-analyze security` may find at most, in tenths.
EXPOSURE = {"hmxtolubridge.service": 5, "hmxgateway.service": 15}


def complaints_about_units(prefix):
    if not shutil.which("systemd-analyze"):
        print("systemd's tools are not here: its units are not checked")
        return
    for unit, most in EXPOSURE.items():
        path = prefix / "lib/systemd/system" / unit
        for words in (["verify", "--man=no"], ["security", "--offline=true", f"--threshold={most}"]):
            done = subprocess.run(["systemd-analyze", *words, path], capture_output=True, text=True, check=False)
            about_it = [line for line in done.stderr.splitlines() if "hmx" in line]
            if done.returncode != 0 or about_it:
                yield f"{' '.join(words)} {unit}: {done.returncode} {about_it or done.stdout[-400:]}"


def complaints_about_components(build, folder):
    """The bridge alone: nothing of the programs around it, and nothing to build with."""
    run("cmake", "--install", build, "--prefix", folder, "--component", "bridge")
    found = {str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file()}
    wanted = {"bin/hmxtolubridge", "lib/systemd/system/hmx.target", "lib/systemd/system/hmxtolubridge.service",
              "lib/sysusers.d/hmxtolubridge.conf", "lib/tmpfiles.d/hmxtolubridge.conf"}
    wanted |= found & {"share/man/man8/hmxtolubridge.8"}
    return [f"component bridge: {name}" for name in wanted ^ found]


def main():
    build = Path(sys.argv[1])
    with tempfile.TemporaryDirectory(prefix="hmx_package_") as folder:
        prefix, work = Path(folder) / "prefix", Path(folder) / "work"
        run("cmake", "--install", build, "--prefix", prefix)
        complaints = complaints_about_files(prefix) + list(complaints_about_units(prefix))
        complaints += complaints_about_components(build, Path(folder) / "bridge")
        # Builds the example as installed, outside the source tree. The installation is moved first: it must work in any place.
        moved = Path(folder) / "moved"
        prefix.rename(moved)
        example = moved / "share/doc/hmxtolubridge/examples"
        clients = []
        for name, build_client in (("find_package", build_with_cmake), ("pkg-config", build_with_pkg_config)):
            (work / name).mkdir(parents=True)
            build_client(example, moved, work / name)
            clients.append(work / name)
        lonely = subprocess.Popen([clients[0] / "list_displays"], env=dict(os.environ, KELO_RUNTIME_DIR=folder + "/empty"),
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        with Cockpit(moved / "bin") as cockpit:
            def listed(resource, line):
                rows = json.loads(cockpit.ctl("list", resource, "-o", "json").stdout)["data"]
                return "".join(line(each) for each in rows)

            expected = {"list_displays": listed("displays", lambda each: f"{each['id']}  {each['name']}\n"),
                        "list_popups": listed("popups", lambda each: f"{each['display']}/{each['name']}"
                                                                     f"{'  visible' if each.get('visible') else ''}\n")}
            for program in [built / name for built in clients for name in expected]:
                done = cockpit.run([program])
                if done.stdout != expected[program.name] or not done.stdout or done.stderr:
                    complaints.append(f"{program}: printed\n{done.stdout}{done.stderr}instead of\n{expected[program.name]}")
            # What follows popups from a loop of its own ends with its input, but not before it has seen a change.
            watcher = subprocess.Popen([clients[0] / "watch_popups"], env=cockpit.environment, stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, text=True)
            watched = watcher.stdout.readline()
            cockpit.ctl("update", "popups/Driver_Display/Volume", "requested=true")
            watched += watcher.stdout.readline()
            watcher.communicate("", timeout=30)
            if not watched.startswith("snapshot of ") or "\nchanged {" not in watched or watcher.returncode != 0:
                complaints.append(f"watch_popups: {watcher.returncode}, printed {watched}")
        output, errors = lonely.communicate(timeout=30)
        if lonely.returncode != 1 or output or "503" not in errors:
            complaints.append(f"without a bridge: {lonely.returncode}, {output}{errors}")
    print("\n".join(complaints) or "the installed package serves")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
