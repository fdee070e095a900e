"""hyln as its users drive it: command-line conventions, standard output that stays
parseable, interruption, and data paths that a shell would misread."""
import json
import os
import re
import shutil
import signal
import subprocess
import unittest
from xml.etree import ElementTree

BIN_DIR = os.environ["HYLN_TEST_BIN_DIR"]
WORK_DIR = os.environ["HYLN_TEST_WORK_DIR"]
HYLN = os.path.join(BIN_DIR, "hyln")
SEEDER = os.path.join(BIN_DIR, "hyln-seed")
SERVER_DIR = os.path.join(WORK_DIR, "server")
USERS_REPORTED = 25  # the seeded server's mail files that discovery reports


def run(*args, env=None, cwd=None):
    # Bytes decoded here: text mode would turn the progress line's carriage returns into line ends.
    result = subprocess.run([HYLN, *args], capture_output=True, env=env, cwd=cwd, timeout=300)
    result.stdout = result.stdout.decode()
    result.stderr = result.stderr.decode()
    return result


def json_lines(stdout):
    return [json.loads(line) for line in stdout.splitlines()]


def setUpModule():
    shutil.rmtree(WORK_DIR, ignore_errors=True)
    os.makedirs(WORK_DIR)
    subprocess.run([SEEDER, "--dir", SERVER_DIR, "--users", "25", "--messages", "2", "--seed", "7",
                    "--extra-dirs", "2"], check=True, capture_output=True, timeout=300)


class Conventions(unittest.TestCase):
    def test_help_goes_to_standard_output_and_exits_0(self):
        for args in (["--help"], ["-h"], ["help"], ["help", "discover"], ["help", "discover", "mailboxes"],
                     ["discover", "mailboxes", "--help"], ["demo", "-h"]):
            with self.subTest(args=args):
                result = run(*args)
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertIn("Usage:", result.stdout)
                self.assertEqual(result.stderr, "")
        self.assertIn("--full-name", run("help", "discover", "mailboxes").stdout)
        self.assertIn("\"type\"", run("--help").stdout, "the JSON keys are documented")

    def test_version_names_library_and_runtime(self):
        result = run("--version")
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.splitlines()
        self.assertRegex(lines[0], r"^hyln \d+\.\d+\.\d+$")
        self.assertRegex(lines[1], r"^library: HYLNTool \d+\.\d+\.\d+ built \d{4}-\d\d-\d\d \(.*libHYLNTool\.so")
        self.assertRegex(lines[2], r"^runtime: .*\(HYLNTool simulated runtime ")
        missing = run("--domino", os.path.join(WORK_DIR, "nowhere"), "--version")
        self.assertIn("runtime: none at", missing.stdout)

    def test_usage_errors_name_the_culprit_and_exit_2(self):
        cases = {("--bogus",): "--bogus", ("discover", "mailboxes", "--bogus"): "--bogus",
                 ("--data",): "--data", ("--log-level", "x", "demo"): "--log-level",
                 ("discover", "databases", "a", "b"): "b", ("help", "nope"): "nope", (): "command is required",
                 ("discover",): "command is required", ("discover", "additional"): "directories",
                 ("archive", "--out", "x"): "--all-mailboxes", ("archive", "db", "--out", "x", "--older-than", "3w"):
                 "--older-than", ("restore", "db"): "--from", ("index", "db"): "view", ("translog",): "--out"}
        for args, named in cases.items():
            with self.subTest(args=args):
                result = run(*args)
                self.assertEqual(result.returncode, 2)
                self.assertIn(named, result.stderr)
                self.assertEqual(result.stdout, "")

    def test_failure_exits_1_with_the_domino_code_and_the_path(self):
        nowhere = os.path.join(WORK_DIR, "no-such-data")
        result = run("--data", nowhere, "discover", "databases")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, r"hyln: starting the Domino runtime failed for .*" + nowhere +
                         r"/notes\.ini: Domino code \d+: \S")

    def test_a_relative_data_directory_is_taken_from_the_current_directory(self):
        result = run("--data", os.path.basename(SERVER_DIR), "discover", "databases", cwd=WORK_DIR)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("names.nsf", result.stdout)

    def test_what_the_library_prints_itself_stays_off_standard_output(self):
        result = run("--domino", os.path.join(WORK_DIR, "nowhere"), "--data", SERVER_DIR, "discover", "mailboxes")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, "")
        self.assertIn("dynamic loading failed", result.stderr)
        self.assertIn("Domino code 1:", result.stderr)


class BadInput(unittest.TestCase):
    def test_paths_too_long_for_the_runtime_fail_cleanly(self):
        deep = "/" + "d" * 1100
        for args in (["--data", SERVER_DIR, "--ini", deep], ["--data", deep],
                     ["--data", SERVER_DIR, "--domino", deep]):
            with self.subTest(option=args[-2]):
                result = run(*args, "discover", "mailboxes")
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertIn("longer than 1023", result.stderr)
                self.assertNotIn("Sanitizer", result.stderr)

    def test_an_exception_from_the_runtime_ends_the_job_not_the_process(self):
        for fault, culprit in (("NSFDbOpen=throw@3", "NSFDbOpen"), ("NAMELookup2=throw", "NAMELookup2")):
            with self.subTest(fault=fault):
                env = dict(os.environ, HYSIM_FAULTS=fault)
                result = run("--json", "--data", SERVER_DIR, "discover", "mailboxes", env=env)
                self.assertEqual(result.returncode, 1, result.stderr)
                error = json_lines(result.stdout)[-1]
                self.assertEqual(error["type"], "error")
                self.assertIn("exception", error["message"])
                self.assertIn(culprit, error["message"])

    def test_a_throwing_shutdown_is_reported_after_the_work(self):
        env = dict(os.environ, HYSIM_FAULTS="NotesTerm=throw")
        result = run("--data", SERVER_DIR, "discover", "databases", env=env)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("names.nsf", result.stdout)
        self.assertIn("stopping the Domino runtime failed: injected exception in NotesTerm", result.stderr)


class JsonOutput(unittest.TestCase):
    COMMANDS = [["discover", "mailboxes"], ["discover", "mailboxes", "--quick"], ["discover", "databases"],
                ["discover", "additional", SERVER_DIR + "/extra1?" + SERVER_DIR + "/extra2"],
                ["discover", "additional", "--list", SERVER_DIR + "/extra1"]]

    def test_every_command_writes_records_then_one_summary(self):
        for command in self.COMMANDS:
            with self.subTest(command=command):
                result = run("--json", "--data", SERVER_DIR, *command)
                self.assertEqual(result.returncode, 0, result.stderr)
                lines = json_lines(result.stdout)
                records, summary = lines[:-1], lines[-1]
                self.assertEqual(summary["type"], "summary")
                self.assertEqual(summary["command"], " ".join(command[:2]))
                self.assertEqual(summary["databases"], len(records))
                self.assertFalse(summary["interrupted"])
                self.assertTrue(records)
                for record in records:
                    self.assertEqual(record["type"], "database")
                    self.assertTrue(record["path"])

    def test_full_records_split_into_named_fields(self):
        result = run("--json", "--data", SERVER_DIR, "discover", "mailboxes", "--full-name")
        records = json_lines(result.stdout)[:-1]
        self.assertEqual(len(records), USERS_REPORTED)
        for record in records:
            self.assertEqual(set(record), {"type", "command", "path", "title", "view", "replica", "owner"})
            self.assertRegex(record["replica"], r"^[0-9A-F]+:[0-9A-F]{8}$")
            self.assertTrue(record["owner"].startswith("CN="))

    def test_failures_are_json_too(self):
        for domino in (os.path.join(WORK_DIR, "nowhere"), None):
            args = ["--json", "--data", os.path.join(WORK_DIR, "no-such-data")]
            if domino:
                args += ["--domino", domino]
            with self.subTest(domino=domino):
                result = run(*args, "discover", "databases")
                self.assertEqual(result.returncode, 1)
                [error] = json_lines(result.stdout)
                self.assertEqual(error["type"], "error")
                self.assertEqual(error["command"], "discover databases")
                self.assertIsInstance(error["code"], int)
                self.assertNotEqual(error["code"], 0)
                self.assertTrue(error["message"])

    def test_demo_is_json_lines_throughout(self):
        result = run("--json", "--data", SERVER_DIR, "demo")
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = json_lines(result.stdout)
        summaries = [line["command"] for line in lines if line["type"] == "summary"]
        self.assertEqual(summaries, ["discover mailboxes", "discover databases", "discover additional", "archive",
                                     "restore", "verify"])
        self.assertEqual(lines[-1]["differences"], 0)


def copy_server(source, target):
    """A copy of a data directory whose notes.ini names the copy, not the original."""
    shutil.rmtree(target, ignore_errors=True)
    shutil.copytree(source, target)
    ini = os.path.join(target, "notes.ini")
    with open(ini) as original:
        lines = ["Directory=" + target if line.startswith("Directory=") else line for line in original.read().split("\n")]
    with open(ini, "w") as copy:
        copy.write("\n".join(lines))


def mail_file():
    return "mail/" + sorted(n for n in os.listdir(os.path.join(SERVER_DIR, "mail")) if n.endswith(".nsf"))[0]


class Notes(unittest.TestCase):
    def export(self, *args, data=SERVER_DIR):
        out = os.path.join(WORK_DIR, "export-" + "-".join(a.strip("-") for a in args[-2:]))
        shutil.rmtree(out, ignore_errors=True)
        return run("--json", "--data", data, "export", *args, "--out", out), out

    def test_export_writes_one_complete_dxl_file_per_note(self):
        for mode in ([], ["--file-mode"]):
            with self.subTest(mode=mode):
                result, out = self.export(mail_file(), "--all", *mode)
                self.assertEqual(result.returncode, 0, result.stderr)
                lines = json_lines(result.stdout)
                notes, summary = lines[:-1], lines[-1]
                self.assertEqual(summary["notes"], len(notes))
                self.assertEqual(sorted(os.listdir(out)), sorted(n["note_id"] + ".xml" for n in notes))
                for note in notes:
                    self.assertEqual(note["type"], "note")
                    self.assertEqual(os.path.getsize(note["path"]), note["bytes"])
                    root = ElementTree.parse(note["path"]).getroot()
                    self.assertEqual(root.tag, "{http://www.lotus.com/dxl}document")

    def test_export_of_chosen_notes_and_of_notes_that_are_not_there(self):
        _, out = self.export(mail_file(), "--all")
        first = sorted(os.listdir(out))[0][:-4]
        result, _ = self.export(mail_file(), first)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual([line["note_id"] for line in json_lines(result.stdout)[:-1]], [first])
        missing, _ = self.export(mail_file(), "0x7FFFFFF0")
        self.assertEqual(missing.returncode, 1)
        self.assertEqual([line["type"] for line in json_lines(missing.stdout)], ["error", "summary"])
        self.assertIn("opening note 0x7FFFFFF0 failed", missing.stderr)
        for args in (["banana"], [], [first, "--all"]):
            with self.subTest(args=args):
                self.assertEqual(self.export(mail_file(), *args)[0].returncode, 2)

    def test_stub_strips_a_note_once_and_marks_it(self):
        data = os.path.join(WORK_DIR, "stub-server")
        copy_server(SERVER_DIR, data)
        first = run("--json", "--data", data, "stub", mail_file(), "--all")
        self.assertEqual(first.returncode, 0, first.stderr)
        stubbed = json_lines(first.stdout)[:-1]
        self.assertTrue(all(note["stubbed"] for note in stubbed))
        self.assertGreater(sum(note["attachments"] for note in stubbed), 0)
        again = run("--json", "--data", data, "stub", mail_file(), "--all")
        self.assertFalse(any(note["stubbed"] for note in json_lines(again.stdout)[:-1]))
        _, out = self.export(mail_file(), "--all", data=data)
        for name in os.listdir(out):
            items = {item.get("name") for item in ElementTree.parse(os.path.join(out, name)).getroot()
                     if item.tag.endswith("item")}
            self.assertIn("StubData", items)
            self.assertIn("AttachmentData", items)
            self.assertFalse(items & {"$FILE", "Body"}, name)


class Progress(unittest.TestCase):
    def test_progress_only_on_request_when_not_a_terminal(self):
        plain = run("--data", SERVER_DIR, "discover", "mailboxes")
        self.assertNotIn("\r", plain.stderr)
        self.assertIn("reported 25 databases", plain.stderr)
        forced = run("--progress", "--data", SERVER_DIR, "discover", "mailboxes")
        self.assertIn("\r25 databases reported...", forced.stderr)
        quiet = run("--quiet", "--progress", "--data", SERVER_DIR, "discover", "mailboxes")
        self.assertNotIn("\r", quiet.stderr)
        self.assertNotIn("reported 25 databases", quiet.stderr)
        self.assertEqual(quiet.stdout, plain.stdout)


class Interruption(unittest.TestCase):
    def interrupt_after_first_record(self, *args):
        # Every database open takes a while, so discovery is still running when the signal comes.
        env = dict(os.environ, HYSIM_FAULTS="NSFDbOpen=delay:150")
        process = subprocess.Popen([HYLN, "--data", SERVER_DIR, *args], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env=env)
        first = process.stdout.readline()
        process.send_signal(signal.SIGINT)
        rest, errors = process.communicate(timeout=120)
        return process.returncode, first + rest, errors

    def test_ctrl_c_ends_discovery_after_the_current_item_with_130(self):
        code, out, errors = self.interrupt_after_first_record("discover", "mailboxes")
        self.assertEqual(code, 130, errors)
        self.assertIn("(interrupted)", errors)
        self.assertLess(len(out.splitlines()), USERS_REPORTED)

    def test_interrupted_json_run_ends_with_its_summary(self):
        code, out, _ = self.interrupt_after_first_record("--json", "discover", "mailboxes")
        self.assertEqual(code, 130)
        lines = json_lines(out)
        self.assertEqual(lines[-1]["type"], "summary")
        self.assertTrue(lines[-1]["interrupted"])
        self.assertEqual(lines[-1]["databases"], len(lines) - 1)


class RuntimeFaults(unittest.TestCase):
    """HYSIM_FAULTS as a host's own CI sets it for the simulated runtime."""

    def test_a_malformed_entry_stops_start_up_and_is_named_once(self):
        for entry in ("NSFDbOpen=banana", "NSFDbOpen", "NoSuchCall=0x0103", "NSFDbOpen=0x0103@0", "NSFDbOpen=0x0103@x",
                      "*=delay:soon"):
            with self.subTest(entry=entry):
                env = dict(os.environ, HYSIM_FAULTS="NSFNoteOpen=0x0103;" + entry)
                result = run("--data", SERVER_DIR, "discover", "mailboxes", env=env)
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertEqual(result.stdout, "")
                named = "HYSIM_FAULTS entry [" + entry + "]"
                runtime_lines = [line for line in result.stderr.splitlines() if line.startswith("hysim:")]
                self.assertEqual(len(runtime_lines), 1, result.stderr)
                self.assertIn(named, runtime_lines[0])
                self.assertRegex(result.stderr, r"hyln: starting the Domino runtime failed .*: Domino code 16142: "
                                 r".*" + re.escape(named))

    def test_every_call_fault_counts_start_up_and_leaves_the_message_text(self):
        env = dict(os.environ, HYSIM_FAULTS="*=0x0103")
        result = run("--data", SERVER_DIR, "discover", "databases", env=env)
        self.assertEqual(result.returncode, 1)
        self.assertIn("Domino code 259: File does not exist", result.stderr)
        env = dict(os.environ, HYSIM_FAULTS="*=0x0103@100000")
        self.assertEqual(run("--data", SERVER_DIR, "discover", "databases", env=env).returncode, 0,
                         "a fault that never comes changes nothing")


class RuntimeTrace(unittest.TestCase):
    """HYSIM_TRACE=FILE or - streams the simulated runtime's call trace."""

    def trace_lines(self, path):
        with open(path) as trace:
            return [line.rstrip("\n").split(" ", 1) for line in trace]

    def test_a_trace_file_gets_each_call_while_the_host_runs(self):
        path = os.path.join(WORK_DIR, "trace-running.txt")
        if os.path.exists(path):
            os.remove(path)
        env = dict(os.environ, HYSIM_TRACE=path, HYSIM_FAULTS="NSFDbOpen=delay:150")
        process = subprocess.Popen([HYLN, "--data", SERVER_DIR, "discover", "mailboxes"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env=env)
        first_record = process.stdout.readline()
        while_running = self.trace_lines(path)
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=120)
        self.assertTrue(first_record)
        self.assertEqual({pid for pid, _ in while_running}, {str(process.pid)})
        calls = [call for _, call in while_running]
        self.assertTrue(calls[0].startswith("NotesInitExtended("), calls[0])
        self.assertIn("NSFDbOpen(*, *) [" + first_record.split("<12>")[0] + "]", calls,
                      "the call behind the first record, with its path, before the host has ended")
        self.assertIn("NotesTerm()", [call for _, call in self.trace_lines(path)])

    def test_several_processes_share_one_trace_file(self):
        path = os.path.join(WORK_DIR, "trace-demo.txt")
        data = os.path.join(WORK_DIR, "trace-demo-server")
        shutil.rmtree(data, ignore_errors=True)
        if os.path.exists(path):
            os.remove(path)
        process = subprocess.run([HYLN, "--quiet", "--data", data, "demo"], capture_output=True, timeout=300,
                                 env=dict(os.environ, HYSIM_TRACE=path))
        self.assertEqual(process.returncode, 0, process.stderr)
        lines = self.trace_lines(path)
        writers = {pid for pid, _ in lines}
        self.assertGreaterEqual(len(writers), 2, "hyln and the seeder it starts")
        for pid, call in lines:
            self.assertRegex(pid, r"^\d+$")
            self.assertRegex(call, r"^\w+\(.*\)|^NotesTerm: \d+ live handles", "whole lines, never two mixed")
        self.assertTrue(any(call.startswith("NSFDbCreate(") for _, call in lines))

    def test_the_last_line_counts_the_handles_the_host_left_open(self):
        for command, leaves_open in ((["discover", "databases"], False), (["discover", "mailboxes"], True)):
            with self.subTest(command=command):
                path = os.path.join(WORK_DIR, "trace-handles.txt")
                if os.path.exists(path):
                    os.remove(path)
                result = run("--quiet", "--data", SERVER_DIR, *command, env=dict(os.environ, HYSIM_TRACE=path))
                self.assertEqual(result.returncode, 0, result.stderr)
                calls = [call for _, call in self.trace_lines(path)]
                self.assertEqual(calls[-2], "NotesTerm()")
                last = re.fullmatch(r"NotesTerm: (\d+) live handles(?: \((.*)\))?", calls[-1])
                self.assertIsNotNone(last, calls[-1])
                # Discovery keeps the database of every mail file it reports open.
                opened = sum(call.startswith("NSFDbOpen(") for call in calls)
                closed = sum(call.startswith("NSFDbClose(") for call in calls)
                self.assertEqual(int(last.group(1)), opened - closed)
                self.assertEqual(opened > closed, leaves_open)
                if leaves_open:
                    self.assertEqual(last.group(2), "database %d" % (opened - closed))

    def test_standard_error_or_memory(self):
        to_stderr = run("--quiet", "--data", SERVER_DIR, "discover", "databases", env=dict(os.environ, HYSIM_TRACE="-"))
        self.assertEqual(to_stderr.returncode, 0)
        self.assertRegex(to_stderr.stderr, r"(?m)^\d+ NotesInitExtended\(")
        self.assertNotIn("NotesInitExtended(", to_stderr.stdout)
        in_memory = run("--quiet", "--data", SERVER_DIR, "discover", "databases", env=dict(os.environ, HYSIM_TRACE="1"))
        self.assertEqual(in_memory.returncode, 0)
        self.assertNotIn("NotesInitExtended(", in_memory.stderr + in_memory.stdout)


class DemoPaths(unittest.TestCase):
    def test_a_data_path_that_a_shell_would_misread_is_just_a_path(self):
        scratch = os.path.join(WORK_DIR, "injection")
        os.makedirs(scratch, exist_ok=True)
        data = os.path.join(scratch, "it's a \"data\" dir; touch INJECTED; $(touch INJECTED2)")
        result = run("--data", data, "demo", cwd=scratch)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(os.path.exists(os.path.join(data, "names.nsf")))
        self.assertEqual(sorted(os.listdir(scratch)), [os.path.basename(data), os.path.basename(data) + "-archive"])
        self.assertIn("found 6 databases in", result.stderr)

    def test_demo_reports_a_seeder_that_fails(self):
        blocked = os.path.join(WORK_DIR, "a-file")
        open(blocked, "w").close()
        result = run("--data", blocked, "demo")
        self.assertEqual(result.returncode, 1)
        self.assertIn("seeding the sample server failed for " + blocked, result.stderr)


if __name__ == "__main__":
    unittest.main()
