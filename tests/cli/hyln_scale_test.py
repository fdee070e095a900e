"""hyln at the scale of a real server: mailbox discovery of more mail files than the
process has file descriptors (the library keeps every reported mail file's database
open), and the archiving pass over 10,000 memos brought back without a difference."""
import glob
import json
import os
import re
import resource
import shutil
import subprocess
import tempfile
import time
import unittest

BIN_DIR = os.environ["HYLN_TEST_BIN_DIR"]
WORK_DIR = os.environ["HYLN_TEST_WORK_DIR"]
HYLN = os.path.join(BIN_DIR, "hyln")
SEEDER = os.path.join(BIN_DIR, "hyln-seed")
USERS = 1500
DESCRIPTORS = 1024
MAIL_FILES = 20
MEMOS = 500


def lowered_descriptor_limit():
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (DESCRIPTORS, hard))


def seed(directory, *args):
    shutil.rmtree(directory, ignore_errors=True)
    subprocess.run([SEEDER, "--dir", directory, *args], check=True, capture_output=True, timeout=300)


def hyln_json(data, *args):
    """Exit code, records and the summary of a --json run."""
    result = subprocess.run([HYLN, "--data", data, "--json", *args], capture_output=True, text=True, timeout=600)
    lines = [json.loads(line) for line in result.stdout.splitlines()]
    summaries = [line for line in lines if line["type"] == "summary"]
    return result, [line for line in lines if line["type"] != "summary"], summaries[-1] if summaries else None


class ManyMailFiles(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = os.path.join(WORK_DIR, "server-%d" % USERS)
        os.makedirs(WORK_DIR, exist_ok=True)
        seed(cls.server, "--users", str(USERS), "--messages", "1", "--attachment-size", "0")

    def test_every_mail_file_is_reported_within_1024_descriptors(self):
        result = subprocess.run([HYLN, "--data", self.server, "discover", "mailboxes"],
                                capture_output=True, text=True, timeout=300, preexec_fn=lowered_descriptor_limit)
        self.assertEqual(result.returncode, 0, result.stderr[-2000:])
        self.assertEqual(len(result.stdout.splitlines()), USERS)
        self.assertNotIn("will be skipped. reason", result.stderr)
        self.assertIn("reported %d databases" % USERS, result.stderr)


class RoundTripOfTenThousandMemos(unittest.TestCase):
    """The pass syncs every archive file to disk before it stubs the note; on a memory file
    system those syncs cost nothing, so the test runs there when the machine has one and
    measures hyln rather than the disk."""

    @classmethod
    def setUpClass(cls):
        os.makedirs(WORK_DIR, exist_ok=True)
        cls.scratch = tempfile.mkdtemp(prefix="hyln-scale-", dir="/dev/shm" if os.access("/dev/shm", os.W_OK)
                                       else WORK_DIR)
        cls.server = os.path.join(cls.scratch, "server")
        cls.out = os.path.join(cls.scratch, "archive")
        seed(cls.server, "--users", str(MAIL_FILES), "--messages", str(MEMOS), "--attachment-size", "256",
             "--seed", "7", "--extra-dirs", "0")

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.scratch, ignore_errors=True)

    def manifests(self):
        found = {}
        for path in glob.glob(os.path.join(self.out, "**", "manifest.json"), recursive=True):
            with open(path) as manifest:
                found[os.path.dirname(path)] = json.load(manifest)
        return found

    def check_manifest(self, archive, manifest):
        counts = manifest["counts"]
        where = manifest["database"]
        self.assertEqual(counts["selected"] + counts["unread_skipped"], MEMOS, where)
        self.assertEqual((counts["failed"], counts["already_stubbed"], counts["too_recent"]), (0, 0, 0), where)
        self.assertEqual(counts["archived"], counts["selected"], where)
        archived = [note for note in manifest["notes"] if note["outcome"] == "archived"]
        self.assertEqual(len(archived), counts["archived"], where)
        records = glob.glob(os.path.join(archive, "notes", "*.json"))
        self.assertEqual(len(records), counts["archived"], where)
        for note in archived:
            with open(os.path.join(archive, "notes", note["unid"] + ".xml"), encoding="utf-8") as dxl:
                files = len(re.findall(r"<item name=['\"]\$FILE['\"]", dxl.read()))
            self.assertEqual(files, note["attachments"], where + " " + note["unid"])
            with open(os.path.join(archive, "notes", note["unid"] + ".json")) as record:
                self.assertTrue(json.load(record)["folders"], "every memo is in the Inbox")
        return counts["archived"], sum(note["attachments"] for note in archived)

    def test_every_mail_file_archived_restored_and_verified_without_a_difference(self):
        started = time.monotonic()
        result, notes, summary = hyln_json(self.server, "archive", "--all-mailboxes", "--out", self.out)
        self.assertEqual(result.returncode, 0, result.stderr[-2000:])
        self.assertEqual((summary["databases"], summary["failed"]), (MAIL_FILES, 0))
        self.assertEqual(summary["archived"], sum(note["outcome"] == "archived" for note in notes))
        archived_time = time.monotonic() - started

        manifests = self.manifests()
        self.assertEqual(len(manifests), MAIL_FILES)
        totals = [self.check_manifest(archive, manifest) for archive, manifest in manifests.items()]
        self.assertEqual(sum(archived for archived, _ in totals), summary["archived"])
        self.assertGreater(sum(files for _, files in totals), 0, "some memos carry attachments")

        for manifest in manifests.values():
            database = manifest["database"]
            restored, _, restore_summary = hyln_json(self.server, "restore", database, "--from", self.out)
            self.assertEqual(restored.returncode, 0, restored.stderr[-2000:])
            self.assertEqual(restore_summary["notes"], manifest["counts"]["archived"], database)
            verified, differences, verify_summary = hyln_json(self.server, "verify", database, "--against",
                                                              self.out)
            self.assertEqual((verified.returncode, differences), (0, []), database)
            self.assertEqual(verify_summary["notes"], manifest["counts"]["archived"], database)
            # The memos the pass left alone are still unread; the restored ones are read.
            chosen, _, selection = hyln_json(self.server, "select", database)
            self.assertEqual(chosen.returncode, 0, chosen.stderr)
            self.assertEqual(selection["unread_skipped"], manifest["counts"]["unread_skipped"], database)
        print("\nround trip of %d memos: archive %.1f s, all %.1f s" %
              (MAIL_FILES * MEMOS, archived_time, time.monotonic() - started))


if __name__ == "__main__":
    unittest.main()
