#!/usr/bin/env python3
"""Tries zvupdate-publish: the catalogue, and its static sites behind a real nginx."""

import concurrent.futures
import contextlib
import hashlib
import http.client
import http.server
import json
import os
import pathlib
import pty
import re
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "bench"))
import servers  # noqa: E402
from sealing import seal  # noqa: E402

BIN = pathlib.Path(os.environ["ZVUPDATE_BIN"])
os.environ["PATH"] += ":/usr/sbin"
PATH = "/Update/ZVDLCtl.dll?dt="

# Little is buffered on the way, so that a client that stops reading stops the server.
NGINX = """
daemon off; worker_processes 2; pid {folder}/pid; {user}
events {{ worker_connections 1024; }}
http {{
    log_format short "$request_method $status"; access_log {folder}/access.log short;
    client_body_temp_path {folder}/b; proxy_temp_path {folder}/p; fastcgi_temp_path {folder}/f;
    uwsgi_temp_path {folder}/u; scgi_temp_path {folder}/s;
    include {folder}/site/current/hash.conf;
    map $arg_other $other {{ default 1; }}
    include {folder}/site/current/nginx.conf;
    server {{
        listen 127.0.0.1:{port} sndbuf=16k backlog=512;
        include {folder}/more.conf;
        include {folder}/site/current/locations.conf;
    }}
}}
"""


class Folder(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="zvupdate-publish-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.folder.chmod(0o755)
        self.catalogue = self.folder / "catalogue"
        self.catalogue.mkdir()
        self.notes = self.file("notes", "Faster start, 啟動更快".encode())

    def file(self, name, contents):
        (self.folder / name).write_bytes(contents)
        return self.folder / name

    def publish(self, command, *arguments, status=0):
        done = subprocess.run([BIN / "zvupdate-publish", command, *map(str, arguments)], text=True,
                              capture_output=True, check=False, timeout=120)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout + done.stderr

    def add(self, version, installer, *more, product="P1", status=0):
        return self.publish("add", "--catalogue", self.catalogue, "--product-id", product,
                            "--version", version, "--installer", installer, *more, status=status)

    def change(self, command, *arguments, version="2", status=0):
        return self.publish(command, "--catalogue", self.catalogue, "--product-id", "P1",
                            "--version", version, *arguments, status=status)

    def undo(self, *arguments, status=0):
        return self.publish("undo", "--catalogue", self.catalogue, *arguments, status=status)

    def make_site(self, *more):
        return json.loads(self.publish("site", "--catalogue", self.catalogue, "--output",
                                       self.folder / "site", "--format", "nginx", "--json",
                                       *more).splitlines()[0])  # Warnings follow.

    def rollback(self, *arguments, status=0):
        return self.publish("rollback", "--output", self.folder / "site", *arguments,
                            status=status)

    def key(self, name):
        """A new key: the public one's file, and the command that signs under it."""
        secret, public = self.folder / f"{name}.pem", self.folder / f"{name}.pub"
        subprocess.run(["openssl", "genpkey", "-algorithm", "ed25519", "-out", secret], check=True)
        subprocess.run(["openssl", "pkey", "-in", secret, "-pubout", "-out", public], check=True)
        return public, (f"openssl pkeyutl -sign -rawin -inkey {secret} -in {{statement}} "
                        "-out {signature}")

    def releases(self):
        return json.loads((self.catalogue / "releases.json").read_text())


class Catalogue(Folder):
    def test_refuses_what_clients_would_stumble_over(self):
        installer = self.file("installer", b"v2" * 20)
        self.add("2103", installer, "--notes", f"en={self.notes}")
        before = self.releases()
        other = self.file("other", b"v3" * 20)
        script = self.file("script", b"#!")
        with self.file("huge", b"").open("wb") as huge:
            huge.truncate(1 << 32)
        self.file("empty", b" \n")
        self.file("latin", b"d\xe9j\xe0 vu")
        # Sealed, each byte takes two; the reply may have 2 MiB.
        self.file("fits", b"n" * (1024 * 1024 - 1024))
        self.file("long", b"n" * (1024 * 1024))
        os.mkfifo(self.folder / "pipe")
        new = ("add", "--installer", other, "--version")
        edit = ("edit", "--version", "2103")
        for arguments, status, reason in (
                ((*new, "2103"), 1, "exists"), ((*new, "2103.0"), 1, "exists"),
                ((*new, "2102"), 1, "older than 2103"),
                ((*new, "2103-rc1"), 1, "older than 2103"), ((*new, "x"), 1, "no number"),
                ((*new, "3/1"), 1, "choose another version"),
                ((*new, "9" * 250), 1, "choose another version"),
                ((*new, "3", "--product-id", "a/b"), 1, "--product-id: clients would refuse"),
                ((*new, "2104", "--notes", f"en={self.folder}/empty"), 1, "is empty"),
                ((*new, "2104", "--notes", f"en={self.folder}/latin"), 1, "not UTF-8"),
                ((*new, "2104", "--notes", f"en={self.folder}/long"), 1, "may have 2097152 bytes"),
                ((*new, "2104", "--notes", f"en={self.folder}/pipe"), 1, "give a file"),
                ((*new, "2104", "--notes", "en"), 2, "LANGUAGE=FILE"),
                ((*new, "2104", "--supersedes", "2104"), 1, "not older"),
                ((*new, "2104", "--installer", self.folder / "pipe"), 1, "give a file"),
                ((*new, "2104", "--installer", self.folder / "huge"), 1, "4 GiB or more"),
                ((*new, "2104", "--installer", installer), 1, "is the installer of version 2103"),
                ((*new, "2104", "--installer", script), 1, "is a script, and 2103 is of no kind"),
                ((*new, "2104", "--installer", script), 1, "is of 2 bytes, and 2103 is of 40;"),
                (edit, 2, "nothing to change; give --notes"),
                ((*edit, "--notes", f"en={self.folder}/long"), 1, "may have 2097152 bytes"),
                ((*edit, "--remove-notes", "zh-TW"), 1, "no notes in \"zh-TW\"; give one of en"),
                ((*edit, "--supersedes", "2104"), 1, "not older"),
                ((*edit, "--supersedes", "1", "--remove-supersedes", "1"), 2, "give one of both"),
                ((*edit, "--remove-supersedes", "1"), 1, "does not name \"1\""),
                ((*edit, "--version", "9", "--supersedes", "1"), 1, "there is no version 9"),
                ((*edit, "--product-id", "P", "--supersedes", "1"), 1, "there is no product")):
            with self.subTest(arguments=arguments):
                command, *rest = arguments
                output = self.publish(command, "--catalogue", self.catalogue, "--product-id", "P1",
                                      *rest, status=status)
                self.assertIn(reason, output)
                self.assertEqual(output.count("\n"), 1, output)
        self.assertEqual(self.releases(), before)
        self.add("3", installer, product="P")
        self.add("3_4", other, product="P")
        self.assertIn('3_4 of "P"', self.add("4", installer, product="P_3", status=1))
        self.assertEqual((self.catalogue / "installers" / "P_3_4").read_bytes(), b"v3" * 20)
        before = self.releases()
        self.file("quoted", b'"Faster"')
        for version, installer, more, warning in (
                ("2.1", script, ("--force",), '"v2...1"'),
                ("2104", script, ("--force",), "is a script, and 2103"),
                ("2104", other, ("--notes", f"en={self.folder}/fits"), 'no notes in "zh-TW"'),
                ("2104", other, ("--notes", f"zh-TW={self.notes}"), 'no notes in "en"'),
                ("2104", other, ("--notes", f"en={self.folder}/quoted"), "take off the quotes"),
                ("2104", other, ("--product-id", "P&1"), "have a meaning in the commands")):
            self.assertIn(warning, self.add(version, installer, "--dry-run", *more))
        self.assertEqual(self.releases(), before)

    def test_every_change_can_be_taken_back(self):
        catalogue = self.catalogue / "releases.json"
        history = self.catalogue / ".zvupdate-publish.history"
        states = []

        def did(_):
            states.append(catalogue.read_bytes())
        did(self.add("1", self.file("installer", b"first"), "--notes", f"en={self.notes}"))
        did(self.add("2", self.file("installer", b"second"), "--supersedes", "1.5",
                     "--notes", f"en={self.notes}"))
        did(self.change("edit", "--notes", f"zh-TW={self.notes}", "--remove-notes", "en",
                        "--supersedes", "1.6", "--supersedes", "1.7"))
        did(self.change("edit", "--remove-supersedes", "1.7"))
        release = self.releases()["products"][0]["releases"][1]
        self.assertEqual(list(release["notes"]), ["zh-TW"])
        self.assertEqual(release["supersedes"], ["1.5", "1.6"])
        did(self.change("withdraw"))
        self.assertIn("withdrawn already", self.change("withdraw", status=1))
        shown = json.loads(self.publish("list", "--catalogue", self.catalogue, "--json"))
        self.assertEqual(shown["withdrawn"], {"P1": ["2"]})
        self.assertIn("version 2 was withdrawn", self.add("2", self.notes, status=1))
        self.assertIn("is the installer of version 2",
                      self.add("3", self.folder / "installer", status=1))
        did(self.add("2", self.file("installer", b"again"), "--force"))
        shown = self.change("show")
        self.assertIn("offered the newest: 1, 1.5, 1.6\n", shown)
        self.assertIn("P1_2-2,", shown)
        catalogue.write_bytes(b" " + states[-1])
        self.assertIn("no release is another", self.undo())
        self.assertEqual(catalogue.read_bytes(), states.pop())

        # Runs that were killed: when what was taken back was not forgotten yet, when a change was
        # not kept yet, and when it was not made yet.
        def files():
            return sorted(history.iterdir(), key=lambda path: int(path.stem))
        last = files()[-1].read_bytes()
        self.assertIn("Would take back the last change: P1 2 is no rel", self.undo("--dry-run"))
        self.undo()
        self.assertEqual(catalogue.read_bytes(), states.pop())
        (history / f"{int(files()[-1].stem) + 1}.json").write_bytes(last)
        self.assertIn("P1 2 is a release again", self.undo())
        self.assertEqual(catalogue.read_bytes(), states.pop())
        files()[-1].unlink()
        self.assertIn("P1 2 is as it was", self.undo())
        self.assertEqual(catalogue.read_bytes(), states.pop())
        while states:
            self.undo()
            self.assertEqual(catalogue.read_bytes(), states.pop())
        self.assertIn("no release any more", self.undo())
        self.assertEqual(self.releases(), {"products": []})
        self.assertIn("no change to take back", self.undo(status=1))

        self.add("2", self.file("installer", b"second"))
        for n in range(21):
            self.change("edit", "--supersedes", f"1.{n}")
        for left in range(19, -1, -1):
            self.assertIn(f"taken back: {left}\n", self.undo())
        self.undo(status=1)
        self.change("withdraw")
        self.change("withdraw", "--remove-installer")
        self.assertNotIn("P1_2", os.listdir(self.catalogue / "installers"))
        self.assertIn("knows of no installer",
                      self.change("withdraw", "--remove-installer", status=1))
        self.assertIn("there is no file", self.undo(status=1))

    def test_offers_only_what_old_and_new_builds_take(self):
        (old, by_old), (new, by_new), (other, by_other) = map(self.key, ("old", "new", "other"))
        old.write_text(f"comment\n{old.read_text()}comment\n")
        # Where the tools' files are to be is no part of the script that runs them.
        temporary = self.folder / "it's \"{signature}\" $HOME"
        temporary.mkdir()
        before = os.environ.get("TMPDIR", tempfile.gettempdir())
        self.addCleanup(os.environ.update, TMPDIR=before)
        os.environ["TMPDIR"] = str(temporary)
        for version in ("1", "2", "3"):
            self.add(version, self.file("installer", b"version " + version.encode()), *{
                "1": ("--supersedes", "0", "--release-key", old), "2": (),
                "3": ("--release-key", new, "--expires", "2999-01-01T00:00:00Z")}[version])
        self.assertNotIn("comment", (self.catalogue / "releases.json").read_text())
        self.assertIn("the keys of P1 3 are forgotten", self.undo("--dry-run"))
        self.add("1", self.notes, product="P2")
        sign = ("sign", "--product-id", "P1", "--version")
        edit = ("edit", "--version", "1", "--product-id")
        garbage = self.file("garbage", b"RWQ=")
        for arguments, status, reason in (
                ((*sign, "1", "--with", by_other), 1, "signature 1 of 1 is not of what is to be"),
                ((*sign, "2", "--with", by_new), 1, "version 1 would refuse it, as it is signed un"),
                ((*sign, "3", "--with", by_old, "--with", by_other), 1, "signature 2 of 2 is not"),
                ((*sign, "3", "--with", "exit 3 {statement}{signature}"), 1, "with the status 3"),
                ((*sign, "3", "--with", ": {statement} {signature}"), 1, "cannot be read: No such"),
                ((*sign, "3", "--with", "kill -9 $$ {statement}{signature}"), 1, "come to its end"),
                ((*sign, "3", "--with", by_new.replace("{statement}", "x")), 2, "not have both"),
                (("attach", *sign[1:], "3", "--signature", garbage), 1, "is no signature of sig"),
                ((*sign, "1", "--product-id", "P2", "--with", by_new), 1, "it has no keys; give"),
                ((*edit, "P2", "--expires", "2999-01-01T00:00:00Z"), 1, "so that it is not signed"),
                ((*edit, "P1", "--expires", "2001-01-01T00:00:00Z"), 1, "has passed"),
                ((*edit, "P1", "--release-key", self.folder / "old.pem"), 1, "is a secret key")):
            with self.subTest(arguments=arguments):
                command, *rest = arguments
                self.assertIn(reason, self.publish(command, "--catalogue", self.catalogue, *rest,
                                                   status=status))

        def offered():
            """What the site offers of P1, and who has signed it."""
            made = self.make_site()
            listed = json.loads(self.publish("list", "--catalogue", self.catalogue, "--json"))
            newest = [each for each in listed["releases"]
                      if each["newest"] and each["product"] == "P1"]
            self.assertEqual(made["installers"], 1 + 3 - len(made["refused"]))
            return [(each["version"], len(each["signedBy"])) for each in newest]
        self.assertEqual(offered(), [])
        self.change("sign", "--with", by_old, version="1")
        self.assertEqual(offered(), [("1", 1)])
        self.change("sign", "--with", by_old, "--with", by_new, version="3")
        self.assertEqual(offered(), [("3", 2)])
        for command, *more in (("edit", "--notes", f"en={self.notes}"), ("sign", "--with", by_old)):
            self.change(command, *more, "--dry-run", version="3")
        self.assertNotIn("P1_3-2.statement", os.listdir(self.catalogue / "installers"))
        voids = self.change("edit", "--notes", f"en={self.notes}", version="3")
        self.assertRegex(voids, "(?s)signatures are void.*P1 3 is not offered: version 1 would ref")
        statement = json.loads((self.catalogue / "installers/P1_3-2.statement").read_bytes())
        self.assertEqual(statement["ZVSigned"]["expires"], "2999-01-01T00:00:00Z")
        self.assertEqual(offered(), [("1", 1)])
        self.undo()
        self.assertEqual(offered(), [("3", 2)])
        third = self.catalogue / "installers/P1_3"
        for contents, shown in ((b"Version 3", False), (b"version", True)):
            third.write_bytes(contents)
            self.assertIn("is not the file that was added",
                          self.change("sign", "--with", by_old, version="3", status=1))
            listed = self.publish("list", "--catalogue", self.catalogue, "--json")
            self.assertEqual("its installer is not" in listed, shown)
        third.write_bytes(b"version 3")
        # Withdrawn builds and older ones have their users, too.
        again = ("3", self.folder / "installer", "--force", "--release-key")
        self.change("withdraw", version="3")
        self.assertIn("with other keys", self.add(*again, old, status=1))
        self.add(*again, new, "--dry-run")
        self.change("edit", "--release-key", other, version="3")
        self.assertIn("with other keys", self.add(*again, new, status=1))
        self.undo()
        self.undo()
        self.assertIn("P1 1 is not offered: version 0.5 would refuse", self.add(
            "0.5", self.notes, "--force", "--release-key", other))
        self.undo()
        # What is signed is of this release, and nothing else of the maker's.
        catalogue = self.releases()
        first, second, third = catalogue["products"][0]["releases"]
        for other, reason in ((first, "no newer than what is running"), (second, "none of its"),
                              (None, "what is signed is version 3")):
            taken = dict(third) if other is None else {**third, **{
                member: other.get(member, []) for member in ("statement", "signatures")}}
            if other is None:
                taken["version"] = "4"
            catalogue["products"][0]["releases"] = [first, second, taken]
            (self.catalogue / "releases.json").write_text(json.dumps(catalogue))
            self.assertIn(reason, self.publish("list", "--catalogue", self.catalogue, "--json"))
            self.assertEqual(offered(), [("1", 1)])

    def test_watches_long_work_and_keeps_holes(self):
        self.add("1", self.file("installer", b"first"))
        with self.file("large", b"").open("r+b") as large:
            large.truncate(128 << 20)
            for offset in (0, 100 << 20):
                large.seek(offset)
                large.write(b"data")

        def watched(command, *arguments, meanwhile=None):
            """The exit status, and what a terminal gets; meanwhile is called at the first bar."""
            terminal, side = pty.openpty()
            with open(terminal, "rb", 0) as reader, subprocess.Popen(
                    [BIN / "zvupdate-publish", command, "--catalogue", self.catalogue,
                     *arguments], stdout=side, stderr=side) as process:
                os.close(side)
                output = b""
                with contextlib.suppress(OSError):  # Of a terminal whose other end is closed.
                    while piece := reader.read(4096):
                        output += piece
                        if meanwhile and b"%  [" in output:
                            process.send_signal(signal.SIGSTOP)
                            meanwhile()
                            process.send_signal(signal.SIGCONT)
                            meanwhile = None
            return process.returncode, output.decode()
        status, output = watched("add", "--product-id", "P1", "--version", "2", "--installer",
                                 self.folder / "large")
        self.assertEqual(status, 0, output)
        self.assertRegex(output, r"(?s)\rReading +\d+ %  \[=*> *\] .* of 128.0 MiB.*Added P1 2: ")
        copied = self.catalogue / "installers" / "P1_2"
        self.assertLess(copied.stat().st_blocks * 512, 1 << 20)
        self.assertEqual(self.publish("list", "--catalogue", self.catalogue, "--json"
                                      ).count(f'"size":{128 << 20}'), 1)
        site = ("--output", self.folder / "site", "--format", "nginx")
        first = self.catalogue / "installers" / "P1_1"
        # The first one has been read before the large one; it is placed afterwards.
        status, output = watched("site", *site, meanwhile=lambda: first.write_bytes(b"First"))
        self.assertIn("P1_1: was written into while it was read", output)
        self.assertEqual((status, (self.folder / "site" / "current").exists()), (1, False))
        first.write_bytes(b"first")
        self.assertEqual(watched("site", *site)[0], 0)

    def test_site_refuses_what_would_not_do(self):
        self.add("1", self.file("installer", b"as it was added"))
        for more, status, reason in (
                (("--download-host", "ftp://cdn.example.com"), 2, "give http://HOST"),
                (("--download-host", "http://cdn.example.com/$x"), 2, "give http://HOST"),
                (("--download-host", "http://cdn.example.com", "--base-url", "https://u/p?dt="), 2,
                 "from https to http"),
                (("--base-url", "https://u/p"), 2, "PATH?KEY="), (("--keep", "0"), 2, "from 1 to"),
                (("--base-url", "https://u/p?dt=\n"), 2, "PATH?KEY="),
                (("--root", "/srv\n"), 2, "nginx's configuration"),
                (("--output", self.catalogue), 2, "is the catalogue's folder"),
                ((), 1, "is not the file that was added")):
            (self.catalogue / "installers" / "P1_1").write_bytes(b"now something else")
            self.assertIn(reason, self.publish("site", "--catalogue", self.catalogue, "--format",
                                               "nginx", "--output", self.folder / "site", *more,
                                               status=status))
            self.assertFalse((self.folder / "site" / "current").exists())

    def test_refuses_bytes_that_are_no_text(self):
        latin = os.fsencode(self.folder) + b"/d\xe9"
        for program, *arguments in (
                ("zvupdate", "check", "--product-id", "P", "--product-version", "1"),
                ("zvupdate-publish", "list", "--catalogue", self.catalogue), ("zvupdate-service",)):
            done = subprocess.run([BIN / program, *arguments, b"--directory", latin],
                                  capture_output=True, check=False, timeout=60)
            self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1), done.stderr)
            self.assertIn(b"not UTF-8", done.stderr)
        self.assertNotIn("d\N{REPLACEMENT CHARACTER}", os.listdir(self.folder))

    def test_refuses_relative_folders_when_the_current_one_has_gone(self):
        leave = 'cd "$0" && mkdir gone && cd gone && rmdir ../gone && exec "$@"'
        new = ("--product-id", "P1", "--version", "1", "--installer", self.notes, "--dry-run")
        site = ("zvupdate-publish", "site", "--format", "nginx", "--dry-run")
        for program, *arguments in (
                ("zvupdate", "doctor", "--product-id", "P", "--product-version", "1", "--directory",
                 "updates"),
                (*site, "--catalogue", self.catalogue, "--output", "site"),
                ("zvupdate-publish", "add", "--catalogue", "..", *new)):
            done = subprocess.run(["sh", "-c", leave, self.catalogue, BIN / program, *arguments],
                                  capture_output=True, check=False, timeout=60)
            self.assertIn(b"the current directory has gone", done.stderr)

    def test_sites_can_be_rolled_back(self):
        installer = self.file("installer", b"first")
        self.add("1", installer)
        current = self.folder / "site" / "current"
        token = self.make_site()["token"]
        self.assertIn("no site before", self.rollback(status=1))
        self.add("2", self.file("installer", b"second"))
        self.assertEqual(self.make_site()["token"], token)
        self.rollback("--dry-run")
        self.assertEqual(os.readlink(current), "generations/2")
        self.rollback()
        self.assertEqual(os.readlink(current), "generations/1")
        # Caches may have what the second site gave under its names.
        self.undo()
        self.add("2", self.file("installer", b"rebuilt"))
        self.assertNotEqual(self.make_site()["token"], token)
        self.rollback("--generation", "2")
        self.assertIn("9 is not there", self.rollback("--generation", "9", status=1))
        (self.folder / "site/installers" / hashlib.sha256(b"rebuilt").hexdigest()).unlink()
        self.assertIn("lacks the file", self.rollback("--generation", "3", status=1))
        self.assertEqual(os.readlink(current), "generations/2")
        # Builds with keys would not take what these announce.
        public, by_key = self.key("key")
        self.add("3", self.file("installer", b"third"), "--release-key", public,
                 "--expires", "2999-01-01T00:00:00Z")
        self.make_site("--allow-unsigned")
        self.change("sign", "--with", by_key, version="3")
        self.make_site()
        self.assertIn("not signed as they demand: P1 3", self.rollback(status=1))
        self.rollback("--allow-unsigned")
        record = self.folder / "site/generations/5/site.json"
        record.write_text(record.read_text().replace("2999", "2001"))
        self.assertIn("has expired at 2001", self.rollback("--generation", "5", status=1))

    def test_gets_over_what_killed_runs_have_left(self):
        installer = self.file("installer.new", b"v1")
        self.add("1", installer)
        placed = self.catalogue / "installers"
        for left in ("P1_2.new.new", "P1_2.statement"):
            (placed / left).write_bytes(b"hal")
        lock = self.catalogue / ".zvupdate-publish.lock"
        for contents, holder in (("7\nzvupdate-publish\nelsewhere\n", "process 7 on elsewhere"),
                                 ("", "not put down a name")):
            lock.write_text(contents)
            output = self.add("2", installer, status=1)
            self.assertRegex(output, f"since 2.*{holder}.*remove this file")
        lock.unlink()
        os.mkfifo(lock)
        self.assertIn("is no file; remove it", self.add("2", installer, status=1))
        lock.unlink()
        self.add("2", self.file("installer", b"v2"))
        self.assertEqual(set(os.listdir(placed)), {"P1_1.new", "P1_2"})

    def test_a_full_disk_changes_nothing(self):
        self.add("1", self.file("installer", b"v1"))
        site = self.folder / "site"

        def kept():
            return {path: path.read_bytes() for path in self.catalogue.rglob("*")
                    if path.is_file() and path.suffix != ".lock"}, (site / "current").exists()

        def fill_disk():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))

        before = kept()
        one = ("--catalogue", self.catalogue, "--product-id", "P1", "--version", "1")
        for command in (("withdraw", *one), ("edit", *one, "--notes", f"en={self.notes}"),
                        ("site", "--catalogue", self.catalogue, "--output", site, "--format",
                         "nginx")):
            done = subprocess.run([BIN / "zvupdate-publish", *command], capture_output=True,
                                  check=False, preexec_fn=fill_disk)
            self.assertEqual(done.returncode, 1, done)
            self.assertEqual(kept(), before)
        self.change("withdraw", version="1")

    def test_verify_does_not_wait_for_an_endless_installer(self):
        self.add("1", self.file("installer", b"v1"))

        class Endless(http.server.BaseHTTPRequestHandler):
            def answer(self, body):
                self.send_response(200)
                self.end_headers()
                self.wfile.write(body)

            def do_POST(self):
                self.answer(b'{"ok":true,"id":"T"}')

            def do_GET(self):
                self.answer(b"v1")
                with contextlib.suppress(OSError):
                    # Held open rather than endless, which would fill the disk of who takes it all.
                    self.wfile.write(bytes(16 << 20))
                    self.connection.recv(1)

            do_HEAD = do_POST

            def log_message(self, *_):
                pass
        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Endless) as server:
            threading.Thread(target=server.serve_forever).start()
            output = self.publish("verify", f"http://127.0.0.1:{server.server_port}{PATH}",
                                  "--catalogue", self.catalogue, status=1)
            server.shutdown()
        self.assertIn("brings more than the installer", output)

    def test_loses_nothing_when_several_are_at_work(self):
        self.add("1", self.file("installer", b"v1"))
        changed = self.releases()
        changed["colour"] = changed["products"][0]["owner"] = {"name": "x"}
        (self.catalogue / "releases.json").write_text(json.dumps(changed))
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            list(pool.map(lambda n: self.add(n, self.folder / "installer", "--force"),
                          map(str, range(2, 10))))
        after = self.releases()
        self.assertEqual({release["version"] for release in after["products"][0]["releases"]},
                         {str(n) for n in range(1, 10)})
        self.assertEqual(after["colour"], after["products"][0]["owner"])


@unittest.skipUnless(shutil.which("nginx"), "nginx is not installed")
class Site(Folder):
    def start(self, more=""):
        """Makes the site and serves it."""
        self.make_site()
        self.port = servers.free_port()
        self.url = f"http://127.0.0.1:{self.port}{PATH}"
        self.file("more.conf", more.encode())
        config = self.file("nginx.conf", NGINX.format(
            folder=self.folder, port=self.port,
            user="user root;" if os.geteuid() == 0 else "").encode())
        running = servers.running(["nginx", "-p", self.folder, "-e", self.folder / "error.log",
                                   "-c", config])
        self.nginx = running.__enter__()
        self.addCleanup(running.__exit__, None, None, None)
        servers.wait_for(lambda: servers.is_listening(self.port), "nginx listens")

    def reload(self):
        """Returns when the old workers accept no more connections; they may go on with those they
        have."""
        workers = pathlib.Path(f"/proc/{self.nginx.pid}/task/{self.nginx.pid}/children")
        titles = [pathlib.Path(f"/proc/{pid}/cmdline") for pid in workers.read_text().split()]

        def is_leaving(title):
            try:
                return b"worker process\0" not in title.read_bytes() + b"\0"
            except OSError:
                return True
        self.nginx.send_signal(signal.SIGHUP)
        servers.wait_for(lambda: all(map(is_leaving, titles)), "the old workers leave")

    def verify(self, status=0):
        return self.publish("verify", self.url, "--catalogue", self.catalogue, status=status)

    def ask(self, method, command, connection=None, headers=None):
        connection = connection or http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        connection.request(method, PATH + seal(command), headers=headers or {})
        return connection.getresponse()

    def post(self, command):
        return json.loads(self.ask("POST", command).read())

    def is_offered(self, version):
        return self.post(f"cmd=checkupd&id=P1&ver={version}")["ok"]

    def test_clients_of_a_switched_site_get_whole_files(self):
        old, new = os.urandom(300_000), os.urandom(300_000)
        self.add("1", self.file("first", b"first"))
        self.add("2", self.file("old", old))
        self.start()
        arrived, switched = threading.Semaphore(0), threading.Event()

        def pause(is_here):
            if is_here:
                arrived.release()
                switched.wait(60)

        def client(phase):
            """Pauses before the token, the size or the file, in mid-file, or breaks off there."""
            self.assertTrue(self.is_offered("1"))
            pause(phase == 0)
            token = self.post("cmd=gettoken")["id"]
            command = f"cmd=download&tk={token}&fn=P1_2.exe"
            pause(phase == 1)
            self.assertEqual(int(self.ask("HEAD", command).headers["Content-Length"]), len(old))
            pause(phase == 2)
            connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
            connection.sock = socket.socket()
            connection.sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.sock.connect(("127.0.0.1", self.port))
            response = self.ask("GET", command, connection)
            received = response.read(50_000)
            if phase == 4:
                connection.close()
            pause(phase >= 3)
            if phase == 4:
                response = self.ask("GET", command, headers={"Range": f"bytes={len(received)}-"})
                self.assertEqual(response.status, 206)
            return received + response.read()

        with concurrent.futures.ThreadPoolExecutor(200) as pool:
            clients = [pool.submit(client, n % 5) for n in range(200)]
            for _ in clients:
                self.assertTrue(arrived.acquire(timeout=60))
            self.add("3", self.file("new", new))
            self.make_site()
            self.assertFalse(self.is_offered("2"), "the site before is served until the reload")
            self.reload()
            switched.set()
            for each in clients:
                self.assertEqual(hashlib.md5(each.result()).digest(), hashlib.md5(old).digest())
        self.verify()

    def test_a_withdrawn_name_that_comes_back_gets_another_token(self):
        self.add("1", self.file("installer", b"first"))
        self.add("2", self.file("installer", b"second"))
        self.start()
        token = self.post("cmd=gettoken")["id"]
        self.change("withdraw")
        self.assertEqual(self.make_site()["token"], token)
        self.reload()
        self.assertFalse(self.is_offered("1"))
        self.verify()
        self.add("2", self.file("installer", b"rebuilt"), "--force")
        self.make_site()
        self.reload()
        self.assertNotEqual(self.post("cmd=gettoken")["id"], token)
        self.assertEqual(self.ask("GET", f"cmd=download&tk={token}&fn=P1_2.exe").status, 404)
        self.verify()
        installers = self.folder / "site" / "installers"
        self.assertIn(hashlib.sha256(b"second").hexdigest(), os.listdir(installers))
        self.add("3", self.file("installer", b"third"))
        record = self.folder / "site" / "generations" / "1" / "site.json"
        record.unlink()
        os.mkfifo(record)
        self.make_site("--keep", "1")
        self.assertEqual(set(os.listdir(installers)), {
            hashlib.sha256(contents).hexdigest() for contents in (b"first", b"rebuilt", b"third")})

    def test_downloads_can_be_sent_elsewhere(self):
        self.add("1", self.file("installer", b"first"))
        self.file("quoted", b'"Faster"')
        self.add("2", self.file("installer", b"second"), "--notes", f"en={self.folder}/quoted")
        self.start()
        self.make_site("--base-url", "http://any.example/get/it?what=",
                       "--download-host", f"http://localhost:{self.port}/")
        self.reload()
        self.url = f"http://127.0.0.1:{self.port}/get/it?what="
        self.assertIn("take off the quotes around the notes", self.verify())
        self.assertIn("GET 302", (self.folder / "access.log").read_text())

    def test_verify_demands_what_builds_demand(self):
        (public, by_key), (other, _) = self.key("key"), self.key("other")
        self.add("1", self.file("installer", b"first"), "--release-key", public)
        self.add("2", self.file("installer", b"second"))
        self.change("sign", "--with", by_key)
        self.start()
        self.assertIn("P1 1 is not offered", self.verify())
        for more, reason in ((("--release-key", other), "would refuse it: The offer is not signed"),
                             (("--allow-unsigned",), "HEAD tells no length")):
            self.assertIn(reason, self.publish("verify", self.url, "--catalogue", self.catalogue,
                                               *more, status=1))
        self.make_site("--allow-unsigned")
        self.reload()
        self.publish("verify", self.url, "--catalogue", self.catalogue, "--allow-unsigned")
        self.undo()
        self.make_site("--allow-unsigned")
        self.reload()
        self.publish("verify", self.url, "--catalogue", self.catalogue, "--allow-unsigned")
        # What is served is not signed, and the catalogue has a signature.
        self.change("sign", "--with", by_key)
        self.assertRegex(self.verify(1), "(?s)not sent the catalogue's signatures.*would refuse it")

    def test_fifty_products_with_twenty_versions(self):
        (self.catalogue / "installer").write_bytes(b"all the same")
        products = [{"id": f"產品&{n}", "withdrawn": ["9"], "releases": [
            {"version": str(version), "installer": "installer", "notes": {"en": f"{n} {version}"}}
            for version in range(100, 120)]} for n in range(50)]
        (self.catalogue / "releases.json").write_text(json.dumps({"products": products}))
        self.start()
        # Twenty outdated versions, the newest and an unknown one ask; twenty are downloaded.
        self.assertIn(f"{50 * (22 + 20)} looked at, 0 wrong", self.verify())
        sealed = seal("cmd=checkupd&id=產品&7&ver=100")
        for text in (sealed, sealed.lower()):
            reply = subprocess.run(["curl", "-s", "-d", "a=body", self.url + text], check=True,
                                   capture_output=True).stdout
            self.assertTrue(json.loads(reply)["ok"])

    def test_verify_finds_what_is_wrong(self):
        self.add("1", self.file("installer", b"first"))
        self.add("2", self.file("installer", b"second"))
        self.start("max_ranges 0;")
        served = self.folder / "site/installers" / hashlib.sha256(b"first").hexdigest()
        served.unlink()
        served.write_bytes(b"fIrst")
        config = (self.folder / "site/current/nginx.conf").read_text()
        (refusal,) = re.findall(r"default /(replies/\S+);", config)
        (self.folder / "site" / refusal).write_text("no such page")
        self.add("3", self.file("installer", b"third"))
        output = self.verify(1)
        for reason in ("GET brings a file with the MD5", "Range is ignored",
                       'is offered "2", and should be offered "3"; a cache may be stale',
                       "HEAD tells no length", "gets no answer that clients understand"):
            self.assertIn(reason, output)


if __name__ == "__main__":
    unittest.main(verbosity=2, warnings="ignore")
