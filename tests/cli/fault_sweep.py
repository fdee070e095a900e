"""Fault sweep: every hyln job is run once cleanly and then once for every runtime call N
it makes, with that N-th call failing (with a status, and by throwing). Every run must end
as a backup agent needs it to: exit 0 or 1, a Domino code and text (or the escaped
exception) where it failed, no sanitizer report, no handle left open beyond what the clean
run leaves, and the data directory of a read-only job unchanged. After a failed archive or
restore, clean runs must complete it: the pass, restore and verify without a difference."""
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from xml.etree import ElementTree

BIN_DIR = os.environ["HYLN_TEST_BIN_DIR"]
WORK_DIR = os.environ["HYLN_TEST_WORK_DIR"]
# A sweep by hand over a bigger pass: messages per mail file, and every STRIDE-th call.
MESSAGES = os.environ.get("HYLN_SWEEP_MESSAGES", "2")
STRIDE = int(os.environ.get("HYLN_SWEEP_STRIDE", "1"))
HYLN = os.path.join(BIN_DIR, "hyln")
SEEDER = os.path.join(BIN_DIR, "hyln-seed")
SERVER_DIR = os.path.join(WORK_DIR, "server")

EXPORT_DIR = os.path.join(WORK_DIR, "export")
ARCHIVE_DIR = os.path.join(WORK_DIR, "archive")
MAIL_FILE = "mail/sweep.nsf"

# The jobs that only read the data directory, each as hyln runs it.
JOBS = {
    "discover mailboxes": ["discover", "mailboxes", "--full-name"],
    "discover databases": ["discover", "databases"],
    "discover additional": ["discover", "additional", SERVER_DIR + "/extra1"],
    "export": ["export", MAIL_FILE, "--all", "--out", EXPORT_DIR],
    "views": ["views", MAIL_FILE],
    "index": ["index", MAIL_FILE, "($All)"],
    "select": ["select", MAIL_FILE],
}
ARCHIVE = ["archive", MAIL_FILE, "--out", ARCHIVE_DIR]
RESTORE = ["restore", MAIL_FILE, "--from", ARCHIVE_DIR]
VERIFY = ["verify", MAIL_FILE, "--against", ARCHIVE_DIR]
FAILURES = {"status": "0x0107", "throw": "throw"}
# How hyln reports a failure: the Domino code and text, the library's own line with the
# returned status, or the exception that escaped.
FAILURE_LINE = re.compile(r"hyln: .* failed for .*: .*(Domino code \d+: \S|returned: \[[0-9a-fA-F]+\]|an exception"
                          r"|it is left as it was)")
# Calls the wildcard fault does not count.
UNCOUNTED = {"NotesTerm", "NotesTermThread", "OSLoadString"}
# A release that fails leaves its one object behind, whoever calls it.
RELEASES = {"OSUnlockObject", "OSMemFree", "NSFNoteClose", "NSFDbClose", "IDDestroyTable", "NIFCloseCollection",
            "DXLDeleteExporter", "DXLDeleteImporter", "NSFComputeStop"}
# A note whose close failed keeps the memory of the items read from it.
OWNS_MEMORY = {"NSFNoteClose"}
# Trace lines: "PID Name(arguments) [details]", and at the end
# "PID NotesTerm: N live handles (kind n, ...)".
CALL_LINE = re.compile(r"^\d+ \w+\(")
HANDLES_LINE = re.compile(r"^\d+ NotesTerm: (\d+) live handles(?: \((.*)\))?")


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


def leak_allowance(run, n):
    """One object may stay behind when the failed call was itself a release, a note with
    the memory of its items."""
    failed = run.counted[n - 1] if n <= len(run.counted) else None
    if failed not in RELEASES:
        return 0
    return 1 + (run.live_by_kind.get("memory", 0) if failed in OWNS_MEMORY else 0)


class Run:
    def __init__(self, args, faults=None, data=SERVER_DIR):
        with tempfile.NamedTemporaryFile("r", suffix=".trace", dir=WORK_DIR) as trace:
            env = dict(os.environ, HYSIM_TRACE=trace.name)
            if faults:
                env["HYSIM_FAULTS"] = faults
            result = subprocess.run([HYLN, "--data", data, *args], capture_output=True, env=env,
                                    timeout=120)
            lines = trace.read().splitlines()
        self.code = result.returncode
        self.out = result.stdout.decode(errors="replace")
        self.err = result.stderr.decode(errors="replace")
        names = [line.split(" ", 1)[1].split("(", 1)[0] for line in lines if CALL_LINE.match(line)]
        self.counted = [name for name in names if name not in UNCOUNTED]
        self.calls = len(self.counted)
        last = [m for m in map(HANDLES_LINE.search, lines) if m][-1:]
        self.live_handles = int(last[0].group(1)) if last else 0
        kinds = last[0].group(2) or "" if last else ""
        self.live_by_kind = {kind: int(n) for kind, n in (part.rsplit(" ", 1) for part in kinds.split(", ") if part)}


def setUpModule():
    shutil.rmtree(WORK_DIR, ignore_errors=True)
    os.makedirs(WORK_DIR)
    subprocess.run([SEEDER, "--dir", SERVER_DIR, "--users", "2", "--messages", MESSAGES, "--attachment-size", "64",
                    "--seed", "3", "--extra-dirs", "1"], check=True, capture_output=True, timeout=300)
    first = sorted(n for n in os.listdir(os.path.join(SERVER_DIR, "mail")) if n.endswith(".nsf"))[0]
    shutil.copy(os.path.join(SERVER_DIR, "mail", first), os.path.join(SERVER_DIR, MAIL_FILE))


def copy_server(source, target):
    """A copy of a data directory whose notes.ini names the copy, not the original."""
    shutil.rmtree(target, ignore_errors=True)
    shutil.copytree(source, target)
    ini = os.path.join(target, "notes.ini")
    with open(ini) as original:
        lines = ["Directory=" + target if line.startswith("Directory=") else line for line in original.read().split("\n")]
    with open(ini, "w") as copy:
        copy.write("\n".join(lines))


def exported_notes(data):
    """Each data note of the sweep's mail file as DXL text, by note ID."""
    shutil.rmtree(EXPORT_DIR, ignore_errors=True)
    result = subprocess.run([HYLN, "--data", data, "export", MAIL_FILE, "--all", "--out", EXPORT_DIR],
                            capture_output=True, timeout=120)
    assert result.returncode == 0, result.stderr.decode(errors="replace")
    notes = {}
    for name in os.listdir(EXPORT_DIR):
        with open(os.path.join(EXPORT_DIR, name), encoding="utf-8") as dxl:
            notes[name] = dxl.read()
    return notes


def item_names(dxl):
    return set(re.findall(r"<item name=['\"]([^'\"]+)['\"]", dxl))


class FaultSweep(unittest.TestCase):
    runs = 0

    @classmethod
    def tearDownClass(cls):
        print("\nfault sweep: %d runs" % cls.runs, file=sys.stderr)

    def faulted_runs(self, name, args, data=SERVER_DIR, before_each=lambda: None):
        """The clean run, then one run per call N and failure kind, each checked for what
        every job owes its host; yields (run, n, where) for the job's own checks."""
        clean = Run(args, data=data)
        self.assertEqual(clean.code, 0, clean.err)
        self.assertGreater(clean.calls, 0, "the trace must show the runtime calls")
        for kind, failure in FAILURES.items():
            for n in sorted(set(range(1, clean.calls + 2, STRIDE)) | {clean.calls + 1}):
                before_each()
                run = Run(args, "*=%s@%d" % (failure, n), data=data)
                type(self).runs += 1
                where = "%s, %s at call %d" % (name, kind, n)
                self.assertIn(run.code, (0, 1), where + "\n" + run.err)
                self.assertNotRegex(run.err, r"Sanitizer|runtime error:|terminate called", where)
                if run.code == 1:
                    self.assertRegex(run.err, FAILURE_LINE, where)
                # The library lets exceptions through where it does not guard a call, so a
                # thrown call may strand the handles of the operation it interrupted.
                if kind == "status":
                    self.assertLessEqual(run.live_handles, clean.live_handles + leak_allowance(run, n),
                                         where + ": a handle was left open")
                if n == clean.calls + 1:
                    self.assertEqual((run.code, run.out), (0, clean.out), where + ": past the last call")
                yield run, where

    def sweep(self, job):
        before = snapshot(SERVER_DIR)
        clear_export = lambda: shutil.rmtree(EXPORT_DIR, ignore_errors=True)
        for _, where in self.faulted_runs(job, JOBS[job], before_each=clear_export):
            self.assertEqual(snapshot(SERVER_DIR), before, where + ": the data directory changed")
            if os.path.isdir(EXPORT_DIR):
                for name in os.listdir(EXPORT_DIR):
                    self.assertTrue(name.endswith(".xml"), where + ": " + name + " left behind")
                    ElementTree.parse(os.path.join(EXPORT_DIR, name))  # a written file is whole

    def test_discover_mailboxes(self):
        self.sweep("discover mailboxes")

    def test_discover_databases(self):
        self.sweep("discover databases")

    def test_discover_additional(self):
        self.sweep("discover additional")

    def test_export(self):
        self.sweep("export")

    def test_views(self):
        self.sweep("views")

    def test_index(self):
        self.sweep("index")

    def test_select(self):
        self.sweep("select")

    def assert_clean_run(self, args, data, where):
        run = Run(args, data=data)
        self.assertEqual(run.code, 0, where + ": clean " + args[0] + " afterwards\n" + run.out + run.err)

    def test_archive_completes_on_a_clean_run_after_any_failure(self):
        data = os.path.join(WORK_DIR, "archive-server")

        def fresh():
            copy_server(SERVER_DIR, data)
            shutil.rmtree(ARCHIVE_DIR, ignore_errors=True)

        fresh()
        for _, where in self.faulted_runs("archive", ARCHIVE, data, before_each=fresh):
            for args in (ARCHIVE, RESTORE, VERIFY):
                self.assert_clean_run(args, data, where)

    def test_restore_completes_on_a_clean_run_after_any_failure(self):
        stubbed = os.path.join(WORK_DIR, "stubbed-server")
        copy_server(SERVER_DIR, stubbed)
        shutil.rmtree(ARCHIVE_DIR, ignore_errors=True)
        self.assert_clean_run(ARCHIVE, stubbed, "archive")
        self.assertEqual(Run(VERIFY, data=stubbed).code, 1, "the stubbed note differs from its archive")
        data = os.path.join(WORK_DIR, "restore-server")
        fresh = lambda: copy_server(stubbed, data)
        fresh()
        for _, where in self.faulted_runs("restore", RESTORE, data, before_each=fresh):
            for args in (RESTORE, VERIFY):
                self.assert_clean_run(args, data, where)

    def test_stub_leaves_each_note_untouched_or_fully_stubbed(self):
        data = os.path.join(WORK_DIR, "stub-server")
        fresh = lambda: copy_server(SERVER_DIR, data)
        fresh()
        original = exported_notes(data)
        fresh()
        for _, where in self.faulted_runs("stub", ["stub", MAIL_FILE, "--all"], data, before_each=fresh):
            after = exported_notes(data)
            self.assertEqual(set(after), set(original), where)
            for name, dxl in after.items():
                items = item_names(dxl)
                stubbed = "StubData" in items and not items & {"$FILE", "Body"}
                self.assertTrue(dxl == original[name] or stubbed, where + ": " + name + " is half stubbed")


if __name__ == "__main__":
    unittest.main()
