"""Fault sweep: every hyln job is run once cleanly and then once for every runtime call N
it makes, with that N-th call failing (with a status, and by throwing). Every run must end
as a backup agent needs it to: exit 0 or 1, a Domino code and text (or the escaped
exception) where it failed, no sanitizer report, no handle left open beyond what the clean
run leaves, and the data directory of a read-only job unchanged."""
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BIN_DIR = os.environ["HYLN_TEST_BIN_DIR"]
WORK_DIR = os.environ["HYLN_TEST_WORK_DIR"]
HYLN = os.path.join(BIN_DIR, "hyln")
SEEDER = os.path.join(BIN_DIR, "hyln-seed")
SERVER_DIR = os.path.join(WORK_DIR, "server")

# The jobs, each as hyln runs it; all of them only read the data directory.
JOBS = {
    "discover mailboxes": ["discover", "mailboxes", "--full-name"],
    "discover databases": ["discover", "databases"],
    "discover additional": ["discover", "additional", SERVER_DIR + "/extra1"],
}
FAILURES = {"status": "0x0107", "throw": "throw"}
CALL_LINE = re.compile(r"^\w+\(")
HANDLES_LINE = re.compile(r"live handles: (\d+)")


def snapshot(directory):
    """Names and contents of the database files (SQLite's transient side files aside)."""
    digest = {}
    for root, _, files in os.walk(directory):
        for name in files:
            if name.endswith(("-wal", "-shm", "-journal")):
                continue
            path = os.path.join(root, name)
            with open(path, "rb") as content:
                digest[os.path.relpath(path, directory)] = hashlib.sha256(content.read()).hexdigest()
    return digest


class Run:
    def __init__(self, args, faults=None):
        with tempfile.NamedTemporaryFile("r", suffix=".trace", dir=WORK_DIR) as trace:
            env = dict(os.environ, HYSIM_TRACE=trace.name)
            if faults:
                env["HYSIM_FAULTS"] = faults
            result = subprocess.run([HYLN, "--data", SERVER_DIR, *args], capture_output=True, env=env,
                                    timeout=120)
            lines = trace.read().splitlines()
        self.code = result.returncode
        self.out = result.stdout.decode(errors="replace")
        self.err = result.stderr.decode(errors="replace")
        self.calls = sum(1 for line in lines if CALL_LINE.match(line))
        counts = [int(m.group(1)) for m in map(HANDLES_LINE.search, lines) if m]
        self.live_handles = counts[-1] if counts else 0


def setUpModule():
    shutil.rmtree(WORK_DIR, ignore_errors=True)
    os.makedirs(WORK_DIR)
    subprocess.run([SEEDER, "--dir", SERVER_DIR, "--users", "2", "--messages", "1", "--attachment-size", "64",
                    "--seed", "3", "--extra-dirs", "1"], check=True, capture_output=True, timeout=300)


class FaultSweep(unittest.TestCase):
    runs = 0

    @classmethod
    def tearDownClass(cls):
        print("\nfault sweep: %d runs" % cls.runs, file=sys.stderr)

    def sweep(self, job):
        before = snapshot(SERVER_DIR)
        clean = Run(JOBS[job])
        self.assertEqual(clean.code, 0, clean.err)
        self.assertGreater(clean.calls, 0, "the trace must show the runtime calls")
        for kind, failure in FAILURES.items():
            for n in range(1, clean.calls + 2):
                run = Run(JOBS[job], "*=%s@%d" % (failure, n))
                type(self).runs += 1
                where = "%s, %s at call %d" % (job, kind, n)
                self.assertIn(run.code, (0, 1), where + "\n" + run.err)
                self.assertNotRegex(run.err, r"Sanitizer|runtime error:|terminate called", where)
                if run.code == 1:
                    self.assertRegex(run.err, r"hyln: .* failed for .*: (Domino code \d+: \S|an exception)", where)
                self.assertLessEqual(run.live_handles, clean.live_handles, where + ": a handle was left open")
                self.assertEqual(snapshot(SERVER_DIR), before, where + ": the data directory changed")
                if n == clean.calls + 1:
                    self.assertEqual((run.code, run.out), (0, clean.out), where + ": past the last call")

    def test_discover_mailboxes(self):
        self.sweep("discover mailboxes")

    def test_discover_databases(self):
        self.sweep("discover databases")

    def test_discover_additional(self):
        self.sweep("discover additional")


if __name__ == "__main__":
    unittest.main()
