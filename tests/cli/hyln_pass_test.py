"""The archiving pass as a backup agent runs it through hyln: views, index lines and the
selection it rests on, then archive, restore and verify, also when the pass is killed; and
the transaction-log extents the changes fill, copied by translog."""
import json
import os
import random
import re
import shutil
import signal
import subprocess
import time
import unittest
from xml.etree import ElementTree

BIN_DIR = os.environ["HYLN_TEST_BIN_DIR"]
WORK_DIR = os.environ["HYLN_TEST_WORK_DIR"]
HYLN = os.path.join(BIN_DIR, "hyln")
SEEDER = os.path.join(BIN_DIR, "hyln-seed")
SERVER_DIR = os.path.join(WORK_DIR, "server")
MAIL_FILE = "mail/pass.nsf"
NOTE_ID = re.compile(r"^0x[0-9A-F]{8}$")


def run(*args, data=SERVER_DIR, timeout=600):
    result = subprocess.run([HYLN, "--data", data, *args], capture_output=True, timeout=timeout)
    result.stdout = result.stdout.decode(errors="replace")
    result.stderr = result.stderr.decode(errors="replace")
    return result


def json_run(*args, data=SERVER_DIR):
    result = run("--json", *args, data=data)
    lines = [json.loads(line) for line in result.stdout.splitlines()]
    return result, [line for line in lines if line["type"] != "summary"], [l for l in lines if l["type"] == "summary"]


def copy_server(target, **settings):
    """A copy of the seeded server whose notes.ini names the copy, with `settings` added."""
    shutil.rmtree(target, ignore_errors=True)
    shutil.copytree(SERVER_DIR, target)
    ini = os.path.join(target, "notes.ini")
    with open(ini) as original:
        lines = ["Directory=" + target if line.startswith("Directory=") else line for line in original.read().split("\n")]
    lines = [line for line in lines if line] + ["%s=%s" % setting for setting in settings.items()]
    with open(ini, "w") as copy:
        copy.write("\n".join(lines) + "\n")
    return target


def setUpModule():
    shutil.rmtree(WORK_DIR, ignore_errors=True)
    os.makedirs(WORK_DIR)
    subprocess.run([SEEDER, "--dir", SERVER_DIR, "--users", "2", "--messages", "60", "--attachment-size", "512",
                    "--seed", "5", "--extra-dirs", "0"], check=True, capture_output=True, timeout=300)
    first = sorted(n for n in os.listdir(os.path.join(SERVER_DIR, "mail")) if n.endswith(".nsf"))[0]
    shutil.copy(os.path.join(SERVER_DIR, "mail", first), os.path.join(SERVER_DIR, MAIL_FILE))


class ViewsAndIndex(unittest.TestCase):
    def test_views_names_the_mailbox_views_and_folders(self):
        result, records, summary = json_run("views", MAIL_FILE)
        self.assertEqual(result.returncode, 0, result.stderr)
        names = {record["name"] for record in records}
        self.assertTrue({"($All)", "Projects", "Projects\\Alpha", "Projects\\Alpha\\Old", "Customers"} <= names,
                        names)
        self.assertEqual(summary[0]["views"], len(records))

    def test_index_lines_carry_the_note_id_then_one_field_per_visible_column(self):
        result, records, summary = json_run("index", MAIL_FILE, "($All)")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(records[0]["type"], "columns")
        titles = records[0]["titles"]
        self.assertGreater(len(titles), 0)
        entries = [record for record in records[1:] if not record["category"]]
        self.assertGreaterEqual(len(entries), 60, "every memo of the mail file")
        for entry in entries:
            self.assertRegex(entry["note_id"], NOTE_ID)
            self.assertEqual(len(entry["fields"]), len(titles), entry)
        self.assertEqual(summary[0]["entries"], len(records) - 1)
        text = run("index", MAIL_FILE, "($All)")
        first_entry = text.stdout.splitlines()[1]
        self.assertRegex(first_entry, r"^[0-9a-f]{8}\|", "separators are shown as |")
        self.assertNotIn("\x12", text.stdout)

    def test_an_unknown_view_fails_with_the_domino_code(self):
        result = run("index", MAIL_FILE, "No Such View")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, r"finding the view failed for No Such View: Domino code \d+")


class Selection(unittest.TestCase):
    def select(self, *extra):
        result, records, summary = json_run("select", MAIL_FILE, *extra)
        self.assertEqual(result.returncode, 0, result.stderr)
        return {record["note_id"] for record in records}, summary[0]

    def test_unread_notes_are_never_selected(self):
        notes, summary = self.select()
        self.assertGreater(summary["unread_skipped"], 0, "the seeder leaves some mail unread")
        self.assertEqual(len(notes), summary["modified"] - summary["unread_skipped"])

    def test_include_and_exclude_split_the_selection(self):
        everything, _ = self.select()
        included, inc = self.select("--folders", "Projects", "--mode", "include")
        excluded, exc = self.select("--folders", "Projects", "--mode", "exclude")
        self.assertTrue(included and excluded, "the seeder files some mail in Projects and its subfolders")
        self.assertEqual(included | excluded, everything)
        self.assertFalse(included & excluded)
        self.assertEqual(inc["folder_removed"], len(everything) - len(included))
        self.assertEqual(exc["folder_removed"], len(included))

    def test_subfolders_belong_to_their_parent(self):
        parent, _ = self.select("--folders", "Projects")
        child, _ = self.select("--folders", "Projects\\Alpha\\Old")
        self.assertTrue(child <= parent)

    def test_an_unknown_folder_keeps_nothing_and_says_why(self):
        result, records, summary = json_run("select", MAIL_FILE, "--folders", "Nowhere")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(records, [])
        self.assertRegex(summary[0]["folder_warning"], r"Domino code \d+")

    def test_nothing_modified_since_the_future(self):
        notes, summary = self.select("--since", "01/01/2099")
        self.assertEqual((notes, summary["modified"]), (set(), 0))

    def test_usage_errors(self):
        for args, named in ((["--mode", "exclude"], "--folders"), (["--folders", "A", "--mode", "x"], "--mode")):
            result = run("select", MAIL_FILE, *args)
            self.assertEqual(result.returncode, 2, result.stderr)
            self.assertIn(named, result.stderr)


def items_of(dxl_path):
    """Item name -> serialized element, as verify compares them."""
    root = ElementTree.parse(dxl_path).getroot()
    return {item.get("name"): ElementTree.tostring(item) for item in root if item.tag.endswith("}item")}


class Pass(unittest.TestCase):
    def archive(self, data, out, *extra):
        return run("archive", MAIL_FILE, "--out", out, *extra, data=data)

    def check_archive_whole(self, out, complete=True):
        archive = os.path.join(out, MAIL_FILE)
        records = [name for name in os.listdir(os.path.join(archive, "notes")) if name.endswith(".json")]
        for name in records:
            dxl = os.path.join(archive, "notes", name[:-5] + ".xml")
            items = items_of(dxl)  # parses: a written file is whole
            self.assertNotIn("StubData", items, name + ": a stub was archived (stubbed twice)")
            self.assertIn("Body", items, name)
        # A killed pass may leave a file it was writing; the next pass writes it anew.
        for name in os.listdir(os.path.join(archive, "notes")) if complete else ():
            self.assertFalse(name.endswith(".part"), name + " left behind")
        return records

    def round_trip(self, data, out):
        result = self.archive(data, out)
        self.assertEqual(result.returncode, 0, result.stderr)
        restored = run("restore", MAIL_FILE, "--from", out, data=data)
        self.assertEqual(restored.returncode, 0, restored.stderr)
        verified, differences, summary = json_run("verify", MAIL_FILE, "--against", out, data=data)
        self.assertEqual((verified.returncode, differences), (0, []), verified.stderr)
        return summary[0]

    def test_archive_stubs_restore_brings_back_verify_finds_no_difference(self):
        data = copy_server(os.path.join(WORK_DIR, "round-trip"))
        out = os.path.join(WORK_DIR, "round-trip-archive")
        result, notes, summary = json_run("archive", MAIL_FILE, "--out", out, data=data)
        self.assertEqual(result.returncode, 0, result.stderr)
        archived = [note for note in notes if note["outcome"] == "archived"]
        self.assertEqual(len(archived), summary[0]["archived"])
        self.assertGreater(len(archived), 30)
        with open(os.path.join(out, MAIL_FILE, "manifest.json")) as manifest_file:
            manifest = json.load(manifest_file)
        self.assertEqual(manifest["counts"]["archived"], len(archived))
        self.assertRegex(manifest["runtime"], "simulated runtime")
        self.assertEqual(len(self.check_archive_whole(out)), len(archived))
        stubbed, differences, _ = json_run("verify", MAIL_FILE, "--against", out, data=data)
        self.assertEqual(stubbed.returncode, 1, "stubbed notes differ from their archive")
        self.assertTrue(any("Body" in d["difference"] for d in differences))
        again, notes, _ = json_run("archive", MAIL_FILE, "--out", out, data=data)
        self.assertTrue(all(note["outcome"] == "already_stubbed" for note in notes), "a note is stubbed once")
        summary = self.round_trip(data, out)
        self.assertEqual(summary["notes"], len(archived))

    def test_deleted_notes_come_back_into_their_folders(self):
        data = copy_server(os.path.join(WORK_DIR, "deleted"))
        out = os.path.join(WORK_DIR, "deleted-archive")
        result, notes, _ = json_run("archive", MAIL_FILE, "--delete", "--out", out, data=data)
        self.assertEqual(result.returncode, 0, result.stderr)
        archived = {note["unid"] for note in notes if note["outcome"] == "archived"}
        self.assertGreater(len(archived), 30)
        gone, differences, _ = json_run("verify", MAIL_FILE, "--against", out, data=data)
        self.assertEqual({d["unid"] for d in differences if "not in the database" in d["difference"]}, archived)
        # The notes come back under new note IDs: only the folder information puts them back.
        summary = self.round_trip(data, out)
        self.assertEqual(summary["notes"], len(archived))

    def test_the_acl_comes_back_when_asked_and_a_damaged_one_is_refused(self):
        data = copy_server(os.path.join(WORK_DIR, "acl"))
        out = os.path.join(WORK_DIR, "acl-archive")
        self.assertEqual(self.archive(data, out).returncode, 0)
        result, _, summary = json_run("restore", MAIL_FILE, "--from", out, "--acl", data=data)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(summary[0]["acl"])
        with open(os.path.join(out, MAIL_FILE, "acl.bin"), "wb") as damaged:
            damaged.write(b"not an ACL")
        refused = run("restore", MAIL_FILE, "--from", out, "--acl", data=data)
        self.assertEqual(refused.returncode, 1)
        self.assertRegex(refused.stderr, r"restoring the ACL failed for .*: Domino code \d+")

    def test_ctrl_c_ends_the_pass_after_the_current_note_with_its_manifest(self):
        data = copy_server(os.path.join(WORK_DIR, "interrupted"))
        out = os.path.join(WORK_DIR, "interrupted-archive")
        # Each stub takes a while, so the pass is still running when the signal comes.
        env = dict(os.environ, HYSIM_FAULTS="NSFNoteUpdate=delay:100")
        process = subprocess.Popen([HYLN, "--data", data, "--json", "archive", MAIL_FILE, "--out", out],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=env)
        first = process.stdout.readline()
        process.send_signal(signal.SIGINT)
        rest, errors = process.communicate(timeout=120)
        self.assertEqual(process.returncode, 130, errors)
        lines = [json.loads(line) for line in (first + rest).splitlines()]
        self.assertTrue(lines[-1]["interrupted"])
        with open(os.path.join(out, MAIL_FILE, "manifest.json")) as manifest_file:
            manifest = json.load(manifest_file)
        self.assertTrue(manifest["interrupted"])
        archived = manifest["counts"]["archived"]
        self.assertGreaterEqual(archived, 1)
        self.assertLess(archived, manifest["counts"]["selected"])
        self.assertEqual(len(self.check_archive_whole(out)), archived, "the note under way was finished, no more")
        self.round_trip(data, out)

    def test_folder_information_holds_every_archived_member(self):
        data = copy_server(os.path.join(WORK_DIR, "folders"))
        out = os.path.join(WORK_DIR, "folders-archive")
        self.assertEqual(self.archive(data, out).returncode, 0)
        archive = os.path.join(out, MAIL_FILE)
        memberships = 0
        folders = set()
        for name in os.listdir(os.path.join(archive, "notes")):
            if name.endswith(".json"):
                with open(os.path.join(archive, "notes", name)) as record_file:
                    record = json.load(record_file)
                memberships += len(record["folders"])
                folders.update(record["folders"])
        self.assertGreater(memberships, 0)
        # Per folder: 28-byte identity and a count word, then a 16-byte entry per note.
        self.assertEqual(os.path.getsize(os.path.join(archive, "folders.bin")), 32 * len(folders) + 16 * memberships)

    def test_a_pass_killed_at_any_point_completes_on_the_next_run(self):
        data = copy_server(os.path.join(WORK_DIR, "killed"))
        out = os.path.join(WORK_DIR, "killed-archive")
        clean = time.monotonic()
        probe = copy_server(os.path.join(WORK_DIR, "killed-probe"))
        self.assertEqual(self.archive(probe, os.path.join(WORK_DIR, "killed-probe-archive")).returncode, 0)
        duration = time.monotonic() - clean
        randomness = random.Random(11)
        for attempt in range(20):
            process = subprocess.Popen([HYLN, "--data", data, "archive", MAIL_FILE, "--out", out],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(randomness.uniform(0, duration))
            process.send_signal(signal.SIGKILL)
            process.wait()
            self.check_archive_whole(out, complete=False)
        summary = self.round_trip(data, out)
        self.check_archive_whole(out)
        self.assertGreater(summary["notes"], 30)

    def test_restore_from_an_empty_place_fails_cleanly(self):
        result = run("restore", MAIL_FILE, "--from", os.path.join(WORK_DIR, "nothing-here"))
        self.assertEqual(result.returncode, 1)
        self.assertIn("folder information", result.stderr)


# A small extent size, so that one pass over the mail file fills several extents.
LOGGING = {"TRANSLOG_Status": "1", "TRANSLOG_Style": "1", "TRANSLOG_Path": "logdir", "TRANSLOG_ExtentSize": "1024"}


class TransactionLogs(unittest.TestCase):
    def logged_server(self, name, **settings):
        data = copy_server(os.path.join(WORK_DIR, name), **dict(LOGGING, **settings))
        self.out = os.path.join(WORK_DIR, name + "-logs")
        shutil.rmtree(self.out, ignore_errors=True)
        return data

    def extents(self, data):
        logdir = os.path.join(data, "logdir")
        return sorted(name for name in os.listdir(logdir) if name.endswith(".txn")) if os.path.isdir(logdir) else []

    def translog(self, data):
        """Runs translog; checks that every record is valid JSON and every copy equals its source."""
        result = run("--json", "translog", "--out", self.out, data=data)
        lines = [json.loads(line) for line in result.stdout.splitlines()]
        copies = [line for line in lines if line["type"] == "log"]
        summaries = [line for line in lines if line["type"] == "summary"]
        for copy in copies:
            self.assertEqual(os.path.dirname(copy["source"]), os.path.join(data, "logdir"))
            with open(copy["source"], "rb") as source, open(copy["path"], "rb") as target:
                self.assertEqual(target.read(), source.read(), copy["path"])
            self.assertEqual(copy["bytes"], os.path.getsize(copy["source"]))
        return result, [os.path.basename(copy["path"]) for copy in copies], summaries

    def test_every_waiting_extent_is_copied_once_and_a_grown_one_again(self):
        data = self.logged_server("translog")
        self.assertEqual(run("archive", MAIL_FILE, "--out", os.path.join(WORK_DIR, "translog-archive"),
                             data=data).returncode, 0)
        written = self.extents(data)
        self.assertGreater(len(written), 2, "stubbing the mail file fills several extents")
        result, copied, summary = self.translog(data)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(copied, written)
        self.assertEqual((summary[0]["extents"], summary[0]["style"]), (len(written), 1))
        # Nothing logged since: the finished session confirmed every extent it offered.
        result, copied, summary = self.translog(data)
        self.assertEqual((result.returncode, copied, summary[0]["extents"]), (0, [], 0), result.stderr)
        self.assertEqual(run("restore", MAIL_FILE, "--from", os.path.join(WORK_DIR, "translog-archive"),
                             data=data).returncode, 0)
        grown = self.extents(data)
        result, copied, _ = self.translog(data)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(copied, grown[len(written) - 1:], "the partly filled extent and the new ones")

    def test_an_extent_whose_copy_failed_is_offered_again(self):
        data = self.logged_server("translog-blocked")
        self.assertEqual(run("stub", MAIL_FILE, "--all", data=data).returncode, 0)
        first = self.extents(data)[0]
        os.makedirs(os.path.join(self.out, first))  # the copy cannot take its name
        result = run("translog", "--out", self.out, data=data)
        self.assertEqual(result.returncode, 1)
        self.assertIn("archiving log extent 1 failed for " + os.path.join(data, "logdir", first), result.stderr)
        os.rmdir(os.path.join(self.out, first))
        result, copied, _ = self.translog(data)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(copied, self.extents(data))

    def test_a_server_that_does_not_archive_its_log_fails_with_the_domino_code(self):
        for name, settings, code in (("translog-off", {"TRANSLOG_Status": "0"}, 5119),
                                     ("translog-circular", {"TRANSLOG_Style": "0"}, 3745)):
            data = self.logged_server(name, **settings)
            result, copied, summary = self.translog(data)
            self.assertEqual((result.returncode, copied, summary), (1, [], []), name)
            self.assertRegex(result.stderr, r"failed for the server: Domino code %d: \S" % code)
            error = json.loads(result.stdout.splitlines()[-1])
            self.assertEqual((error["type"], error["code"]), ("error", code))


if __name__ == "__main__":
    unittest.main()
