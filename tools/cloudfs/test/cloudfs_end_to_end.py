#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs every command of cloudfs: what it prints, what it stores, how it ends.

usage: cloudfs_end_to_end.py CLOUDFS [unittest arguments]

The store is an embedded one. With CLOUDFS_TEST_ON=s3 it is a part of the bucket that the variables S3_* name, for the
tests that are about any store.
"""

import datetime
import json
import os
import pty
import re
import resource
import select
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest
import uuid

CLOUDFS = ""
DONE, FAILED, USAGE, INTERRUPTED = 0, 1, 2, 130
PART = 64 * 1024
PART_ON_DISK = 1 << 29  # more than parts may take of memory
DEADLINE_SECONDS = 60
FORMAT_1 = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../../clients/sqlite/test/format1.sql")

ODD_NAMES = ["with space", "it's", 'double"quote', "ünï-日本", "new\nline", "tab\there", "esc\x1b[31m", "back\\slash",
             "[a,b]", "{}", "-x", "%20", "dot.", "...", "#", "*"]


ON_S3 = os.environ.get("CLOUDFS_TEST_ON") == "s3"
STORE_FILES = [] if ON_S3 else ["store.db"]
embedded_only = unittest.skipIf(ON_S3, "about the embedded store")

# Where a store looks up versions instead of honouring conditions, two writers may meet in between; see docs/s3.md.
conditions_only = unittest.skipIf(ON_S3 and os.environ.get("S3_SERVER") == "swift", "this store honours no conditions")


def store_settings():
    if not ON_S3:
        return {"CLOUDFS_STORE": "sqlite:store.db"}
    return {"CLOUDFS_STORE": f"s3://{os.environ['S3_BUCKET']}/{uuid.uuid4()}",
            "AWS_ENDPOINT_URL_S3": os.environ["S3_ENDPOINT"], "AWS_REGION": os.environ["S3_REGION"],
            "AWS_ACCESS_KEY_ID": os.environ["S3_ACCESS_KEY"], "AWS_SECRET_ACCESS_KEY": os.environ["S3_SECRET_KEY"]}


class Case(unittest.TestCase):
    """A fresh folder with a store, local files and temporary files of its own."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="cloudfs-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.temporary = os.path.join(self.folder, "tmp")
        self.work = os.path.join(self.folder, "work")
        os.mkdir(self.temporary)
        os.mkdir(self.work)
        self.environment = dict(os.environ, TMPDIR=self.temporary, VX_CLOUD_PART_SIZE_OVERRIDE=str(PART),
                                LC_ALL="C.UTF-8", **store_settings())
        if ON_S3:
            self.addCleanup(self.run_tool, "rm", "-r", "--force", "/")
            self.addCleanup(self.run_tool, "uploads", "--abort")

    def run_tool(self, *arguments, data=b""):
        return subprocess.run([CLOUDFS, *arguments], input=data, capture_output=True, cwd=self.work,
                              env=self.environment, timeout=DEADLINE_SECONDS)

    def start(self, *arguments, **options):
        process = subprocess.Popen([CLOUDFS, *arguments], cwd=self.work, env=self.environment, **options)

        def finish():
            if process.poll() is None:
                process.kill()
                process.wait()
            for stream in (process.stdin, process.stdout, process.stderr):
                if stream:
                    try:
                        stream.close()
                    except OSError:
                        pass

        self.addCleanup(finish)
        return process

    def ok(self, *arguments, data=b""):
        """Expect success and silence on standard error; answer standard output."""
        result = self.run_tool(*arguments, data=data)
        self.assertEqual((result.returncode, result.stderr), (DONE, b""), arguments)
        return result.stdout

    def fails(self, code, path, *arguments, data=b"", mentions=""):
        """Expect status 1 and one line: the code's name, the path, and a cause."""
        result = self.run_tool(*arguments, data=data)
        line = result.stderr.decode()
        self.assertEqual(result.returncode, FAILED, (arguments, line))
        self.assertEqual(line.count("\n"), 1, line)
        self.assertTrue(line.startswith(f"{code}: {path}"), (arguments, line))
        self.assertIn(mentions, line)

    def misused(self, *arguments, mentions="."):
        result = self.run_tool(*arguments)
        self.assertEqual((result.returncode, result.stdout), (USAGE, b""), (arguments, result.stderr))
        self.assertRegex(result.stderr.decode(), mentions + r".*\nRun with --help for more information\.\n\Z")

    def local(self, name, data=b""):
        path = os.path.join(self.work, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data)
        return name

    def read_local(self, name):
        with open(os.path.join(self.work, name), "rb") as file:
            return file.read()

    def on_a_terminal(self, *arguments):
        """What a command that succeeds shows on a terminal."""
        master, slave = pty.openpty()
        process = self.start(*arguments, stdout=slave)
        os.close(slave)
        self.assertEqual(process.wait(DEADLINE_SECONDS), DONE)
        shown = os.read(master, 10000).decode()
        os.close(master)
        return shown

    def json_of(self, *arguments):
        """The entries of a JSON document that has one a line; times, which are to be in UTC, become True."""
        text = self.ok(*arguments).decode()
        document = json.loads(text)
        self.assertEqual(text.count("\n"), len(document) + 2 if document else 1, text)
        for entry in document:
            if entry.get("time"):
                self.assertRegex(entry["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
                entry["time"] = True
        return document

    def names(self, path="/", *options):
        return self.ok("ls", *options, path).decode().splitlines()

    def make_old_store(self, objects):
        """A store of format 1 with these objects, of at most 1 MiB each."""
        connection = sqlite3.connect(os.path.join(self.work, "store.db"))
        with open(FORMAT_1, encoding="ascii") as tables:
            connection.executescript(tables.read())
        for number, (key, data) in enumerate(objects.items(), 1):
            connection.execute("INSERT INTO chunk VALUES(?, ?)", (number, data))
            connection.execute("INSERT INTO slice VALUES(?, 0, ?, ?, 0)", (number, len(data), number))
            connection.execute("INSERT INTO object VALUES(?, ?, ?, 0)", (key.encode(), number, len(data)))
        connection.execute("UPDATE counter SET last = ?", (len(objects),))
        connection.commit()
        connection.close()

    def local_names(self, folder="."):
        """What is in the folder, without what lies beside the store's file."""
        return sorted(name for name in os.listdir(os.path.join(self.work, folder)) if not name.startswith("store.db-"))

    def part_files(self):
        """Not everything there is: a sanitizer makes a file before the program begins."""
        return [file for folder, _, files in os.walk(self.temporary) for file in files
                if os.path.basename(folder).startswith("cloudprovider-parts.")]

    def assert_no_temporary_files(self):
        self.assertEqual(os.listdir(self.temporary), [])

    def store_content(self):
        return {name: self.ok("cat", "/" + name) for name in self.names("/", "-R", "--files")}

    def start_put_through_fifo(self, path, parts=4):
        """Start a put that has read that many parts and waits for more; answer the process and the FIFO's end."""
        fifo = os.path.join(self.folder, "fifo")
        os.mkfifo(fifo)
        process = self.start("put", "-", path, stdin=os.open(fifo, os.O_RDWR), stderr=subprocess.PIPE)
        writer = os.open(fifo, os.O_WRONLY)
        self.addCleanup(os.close, writer)
        # More than a FIFO holds: the last write returns only when the tool has read the most of it.
        os.write(writer, bytes(parts * PART + 65536))
        return process, writer

    def start_with_disk(self, size):
        """A process that has a small disk mounted on the folder, as only it and those who enter its mounts see."""
        mounted = subprocess.Popen(["unshare", "-m", "sh", "-c", 'mount -t tmpfs -o size="$0" tmpfs "$1" && echo && '
                                    "exec sleep 1000", size, self.work],
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(mounted.stdout.close)
        self.addCleanup(mounted.wait)
        self.addCleanup(mounted.kill)
        if not mounted.stdout.readline():
            self.skipTest("mounts are not permitted here")
        return mounted

    def wait_for(self, condition):
        deadline = time.monotonic() + DEADLINE_SECONDS
        while not condition():
            self.assertLess(time.monotonic(), deadline)

    def status(self, pid):
        with open(f"/proc/{pid}/status") as file:
            return dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)

    def waits_for_the_store(self, pid):
        try:
            links = [os.readlink(f"/proc/{pid}/fd/{name}") for name in os.listdir(f"/proc/{pid}/fd")]
        except FileNotFoundError:
            return False  # closed meanwhile
        return any(link.endswith("store.db-shm") for link in links) and self.status(pid)["State"].startswith("S")

    def start_waiting(self, *arguments, **options):
        """Start a command that changes the store while somebody else does; answer it and the other."""
        other = sqlite3.connect(os.path.join(self.work, "store.db"), isolation_level=None)
        self.addCleanup(other.close)
        other.execute("BEGIN IMMEDIATE")
        process = self.start(*arguments, **options)
        self.wait_for(lambda: self.waits_for_the_store(process.pid))
        return process, other

    def make_store_tree(self, root="/old"):
        """A folder with files, a folder in it and an empty one; answer the files' content by their paths below it."""
        files = {"a": b"of a", "b.": os.urandom(2 * PART), "sub/c": b"", "sub/deep/d": b"of d"}
        for name, data in files.items():
            self.ok("put", "-", f"{root}/{name}", data=data)
        self.ok("mkdir", root + "/empty")
        return files

    def files_below(self, root):
        names = self.names(root, "-R", "--files") if root.strip("/") + "/" in self.names("/", "-R") else []
        return {name: self.ok("cat", f"{root}/{name}") for name in names}

    def change_store(self, *statements):
        connection = sqlite3.connect(os.path.join(self.work, "store.db"))
        for statement in statements:
            connection.execute(statement)
        connection.commit()
        connection.close()

    def fail_at(self, event, key):
        """Let the store fail from now on at that event, INSERT, UPDATE or DELETE, on an object."""
        row = "OLD" if event == "DELETE" else "NEW"
        self.change_store(f"CREATE TRIGGER fault_{event} BEFORE {event} ON objects WHEN {row}.key = CAST('{key}' AS BLOB)"
                          " BEGIN SELECT RAISE(ABORT, 'fault'); END")

    def assert_fault(self, *arguments, mentions=b""):
        result = self.run_tool(*arguments)
        self.assertEqual(result.returncode, FAILED, result.stderr)
        self.assertIn(b"fault", result.stderr)
        self.assertIn(mentions, result.stderr)


class Usage(Case):
    def test_wrong_arguments_end_with_2_and_touch_nothing(self):
        self.local("f", b"x")
        for arguments in [[], ["bogus"], ["put", "f"], ["cat"], ["ls", "--files", "--folders"], ["cat", "relative"],
                          ["cat", ""], ["cat", "/a/../b"], ["write", "f", "/f"], ["write", "--at", "-1", "f", "/f"],
                          ["write", "--at", "9223372036854775808", "f", "/f"], ["write", "--at", "1k", "f", "/f"],
                          ["--trace=zz", "ls", "/"], ["--trace=0x100000000", "ls", "/"],
                          ["--folder-policy", "none", "ls", "/"], ["--store", "f", "ls", "/"],
                          ["--store", "sqlite:", "ls", "/"], ["--store", "s3:///prefix", "ls", "/"],
                          ["--store", "s3://bucket", "upgrade"], ["--store", "s3://bucket", "verify"],
                          ["uploads", "--older-than", "1y"], ["uploads", "--older-than", "d"],
                          ["ls", "--human", "--json"], ["du", "-l"], ["cat", "--at", "x", "/f"],
                          ["cat", "--size", "-1", "/f"],
                          ["put", "-", "/sub/"], ["put", "f", "--links", "what", "/"],
                          ["get", "--transfers", "0", "/f"], ["get", "--transfers", "65", "/f"]]:
            with self.subTest(arguments=arguments):
                self.misused(*arguments)
        self.misused("b\x1bgus", mentions=r"b\\033gus")
        self.assertEqual(os.listdir(self.work), ["f"])

    def test_help_gives_an_example_for_every_command(self):
        overview = self.ok("--help").decode()
        self.assertIn("\nCommands:\n", overview)
        self.assertNotIn("{", overview)
        for command in ["ls", "stat", "du", "cat", "put", "get", "append", "write", "touch", "mkdir", "rm", "rmdir", "mv",
                        "cp", "sync", "uploads", "verify", "compact", "upgrade"]:
            with self.subTest(command=command):
                self.assertIn(f"\n  {command} ", overview)
                help = self.ok(command, "--help").decode()
                self.assertRegex(help, rf"Example: .*cloudfs {command} ")
                self.assertLessEqual(max(map(len, (overview + help).splitlines())), 80)
        self.assertEqual(self.ok("-h").decode(), overview)
        self.assertNotIn("Excludes", self.ok("ls", "--help").decode())
        self.assertRegex(self.ok("--version").decode(), r"^\d+\.\d+\.\d+\n$")

    def test_no_command_lists_them(self):
        result = self.run_tool()
        self.assertEqual((result.returncode, result.stdout), (USAGE, b""))
        overview = self.ok("--help").decode().split("\nCommands:\n")[1]
        self.assertEqual(re.findall(r"(?m)^  (\w+)", result.stderr.decode()), re.findall(r"(?m)^  (\w+)", overview))

    @embedded_only
    def test_a_missing_store_is_made_only_to_put_something_into_it(self):
        self.local("f", b"x")
        for arguments in [["ls", "/"], ["stat", "/"], ["cat", "/a"], ["get", "/a", "b"], ["rm", "/a"],
                          ["rmdir", "/a"], ["mv", "/a", "/b"], ["cp", "/a", "/b"], ["write", "--at", "0", "f", "/a"],
                          ["upgrade"], ["verify"], ["compact"]]:
            with self.subTest(arguments=arguments):
                self.fails("NotFound", "store.db", *arguments, mentions="no such store")
        self.fails("NotFound", "missing", "put", "missing", "/a")
        self.fails("NotFound", "/no:", "mkdir", "/no/such/parent")
        self.fails("NotFound", "no:", "--store", "sqlite:no/such/store.db", "put", "f", "/a", mentions="for no/such/s")
        self.fails("AlreadyExists", "/:", "mkdir", "/")
        self.fails("InvalidLocation", "/:", "append", "f", "/")
        self.fails("Unsupported", "/x", "--folder-policy", "implicit", "mkdir", "/x", mentions="while files are in")
        self.assertEqual(os.listdir(self.work), ["f"])
        self.local("store.db")
        self.fails("NotFound", "store.db", "ls", "/", mentions="no such store")
        self.assertEqual(self.read_local("store.db"), b"")
        self.ok("put", "f", "/a")
        self.assertEqual(self.names(), ["a"])

    @embedded_only
    def test_a_bucket_needs_credentials(self):
        self.environment = {name: value for name, value in self.environment.items() if not name.startswith("AWS_")}
        self.environment["HOME"] = self.folder
        self.fails("PermissionDenied", "s3://bucket/prefix/", "--store", "s3://bucket/prefix", "ls", "/",
                   mentions="credentials")

    @embedded_only
    def test_verbose_tells_what_was_moved(self):
        self.ok("touch", "/f")
        self.assertRegex(self.run_tool("-v", "ls", "/").stderr, rb"^no requests: .*\n$")

    @embedded_only
    def test_the_store_is_chosen_by_option_before_environment_before_default(self):
        self.ok("--store", "sqlite:one.db", "put", "-", "/one", data=b"1")
        self.ok("put", "-", "/two", data=b"2", )
        del self.environment["CLOUDFS_STORE"]
        self.ok("put", "-", "/three", data=b"3")
        for store, name in [("one.db", "one"), ("store.db", "two"), ("cloudfs.db", "three")]:
            self.assertEqual(self.ok("--store", "sqlite:" + store, "ls"), name.encode() + b"\n")

    @embedded_only
    def test_a_file_that_is_no_store_is_reported_and_kept(self):
        self.local("store.db", b"not a database " * 100)
        self.fails("Failed", "store.db: cannot open the store store.db: file", "ls", "/")
        self.fails("InvalidLocation", ".: is a folder", "--store", "sqlite:.", "ls", "/")
        self.fails("InvalidLocation", "store.db/x: Not a directory", "--store", "sqlite:store.db/x", "put", "-", "/f")
        self.assertEqual(self.read_local("store.db"), b"not a database " * 100)

    def test_trace_shows_nested_records_for_the_mask(self):
        self.ok("put", "-", "/f", data=b"x")
        everything = self.run_tool("--trace", "cat", "/f")
        self.assertEqual(everything.stdout, b"x")
        lines = everything.stderr.decode().splitlines()
        self.assertTrue(any("openSequentialReader" in line and not line.startswith(" ") for line in lines), lines)
        self.assertTrue(any("RangesAhead" in line and line.startswith("  ") for line in lines), lines)
        self.assertTrue(any(line.strip() == "iri=/f" for line in lines), lines)
        arguments_only = self.run_tool("--trace=0x2", "cat", "/f").stderr.decode()
        self.assertIn("iri=/f", arguments_only)
        self.assertNotIn("openSequentialReader", arguments_only)


@embedded_only
class Settings(Case):
    PART_SIZE, CACHE_SIZE = "VX_CLOUD_PART_SIZE_OVERRIDE", "VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE"

    def parts_of(self, path):
        """How many parts a file of the store has; none if it was stored in one go."""
        connection = sqlite3.connect(os.path.join(self.work, "store.db"))
        try:
            return connection.execute("SELECT parts FROM objects WHERE key = ?", (path.encode(),)).fetchone()[0]
        finally:
            connection.close()

    def test_variables_are_plain_numbers(self):
        for name, wrong, right in [(self.PART_SIZE, ["8M", "65535", "-1", " 70000", "1e6", "18446744073709551616"],
                                    ["65536", "0", ""]),
                                   (self.CACHE_SIZE, ["1K", "-1", "x", "18446744073709551616"], ["0", "1", ""])]:
            option = "--part-size" if name == self.PART_SIZE else "--cache-size"
            for value in wrong + right:
                with self.subTest(name=name, value=value):
                    self.environment[name] = value
                    if value in right:
                        self.ok("put", "-", "/f", data=b"x")
                    else:
                        self.misused("ls", mentions=f"^{name} .*: {value}")
                        self.ok(option, "64K", "put", "-", "/f", data=b"x")
            del self.environment[name]

    def test_options_are_numbers_with_units(self):
        for option, wrong in [("--part-size", ["65535", "63K", "1k", "8MB", "K", "", "-1M", "9999999999G"]),
                              ("--cache-size", ["1k", "", "G", "1.5M", "8589934592G"])]:
            for value in wrong:
                with self.subTest(option=option, value=value):
                    self.misused(option, value, "ls")
        content = os.urandom(5 * PART)
        for value, parts in [("65536", 5), ("64K", 5), ("128K", 3), ("1M", 0), ("1G", 0)]:
            with self.subTest(value=value):
                self.ok("--part-size", value, "--cache-size", "0", "put", "-", "/f", data=content)
                self.assertEqual(self.parts_of("f"), parts)
                self.assertEqual(self.ok("cat", "/f"), content)

    def test_temporary_files_go_where_they_are_told_to(self):
        self.local("file")
        for code, name in [("NotFound", "missing"), ("InvalidLocation", "file")]:
            self.fails(code, name + ":", "--temp", name, "ls")
        self.environment["TMPDIR"] = "missing"
        self.fails("Failed", "/f: ", "--part-size", str(PART_ON_DISK), "put", "-", "/f", data=b"x",
                   mentions="missing: No such file or directory")
        self.ok("put", "-", "/f", data=b"in memory")
        self.fails("NotFound", os.path.realpath(self.work) + "/missing: No such", "append", "-", "/f", data=b"x")
        self.ok("--temp", self.temporary, "put", "-", "/f", data=bytes(3 * PART))
        self.assertEqual(len(self.ok("cat", "/f", "--temp", self.temporary)), 3 * PART)

    def test_a_folder_for_temporary_files_that_cannot_be_written_is_refused(self):
        os.chmod(self.folder, 0o755)
        os.mkdir(os.path.join(self.work, "denied"), 0o700)
        if os.geteuid() != 0:
            self.skipTest("only root can become another user")
        result = subprocess.run([CLOUDFS, "--temp", "denied", "ls"], capture_output=True, cwd=self.work,
                                env=self.environment, user=65534, group=65534)
        self.assertEqual((result.returncode, result.stderr), (FAILED, b"PermissionDenied: denied: Permission denied\n"))


class Ls(Case):
    def test_an_empty_store_lists_as_nothing(self):
        self.ok("put", "-", "/f")
        self.ok("rm", "/f")
        self.assertEqual(self.ok("ls", "/"), b"")
        self.assertEqual(self.ok("ls", "-R", "/"), b"")
        self.assertEqual(self.ok("ls"), b"")

    def test_kinds_depth_and_details_are_selected(self):
        for path in ["/a.txt", "/b/c.txt", "/b/d/e.txt"]:
            self.ok("put", "-", path, data=b"12345")
        for options, path, expected in [
                ([], "/", ["a.txt", "b/"]), (["--files"], "/", ["a.txt"]), (["--folders"], "/", ["b/"]),
                (["-R"], "/", ["a.txt", "b/", "b/c.txt", "b/d/", "b/d/e.txt"]),
                (["-R", "--files"], "/b", ["c.txt", "d/e.txt"]), (["-R", "--folders"], "/", ["b/", "b/d/"]),
                ([], "/b/", ["c.txt", "d/"]), ([], "/b/c.txt", ["/b/c.txt"]), (["--folders"], "/b/c.txt", [])]:
            with self.subTest(options=options, path=path):
                self.assertEqual(self.names(path, *options), expected)
        self.assertRegex(self.ok("ls", "-l", "/").decode(),
                         r"\A +5  \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ  a\.txt\n +-  .*  b/\n\Z")

    def test_a_folder_that_is_missing_is_reported(self):
        self.ok("put", "-", "/sub/f")
        self.fails("NotFound", "/absent", "ls", "/absent")

    def test_a_terminal_sees_escapes(self):
        self.ok("put", "-", "/new\nline\x1b\\\u0085é")
        self.assertEqual(self.on_a_terminal("ls", "/"), "new\\nline\\033\\\\\\302\\205é\r\n")

    def test_a_terminal_is_not_told_to_turn_the_direction_of_writing(self):
        turning = "\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069"
        kept = "é\u061b\u200d\u2010\u2029\u202f\u2065\u206a日😀"
        self.ok("put", "-", "/" + turning + kept)
        octal = "".join(f"\\{byte:03o}" for byte in turning.encode())
        self.assertEqual(self.on_a_terminal("ls", "/"), octal + kept + "\r\n")
        self.assertEqual(self.ok("ls").decode(), turning + kept + "\n")
        result = self.run_tool("cat", "/no" + turning)
        self.assertEqual(result.stderr.decode(), f"NotFound: /no{octal}: there is no such file or folder\n")

    def test_sizes_are_shown_for_people(self):
        for size, shown in [(0, "0"), (1023, "1023"), (1024, "1.0K"), (1025, "1.1K"), (10137, "9.9K"), (10138, "10K"),
                            (10241, "11K"), (1047552, "1023K"), (1047553, "1.0M"), (1500000, "1.5M")]:
            with self.subTest(size=size):
                self.ok("put", "-", "/f", data=bytes(size))
                self.assertRegex(self.ok("ls", "-lh", "/").decode(), rf"^ *{shown}  \S+  f\n$")
        self.assertEqual(self.ok("ls", "-l", "--human"), self.ok("ls", "-lh"))
        self.assertEqual(self.ok("ls", "-h"), b"f\n")

    @embedded_only
    def test_json_tells_everything(self):
        self.assertEqual(self.run_tool("ls", "--json").stdout, b"")
        name = "\x1f\"\\\n\x7f\u0085é\u202e日😀"
        self.ok("put", "-", "/a/" + name, data=b"12345")
        self.ok("put", "-", "/b", data=b"")
        file = {"kind": "file", "time": True}
        folder = {"kind": "folder", "size": None}
        self.assertEqual(self.json_of("ls", "--json"),
                         [{"name": "a", "time": None, **folder}, {"name": "b", "size": 0, **file}])
        self.assertEqual(self.json_of("ls", "--json", "-l", "/a"), [{"name": name, "size": 5, **file}])
        self.assertIn(b'"\\u001f\\"\\\\\\u000a\\u007f\\u0085\xc3\xa9\\u202e', self.ok("ls", "--json", "/a"))
        self.assertEqual(self.json_of("ls", "--json", "/b"), [{"name": "/b", "size": 0, **file}])
        self.assertEqual(self.json_of("ls", "--json", "--folders", "/b"), [])


class Stat(Case):
    def test_kind_size_and_time_are_told(self):
        self.ok("put", "-", "/a.txt", data=b"12345")
        self.ok("put", "-", "/b/c.txt")
        self.assertRegex(self.ok("stat", "/a.txt").decode(), r"path: /a.txt\nkind: file\nsize: 5\ntime: \d{4}-")
        self.assertEqual(self.ok("stat", "/b"), b"path: /b\nkind: folder\nsize: -\ntime: -\n")
        self.fails("NotFound", "/absent", "stat", "/absent")

    def test_json_tells_the_same(self):
        self.ok("put", "-", "/b/c", data=b"12345")
        self.assertEqual(self.json_of("stat", "--json", "/b"),
                         [{"path": "/b", "kind": "folder", "size": None, "time": None}])
        self.assertEqual(self.json_of("stat", "/b//c", "--json"),
                         [{"path": "/b/c", "kind": "file", "size": 5, "time": True}])


class Du(Case):
    def setUp(self):
        super().setUp()
        for path, size in [("/a/f", 3000), ("/a/sub/g", 5), ("/a-b/h", 7), ("/top", 11)]:
            self.ok("put", "-", path, data=bytes(size))
        self.ok("mkdir", "/empty")

    def test_bytes_and_files_are_counted_for_each_folder(self):
        for path, expected in [("/", [(7, 1, "/a-b/"), (3005, 2, "/a/"), (0, 0, "/empty/"), (3023, 4, "/")]),
                               ("/a/", [(5, 1, "/a/sub/"), (3005, 2, "/a/")]), ("/empty", [(0, 0, "/empty/")]),
                               ("/top", [(11, 1, "/top")])]:
            with self.subTest(path=path):
                lines = [line.split() for line in self.ok("du", path).decode().splitlines()]
                self.assertEqual([(int(size), int(files), name) for size, files, name in lines], sorted(
                    expected, key=lambda line: (line is expected[-1], line[2].rstrip("/"))))
        self.assertRegex(self.ok("du", "--human", "/a").decode(), r"\A +5 +1  /a/sub/\n +3\.0K +2  /a/\n\Z")
        self.fails("NotFound", "/absent", "du", "/absent")
        self.fails("NotFound", "/top", "du", "/top/")

    def test_json_tells_the_same(self):
        folder = {"path": "/a", "kind": "folder", "size": 3005, "files": 2}
        self.assertEqual(self.json_of("du", "--json", "/a"),
                         [{**folder, "path": "/a/sub", "size": 5, "files": 1}, folder])
        self.assertEqual(self.json_of("du", "--json", "/top"),
                         [{"path": "/top", "kind": "file", "size": 11, "files": 1}])

    def test_an_empty_store_holds_nothing(self):
        self.ok("rm", "-r", "--force", "/")
        self.assertEqual(self.ok("du").split(), [b"0", b"0", b"/"])


class Cat(Case):
    def test_a_range_is_what_there_is_of_it(self):
        content = os.urandom(3 * PART + 5)
        self.ok("put", "-", "/f", data=content)
        for at in [0, 1, PART - 1, 2 * PART, len(content) - 1, len(content), len(content) + 1, 2**62]:
            self.assertEqual(self.ok("cat", "--at", str(at), "/f"), content[at:], at)
            for size in [0, 1, PART + 1, len(content), 2**63 - 1]:
                with self.subTest(at=at, size=size):
                    self.assertEqual(self.ok("cat", "--at", str(at), "--size", str(size), "/f"), content[at:at + size])
        self.assertEqual(self.ok("cat", "--size", "9", "/f"), content[:9])

    def test_what_is_no_file_is_reported(self):
        self.ok("put", "-", "/sub/f", data=b"x")
        for code, path, name in [("NotFound", "/absent: there is no such file or folder", "/absent"),
                                 ("NotFound", "/absent.", "/absent."), ("InvalidLocation", "/sub", "/sub"),
                                 ("InvalidLocation", "/sub/f", "/sub/f/")]:
            with self.subTest(name=name):
                self.fails(code, path, "cat", name)

    def test_a_file_that_is_replaced_meanwhile_is_a_failure(self):
        self.ok("put", "-", "/f", data=b"1" * (100 * PART))
        cat = self.start("cat", "/f", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        first = cat.stdout.read(1)  # it waits for the pipe now
        self.ok("put", "-", "/f", data=b"2" * (100 * PART))
        output, error = cat.communicate(timeout=DEADLINE_SECONDS)
        self.assertEqual((cat.returncode, set(first + output)), (FAILED, set(b"1")))
        self.assertRegex(error.decode(), r"^InUse: /f: .+\n\Z")

    def test_output_that_cannot_be_written_is_a_failure(self):
        self.ok("put", "-", "/f", data=b"x" * PART)
        for command in ["cat", "ls", "stat"]:
            with open("/dev/full", "wb") as full, self.subTest(command=command):
                result = subprocess.run([CLOUDFS, command, "/f"], stdout=full, stderr=subprocess.PIPE, cwd=self.work,
                                        env=self.environment)
                self.assertEqual(result.returncode, FAILED)
                self.assertIn(b"No space left", result.stderr)

    def test_a_reader_that_leaves_ends_cat_quietly(self):
        self.ok("put", "-", "/f", data=bytes(40 * PART))
        process = self.start("cat", "/f", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdout.read(1)
        process.stdout.close()
        self.assertEqual(process.wait(DEADLINE_SECONDS), FAILED)
        self.assertEqual(process.stderr.read(), b"")
        self.assert_no_temporary_files()


class Put(Case):
    def test_files_of_all_sizes_come_back_as_they_were(self):
        for size in [0, 1, PART - 1, PART, PART + 1, 3 * PART, 20 * PART + 7]:
            with self.subTest(size=size):
                data = os.urandom(size)
                self.local("in", data)
                self.ok("put", "in", "/f")
                self.assertEqual(self.ok("cat", "/f"), data)
                self.ok("get", "/f", "out")
                self.assertEqual(self.read_local("out"), data)
                self.assertEqual(self.ok("get", "/f", "-"), data)
                self.ok("put", "-", "/piped", data=data)
                self.assertEqual(self.ok("cat", "/piped"), data)
                self.assertIn(f"size: {size}\n".encode(), self.ok("stat", "/f"))
        self.assert_no_temporary_files()

    def test_put_replaces_and_goes_into_folders(self):
        self.local("f", b"one")
        self.ok("put", "f", "/sub/")
        self.assertEqual(self.ok("cat", "/sub/f"), b"one")
        self.local("f", b"two")
        self.ok("put", "f", "/sub")
        self.assertEqual(self.ok("cat", "/sub/f"), b"two")
        self.ok("put", "f", "/")
        self.assertEqual(self.names("/", "-R"), ["f", "sub/", "sub/f"])
        self.misused("put", "-", "/sub/")

    def test_what_cannot_be_read_is_reported(self):
        os.mkdir(os.path.join(self.work, "folder"))
        self.ok("touch", "/f")
        for code, name in [("NotFound", "missing"), ("InvalidLocation", "folder")]:
            with self.subTest(name=name):
                self.fails(code, name, "put", name, "/a")
        self.assertEqual(self.names(), ["f"])

    def start_put(self, size):
        with open(os.path.join(self.work, "in"), "wb") as file:
            file.truncate(size)
        self.environment["VX_CLOUD_PART_SIZE_OVERRIDE"] = str(PART_ON_DISK)
        process = self.start("put", "in", "/f", stderr=subprocess.PIPE)
        deadline = time.monotonic() + DEADLINE_SECONDS
        while not self.part_files() and process.poll() is None:
            self.assertLess(time.monotonic(), deadline)
        return process

    def test_a_file_that_grows_is_stored_as_it_was(self):
        size = 16 << 20
        process = self.start_put(size)
        with open(os.path.join(self.work, "in"), "ab") as file:
            while process.poll() is None and file.tell() < 1 << 32:
                file.write(bytes(1 << 20))
        self.assertEqual(process.wait(DEADLINE_SECONDS), DONE)
        self.assertIn(f"size: {size}\n".encode(), self.ok("stat", "/f"))

    def test_a_file_that_shrinks_is_not_stored(self):
        process = self.start_put(1 << 36)
        os.truncate(os.path.join(self.work, "in"), 1)
        self.assertEqual(process.wait(DEADLINE_SECONDS), FAILED)
        self.assertIn(b"in: the file got shorter", process.stderr.read())
        self.assertEqual(self.names(), [])

    def test_standard_input_is_read_from_where_it_stands(self):
        self.local("in", b"read already, rest")
        with open(os.path.join(self.work, "in"), "rb", buffering=0) as file:
            file.seek(14)
            self.assertEqual(self.start("put", "-", "/f", stdin=file).wait(DEADLINE_SECONDS), DONE)
        self.assertEqual(self.ok("cat", "/f"), b"rest")

    def make_tree(self, root):
        files = {"a.txt": b"a", "sub/b.txt": os.urandom(2 * PART), "sub/deep/c": b"", "dot./x": b"x", "dot/x": b"y"}
        for name, data in files.items():
            self.local(f"{root}/{name}", data)
        os.mkdir(os.path.join(self.work, root, "empty"))
        return files

    def test_a_tree_comes_back_as_it_was_under_both_policies(self):
        for policy, keeps_empty in [("markers", True), ("implicit", False)]:
            with self.subTest(policy=policy):
                options = ["--folder-policy", policy, "--store", f"sqlite:{policy}.db"]
                files = self.make_tree(f"{policy}-in")
                self.ok(*options, "put", "-r", f"{policy}-in", "/tree")
                self.ok(*options, "get", "-r", "/tree", f"{policy}-out")
                for name, data in files.items():
                    self.assertEqual(self.read_local(f"{policy}-out/{name}"), data, name)
                self.assertEqual(os.path.isdir(os.path.join(self.work, f"{policy}-out/empty")), keeps_empty)
        self.assert_no_temporary_files()

    def test_trees_go_into_existing_folders_under_their_name(self):
        self.local("tree/f", b"1")
        self.ok("put", "-r", "tree", "/")
        self.ok("put", "-r", "tree/", "/other/")
        self.ok("put", "-r", "tree/.", "/tree")
        self.assertEqual(self.names("/", "-R", "--files"), ["other/tree/f", "tree/f"])
        os.mkdir(os.path.join(self.work, "out"))
        self.ok("get", "-r", "/tree", "out")
        self.ok("get", "-r", "/", "all")
        self.assertEqual(self.read_local("out/tree/f"), b"1")
        self.assertEqual(self.read_local("all/other/tree/f"), b"1")
        self.ok("get", "-r", "/tree/f", "single")
        self.assertEqual(self.read_local("single"), b"1")
        self.fails("AlreadyExists", "/tree/f", "put", "-r", "tree", "/tree/f")

    def test_a_tree_goes_on_after_what_cannot_be_stored(self):
        self.local("tree/a", b"a")
        self.local("tree/sub/b", b"b")
        tree = os.path.join(self.work, "tree").encode()
        with open(tree + b"/bytes\xff", "wb"):
            pass
        os.mkfifo(tree + b"/fifo")
        result = self.run_tool("put", "-r", "tree", "/")
        self.assertEqual(result.returncode, FAILED)
        lines = result.stderr.decode().splitlines()
        self.assertEqual([line.split(": ")[:2] for line in lines[:-1]],
                         [["InvalidLocation", "tree/bytes\\377"], ["Unsupported", "tree/fifo"]])
        self.assertEqual(lines[-1], "2 failures")
        self.assertEqual(self.names("/", "-R", "--files"), ["tree/a", "tree/sub/b"])
        self.fails("InvalidLocation", "\\377", "put", b"\xff", "/f", mentions="not valid UTF-8")

    def test_links_are_skipped_followed_or_refused(self):
        self.local("tree/0", b"x")
        self.local("real", b"real")
        for name, target in [("up", "."), ("dangling", "nowhere"), ("file", "../real")]:
            os.symlink(target, os.path.join(self.work, "tree", name))
        os.symlink("tree", os.path.join(self.work, "named"))
        for how, status, stored, words in [("skip", DONE, ["named/0"], "skipped"),
                                           ("follow", FAILED, ["named/0", "named/file"], "leads back|No such file"),
                                           ("error", FAILED, ["named/0"], "is a symbolic link")]:
            with self.subTest(how=how):
                result = self.run_tool("put", "-r", "--links", how, "named", "/")
                self.assertEqual(result.returncode, status)
                self.assertEqual(len(re.findall(words, result.stderr.decode())), 2 if how == "follow" else 3)
                self.assertEqual(self.names("/", "-R", "--files"), stored)
                self.ok("rm", "-r", "/named")

    def test_several_files_go_into_a_folder(self):
        for name in ["a", "b"]:
            self.local(name, name.encode())
        self.fails("InvalidLocation", "/d", "put", "a", "b", "/d", mentions="no folder")
        self.assertEqual(self.ok("put", "a", "b", "/d/", "--dry-run"), b"put a /d/a\nput b /d/b\n")
        self.ok("put", "a", "b", "/d/")
        self.fails("NotFound", "absent", "put", "a", "absent", "b", "/d")
        self.assertEqual(self.store_content(), {"d/a": b"a", "d/b": b"b"})
        self.assertEqual(self.ok("cat", "/d/a", "/d/b", "/d/?"), b"abab")


class Get(Case):
    def test_get_keeps_permissions_follows_the_link_given_and_writes_to_devices(self):
        self.ok("put", "-", "/f", data=b"new")
        self.local("real", b"old")
        os.chmod(os.path.join(self.work, "real"), 0o640)
        os.symlink("real", os.path.join(self.work, "link"))
        self.ok("get", "/f", "link")
        self.assertTrue(os.path.islink(os.path.join(self.work, "link")))
        self.assertEqual(self.read_local("real"), b"new")
        self.assertEqual(os.stat(os.path.join(self.work, "real")).st_mode & 0o777, 0o640)
        self.ok("get", "/f", "/dev/null")
        self.assertFalse(os.path.isfile("/dev/null"))

    @embedded_only
    def test_a_get_that_fails_leaves_what_was_there(self):
        self.ok("put", "-", "/f", data=bytes(20 * PART))
        self.local("out", b"old")
        limit = 5 * PART
        process = self.start("get", "/f", "out", stderr=subprocess.PIPE, restore_signals=False,
                             preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
        self.assertEqual(process.wait(DEADLINE_SECONDS), FAILED)
        self.assertEqual(process.stderr.read(), b"Failed: out: File too large\n")
        self.assertEqual(self.read_local("out"), b"old")
        self.assertEqual(self.local_names(), ["out", "store.db"])

    def test_what_cannot_be_read_or_written_is_reported(self):
        self.ok("put", "-", "/sub/f", data=b"x")
        for code, path, arguments in [("NotFound", "/absent", ["/absent", "out"]),
                                      ("InvalidLocation", "/sub: is a folder; get -r", ["/sub", "out"]),
                                      ("NotFound", "nowhere: there is no", ["/sub/f", "nowhere/below/out"])]:
            with self.subTest(arguments=arguments):
                self.fails(code, path, "get", *arguments)
        self.assertEqual(self.local_names(), STORE_FILES)

    def test_several_files_and_patterns_go_into_a_folder(self):
        for name in ["a", "b", "sub/a"]:
            self.ok("put", "-", "/d/" + name, data=name.encode())
        self.ok("get", "/d/a")
        self.assertEqual(self.read_local("a"), b"a")
        os.mkdir(os.path.join(self.work, "out"))
        self.fails("InvalidLocation", "a", "get", "/d/a", "/d/b", "a", mentions="no folder")
        self.assertEqual(self.ok("get", "--dry-run", "/d/[ab]", "out"), b"get /d/a out/a\nget /d/b out/b\n")
        self.fails("InvalidLocation", "/d/sub/a", "get", "/d/[ab]", "/d/sub/a", "out", mentions="same local path")
        self.assertEqual([self.read_local(name) for name in ["out/a", "out/b"]], [b"a", b"b"])

    def test_a_file_that_is_replaced_meanwhile_is_read_once_more(self):
        size = 400 * PART
        self.ok("put", "-", "/f", data=b"1" * size)
        self.local("old", b"2" * size)
        get = self.start("get", "/f", "out")

        def progress():
            names = [name for name in self.local_names() if "cloudfs-" in name]
            return [os.stat(os.path.join(self.work, name)).st_blocks * 512 for name in names]  # it comes in any order

        while not any(progress()) and get.poll() is None:
            time.sleep(0.0005)
        get.send_signal(signal.SIGSTOP)
        self.assertTrue(any(done < size for done in progress()), "it was too fast to be held")
        self.ok("put", "old", "/f")
        get.send_signal(signal.SIGCONT)
        self.assertEqual(get.wait(DEADLINE_SECONDS), DONE)
        self.assertEqual(set(self.read_local("out")), set(b"2"))
        self.assertEqual(self.local_names(), ["old", "out"] + STORE_FILES)

    def test_files_get_the_time_of_the_store(self):
        self.ok("put", "-", "/f", data=b"x")
        time.sleep(1.1)
        self.ok("get", "/f", "f")
        told = re.search(r"time: (\S+)", self.ok("stat", "/f").decode())[1]
        local = os.stat(os.path.join(self.work, "f")).st_mtime
        self.assertEqual(datetime.datetime.fromtimestamp(int(local), datetime.timezone.utc).strftime("%FT%TZ"), told)

    def test_a_tree_goes_on_after_a_file_that_cannot_be_written(self):
        for name in ["a", "b", "c/d"]:
            self.ok("put", "-", "/tree/" + name, data=name.encode())
        os.makedirs(os.path.join(self.work, "tree/a"))
        self.local("tree/c", b"in the way")
        result = self.run_tool("get", "-r", "/tree", ".")
        self.assertEqual((result.returncode, result.stderr.decode().splitlines()[-1]), (FAILED, "2 failures"))
        self.assertEqual((self.read_local("tree/b"), self.read_local("tree/c")), (b"b", b"in the way"))

    @embedded_only
    def test_get_stays_inside_the_folder_it_was_given(self):
        # Names that no path of this tool can make, but other programs may.
        for name in ["d/../../evil", "d/./evil"]:
            with self.subTest(name=name):
                self.make_old_store({name: b"evil"})
                self.ok("upgrade")
                result = self.run_tool("get", "-r", "/", "out")
                self.assertEqual(result.returncode, FAILED)
                self.assertIn(f"InvalidLocation: /{name}: cannot be a local path\n", result.stderr.decode())
                self.assertEqual([files for _, _, files in os.walk(self.folder) if "evil" in files], [])
                os.remove(os.path.join(self.work, "store.db"))
                shutil.rmtree(os.path.join(self.work, "out"))
        # What has a component without a name is not even listed.
        self.make_old_store({"d//evil": b"evil"})
        self.ok("upgrade")
        self.ok("get", "-r", "/", "unnamed")
        self.assertEqual(os.listdir(os.path.join(self.work, "unnamed", "d")), [])
        os.remove(os.path.join(self.work, "store.db"))
        outside = os.path.join(self.folder, "outside")
        os.mkdir(outside)
        self.ok("put", "-", "/sub/f", data=b"x")
        os.makedirs(os.path.join(self.work, "out"))
        os.symlink(outside, os.path.join(self.work, "out/sub"))
        self.ok("put", "-", "/out/sub/f", data=b"x")
        self.fails("InvalidLocation", "out/sub", "get", "-r", "/sub", "out", mentions="link")
        self.fails("InvalidLocation", "./out/sub", "get", "-r", "/out", ".", mentions="link")
        with open(os.path.join(outside, "kept"), "wb"):
            pass
        os.symlink(os.path.join(outside, "kept"), os.path.join(self.work, "out/f"))
        self.ok("get", "/sub/f", "out")
        self.assertEqual(self.read_local("out/f"), b"x")
        self.assertEqual(os.path.getsize(os.path.join(outside, "kept")), 0)
        os.remove(os.path.join(outside, "kept"))
        self.assertEqual(os.listdir(outside), [])


class Sync(Case):
    """Each file in both places, or as --delete and its guards leave them."""

    def tree(self, folder):
        root = os.path.join(self.work, folder)
        return {os.path.relpath(os.path.join(at, name), root): self.read_local(os.path.join(at, name))
                for at, _, names in os.walk(root) for name in names}

    def stored(self, folder="/t"):
        return {name: self.ok("cat", f"{folder}/{name}") for name in self.names(folder, "-R", "--files")}

    def planned(self, *arguments):
        return self.ok("sync", "--dry-run", *arguments).decode().splitlines()

    def age(self, name, seconds):
        path = os.path.join(self.work, name)
        os.utime(path, (time.time() + seconds, time.time() + seconds))

    def test_only_what_changed_is_copied_both_ways(self):
        for name in ["a", "b/c", "b/d"]:
            self.local("t/" + name, name.encode())
        os.mkdir(os.path.join(self.work, "t/empty"))
        for policy in ["markers", "implicit"]:
            with self.subTest(policy=policy):
                self.ok("--folder-policy", policy, "sync", "t", "store:/t")
                self.assertEqual(self.stored(), self.tree("t"))
                self.assertEqual(self.planned("--folder-policy", policy, "t", "store:/t", "--delete"), [])
                self.ok("sync", "store:/t", "back")
                self.assertEqual(self.tree("back"), self.tree("t"))
                self.assertEqual(self.planned("store:/t", "back"), [])
                shutil.rmtree(os.path.join(self.work, "back"))
        self.assertIn("empty/", self.names("/t"))
        self.ok("sync", "store:/t", "back")
        time.sleep(1.1 if ON_S3 else 0)  # some stores tell times in whole seconds
        self.local("t/a", b"A")  # as long as before
        self.local("t/b/c", b"longer")
        self.age("t/b/c", -3600)  # but older
        self.age("t/b/d", +3600)  # touched
        self.assertEqual(self.planned("t", "store:/t"), ["put store:/t/a", "put store:/t/b/c", "put store:/t/b/d"])
        self.assertEqual(self.planned("--checksum", "t", "store:/t"), ["put store:/t/b/c", "put store:/t/a"])
        self.age("t/b/d", -3600)
        self.ok("sync", "t", "store:/t")
        self.assertEqual(self.stored(), self.tree("t"))
        self.assertEqual(self.planned("store:/t", "back"), ["get back/a", "get back/b/c"])
        self.ok("sync", "store:/t", "back")
        self.assertEqual(self.tree("back"), self.tree("t"))

    def test_what_is_only_there_is_removed_when_told_and_when_all_else_is_well(self):
        for name in ["kept", "gone", "folder/gone", "deep/er/gone", "x.log", "logs/kept"]:
            self.ok("put", "-", "/t/" + name, data=b"x")
        everything = self.stored()
        self.local("t/kept", b"x")
        os.mkfifo(os.path.join(self.work, "t/fifo"))
        arguments = ["sync", "--delete", "--exclude", "*.log", "--exclude", "/logs/", "t", "store:/t"]
        result = self.run_tool(*arguments)
        self.assertEqual((result.returncode, self.stored()), (FAILED, everything))
        self.assertIn("nothing is removed after a failure", result.stderr.decode())
        os.remove(os.path.join(self.work, "t/fifo"))
        os.symlink("kept", os.path.join(self.work, "t/gone"))
        self.assertEqual(self.run_tool(*arguments).returncode, DONE)
        self.assertEqual(self.names("/t", "-R"), ["gone", "kept", "logs/", "logs/kept", "x.log"])
        os.remove(os.path.join(self.work, "t/gone"))
        os.remove(os.path.join(self.work, "t/kept"))
        self.fails("Unsupported", "t", "sync", "--delete", "t", "store:/t", mentions="--force")
        self.fails("NotFound", "absent", "sync", "--delete", "--force", "absent", "store:/t")
        self.fails("NotFound", "/absent", "sync", "--delete", "--force", "store:/absent", "t")
        self.assertEqual(len(self.stored()), 4)
        self.ok("sync", "--delete", "--force", "t", "store:/t")
        self.assertEqual(self.names("/", "-R", "--files"), [])

    def test_nothing_local_is_removed_through_a_link_or_after_it_changed(self):
        self.local("outside/kept", b"x")
        self.local("t/sub/gone", b"x")
        os.symlink("../outside", os.path.join(self.work, "t/link"))
        self.ok("put", "-", "/t/new", data=b"new")
        self.assertEqual(self.run_tool("sync", "--delete", "store:/t", "t").returncode, DONE)
        self.assertEqual(sorted(os.listdir(os.path.join(self.work, "t"))), ["link", "new"])
        self.assertEqual(os.listdir(os.path.join(self.work, "outside")), ["kept"])
        self.ok("put", "-", "/t/link/evil", data=b"evil")
        result = self.run_tool("sync", "store:/t", "t")
        self.assertEqual(result.returncode, FAILED)
        self.assertEqual(os.listdir(os.path.join(self.work, "outside")), ["kept"])

    @embedded_only
    def test_names_that_cannot_be_local_are_refused_and_listed(self):
        self.make_old_store({"t/../../evil": b"evil", "t/a": b"file", "t/a/b": b"b", "t/good": b"good"})
        self.ok("upgrade")
        result = self.run_tool("sync", "store:/t", "t")
        self.assertEqual(result.returncode, FAILED)
        self.assertRegex(result.stderr.decode(), "store:/t/a: a folder has the same name\n(.*\n)*"
                         "InvalidLocation: store:/t/../../evil: cannot be a local path\n")
        self.assertEqual(self.tree("t"), {"good": b"good", "a/b": b"b"})
        self.assertFalse(os.path.exists(os.path.join(self.folder, "evil")))

    def test_wrong_operands_end_with_2(self):
        for operands in [["a", "b"], ["store:/a", "store:/b"], ["store:a", "b"]]:
            self.misused("sync", *operands)


class Append(Case):
    def test_bytes_are_added_at_the_end(self):
        expected = b""
        for data in [b"made", b"", b"tail", os.urandom(2 * PART), b"behind"]:
            self.ok("append", "-", "/f", data=data)
            expected += data
            self.assertEqual(self.ok("cat", "/f"), expected)
        self.ok("append", "-", "/empty")
        self.assertIn(b"size: 0\n", self.ok("stat", "/empty"))

    def test_folders_are_refused(self):
        os.mkdir(os.path.join(self.work, "folder"))
        self.local("f", b"x")
        self.ok("mkdir", "/sub")
        self.fails("InvalidLocation", "/sub", "append", "f", "/sub")
        self.fails("InvalidLocation", "folder", "append", "folder", "/a")


class Write(Case):
    def test_bytes_are_overwritten_in_place(self):
        expected = bytearray(os.urandom(5 * PART + 100))
        self.ok("put", "-", "/f", data=bytes(expected))
        for offset, data in [(0, b"first"), (PART - 2, b"border"), (len(expected) - 1, b"last"), (7 * PART, b"gap")]:
            self.ok("write", "--at", str(offset), "-", "/f", data=data)
            expected.extend(bytes(max(0, offset + len(data) - len(expected))))
            expected[offset:offset + len(data)] = data
            self.assertEqual(self.ok("cat", "/f"), bytes(expected))
        self.fails("NotFound", "/absent", "write", "--at", "0", "-", "/absent", data=b"x")
        self.assertEqual(self.names(), ["f"])


class Touch(Case):
    def test_touch_creates_and_never_changes(self):
        self.ok("touch", "/f")
        self.assertEqual(self.ok("cat", "/f"), b"")
        self.ok("put", "-", "/f", data=b"kept")
        self.fails("AlreadyExists", "/f", "touch", "/f")
        self.assertEqual(self.ok("cat", "/f"), b"kept")
        self.ok("mkdir", "/a")
        self.fails("AlreadyExists", "/a", "touch", "/a")


class Mkdir(Case):
    def test_folders_are_made(self):
        self.ok("mkdir", "/a")
        self.assertEqual(self.names(), ["a/"])
        self.assertEqual(self.ok("ls", "/a"), b"")
        self.assertIn(b"kind: folder", self.ok("stat", "/a"))
        self.fails("AlreadyExists", "/a", "mkdir", "/a")
        for path, missing in [("/b/c", "/b"), ("/a/b/c", "/a/b"), ("/a/b/c/d/e", "/a/b")]:
            self.fails("NotFound", missing + ":", "mkdir", path, mentions="mkdir -p")
        self.ok("mkdir", "-p", "/b/c/d")
        self.ok("mkdir", "-p", "/b/c/d")
        self.assertEqual(self.names("/", "-R"), ["a/", "b/", "b/c/", "b/c/d/"])


class Rm(Case):
    def test_rm_removes_what_is_there_and_says_so_otherwise(self):
        for path in ["/f", "/d/1", "/d/e/2", "/d2"]:
            self.ok("put", "-", path, data=b"x")
        self.ok("rm", "/f")
        self.fails("NotFound", "/f", "rm", "/f")
        self.fails("NotFound", "/f", "rm", "-r", "/f")
        self.fails("InvalidLocation", "/d", "rm", "/d", mentions="rm -r")
        self.ok("rm", "-r", "/d")
        self.assertEqual(self.names("/", "-R"), ["d2"])
        self.ok("rm", "-r", "/d2")
        self.ok("put", "-", "/last", data=b"x")
        self.assertEqual(self.run_tool("rm", "-r", "/").returncode, USAGE)
        self.assertEqual(self.names(), ["last"])
        self.ok("rm", "-r", "--force", "/")
        self.assertEqual(self.ok("ls"), b"")

    def test_everything_is_removed_only_after_a_yes_at_the_terminal(self):
        self.ok("put", "-", "/f", data=b"x")
        for answer, status, left in [(b"no\n", FAILED, ["f"]), (b"\n", FAILED, ["f"]), (b"y\n", DONE, [])]:
            with self.subTest(answer=answer):
                master, slave = pty.openpty()
                self.addCleanup(os.close, master)
                process = self.start("rm", "-r", "/", stdin=slave, stderr=subprocess.PIPE)
                os.close(slave)
                self.assertTrue(process.stderr.read(1))  # the question
                os.write(master, answer)
                self.assertEqual(process.wait(DEADLINE_SECONDS), status)
                self.assertEqual(self.names(), left)

    def test_several_operands_patterns_and_what_is_only_told(self):
        names = ["a.gz", "b.gz", "c.txt", "*.gz", "sub/a.gz"]
        for name in names:
            self.ok("put", "-", "/d/" + name, data=b"x")
        self.ok("rm", "-r", "--dry-run", "/d/c*", "/d/sub")
        self.ok("rm", "/d/*.gz")  # there is one of that very name
        self.assertEqual(self.names("/d", "-R", "--files"), ["a.gz", "b.gz", "c.txt", "sub/a.gz"])
        result = self.run_tool("rm", "/d/absent", "/d/*.gz", "/d/no*")
        self.assertEqual(result.returncode, FAILED)
        self.assertEqual(result.stderr.decode().splitlines(),
                         ["NotFound: /d/absent: there is no such file or folder",
                          "NotFound: /d/no*: nothing fits the pattern", "2 failures"])
        self.assertEqual(self.names("/d", "-R", "--files"), ["c.txt", "sub/a.gz"])
        self.ok("rm", "-f", "/d/absent", "/d/no*", "/*/s?b/[a].gz")
        self.assertEqual(self.names("/d", "-R", "--files"), ["c.txt"])

    @embedded_only
    def test_files_can_be_removed_on_a_full_disk(self):
        disk = self.start_with_disk("200m")
        data = os.urandom(1024 * 1024)
        on_disk = ["nsenter", "-m", "-t", str(disk.pid), "sh", "-c", 'cd "$0" && exec "$@"', self.work]

        def run(*command, data=b""):
            return subprocess.run([*on_disk, *command], input=data, capture_output=True, env=self.environment,
                                  timeout=DEADLINE_SECONDS)

        for number in range(30):
            self.assertEqual(run(CLOUDFS, "put", "-", f"/{number}", data=data).stderr, b"")
        size = int(run("stat", "-c", "%s", "store.db").stdout)
        for number in range(20):
            filled = run("sh", "-c", "cat /dev/zero >>filler; sync")
            self.assertIn(b"No space", filled.stderr)
            if number == 0:
                self.assertEqual(run(CLOUDFS, "put", "-", "/more", data=data).returncode, FAILED)
            removed = run(CLOUDFS, "rm", f"/{number}")
            self.assertEqual((removed.returncode, removed.stderr), (DONE, b""), number)
        self.assertLess(int(run("stat", "-c", "%s", "store.db").stdout), size - 19 * len(data))
        self.assertEqual(run(CLOUDFS, "cat", "/29").stdout, data)
        self.assertEqual(run(CLOUDFS, "verify").stdout, b"")


class Rmdir(Case):
    def test_empty_folders_are_removed(self):
        self.ok("mkdir", "-p", "/b/c/d")
        self.fails("FolderNotEmpty", "/b", "rmdir", "/b", mentions="the folder is not empty")
        self.ok("rmdir", "/b/c/d/")
        self.fails("NotFound", "/b/c/d", "rmdir", "/b/c/d")
        self.ok("touch", "/f")
        self.fails("InvalidLocation", "/f", "rmdir", "/f", mentions="is a file")
        self.assertEqual(self.names("/", "-R"), ["b/", "b/c/", "f"])


class Mv(Case):
    def test_files_are_replaced_only_when_told_and_go_into_folders(self):
        big = os.urandom(3 * PART + 5)
        self.ok("put", "-", "/a", data=big)
        self.ok("put", "-", "/b", data=b"b")
        self.fails("AlreadyExists", "/b", "mv", "/a", "/b", mentions="--replace")
        self.assertEqual(self.ok("cat", "/b"), b"b")
        self.ok("mv", "--replace", "/a", "/b")
        self.assertEqual(self.ok("cat", "/b"), big)
        self.assertEqual(self.run_tool("cat", "/a").returncode, FAILED)
        self.ok("mv", "/b", "/new/")
        self.assertEqual(self.ok("cat", "/new/b"), big)
        self.ok("put", "-", "/c", data=b"c")
        self.ok("mv", "/c", "/new")
        self.assertEqual(self.ok("cat", "/new/c"), b"c")
        self.fails("NotFound", "/absent", "mv", "/absent", "/x")
        self.fails("InvalidLocation", "/new", "mv", "/new", "/elsewhere", mentions="mv -r")
        self.ok("put", "-", "/same", data=b"s")
        self.ok("mv", "--replace", "/same", "/same")
        self.assertEqual(self.ok("cat", "/same"), b"s")
        self.assert_no_temporary_files()

    @embedded_only
    def test_a_failure_leaves_the_source_and_what_was_at_the_destination(self):
        self.ok("put", "-", "/a", data=b"new")
        self.ok("put", "-", "/b", data=b"former")
        for event in ["INSERT", "UPDATE"]:
            self.fail_at(event, "b")
        self.assert_fault("mv", "--replace", "/a", "/b")
        self.assertEqual(self.store_content(), {"a": b"new", "b": b"former"})
        self.change_store("DROP TRIGGER fault_INSERT", "DROP TRIGGER fault_UPDATE")
        self.fail_at("DELETE", "a")
        self.assert_fault("mv", "--replace", "/a", "/b", mentions=b"is stored")
        self.assertEqual(self.store_content(), {"a": b"new", "b": b"new"})

    def test_folders_are_moved_with_all_they_hold(self):
        for policy in ["markers", "implicit"]:
            with self.subTest(policy=policy):
                files = self.make_store_tree()
                listed = self.names("/old", "-R")
                self.ok("--folder-policy", policy, "mv", "-r", "/old", "/new")
                self.assertEqual((self.names("/new", "-R"), self.files_below("/new")), (listed, files))
                self.assertEqual(self.names(), ["new/"])
                self.ok("mv", "-r", "/new", "/into/")
                self.assertEqual(self.names(), ["into/"])
                self.assertEqual(self.files_below("/into/new"), files)
                self.ok("rm", "-r", "--force", "/")

    @embedded_only
    def test_a_tree_is_removed_when_all_of_it_is_stored(self):
        files = self.make_store_tree()
        self.fail_at("INSERT", "new/sub/c")
        self.assert_fault("mv", "-r", "/old", "/new")
        self.assertEqual(self.files_below("/old"), files)
        self.change_store("DROP TRIGGER fault_INSERT")
        self.ok("rm", "-r", "/new")
        self.fail_at("DELETE", "old/sub/c")
        self.assert_fault("mv", "-r", "/old", "/new", mentions=b"all is at /new")
        self.assertEqual(self.files_below("/new"), files)
        self.assertEqual(list(self.files_below("/old")), ["sub/c", "sub/deep/d"])

    def test_what_is_there_is_refused_before_anything_is_moved(self):
        files = self.make_store_tree()
        self.ok("put", "-", "/new/old/sub/deep/d", data=b"former")
        self.ok("put", "-", "/file", data=b"file")
        for code, path, destination in [("AlreadyExists", "/new/old/sub/deep/d", "/new"),
                                        ("AlreadyExists", "/file", "/file"), ("InvalidLocation", "/old/old", "/old"),
                                        ("InvalidLocation", "/old/sub/old", "/old/sub"),
                                        ("InvalidLocation", "/old", "/")]:
            with self.subTest(destination=destination):
                self.fails(code, path, "mv", "-r", "/old", destination)
        self.assertEqual(self.files_below("/old"), files)
        self.assertEqual(self.files_below("/new"), {"old/sub/deep/d": b"former"})
        self.ok("put", "-", "/x/x/f", data=b"outer")
        self.ok("put", "-", "/x/x/x/f", data=b"inner")
        self.fails("InvalidLocation", "/x", "mv", "-r", "--replace", "/x/x", "/")
        self.assertEqual(self.files_below("/x"), {"x/f": b"outer", "x/x/f": b"inner"})
        self.ok("mv", "-r", "--replace", "/old", "/new")
        self.assertEqual(self.files_below("/new/old"), files)

    def test_a_killed_move_of_a_tree_loses_nothing_and_can_be_done_again(self):
        for number in range(40):
            self.local(f"tree/sub{number % 4}/{number}", b"%d" % number)
        self.ok("put", "-r", "tree", "/from/")
        files = self.files_below("/from/tree")
        for seconds in [0.02, 0.05, 0.1, 0.2, 0.4]:
            process = self.start("mv", "-r", "--replace", "/from/tree", "/to/", stderr=subprocess.PIPE)
            time.sleep(seconds)
            process.kill()
            process.wait()
            source, target = self.files_below("/from/tree"), self.files_below("/to/tree")
            self.assertEqual({**source, **target}, files)
            self.assertTrue(source.items() <= files.items())
            if not source:
                break
        else:
            self.ok("mv", "-r", "--replace", "/from/tree", "/to/")
        self.assertEqual(self.files_below("/to/tree"), files)
        self.assertEqual(self.files_below("/from/tree"), {})


    def test_several_files_and_patterns_go_into_a_folder(self):
        for name in ["a.gz", "b.gz", "c", "d/e"]:
            self.ok("put", "-", "/t/" + name, data=name.encode())
        self.assertEqual(self.ok("ls", "/t/*[!z]"), b"/t/c\n/t/d/\n")
        self.assertEqual(self.ok("ls", "-R", "/*/d*"), b"/t/d/\n/t/d/e\n")
        self.assertEqual(self.ok("stat", "/t/?.gz", "/t/c").count(b"kind: file"), 3)
        self.fails("NotFound", "/t/x*", "ls", "/t/x*", mentions="nothing fits")
        self.fails("InvalidLocation", "/new", "mv", "/t/*.gz", "/new", mentions="no folder")
        self.fails("NotFound", "/t/absent", "mv", "/t/absent", "/t/*.gz", "/new/")
        self.fails("InvalidLocation", "/t/d", "cp", "/t/c", "/t/d", "/new/", mentions="cp -r")
        self.ok("cp", "-r", "/t/d", "/new/")
        self.assertEqual(self.names("/", "-R", "--files"),
                         ["new/a.gz", "new/b.gz", "new/c", "new/d/e", "t/c", "t/d/e"])


class Cp(Case):
    def test_files_are_replaced_only_when_told_and_go_into_folders(self):
        big = os.urandom(3 * PART + 5)
        self.ok("put", "-", "/a", data=big)
        self.ok("put", "-", "/b", data=b"b")
        self.fails("AlreadyExists", "/b", "cp", "/a", "/b", mentions="--replace")
        self.assertEqual(self.ok("cat", "/b"), b"b")
        self.ok("cp", "--replace", "/a", "/b")
        self.assertEqual(self.ok("cat", "/b"), big)
        self.assertEqual(self.run_tool("cat", "/a").returncode, DONE)
        self.ok("cp", "/b", "/new/")
        self.assertEqual(self.ok("cat", "/new/b"), big)
        self.ok("put", "-", "/c", data=b"c")
        self.ok("cp", "/c", "/new")
        self.assertEqual(self.ok("cat", "/new/c"), b"c")
        self.fails("NotFound", "/absent", "cp", "/absent", "/x")
        self.fails("InvalidLocation", "/new", "cp", "/new", "/elsewhere", mentions="cp -r")
        self.ok("put", "-", "/same", data=b"s")
        self.ok("cp", "--replace", "/same", "/same")
        self.assertEqual(self.ok("cat", "/same"), b"s")
        self.assert_no_temporary_files()

    def test_folders_are_copied_with_all_they_hold(self):
        files = self.make_store_tree()
        for destination, place in [("/new", "/new"), ("/new", "/new/old"), ("/into/", "/into/old")]:
            with self.subTest(place=place):
                self.ok("cp", "-r", "/old", destination)
                self.assertEqual(self.files_below(place).items() & files.items(), files.items())
                self.assertIn("empty/", self.names(place))
        self.assertEqual(self.files_below("/old"), files)
        self.fails("AlreadyExists", "/into/old/a", "cp", "-r", "/old", "/into", mentions="--replace")
        self.ok("put", "-", "/into/old/a", data=b"former")
        self.ok("cp", "-r", "--replace", "/old", "/into")
        self.assertEqual(self.files_below("/into/old"), files)
        self.fails("InvalidLocation", "/x", "cp", "-r", "/", "/x")
        self.fails("NotFound", "/absent", "cp", "-r", "/absent", "/x")

    @embedded_only
    def test_names_that_no_path_has_are_refused_before_anything_is_copied(self):
        self.make_old_store({"d/f": b"f", "d/sub//g": b"g"})
        self.ok("upgrade")
        for command in ["cp", "mv"]:
            self.fails("InvalidLocation", "/d/sub//g", command, "-r", "/d", "/e")
        self.assertEqual(self.names(), ["d/"])


class Uploads(Case):
    @embedded_only
    def test_the_uploads_of_a_killed_put_stay_until_somebody_ends_them(self):
        self.ok("put", "-", "/old", data=b"old")
        for path in ["/old", "/new"]:
            process, _ = self.start_put_through_fifo(path, parts=40)  # more than are kept here
            process.kill()
            process.wait()
            os.remove(os.path.join(self.folder, "fifo"))
        self.assertEqual([line.split()[-1] for line in self.uploads()], ["/new", "/old"])
        self.assertEqual([line.split()[-1] for line in self.uploads("/old")], ["/old"])
        self.assertEqual(self.uploads("/ol"), [])
        self.assertEqual(self.uploads("--abort", "--older-than", "1d"), [])
        self.assertEqual(len(self.uploads("--abort")), 2)
        self.assertEqual(self.uploads(), [])
        self.assertEqual(self.store_content(), {"old": b"old"})

    def uploads(self, *arguments):
        return self.ok("uploads", *arguments).decode().splitlines()


@embedded_only
class Verify(Case):
    def test_verify_lists_what_is_damaged_and_nothing_else(self):
        for path in ["/d/one", "/d/two", "/dd", "/whole"]:
            self.ok("put", "-", path, data=b"of " + path.encode() + os.urandom(3 * PART))
        self.assertEqual(self.ok("verify"), b"")
        connection = sqlite3.connect(os.path.join(self.work, "store.db"))
        connection.execute("UPDATE chunks SET bytes = CAST('x' AS BLOB) || substr(bytes, 2)"
                           " WHERE instr(bytes, CAST('/d' AS BLOB)) = 4 AND instr(bytes, CAST('two' AS BLOB)) = 0")
        connection.commit()
        connection.close()
        for path, damaged in [("/", ["/d/one", "/dd"]), ("/d", ["/d/one"]), ("/d/", ["/d/one"]), ("/dd", ["/dd"])]:
            with self.subTest(path=path):
                result = self.run_tool("verify", path)
                lines = result.stdout.decode().splitlines()
                self.assertEqual([line.split(":")[0] for line in lines], damaged)
                self.assertTrue(all("the store is damaged" in line for line in lines), lines)
                self.assertRegex(result.stderr.decode(), rf"^Failed: store.db: the store is damaged; .*: {len(damaged)}\n$")
                self.assertEqual(result.returncode, FAILED)
        self.assertEqual(self.ok("verify", "/whole") + self.ok("verify", "/d/two"), b"")
        self.fails("NotFound", "/missing", "verify", "/missing")
        self.fails("Failed", "/dd", "cat", "/dd", mentions="damaged")
        self.ok("rm", "/dd")
        self.ok("put", "-", "/d/one", data=b"again")
        self.assertEqual(self.ok("verify"), b"")


@embedded_only
class Compact(Case):
    def store_size(self):
        return os.path.getsize(os.path.join(self.work, "store.db"))

    def test_compact_gives_the_room_of_what_was_removed_back(self):
        self.ok("put", "-", "/kept", data=b"kept")
        least = self.store_size()
        self.ok("put", "-", "/f", data=os.urandom(9 * 1024 * 1024))
        self.ok("rm", "/f")
        self.assertGreater(self.store_size(), 9 * 1024 * 1024)
        self.assertRegex(self.ok("compact"), rb"^gave back 9\.\d MiB\n$")
        self.assertLess(self.store_size(), least + PART)
        self.assertEqual(self.ok("compact"), b"gave back 0 B\n")
        self.assertEqual(self.ok("cat", "/kept") + self.ok("verify"), b"kept")

    def test_compact_rewrites_a_store_that_was_upgraded(self):
        self.make_old_store({"kept": b"kept", "f": os.urandom(1024 * 1024)})
        self.ok("upgrade")
        self.ok("rm", "/f")
        self.assertRegex(self.ok("compact"), rb"^gave back 1\.\d MiB\n$")
        self.ok("put", "-", "/f", data=os.urandom(1024 * 1024))
        self.ok("rm", "/f")
        self.assertRegex(self.ok("compact"), rb"^gave back 1\.\d MiB\n$")
        self.assertEqual(self.ok("cat", "/kept") + self.ok("verify"), b"kept")


@embedded_only
class Upgrade(Case):
    def test_an_old_store_is_refused_until_it_is_upgraded(self):
        self.make_old_store({"f": b"old", "d/g": b""})
        self.fails("Unsupported", "store.db", "ls", mentions="cloudfs upgrade")
        self.fails("Unsupported", "store.db", "put", "-", "/f", mentions="cloudfs upgrade")
        self.assertEqual(self.ok("upgrade"), b"converted to format 2\n")
        self.assertEqual(self.ok("upgrade"), b"has format 2 already\n")
        self.assertEqual(self.ok("cat", "/f"), b"old")
        self.assertEqual(self.names("/", "-R"), ["d/", "d/g", "f"])


class OddNames(Case):
    def test_odd_names_survive_and_are_escaped_on_a_terminal_only(self):
        for name in ODD_NAMES:
            with self.subTest(name=name):
                data = name.encode()
                self.ok("put", self.local("./" + name, data), "/odd/")
                self.assertEqual(self.ok("cat", "/odd/" + name), data)
                self.ok("get", "/odd/" + name, "out")
                self.assertEqual(self.read_local("out"), data)
                self.ok("append", "-", "/odd/" + name, data=b"+")
                self.ok("write", "--at", "0", "-", "/odd/" + name, data=b"=")
                self.assertEqual(self.ok("cat", "/odd/" + name), b"=" + data[1:] + b"+")
                self.assertEqual(self.ok("ls", "/odd"), data + b"\n")
                self.ok("mv", "/odd/" + name, "/odd2/" + name)
                self.ok("cp", "/odd2/" + name, "/odd/" + name)
                self.ok("rm", "/odd2/" + name)
                self.assertIn(data, self.ok("stat", "/odd/" + name))
                self.ok("rm", "/odd/" + name)
        self.fails("NotFound", "/no\\nsuch\\033", "cat", "/no\nsuch\x1b")


@embedded_only
class ReadingOnly(Case):
    """Stores that cannot be written: another user's, and on a mount for reading."""

    NOBODY = 65534

    def setUp(self):
        super().setUp()
        os.chmod(self.folder, 0o755)
        os.chmod(self.temporary, 0o777)
        self.ok("mkdir", "/d")
        self.ok("put", "-", "/d/f", data=b"old")

    def as_nobody(self, command):
        if os.geteuid() != 0:
            self.skipTest("only root can become another user")
        return subprocess.run(command, capture_output=True, cwd=self.work, env=self.environment,
                              timeout=DEADLINE_SECONDS, user=self.NOBODY, group=self.NOBODY)

    def on_a_read_only_mount(self, command):
        mounted = ["unshare", "-m", "sh", "-c",
                   'mount --bind . . && mount -o remount,ro,bind . && cd "$PWD" && exec "$@"', "sh"]
        if subprocess.run(mounted + ["true"], capture_output=True, cwd=self.work).returncode != 0:
            self.skipTest("mounts are not permitted here")
        return subprocess.run(mounted + command, capture_output=True, cwd=self.work, env=self.environment,
                              timeout=DEADLINE_SECONDS)

    def leave_log(self, data):
        """Put /d/f while a reader keeps the log from being moved into the file, and kill it."""
        reader = subprocess.Popen([sys.executable, "-c", "import sqlite3, time; store = sqlite3.connect('store.db');"
                                   "store.execute('BEGIN'); store.execute('SELECT * FROM numbers').fetchall();"
                                   "print(flush=True); time.sleep(100)"],
                                  cwd=self.work, stdout=subprocess.PIPE)
        self.addCleanup(reader.stdout.close)
        reader.stdout.readline()
        self.ok("put", "-", "/d/f", data=data)
        reader.kill()
        reader.wait()
        self.assertGreater(os.path.getsize(os.path.join(self.work, "store.db-wal")), 0)

    def reads_and_changes_nothing(self, run, content):
        for arguments, output in [(["ls", "-R"], b"d/\nd/f\n"), (["cat", "/d/f"], content), (["verify"], b""),
                                  (["get", "/d/f", "-"], content)]:
            result = run([CLOUDFS, *arguments])
            self.assertEqual((result.returncode, result.stdout, result.stderr), (DONE, output, b""), arguments)
        self.assertIn(b"size: %d\n" % len(content), run([CLOUDFS, "stat", "/d/f"]).stdout)
        for arguments in [["touch", "/g"], ["mkdir", "/e"], ["rm", "/d/f"], ["mv", "/d/f", "/f"], ["cp", "/d/f", "/f"],
                          ["put", CLOUDFS, "/d/f"], ["append", CLOUDFS, "/d/f"]]:
            result = run([CLOUDFS, *arguments])
            self.assertEqual(result.returncode, FAILED, arguments)
            self.assertRegex(result.stderr.decode(), r"^PermissionDenied: .*readonly database.*\n$")
        self.assertEqual(self.names("/", "-R"), ["d/", "d/f"])

    def remove(self, *names):
        for name in names:
            os.remove(os.path.join(self.work, name))

    def test_another_user_reads(self):
        self.reads_and_changes_nothing(self.as_nobody, b"old")
        self.leave_log(b"of a log")
        self.reads_and_changes_nothing(self.as_nobody, b"of a log")

    def test_another_user_reads_beside_a_writer(self):
        writer = sqlite3.connect(os.path.join(self.work, "store.db"), isolation_level=None)
        self.addCleanup(writer.close)
        self.ok("put", "-", "/d/f", data=b"new")
        writer.execute("BEGIN IMMEDIATE")
        self.assertEqual(self.as_nobody([CLOUDFS, "cat", "/d/f"]).stdout, b"new")
        writer.execute("ROLLBACK")
        self.reads_and_changes_nothing(self.as_nobody, b"new")

    def test_another_user_is_refused_what_cannot_be_read_safely(self):
        self.remove("store.db-shm", "store.db-wal")
        result = self.as_nobody([CLOUDFS, "ls"])
        self.assertEqual(result.returncode, FAILED)
        self.assertRegex(result.stderr.decode(), r"^PermissionDenied: store.db: .*-wal and -shm.*\n$")
        os.chmod(os.path.join(self.work, "store.db"), 0o600)
        self.assertIn(b"PermissionDenied: store.db: ", self.as_nobody([CLOUDFS, "ls"]).stderr)

    def test_a_read_only_mount_is_read(self):
        self.reads_and_changes_nothing(self.on_a_read_only_mount, b"old")
        self.remove("store.db-shm", "store.db-wal")
        self.reads_and_changes_nothing(self.on_a_read_only_mount, b"old")

    def test_a_log_that_was_left_is_read_on_a_read_only_mount(self):
        self.leave_log(b"of a log")
        saved = os.path.join(self.folder, "saved")
        shutil.copytree(self.work, saved)
        self.reads_and_changes_nothing(self.on_a_read_only_mount, b"of a log")
        shutil.rmtree(self.work)
        shutil.copytree(saved, self.work)
        self.remove("store.db-shm")
        self.reads_and_changes_nothing(self.on_a_read_only_mount, b"of a log")


@embedded_only
class OwnFiles(Case):
    """The store as a local file among those that are copied."""

    NAMES = ["store.db", "store.db-reserve", "store.db-shm", "store.db-wal"]

    def setUp(self):
        super().setUp()
        self.ok("put", "-", "/f", data=b"f")
        # Somebody else who has it open keeps the files beside it.
        other = sqlite3.connect(os.path.join(self.work, "store.db"))
        self.addCleanup(other.close)
        other.execute("SELECT count(*) FROM objects").fetchall()
        self.assertEqual(sorted(os.listdir(self.work)), self.NAMES)

    def test_a_folder_that_holds_the_store_is_put_without_it(self):
        self.local("sub/g", b"g")
        os.link(os.path.join(self.work, "store.db"), os.path.join(self.work, "sub/hard"))
        result = self.run_tool("put", "-r", ".", "/all")
        self.assertEqual(result.returncode, DONE)
        self.assertEqual(result.stderr.decode(), "".join(
            f"./{name}: skipped, it is the store itself\n" for name in self.NAMES + ["sub/hard"]))
        self.assertEqual(self.names("/", "-R"), ["all/", "all/sub/", "all/sub/g", "f"])

    def test_the_store_is_neither_source_nor_target(self):
        os.symlink("store.db", os.path.join(self.work, "link"))
        for name in self.NAMES + ["link", "./store.db"]:
            with self.subTest(name=name):
                for arguments in [["put", name, "/x"], ["append", name, "/x"], ["write", "--at", "0", name, "/f"],
                                  ["get", "/f", name], ["get", "-r", "/f", name]]:
                    self.fails("InvalidLocation", name, *arguments, mentions="is the store itself")
        self.fails("InvalidLocation", "store.db-journal", "get", "/f", "store.db-journal")
        self.ok("put", "-", "/tree/store.db-wal", data=b"evil")
        self.fails("InvalidLocation", "./store.db-wal", "get", "/tree/store.db-wal", ".")
        self.environment["CLOUDFS_STORE"] = "sqlite:tree/store.db"
        os.mkdir(os.path.join(self.work, "tree"))
        self.ok("put", "-", "/tree/a", data=b"a")
        self.ok("put", "-", "/tree/store.db", data=b"evil")
        self.fails("InvalidLocation", "./tree/store.db", "get", "-r", "/tree", ".", mentions="is the store itself")
        self.assertEqual(self.local_names("tree"), ["a", "store.db"])
        self.assertEqual(self.names("/tree"), ["a", "store.db"])
        self.assertEqual(self.run_tool("sync", "store:/tree", "tree").returncode, FAILED)
        self.assertEqual(self.names("/tree"), ["a", "store.db"])


class Interrupts(Case):
    def test_signals_end_a_put_without_a_trace(self):
        self.ok("put", "-", "/old", data=b"old")
        for number in [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]:
            for path in ["/old", "/new"]:
                with self.subTest(signal=number, path=path):
                    process, _ = self.start_put_through_fifo(path)
                    process.send_signal(number)
                    self.assertEqual(process.wait(DEADLINE_SECONDS), 128 + number)
                    self.assertEqual(process.stderr.read(), b"interrupted\n")
                    self.assertEqual(self.store_content(), {"old": b"old"})
                    self.assert_no_temporary_files()
                os.remove(os.path.join(self.folder, "fifo"))

    @embedded_only
    def test_sigint_ends_a_put_of_a_tree_between_whole_files(self):
        self.local("tree/1", b"one")
        # Sparse, and so large that reading it never ends by itself.
        with open(os.path.join(self.work, "tree/2"), "wb") as file:
            file.truncate(1 << 36)
        self.environment["VX_CLOUD_PART_SIZE_OVERRIDE"] = str(PART_ON_DISK)
        process = self.start("put", "-r", "tree", "/", stderr=subprocess.PIPE)
        deadline = time.monotonic() + DEADLINE_SECONDS
        while not os.path.exists(os.path.join(self.work, "store.db")) or not self.part_files():
            self.assertLess(time.monotonic(), deadline)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(DEADLINE_SECONDS), INTERRUPTED)
        self.assertLessEqual(set(self.store_content().items()), {("tree/1", b"one")})
        self.assert_no_temporary_files()

    def test_sigint_ends_a_get_without_a_partial_file(self):
        self.ok("put", "-", "/f", data=os.urandom(60 * PART))
        process = self.start("get", "/f", "-", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdout.read(1)  # the rest does not fit into the pipe: the tool waits
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(DEADLINE_SECONDS), INTERRUPTED)
        self.assert_no_temporary_files()
        self.assertEqual(self.local_names(), STORE_FILES)

    @embedded_only
    def test_a_second_signal_ends_a_wait_for_the_store(self):
        self.ok("put", "-", "/f")
        process, other = self.start_waiting("touch", "/g", stderr=subprocess.PIPE)
        process.send_signal(signal.SIGINT)
        self.wait_for(lambda: int(self.status(process.pid)["ShdPnd"], 16) == 0)
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(DEADLINE_SECONDS), -signal.SIGTERM)
        other.execute("ROLLBACK")
        self.assertEqual(self.names(), ["f"])

    @embedded_only
    def test_sigint_ends_a_move_of_a_tree_between_files(self):
        files = self.make_store_tree()
        process, other = self.start_waiting("mv", "-r", "/old", "/new", stderr=subprocess.PIPE)
        process.send_signal(signal.SIGINT)
        other.execute("ROLLBACK")
        self.assertEqual(process.wait(DEADLINE_SECONDS), INTERRUPTED)
        self.assertEqual(self.files_below("/old"), files)
        self.assertLessEqual(self.files_below("/new").items(), files.items())

    def test_an_ignored_sigint_stays_ignored(self):
        process = self.start("put", "-", "/f", stdin=subprocess.PIPE, stderr=subprocess.PIPE,
                             preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
        process.stdin.write(bytes(2 * 65536))
        process.send_signal(signal.SIGINT)
        process.stdin.close()
        self.assertEqual(process.wait(DEADLINE_SECONDS), DONE)

    def test_input_that_breaks_off_stores_nothing(self):
        self.ok("put", "-", "/f", data=b"whole")
        # Reading a process's own memory from address 0 fails in the middle of nowhere.
        for arguments in [["put", "/proc/self/mem", "/f"], ["append", "/proc/self/mem", "/f"],
                          ["put", "/proc/self/mem", "/g"], ["write", "--at", "1", "/proc/self/mem", "/f"]]:
            with self.subTest(arguments=arguments):
                self.fails("Failed", "/proc/self/mem", *arguments)
                self.assertEqual(self.store_content(), {"f": b"whole"})

    def test_a_killed_put_leaves_every_file_whole(self):
        contents = {"old": os.urandom(3 * PART), "other": b"other"}
        for name, data in contents.items():
            self.ok("put", "-", "/" + name, data=data)
        for path, part in [("/old", PART), ("/new", PART), ("/old", PART_ON_DISK)]:
            with self.subTest(path=path, part=part):
                self.environment["VX_CLOUD_PART_SIZE_OVERRIDE"] = str(part)
                process, _ = self.start_put_through_fifo(path, parts=40)  # more than are kept here
                process.kill()
                process.wait()
                self.assertEqual(os.listdir(self.temporary) != [], part == PART_ON_DISK)
                self.assertEqual(self.store_content(), contents)
                os.remove(os.path.join(self.folder, "fifo"))
        # Parts that are not in memory lie in named temporary files while a file is open: those of a killed process go with the next one.
        self.ok("put", "-", "/after", data=b"after")
        self.assert_no_temporary_files()


class Writers(Case):
    """Several processes that change one file at once."""

    COUNT = 8

    def run_together(self, jobs):
        """Run jobs of arguments and standard input: all start before one gets input, and all have to succeed."""
        processes = [self.start(*arguments, stdin=subprocess.PIPE, stderr=subprocess.PIPE) for arguments, _ in jobs]
        for process, (_, data) in zip(processes, jobs):
            process.stdin.write(data)
            process.stdin.close()
        for process in processes:
            self.assertEqual((process.wait(2 * DEADLINE_SECONDS), process.stderr.read()), (DONE, b""))
        self.assert_no_temporary_files()

    @conditions_only
    def test_lines_appended_at_once_are_all_there(self):
        lines = [b"line %d\n" % number for number in range(self.COUNT)]
        files = [self.local(f"line{number}", line) for number, line in enumerate(lines)]
        for source, old in [("file", []), ("file", [b"old\n"]), ("input", []), ("input", [b"old\n"])]:
            with self.subTest(source=source, old=old):
                if old:
                    self.ok("put", "-", "/f", data=old[0])
                self.run_together([(["append", file, "/f"], b"") if source == "file" else (["append", "-", "/f"], line)
                                   for file, line in zip(files, lines)])
                self.assertEqual(sorted(self.ok("cat", "/f").splitlines(True)), sorted(lines + old))
                self.ok("rm", "/f")

    @conditions_only
    def test_bytes_written_at_once_in_several_places_are_all_there(self):
        expected = bytearray(self.COUNT * PART)
        self.ok("put", "-", "/f", data=bytes(expected))
        jobs = []
        for number in range(self.COUNT):
            offset, data = number * PART // 2, b"writer %d" % number
            expected[offset:offset + len(data)] = data
            jobs.append((["write", "--at", str(offset), "-", "/f"], data))
        self.run_together(jobs)
        self.assertEqual(self.ok("cat", "/f"), bytes(expected))

    def test_an_edit_begins_again_with_all_of_its_input(self):
        fifo = os.path.join(self.work, "fifo")
        os.mkfifo(fifo)
        data = os.urandom(4 * PART + 65536)
        for local, old in [("-", b"old"), ("fifo", b""), ("fifo", os.urandom(2 * PART))]:
            for command in [["append"], ["write", "--at", "1"]]:
                with self.subTest(local=local, command=command):
                    self.ok("put", "-", "/f", data=old)
                    process = self.start(*command, local, "/f", stdin=subprocess.PIPE, stderr=subprocess.PIPE)
                    with process.stdin if local == "-" else open(fifo, "wb") as writer:
                        # More than a pipe holds: when it is written, the file is open and partly written.
                        writer.write(data)
                        writer.flush()
                        self.ok("append", "-", "/f", data=b"other")
                    self.assertEqual((process.wait(DEADLINE_SECONDS), process.stderr.read()), (DONE, b""))
                    stored = old + b"other"
                    offset = len(stored) if command == ["append"] else 1
                    self.assertEqual(self.ok("cat", "/f"), stored[:offset] + data + stored[offset + len(data):])
                    self.assert_no_temporary_files()


class Progress(Case):
    @embedded_only
    def test_a_long_transfer_draws_a_bar_on_a_terminal_and_takes_it_away(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        size = 1 << 22
        self.local("f", bytes(size))
        self.ok("put", "f", "/f")
        process = self.start("cat", "/f", stdout=subprocess.PIPE, stderr=slave)
        os.close(slave)
        # The pipe is full and the tool waits for its reader until the bar is due: half a second is its rule.
        received = len(process.stdout.read(1))
        time.sleep(0.6)
        drawn = b""
        while received < size:
            received += len(process.stdout.read1(65536))
            while select.select([master], [], [], 0)[0]:
                drawn += os.read(master, 4096)
        self.assertEqual(process.wait(DEADLINE_SECONDS), DONE)
        try:
            while True:
                drawn += os.read(master, 4096)
        except OSError:
            pass  # the other end is closed
        text = drawn.decode()
        self.assertRegex(text, r"\[#+ *\] [\d.]+ [KM]iB of 4\.0 MiB, [\d.]+ [KM]iB/s")
        self.assertRegex(text, r"\d:\d\d left")
        self.assertTrue(text.endswith("\r\x1b[K"), repr(text[-80:]))

    @embedded_only
    def test_a_tree_draws_a_bar_though_no_byte_travels(self):
        self.make_store_tree()
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        process, other = self.start_waiting("cp", "-r", "/old", "/new", stderr=slave)
        os.close(slave)
        time.sleep(0.6)  # the bar is due after half a second
        other.execute("ROLLBACK")
        self.assertEqual(process.wait(DEADLINE_SECONDS), DONE)
        self.assertRegex(os.read(master, 10000).decode(), r"\[#* *\] [\d.]+ K?i?B of 128\.0 KiB")

    def test_cp_and_mv_show_no_bar_where_no_byte_travels(self):
        self.environment["VX_CLOUD_PART_SIZE_OVERRIDE"] = str(1 << 21)
        self.ok("put", "-", "/f", data=bytes(1 << 22))
        for command in [["cp", "/f", "/g"], ["mv", "/g", "/h"]]:
            with self.subTest(command=command):
                master, slave = pty.openpty()
                process = self.start(*command, stderr=slave)
                os.close(slave)
                self.assertEqual(process.wait(DEADLINE_SECONDS), DONE)
                try:
                    drawn = os.read(master, 10000)
                except OSError:
                    drawn = b""  # the other end is closed
                os.close(master)
                self.assertEqual(drawn, b"")
        self.assertEqual(self.ok("cat", "/h"), bytes(1 << 22))


class Completion(Case):
    def complete(self, line):
        """Answer what an interactive bash runs for a line with tabs in it."""
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../completion/cloudfs")
        self.environment.update(PATH=os.path.dirname(CLOUDFS) + ":" + os.environ["PATH"], TERM="dumb", PS1="ready>",
                                INPUTRC="/dev/null", HISTFILE="")
        pid, master = pty.fork()
        if pid == 0:
            os.chdir(self.work)
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"], self.environment)
        try:
            for command in [f"source '{script}'", line + " >answer", "exit"]:
                self.read_until(master, b"ready>")
                os.write(master, command.encode() + b"\n")
            self.read_until(master, b"exit\r\n")
        finally:
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
            os.close(master)
        return self.read_local("answer")

    def read_until(self, descriptor, end):
        received = b""
        while not received.endswith(end):
            self.assertTrue(select.select([descriptor], [], [], DEADLINE_SECONDS)[0], received)
            received += os.read(descriptor, 4096)

    @unittest.skipUnless(shutil.which("bash"), "there is no bash")
    def test_names_with_blanks_and_quotes_are_completed_and_quoted(self):
        for name in ["with space/in side", "it's", 'double"quote', "back\\slash", "plain"]:
            self.ok("put", "-", "/" + name, data=name.encode())
        for typed, name in [("/wi\tin\t", "with space/in side"), ("/with\\ s\tin\\ \t", "with space/in side"),
                            ("\"/it\t", "it's"), ("/it\t", "it's"), ("/it\\'\t", "it's"),
                            ("/dou\t", 'double"quote'), ("/back\\\\s\t", "back\\slash"), ("'/back\t", "back\\slash"),
                            ("/pl\t", "plain")]:
            with self.subTest(typed=typed):
                self.assertEqual(self.complete("cloudfs cat " + typed), name.encode())


README = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../../README.md")


@embedded_only
@unittest.skipUnless(shutil.which("bash"), "there is no bash")
class ReadmeExamples(Case):
    """The commands that README.md shows, but for those on a server."""

    def setUp(self):
        super().setUp()
        tools = os.path.join(self.folder, "bin")
        os.mkdir(tools)
        os.symlink(CLOUDFS, os.path.join(tools, "cloudfs"))
        self.environment["PATH"] = tools + ":" + self.environment["PATH"]

    @staticmethod
    def blocks():
        with open(README, encoding="utf-8") as readme:
            section = readme.read().split("## The tool\n")[1].split("\n## ")[0]
        return [re.sub("^    ", "", block, flags=re.MULTILINE).splitlines()
                for block in re.findall("(?:^    .*\n)+", section, re.MULTILINE)]

    def run_line(self, line):
        done = subprocess.run(["bash", "-o", "pipefail", "-c", line], capture_output=True, cwd=self.work,
                              env=self.environment, timeout=DEADLINE_SECONDS)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""), line)
        return done.stdout.decode().splitlines()

    def test_every_command_succeeds(self):
        for name, data in [("photos/list.txt", b"cat\n"), ("photos/2024/cat.jpg", b"x" * 2000),
                           ("patch.bin", b"new"), ("disk.img", b"0" * (2 * PART))]:
            self.local(name, data)
        self.ok("put", "-", "/logs/monday.gz", data=b"x")
        self.ok("mkdir", "/old")
        commands = [line for line in self.blocks()[0] if line]
        self.assertGreater(len(commands), 10)
        for line in commands:
            if "jq" not in line or shutil.which("jq"):
                self.run_line(line)
        self.assertEqual(self.ok("cat", "--at", "4096", "--size", "4", "/disk.img"), b"new0")
        self.assertEqual(self.ok("ls", "--files", "-R", "/").decode().split(),
                         ["disk.img", "old/log.txt", "photos/2024/cat.jpg", "photos/list.txt"])

    def test_what_sync_prints_is_what_it_is_shown_to_print(self):
        self.local("photos/2023/sharp.jpg", b"x")
        self.ok("put", "-r", "photos", "/")
        self.ok("put", "-", "/photos/2023/blurred.jpg", data=b"x")
        self.local("photos/2024/cat.jpg", b"x")
        [(command, *output)] = [block for block in self.blocks() if block[0].startswith("$ cloudfs sync")]
        self.assertEqual(self.run_line(command.lstrip("$ ")), output)


if __name__ == "__main__":
    CLOUDFS = os.path.abspath(sys.argv.pop(1))
    unittest.main()
