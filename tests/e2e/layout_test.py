"""Laying out an instance: where it may live, its ports, what a second run keeps."""

import json
import os
import re
import socket
import stat
import subprocess
import tempfile
import unittest

from support.instance import layout

FIVE_PORTS = dict.fromkeys(layout.PREFERRED_PORTS)


class Suitability(unittest.TestCase):

    def test_a_path_is_refused_for_what_would_break_later(self):
        for name, path, said in (
                ("plain", "/srv/mail/instance", None),
                ("every allowed kind of character", "/srv/Mail_1.2-x", None),
                ("longest", "/" + "a" * (layout.PATH_LIMIT - 1), None),
                ("too long", "/" + "a" * layout.PATH_LIMIT, "longer than"),
                ("blank", "/srv/my mail", "command line"),
                ("dollar", "/srv/$HOME", "command line"),
                ("line break", "/srv/mail\n", "command line"),
                ("colon", "/srv/a:b", "command line")):
            with self.subTest(name):
                self.assertEqual(bool(said), bool(layout.unsuitable(path)))
                self.assertIn(said or "", layout.unsuitable(path) or "")

    def test_a_path_below_a_closed_folder_is_refused_with_its_name(self):
        with tempfile.TemporaryDirectory() as closed:  # 0700
            inner = os.path.join(closed, "open", "instance")
            os.makedirs(inner)
            self.assertIn(f"below {closed},", layout.unsuitable(inner))
            os.chmod(closed, 0o711)
            self.assertIsNone(layout.unsuitable(inner))


    def test_a_path_below_a_folder_of_others_is_refused_with_its_name(self):
        with tempfile.TemporaryDirectory() as parent:
            inner = os.path.join(parent, "instance")
            for name, owner, mode, said in (
                    ("open to all", 0, 0o777, f"below {parent}, which other users may write"),
                    ("open to all, entries protected", 0, 0o1777, None),
                    ("open to a group", 0, 0o775, None),
                    ("of another user", 4711, 0o755, f"below {parent}, which belongs to another")):
                with self.subTest(name):
                    os.chown(parent, owner, 0)
                    os.chmod(parent, mode)
                    self.assertEqual(bool(said), bool(layout.unsuitable(inner)))
                    self.assertIn(said or "", layout.unsuitable(inner) or "")


class Ports(unittest.TestCase):

    def test_a_taken_port_is_replaced_and_a_free_one_kept(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            taken = server.getsockname()[1]
            free = layout.free_ports({"imap": None})["imap"]
            chosen = layout.free_ports({"imap": taken, "pop3": free})
        self.assertNotEqual(taken, chosen["imap"])
        self.assertEqual(free, chosen["pop3"])

    def test_no_two_services_get_one_port(self):
        free = layout.free_ports({"imap": None})["imap"]
        self.assertEqual(2, len(set(layout.free_ports({"imap": free, "pop3": free}).values())))


class Creation(unittest.TestCase):

    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="brisq-layout-")
        self.addCleanup(holder.cleanup)
        os.chmod(holder.name, 0o755)
        self.holder = holder.name
        self.instance = layout.Layout(os.path.join(holder.name, "instance"))

    def create(self):
        self.instance.create(FIVE_PORTS)
        return dict(self.instance.ports)

    def test_no_placeholder_is_left_in_what_was_rendered(self):
        self.create()
        for path in (self.instance.config, self.instance.dovecot_conf, self.instance.doveadm,
                     self.instance.control):
            with open(path, encoding="utf-8") as file:
                self.assertNotRegex(file.read(), r"@[A-Z]+@")

    def test_secrets_are_closed_and_what_dovecot_reads_is_open_to_it_under_any_umask(self):
        before = os.umask(0o077)
        self.addCleanup(os.umask, before)
        self.create()
        for name, mode in (("", 0o755), ("dovecot", 0o755), ("dovecot/users", 0o640),
                           ("dovecot/default.key", 0o600), ("mail", 0o755), ("run", 0o755),
                           ("state", 0o700), ("bin/doveadm", 0o755)):
            with self.subTest(name):
                found = os.stat(os.path.join(self.instance.folder, name)).st_mode
                self.assertEqual(oct(mode), oct(stat.S_IMODE(found)))

    def test_a_second_run_keeps_ports_certificate_and_users(self):
        ports = self.create()
        with open(self.instance.users, "w", encoding="utf-8") as file:
            file.write("kept\n")
        with open(self.instance.certificate, encoding="utf-8") as file:
            certificate = file.read()
        self.assertEqual(ports, self.create())
        with open(self.instance.users, encoding="utf-8") as file:
            self.assertEqual("kept\n", file.read())
        with open(self.instance.certificate, encoding="utf-8") as file:
            self.assertEqual(certificate, file.read())

    def test_a_port_that_was_taken_since_is_replaced_everywhere(self):
        taken = self.create()["imap"]
        with socket.create_server(("127.0.0.1", taken)):
            fresh = self.create()["imap"]
        self.assertNotEqual(taken, fresh)
        with open(self.instance.dovecot_conf, encoding="utf-8") as file:
            self.assertIn(f"port = {fresh}\n", file.read())

    def test_a_moved_instance_is_refused_with_its_old_place(self):
        self.create()
        moved = os.path.join(self.holder, "moved")
        os.rename(self.instance.folder, moved)
        with self.assertRaisesRegex(layout.LayoutError, self.instance.folder):
            layout.Layout(moved).create(FIVE_PORTS)

    def test_a_server_that_can_not_start_says_why(self):
        ports = self.create()
        with socket.create_server(("127.0.0.1", ports["pop3"])):
            with self.assertRaisesRegex(layout.LayoutError, "Address already in use"):
                self.instance.start()
        self.assertFalse(self.instance.is_running())

    def test_a_server_that_records_its_id_late_is_started_when_it_has(self):
        self.create()
        late = os.path.join(self.holder, "late-dovecot")
        pid_file = os.path.join(self.instance.folder, "run", "master.pid")
        with open(late, "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), 0o755)
            file.write("#!/bin/sh\nrun='echo $$ >$0; while sleep 0.1; do :; done'\n"
                       f'(sleep 0.5; exec sh -c "$run" {pid_file} "$@") &\n')
        with open(self.instance.control, encoding="utf-8") as file:
            script = file.read()
        with open(self.instance.control, "w", encoding="utf-8") as file:
            file.write(re.sub(r"\S+/dovecot -c", late + " -c", script))
        subprocess.run([self.instance.control, "start"], check=True, timeout=30)
        self.assertTrue(self.instance.is_running())
        self.instance.stop()
        self.assertFalse(self.instance.is_running())

    def test_the_record_holds_folder_and_ports(self):
        ports = self.create()
        with open(os.path.join(self.instance.folder, "instance.json"), encoding="utf-8") as file:
            self.assertEqual({"folder": self.instance.folder, "ports": ports}, json.load(file))


if __name__ == "__main__":
    unittest.main()
