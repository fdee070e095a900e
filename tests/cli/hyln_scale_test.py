"""Mailbox discovery of more mail files than the process has file descriptors: the
library keeps every reported mail file's database open, so the runtime may not hold
descriptors for each of them."""
import os
import resource
import shutil
import subprocess
import unittest

BIN_DIR = os.environ["HYLN_TEST_BIN_DIR"]
WORK_DIR = os.environ["HYLN_TEST_WORK_DIR"]
USERS = 1500
DESCRIPTORS = 1024


def lowered_descriptor_limit():
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (DESCRIPTORS, hard))


class ManyMailFiles(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = os.path.join(WORK_DIR, "server-%d" % USERS)
        shutil.rmtree(cls.server, ignore_errors=True)
        os.makedirs(WORK_DIR, exist_ok=True)
        subprocess.run([os.path.join(BIN_DIR, "hyln-seed"), "--dir", cls.server, "--users", str(USERS),
                        "--messages", "1", "--attachment-size", "0"], check=True, capture_output=True, timeout=300)

    def test_every_mail_file_is_reported_within_1024_descriptors(self):
        result = subprocess.run([os.path.join(BIN_DIR, "hyln"), "--data", self.server, "discover", "mailboxes"],
                                capture_output=True, text=True, timeout=300, preexec_fn=lowered_descriptor_limit)
        self.assertEqual(result.returncode, 0, result.stderr[-2000:])
        self.assertEqual(len(result.stdout.splitlines()), USERS)
        self.assertNotIn("will be skipped. reason", result.stderr)
        self.assertIn("reported %d databases" % USERS, result.stderr)


if __name__ == "__main__":
    unittest.main()
