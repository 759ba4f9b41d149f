"""The rows of what a recovery log costs, and how fast it brings a text back. The files lie on a disk: a text in memory
has no log."""
import os
import pty
import select
import shutil
import statistics
import subprocess
import time

KEYS, TYPED, TURNS = 2000, 100000, 5


class Session:
    """kpe on a terminal of its own, with a home of its own in the directory."""
    def __init__(self, kpe, directory, path, log=True):
        self.home = directory / "home"
        shutil.rmtree(self.home, ignore_errors=True)
        self.home.mkdir()
        environment = {"TERM": "xterm", "HOME": str(self.home), "PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8"}
        if not log:
            environment["KPE_NO_RECOVERY"] = "1"
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.execve(kpe, [kpe, path], environment)

    def read_until_quiet(self, seconds):
        while select.select([self.terminal], [], [], seconds)[0]:
            os.read(self.terminal, 1 << 20)

    def send(self, keys):
        os.write(self.terminal, keys)

    def end(self, number=9):
        os.kill(self.pid, number)
        os.waitpid(self.pid, 0)
        os.close(self.terminal)

    def log_bytes(self):
        logs = self.home / ".local/state/kpe/recovery"
        return sum(log.stat().st_size for log in logs.iterdir()) if logs.exists() else 0


def key_time(kpe, directory, path, log):
    """Milliseconds from a typed key to what it shows, the median; and the bytes of the log for each key."""
    session = Session(kpe, directory, path, log)
    session.read_until_quiet(0.5)
    session.send(b"CHANGE\r")
    session.read_until_quiet(0.5)
    taken = []
    for i in range(KEYS):
        begun = time.perf_counter()
        session.send(b"x" if i % 2 == 0 else b"\x7f")
        select.select([session.terminal], [], [], 5)
        taken.append(time.perf_counter() - begun)
        session.read_until_quiet(0.001)  # or what is left would count as the answer to the next key
    size = session.log_bytes()
    session.end()
    return statistics.median(taken) * 1000, size / KEYS


def substitution_time(kpe, directory, path, log):
    session = Session(kpe, directory, path, log)
    session.read_until_quiet(1)
    session.send(b"SUBSTITUTE/status/STATUS/ WHOLE\r")
    begun, tail = time.perf_counter(), b""
    while b"ubstitution" not in tail[-80:] or not tail.endswith(b"*"):
        tail = (tail + os.read(session.terminal, 1 << 20))[-200:]
    taken = time.perf_counter() - begun
    session.end()
    return taken * 1000


def recovery_time(kpe, directory, path):
    """Milliseconds that kpe-recover takes for a session of 100,000 typed keys that was killed."""
    session = Session(kpe, directory, path)
    session.read_until_quiet(0.5)
    session.send(b"CHANGE\r")
    session.read_until_quiet(0.5)
    for _ in range(TYPED // 50):
        session.send(b"typed text of words that stay on lines of theirs\r\r")
        session.read_until_quiet(0.002)
    session.read_until_quiet(1)
    session.end()
    begun = time.perf_counter()
    done = subprocess.run([kpe + "-recover", "--write", str(directory / "out"), path],
                          env=dict(os.environ, HOME=str(session.home)), capture_output=True)
    taken = time.perf_counter() - begun
    good = done.returncode == 0 and (directory / "out").read_bytes().count(b"typed text") == TYPED // 50
    (directory / "out").unlink(missing_ok=True)
    return taken * 1000, good


def rows(kpe, directory, small, large):
    """Yields a line for each row: the name, the figure, and what is wanted of it."""
    keys = {log: [] for log in (False, True)}
    sizes = []
    for _ in range(TURNS):
        for log in keys:
            taken, size = key_time(kpe, directory, small, log)
            keys[log].append(taken)
            if log:
                sizes.append(size)
    without, with_log = statistics.median(keys[False]), statistics.median(keys[True])
    yield f"typed key: {with_log:.4f} ms with a log, {without:.4f} without: {with_log / without:.2f} (wanted 1.05)"
    yield f"log of a typed key: {statistics.median(sizes):.0f} bytes (wanted 40)"
    if large:
        every = {log: [substitution_time(kpe, directory, large, log) for _ in range(3)] for log in (False, True)}
        without, with_log = statistics.median(every[False]), statistics.median(every[True])
        yield f"S WHOLE over 115 MB: {with_log:.0f} ms with a log, {without:.0f} without: " \
              f"{with_log / without:.2f} (wanted 1.5)"
    taken, good = recovery_time(kpe, directory, small)
    yield f"recovering {TYPED} typed keys: {taken:.0f} ms (wanted 1000)" + ("" if good else " RESULTS DIFFER")
