"""A simulator and a bridge in a runtime directory of their own, for tests of whole programs."""

import os
import shutil
import subprocess
import tempfile
import time
from pathlib import Path


class Cockpit:
    """Running processes and the environment in which they are found. Everything ends with the `with` block."""

    def __init__(self, binaries, world="cockpit", bridge=True, sim_options=()):
        self.binaries = Path(binaries).resolve()
        self.directory = Path(tempfile.mkdtemp(prefix="hmx_cockpit_"))
        run = self.directory / "run"
        run.mkdir(mode=0o700)
        self.environment = dict(os.environ, KELO_RUNTIME_DIR=str(run), LC_ALL="C.UTF-8",
                                PATH=f"{self.binaries}:{os.environ['PATH']}")
        for name in ("KELO_TRACE", "KELO_DOMAIN", "NO_COLOR", "XDG_RUNTIME_DIR"):
            self.environment.pop(name, None)
        self.world, self.bridge, self.sim_options = world, bridge, sim_options
        self.processes = {}

    def __enter__(self):
        try:
            self.start("hmxsim", "--world", str(self.world), *self.sim_options)
            if self.bridge:
                self.start("hmxtolubridge")
                self.wait_for("/hmx")
            else:
                self.wait_for("/hmxsim")
            return self
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        for name in list(self.processes):
            self.stop(name)
        shutil.rmtree(self.directory, ignore_errors=True)

    def start(self, program, *words):
        with open(self.directory / f"{program}.log", "ab") as log:
            self.processes[program] = subprocess.Popen([self.binaries / program, *words], env=self.environment, stderr=log,
                                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    def stop(self, program, signal=15):
        process = self.processes.pop(program)
        process.send_signal(signal)
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def wait_for(self, service):
        """Until the service answers; the client does the waiting."""
        end = time.monotonic() + 20
        while True:
            done = self.ctl("--timeout", "10s", "call", service, "retrieve", "/$platform/status")
            if done.returncode == 0:
                return
            if time.monotonic() > end or any(each.poll() is not None for each in self.processes.values()):
                logs = "\n".join(path.read_text() for path in self.directory.glob("*.log"))
                raise RuntimeError(f"{service} did not come: {done.stderr}{logs}")
            time.sleep(0.02)

    def run(self, words, **options):
        options = {"capture_output": True, "text": True, "stdin": subprocess.DEVNULL, "timeout": 60, "check": False, **options}
        return subprocess.run(words, env=self.environment, **options)

    def ctl(self, *words, **options):
        return self.run(["hmxctl", *words], **options)
