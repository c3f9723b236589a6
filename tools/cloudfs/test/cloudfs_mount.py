#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Puts real programs on a mounted store, and what they count on one by one.

usage: cloudfs_mount.py CLOUDFS [unittest arguments]

The store is an embedded one; with CLOUDFS_TEST_ON=s3 it is a part of the bucket that the variables S3_* name. With
CLOUDFS_TEST_ON=folder the tests that ask nothing special of a mount work in a plain folder: they must pass there, too.

Where nothing can be mounted it ends with 77, or with 1 if CLOUDFS_TEST_MOUNT=required. CLOUDFS_TEST_OPERATIONS tells how
many random operations are done on a file.
"""

import array
import errno
import fcntl
import json
import mmap
import os
import re
import shutil
import signal
import socket
import sqlite3
import stat
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from contextlib import closing

sys.dont_write_bytecode = True  # nothing beside the sources

import cloudfs_end_to_end as end_to_end
from cloudfs_end_to_end import DEADLINE_SECONDS, DONE, FAILED, ON_S3, conditions_only
from random_file_operations import FAULTS, Faulty, Mismatch, Operations

HERE = os.path.dirname(os.path.abspath(__file__))
SKIPPED = 77
ON_FOLDER = os.environ.get("CLOUDFS_TEST_ON") == "folder"
OPERATIONS = int(os.environ.get("CLOUDFS_TEST_OPERATIONS", "1500"))
SEED = os.environ.get("CLOUDFS_TEST_SEED", str(time.time_ns()))

# What files are divided into: S3 takes no smaller parts, see docs/s3.md.
PART = 5 << 20 if ON_S3 else end_to_end.PART
MOST_BYTES = 3 * PART if ON_S3 else 9 * PART

mount_only = unittest.skipIf(ON_FOLDER, "about a mount")
s3_only = unittest.skipUnless(ON_S3, "about a store with a server")


def why_nothing_can_be_mounted():
    """None if something can. Asks the helper for a mount of its own, as libfuse does: no word on what is tested."""
    if not shutil.which("fusermount3"):
        return "there is no fusermount3"
    try:
        os.close(os.open("/dev/fuse", os.O_RDWR))
    except OSError as failure:
        return str(failure)
    ours, theirs = socket.socketpair()
    with tempfile.TemporaryDirectory() as folder, ours, theirs:
        result = subprocess.run(["fusermount3", "--", folder], pass_fds=[theirs.fileno()], capture_output=True,
                                env=dict(os.environ, _FUSE_COMMFD=str(theirs.fileno())))
        if result.returncode != 0:
            return result.stderr.decode().strip()
        for _, _, data in ours.recvmsg(1, socket.CMSG_SPACE(4))[1]:
            os.close(array.array("i", data[:4])[0])
        subprocess.run(["fusermount3", "-u", "-z", folder], capture_output=True)
    return None


class Gate:
    """Stands between a mount and its server: lets pass, holds or denies what is asked, or is not there at all."""

    DENIED = b"HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"

    def __init__(self, endpoint):
        self.server = tuple(endpoint.rsplit("/", 1)[1].split(":"))
        self.passes = threading.Event()
        self.denies = False
        self.held = threading.Semaphore(0)
        self.sockets = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.passes.set()
        threading.Thread(target=self.accept, args=[self.listener], daemon=True).start()

    def accept(self, listener):
        while True:
            try:
                client = listener.accept()[0]
                server = socket.create_connection(self.server)
            except OSError:
                return
            self.sockets += [client, server]
            for source, target in [(client, server), (server, client)]:
                threading.Thread(target=self.carry, args=[source, target, source is client], daemon=True).start()

    def carry(self, source, target, is_request):
        try:
            while data := source.recv(1 << 16):
                if is_request and not self.passes.is_set():
                    self.held.release()
                    self.passes.wait()
                if is_request and self.denies:
                    source.sendall(self.DENIED)
                    break
                target.sendall(data)
        except OSError:
            pass
        for end in (source, target):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    def stop(self):
        try:
            self.listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass  # it has been stopped already
        self.listener.close()
        self.passes.set()
        for each in self.sockets:
            each.close()

    def endpoint(self):
        return f"http://127.0.0.1:{self.port}"


class Mount:
    """What is mounted at a path, and the process behind it."""

    def __init__(self, path, process, log):
        self.path = path
        self.process = process
        self.log_path = log

    def at(self, *names):
        return os.path.join(self.path, *names)

    def log(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def is_ready(self):
        return re.search(r"(?m)^mounted .* at .*\n", self.log())

    def ended(self):
        """How it ended, once nothing is mounted any more."""
        return self.process.wait(DEADLINE_SECONDS)

    def unmount(self):
        """Wait for those who still look around, such as a tool that lists mounts."""
        for _ in range(50):
            result = subprocess.run(["fusermount3", "-u", self.path], capture_output=True)
            if result.returncode == 0:
                return self.ended()
            time.sleep(0.1)
        raise AssertionError(result.stderr.decode())

    def kill(self):
        self.process.kill()
        self.process.wait()
        subprocess.run(["fusermount3", "-u", "-z", self.path], capture_output=True)


class Case(end_to_end.Case):
    """A store that is mounted; self.at names what is in it."""

    OPTIONS = []

    def setUp(self):
        super().setUp()
        os.mkdir(os.path.join(self.folder, "home"))
        self.programs = dict(os.environ, HOME=os.path.join(self.folder, "home"), LC_ALL="C.UTF-8", GIT_CONFIG_NOSYSTEM="1",
                             **{f"GIT_{who}_{what}": "somebody@example.org" for who in ["AUTHOR", "COMMITTER"]
                                for what in ["NAME", "EMAIL"]})
        self.mounted = self.mount(*self.OPTIONS)
        self.at = self.mounted.at

    def mount(self, *options, at="mounted", deadline=5 * DEADLINE_SECONDS, environment=None):
        path = os.path.join(self.folder, at)
        os.makedirs(path, exist_ok=True)
        if ON_FOLDER:
            return Mount(path, None, None)
        log = os.path.join(self.folder, at + ".log")
        with open(log, "wb") as file:
            process = subprocess.Popen([end_to_end.CLOUDFS, "mount", *options, path], cwd=self.work, stderr=file,
                                       env=dict(self.environment, **environment or {}))
        mounted = Mount(path, process, log)
        self.addCleanup(mounted.kill)
        # Whoever waits for a mount that hangs is set free, and fails.
        timer = threading.Timer(deadline, process.kill)
        timer.start()
        self.addCleanup(timer.cancel)
        self.wait_for(lambda: mounted.is_ready() or process.poll() is not None)
        self.assertIsNone(process.poll(), mounted.log())
        return mounted

    def run_program(self, *command, cwd=None, data=b"", expected=0):
        result = subprocess.run(command, input=data, capture_output=True, cwd=cwd or self.work, env=self.programs,
                                timeout=DEADLINE_SECONDS)
        self.assertEqual(result.returncode, expected, (command, result.stdout, result.stderr))
        return result.stdout

    def start_python(self, code, *arguments):
        process = subprocess.Popen([sys.executable, "-c", code, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def stored(self, name):
        """What the store has by that name; None if nothing."""
        if ON_FOLDER:
            return read(self.at(name)) if os.path.exists(self.at(name)) else None
        result = self.run_tool("cat", "/" + name)
        return result.stdout if result.returncode == DONE else None

    def fails_with(self, number, function, *arguments, **named):
        with self.assertRaises(OSError) as caught:
            function(*arguments, **named)
        self.assertEqual(errno.errorcode[caught.exception.errno], errno.errorcode[number], (function, arguments))

    def open(self, name, flags):
        """A descriptor that is closed in the end, if the test did not do so."""
        descriptor = os.open(self.at(name), flags, 0o644)
        self.addCleanup(close_if_open, descriptor, os.fstat(descriptor).st_ino)
        return descriptor

    def remount(self):
        if not ON_FOLDER:
            self.assertEqual(self.mounted.unmount(), DONE, self.mounted.log())
        self.mounted = self.mount(*self.OPTIONS)


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)


def close_if_open(descriptor, inode):
    try:
        if os.fstat(descriptor).st_ino == inode:
            os.close(descriptor)
    except OSError:
        pass


class Programs(Case):
    def test_cp_and_dd(self):
        data = bytearray(os.urandom(5 * PART + 123))
        self.local("source", data)
        self.run_program("cp", "source", self.at("copy"))
        self.run_program("cmp", "source", self.at("copy"))
        for seek in [0, PART - 5, 2 * PART, 5 * PART + 100, 7 * PART]:
            self.run_program("dd", "of=" + self.at("copy"), "bs=10", "oflag=seek_bytes", f"seek={seek}", "conv=notrunc",
                             data=b"0123456789")
            data.extend(bytes(max(0, seek + 10 - len(data))))
            data[seek:seek + 10] = b"0123456789"
        self.run_program("dd", "if=source", "of=" + self.at("synced"), "bs=100K", "conv=fsync")
        self.assertEqual(read(self.at("copy")), data)
        self.assertEqual(self.stored("copy"), data)
        self.assertEqual(self.stored("synced"), read(self.work + "/source"))
        self.run_program("mv", self.at("copy"), "back")
        self.assertEqual(self.read_local("back"), data)
        self.assertEqual(os.listdir(self.at()), ["synced"])

    def local_folder(self, name):
        os.mkdir(os.path.join(self.work, name))
        return name

    def make_tree(self):
        files = {"a": b"of a", "with space/ü": os.urandom(2 * PART), "sub/empty": b"", "sub/deep/d": b"x" * PART}
        for name, data in files.items():
            self.local("tree/" + name, data)
        os.mkdir(self.work + "/tree/no files")
        return files

    def test_trees_by_cp_mv_and_rm(self):
        self.make_tree()
        self.run_program("cp", "-r", "tree", self.at("copy"))
        self.run_program("diff", "-r", "tree", self.at("copy"))
        self.run_program("cp", "-a", "tree", self.at("as it is"))
        self.run_program("mv", self.at("copy"), self.at("moved"))
        self.run_program("mv", self.at("moved/sub"), self.at("moved/with space"))
        self.run_program("mv", "tree/sub", "tree/with space")
        self.remount()
        self.run_program("diff", "-r", "tree", self.at("moved"))
        self.run_program("rm", "-r", self.at("moved"), self.at("as it is"))
        self.assertEqual(os.listdir(self.at()), [])

    def test_tar(self):
        self.make_tree()
        archive = self.run_program("tar", "-cf", "-", "tree")
        self.run_program("tar", "-xf", "-", data=archive, cwd=self.at())
        self.run_program("diff", "-r", "tree", self.at("tree"))
        self.run_program("tar", "-czf", self.at("tree.tgz"), "-C", self.at(), "tree")
        self.run_program("tar", "-xzf", self.at("tree.tgz"), "-C", self.local_folder("back"))
        self.run_program("diff", "-r", "tree", "back/tree")

    def test_rsync_in_place(self):
        files = self.make_tree()
        for change in [b"", b"more"]:
            self.local("tree/with space/ü", files["with space/ü"][:PART] + change + files["with space/ü"][PART:])
            self.run_program("rsync", "-a", "--inplace", "--no-whole-file", "tree/", self.at("tree"))
            self.run_program("diff", "-r", "tree", self.at("tree"))
        os.unlink(self.work + "/tree/a")
        self.run_program("rsync", "-r", "--checksum", "--delete", "tree/", self.at("tree"))
        self.run_program("diff", "-r", "tree", self.at("tree"))
        self.run_program("rsync", "-a", self.at("tree"), "back")
        self.run_program("diff", "-r", "tree", "back/tree")

    def test_git(self):
        repository = self.at("repository")
        self.run_program("git", "init", "-q", repository)
        for number in range(3):
            write(os.path.join(repository, "file"), os.urandom(PART) + b"%d" % number)
            self.run_program("git", "add", "file", cwd=repository)
            self.run_program("git", "commit", "-q", "-m", f"Change {number}", cwd=repository)
        self.run_program("git", "fsck", "--strict", cwd=repository)
        self.run_program("git", "gc", "-q", cwd=repository)
        self.run_program("git", "checkout", "-q", "-b", "other", "HEAD~1", cwd=repository)
        self.remount()
        self.assertEqual(self.run_program("git", "status", "--porcelain", cwd=repository), b"")
        self.run_program("git", "clone", "-q", repository, "clone")
        self.assertEqual(len(self.run_program("git", "rev-list", "origin/master", cwd=self.work + "/clone").split()), 3)
        self.run_program("git", "fsck", "--strict", cwd=repository)

    def test_sqlite(self):
        for mode in ["delete", "truncate", "persist", "wal"]:
            with self.subTest(mode=mode):
                path = self.at(mode + ".db")
                with closing(sqlite3.connect(path, isolation_level=None)) as connection:
                    self.assertEqual(connection.execute(f"PRAGMA journal_mode={mode}").fetchone()[0], mode)
                    connection.execute("CREATE TABLE t(bytes BLOB)")
                    for number in range(8):
                        connection.execute("BEGIN")
                        connection.executemany("INSERT INTO t VALUES(?)", [(os.urandom(3000),) for _ in range(10)])
                        connection.execute("ROLLBACK" if number % 4 == 3 else "COMMIT")
                        # Another process, which shares the mapped index of the log.
                        self.run_program("sqlite3", path, "INSERT INTO t VALUES(x'00')")
                    self.assertEqual(connection.execute("SELECT count(*) FROM t").fetchone()[0], 68)
                    self.assertEqual(os.path.exists(path + "-shm"), mode == "wal")
                self.assertEqual(self.run_program("sqlite3", path, "VACUUM; PRAGMA integrity_check"), b"ok\n")
        self.remount()
        for mode in ["delete", "truncate", "persist", "wal"]:
            write(self.work + "/copy.db", self.stored(mode + ".db"))
            self.assertEqual(self.run_program("sqlite3", "copy.db", "PRAGMA integrity_check; SELECT count(*) FROM t"),
                             b"ok\n68\n", mode)
            self.assertEqual(self.run_program("sqlite3", self.at(mode + ".db"), "SELECT count(*) FROM t"), b"68\n", mode)

    def test_an_editor_saves(self):
        """One writes aside and renames over the file, another one renames the old file away."""
        write(self.at("text"), b"one\ntwo\n")
        with open(self.at("text"), "rb") as reader:
            self.run_program("sed", "-i", "s/one/three/", self.at("text"))
            self.assertEqual(reader.read(), b"one\ntwo\n")
        self.assertEqual(self.stored("text"), b"three\ntwo\n")
        self.run_program("sed", "-i~", "s/two/four/", self.at("text"))
        self.assertEqual((self.stored("text"), self.stored("text~")), (b"three\nfour\n", b"three\ntwo\n"))
        with open(self.at(".text.new"), "wb") as file:
            file.write(b"five\n")
            file.flush()
            os.fsync(file.fileno())
        os.rename(self.at(".text.new"), self.at("text"))
        self.assertEqual((self.stored("text"), self.stored(".text.new")), (b"five\n", None))
        self.assertEqual(sorted(os.listdir(self.at())), ["text", "text~"])

    def test_tail_follows_appenders(self):
        write(self.at("log"), b"begin\n")
        tail = subprocess.Popen(["tail", "-n", "+1", "-f", "-s", "0.05", self.at("log")], stdout=subprocess.PIPE)
        self.addCleanup(tail.stdout.close)
        self.addCleanup(tail.wait)
        self.addCleanup(tail.kill)
        self.assertEqual(tail.stdout.readline(), b"begin\n")
        with open(self.at("log"), "ab", buffering=0) as appender:
            for number in range(20):
                line = b"line %d\n" % number
                if number % 2:
                    appender.write(line)
                else:
                    self.run_program("sh", "-c", 'cat >>"$0"', self.at("log"), data=line)
                self.assertEqual(tail.stdout.readline(), line)
        self.assertEqual(self.stored("log"), b"begin\n" + b"".join(b"line %d\n" % number for number in range(20)))

    def test_locks(self):
        write(self.at("file"), b"")
        code = """if True:
            import fcntl, sys
            with open(sys.argv[1], "r+") as file:
                getattr(fcntl, sys.argv[2])(file, fcntl.LOCK_EX)
                print("locked", flush=True)
                sys.stdin.readline()"""
        for kind in ["flock", "lockf"]:
            with self.subTest(kind=kind), open(self.at("file"), "r+") as file:
                lock = getattr(fcntl, kind)
                other = self.start_python(code, self.at("file"), kind)
                self.assertEqual(other.stdout.readline(), "locked\n")
                self.fails_with(errno.EAGAIN, lock, file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                other.communicate("\n")
                lock(file, fcntl.LOCK_EX)
        self.run_program("flock", self.at("file"), "true")


class Mapped(Case):
    def test_reading(self):
        data = os.urandom(4 * PART + 77)
        write(self.at("file"), data)
        self.remount()
        with open(self.at("file"), "rb") as file, mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as mapped:
            self.assertEqual(mapped[3 * PART - 1:3 * PART + 9], data[3 * PART - 1:3 * PART + 9])
            self.assertEqual(mapped.find(data[-10:]), len(data) - 10)
            self.assertEqual(mapped[:], data)

    def test_what_one_writes_through_a_mapping_the_others_see_and_msync_stores(self):
        write(self.at("file"), bytes(3 * PART))
        with open(self.at("file"), "r+b", buffering=0) as file, mmap.mmap(file.fileno(), 0) as mapped:
            mapped[PART - 2:PART + 2] = b"abcd"
            self.assertEqual(os.pread(file.fileno(), 4, PART - 2), b"abcd")
            os.pwrite(file.fileno(), b"xy", 5)
            self.assertEqual(mapped[5:7], b"xy")
            mapped.flush()
            self.assertEqual(self.stored("file"), mapped[:])

    def test_what_is_written_after_the_close_is_stored_when_the_mapping_goes(self):
        write(self.at("file"), bytes(2 * PART))
        with open(self.at("file"), "r+b") as file:
            mapped = mmap.mmap(file.fileno(), 0)
        mapped[PART:PART + 3] = b"abc"
        mapped.close()
        self.wait_for(lambda: self.stored("file")[PART:PART + 3] == b"abc")


class Files(Case):
    def test_how_a_file_is_opened(self):
        self.fails_with(errno.ENOENT, os.open, self.at("file"), os.O_RDWR)
        for flags, found, left in [(os.O_CREAT, b"", b"abc"), (0, b"abc", b"abc"), (os.O_CREAT, b"abc", b"abc"),
                                   (os.O_APPEND, b"abc", b"abcabc"), (os.O_TRUNC, b"", b"abc"),
                                   (os.O_CREAT | os.O_TRUNC | os.O_APPEND, b"", b"abc")]:
            with self.subTest(flags=flags):
                file = self.open("file", os.O_RDWR | flags)
                self.assertEqual(os.pread(file, 100, 0), found)
                os.write(file, b"abc")
                os.close(file)
                self.assertEqual(self.stored("file"), left)
        os.close(self.open("file", os.O_WRONLY | os.O_TRUNC))
        self.assertEqual(self.stored("file"), b"")
        self.fails_with(errno.EEXIST, os.open, self.at("file"), os.O_WRONLY | os.O_CREAT | os.O_EXCL)
        self.fails_with(errno.ENOTDIR, os.open, self.at("file"), os.O_RDONLY | os.O_DIRECTORY)
        self.fails_with(errno.EISDIR, os.open, self.at(), os.O_WRONLY)
        reader = self.open("file", os.O_RDONLY)
        self.fails_with(errno.EBADF, os.write, reader, b"x")
        writer = self.open("file", os.O_WRONLY)
        self.fails_with(errno.EBADF, os.read, writer, 1)

    def test_a_new_file_is_there_at_once_and_stored_when_it_is_closed(self):
        file = self.open("file", os.O_WRONLY | os.O_CREAT)
        os.write(file, b"abc")
        self.assertEqual(os.stat(self.at("file")).st_size, 3)
        self.assertEqual(os.listdir(self.at()), ["file"])
        self.assertEqual(read(self.at("file")), b"abc")
        os.close(file)
        self.assertEqual(self.stored("file"), b"abc")

    def test_every_close_of_a_writer_stores(self):
        file = self.open("file", os.O_RDWR | os.O_CREAT)
        copy = os.dup(file)
        for descriptor in [copy, file]:
            os.write(file, b"abc")
            os.close(descriptor)
            self.assertEqual(self.stored("file"), b"abc" if descriptor == copy else b"abcabc")

    def test_fsync_stores_and_the_rest_of_the_file_is_kept(self):
        data = bytearray(os.urandom(6 * PART))
        write(self.at("file"), data)
        self.remount()
        file = self.open("file", os.O_RDWR)
        for number, store in enumerate([os.fsync, os.fdatasync, os.fsync]):
            data[(number + 1) * PART - 1:(number + 1) * PART + 1] = b"xy"
            os.pwrite(file, b"xy", (number + 1) * PART - 1)
            store(file)
            self.assertEqual(self.stored("file"), data)

    def test_descriptors_share_content_and_append_in_turns(self):
        files = [self.open("file", os.O_RDWR | os.O_CREAT | os.O_APPEND) for _ in range(3)]
        for number in range(30):
            os.write(files[number % 3], b"%2d" % number)
            self.assertEqual(os.fstat(files[0]).st_size, 2 * number + 2)
        expected = b"".join(b"%2d" % number for number in range(30))
        for file in files:
            self.assertEqual(os.pread(file, 100, 0), expected)

    def test_sizes_change_by_descriptor_and_by_name(self):
        data = os.urandom(3 * PART)
        write(self.at("file"), data)
        file = self.open("file", os.O_RDWR)
        reader = self.open("file", os.O_RDONLY)
        for size in [2 * PART + 1, 3 * PART - 1, PART, 1, 4 * PART, 0, 10]:
            for change in [lambda: os.ftruncate(file, size), lambda: os.truncate(self.at("file"), size)]:
                data = data[:size] + bytes(max(0, size - len(data)))
                change()
                self.assertEqual(os.fstat(reader).st_size, size)
                self.assertEqual(os.pread(reader, 5 * PART, 0), data)
            os.pwrite(file, b"x", size)
            data += b"x"
        os.close(file)
        os.close(reader)
        self.assertEqual(self.stored("file"), data)
        os.truncate(self.at("file"), 2 * PART)
        self.assertEqual(self.stored("file"), data + bytes(2 * PART - len(data)))
        os.truncate(self.at("file"), 3)
        self.assertEqual(self.stored("file"), data[:3])

    def test_holes_are_zeros(self):
        file = self.open("file", os.O_RDWR | os.O_CREAT)
        os.pwrite(file, b"end", 3 * PART)
        self.assertEqual(os.lseek(file, 0, os.SEEK_END), 3 * PART + 3)
        self.assertEqual(os.pread(file, PART, PART), bytes(PART))
        os.close(file)
        self.assertEqual(self.stored("file"), bytes(3 * PART) + b"end")

    def exclusive_openers(self, *paths):
        """How often each of some processes was the one that made a file."""
        code = """if True:
            import os, sys
            sys.stdin.readline()
            made = 0
            for number in range(40):
                try:
                    os.close(os.open(sys.argv[1] + str(number), os.O_WRONLY | os.O_CREAT | os.O_EXCL))
                    made += 1
                except FileExistsError:
                    pass
            print(made)"""
        processes = [self.start_python(code, path) for path in paths]
        for process in processes:
            process.stdin.write("\n")
            process.stdin.flush()
        return [int(process.communicate()[0]) for process in processes]

    def test_of_two_processes_one_makes_a_file(self):
        self.assertEqual(sum(self.exclusive_openers(self.at("f"), self.at("f"))), 40)
        self.assertEqual(len(os.listdir(self.at())), 40)

    @mount_only
    @conditions_only
    def test_of_two_mounts_one_makes_a_file(self):
        other = self.mount(at="other")
        self.assertEqual(sum(self.exclusive_openers(self.at("f"), other.at("f"))), 40)

    def test_a_file_that_is_removed_while_it_is_open(self):
        write(self.at("file"), b"old")
        file = self.open("file", os.O_RDWR)
        self.assertEqual(os.read(file, 3), b"old")
        os.unlink(self.at("file"))
        self.fails_with(errno.ENOENT, os.stat, self.at("file"))
        self.assertEqual(os.listdir(self.at()), [])
        self.assertIsNone(self.stored("file"))
        os.pwrite(file, b"new", 1)
        self.assertEqual(os.pread(file, 9, 0), b"onew")
        os.fsync(file)
        write(self.at("file"), b"another")
        os.close(file)
        self.assertEqual(self.stored("file"), b"another")
        self.assertEqual(os.listdir(self.at()), ["file"])

    @mount_only
    def test_what_was_not_fetched_of_a_removed_file_is_gone(self):
        write(self.at("file"), os.urandom(20 * PART))
        self.remount()
        file = self.open("file", os.O_RDONLY)
        os.pread(file, 1, 0)
        os.unlink(self.at("file"))
        os.pread(file, 1, 0)
        self.fails_with(errno.ESTALE, os.pread, file, 1, 19 * PART)

    def test_renaming_over_an_open_file(self):
        write(self.at("old"), b"old")
        write(self.at("new"), b"new")
        reader = self.open("old", os.O_RDONLY)
        writer = self.open("old", os.O_RDWR)
        os.rename(self.at("new"), self.at("old"))
        os.pwrite(writer, b"O", 0)
        self.assertEqual(os.pread(reader, 9, 0), b"Old")
        self.assertEqual(read(self.at("old")), b"new")
        os.close(writer)
        os.close(reader)
        self.assertEqual((self.stored("old"), self.stored("new")), (b"new", None))
        self.assertEqual(os.listdir(self.at()), ["old"])

    def test_renaming_an_open_file(self):
        file = self.open("one", os.O_RDWR | os.O_CREAT)
        os.write(file, b"abc")
        os.rename(self.at("one"), self.at("two"))
        self.assertEqual((self.stored("one"), self.stored("two")), (None, b"abc"))
        os.write(file, b"def")
        self.assertEqual(os.stat(self.at("two")).st_size, 6)
        os.close(file)
        self.assertEqual((self.stored("one"), self.stored("two")), (None, b"abcdef"))
        os.mkdir(self.at("sub"))
        os.rename(self.at("two"), self.at("sub/three"))
        self.assertEqual((os.listdir(self.at()), self.stored("sub/three")), (["sub"], b"abcdef"))
        os.rename(self.at("sub/three"), self.at("sub/three"))
        self.fails_with(errno.ENOENT, os.rename, self.at("two"), self.at("x"))
        os.mkdir(self.at("other"))
        self.fails_with(errno.EISDIR, os.rename, self.at("sub/three"), self.at("other"))

    def test_names_that_are_odd(self):
        names = [name for name in end_to_end.ODD_NAMES if name != "dot."] + ["n" * 255]
        for name in names:
            write(self.at(name), name.encode())
        self.remount()
        self.assertEqual(sorted(os.listdir(self.at())), sorted(names))
        for name in names:
            self.assertEqual(read(self.at(name)), name.encode())
        self.fails_with(errno.ENAMETOOLONG, os.open, self.at("n" * 256), os.O_CREAT | os.O_WRONLY)

    def test_many_threads_at_once(self):
        def work(number):
            for turn in range(10):
                write(self.at(f"{number}-{turn}"), b"%d" % turn * 1000)
                self.assertEqual(read(self.at(f"{number}-{turn}")), b"%d" % turn * 1000)
                done.append((number, turn))

        done = []
        threads = [threading.Thread(target=work, args=[number]) for number in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual((len(done), len(os.listdir(self.at()))), (80, 80))


class Folders(Case):
    def test_folders_are_made_listed_and_removed(self):
        os.mkdir(self.at("a"))
        os.makedirs(self.at("a/b/c"))
        write(self.at("a/file"), b"12345")
        self.assertEqual(sorted((entry.name, entry.is_dir(), entry.stat().st_size if entry.is_file() else None)
                                for entry in os.scandir(self.at("a"))), [("b", True, None), ("file", False, 5)])
        for number, function, name in [(errno.EEXIST, os.mkdir, "a"), (errno.EEXIST, os.mkdir, "a/file"),
                                       (errno.ENOENT, os.mkdir, "no/such"), (errno.ENOTEMPTY, os.rmdir, "a"),
                                       (errno.ENOTDIR, os.rmdir, "a/file"), (errno.ENOENT, os.rmdir, "no"),
                                       (errno.EISDIR, os.unlink, "a/b"), (errno.ENOENT, os.unlink, "no"),
                                       (errno.ENOENT, os.listdir, "no"), (errno.ENOTDIR, os.listdir, "a/file"),
                                       (errno.ENOTDIR, os.stat, "a/file/x")]:
            with self.subTest(function=function, name=name):
                self.fails_with(number, function, self.at(name))
        for remove, name in [(os.rmdir, "a/b/c"), (os.rmdir, "a/b"), (os.unlink, "a/file"), (os.rmdir, "a")]:
            remove(self.at(name))
        self.assertEqual(os.listdir(self.at()), [])

    def test_own_changes_show_at_once(self):
        self.assertEqual(os.listdir(self.at()), [])
        for number in range(10):
            self.fails_with(errno.ENOENT, os.stat, self.at("f"))
            write(self.at("f"), b"x" * number)
            self.assertEqual((os.stat(self.at("f")).st_size, os.listdir(self.at())), (number, ["f"]))
            os.rename(self.at("f"), self.at("g"))
            self.assertEqual(os.listdir(self.at()), ["g"])
            os.unlink(self.at("g"))
            self.assertEqual(os.listdir(self.at()), [])

    def test_a_large_folder(self):
        for number in range(300):
            write(self.at(f"{number}"), b"")
        self.assertEqual(len(os.listdir(self.at())), 300)
        self.remount()
        self.assertEqual(len(os.listdir(self.at())), 300)
        for name in os.listdir(self.at()):
            os.unlink(self.at(name))
        self.assertEqual(os.listdir(self.at()), [])

    @mount_only
    def test_renaming_a_folder_is_for_the_program(self):
        os.makedirs(self.at("a/b"))
        self.fails_with(errno.EXDEV, os.rename, self.at("a"), self.at("c"))
        self.run_program("mv", self.at("a"), self.at("c"))
        self.assertEqual((os.listdir(self.at()), os.listdir(self.at("c"))), (["c"], ["b"]))

    @mount_only
    def test_folders_that_only_their_files_show(self):
        self.ok("put", "-", "/sub/deep/file", data=b"x")
        self.wait_for(lambda: os.path.exists(self.at("sub/deep/file")))
        self.assertEqual(os.listdir(self.at("sub")), ["deep"])
        self.fails_with(errno.ENOTEMPTY, os.rmdir, self.at("sub"))
        self.assertTrue(stat.S_ISDIR(os.stat(self.at("sub")).st_mode))


@mount_only
class Attributes(Case):
    def test_modes_owners_and_times_are_accepted_and_forgotten(self):
        self.local("source", b"x")
        write(self.at("file"), b"x")
        mode = os.stat(self.at("file")).st_mode
        os.chmod(self.at("file"), 0o4755)
        os.chown(self.at("file"), os.getuid(), os.getgid())
        os.utime(self.at("file"), (1, 1))
        self.remount()
        found = os.stat(self.at("file"))
        self.assertEqual(found.st_mode, mode)
        self.assertAlmostEqual(found.st_mtime, time.time(), delta=DEADLINE_SECONDS)
        self.run_program("cp", "-p", "source", self.at("copy"))
        self.run_program("touch", "-d", "2001-02-03", self.at("copy"))
        self.run_program("install", "-m", "755", "source", self.at("installed"))
        self.assertEqual(self.stored("installed"), b"x")

    def test_options_tell_owners_and_modes(self):
        write(self.at("file"), b"x")
        os.mkdir(self.at("folder"))
        self.assertEqual(self.mounted.unmount(), DONE)
        told = self.mount("--umask", "027", "--uid", "12", "--gid", "34")
        for name, mode in [("file", 0o100640), ("folder", 0o40750)]:
            found = os.stat(told.at(name))
            self.assertEqual((oct(found.st_mode), found.st_uid, found.st_gid), (oct(mode), 12, 34))

    def test_no_program_thinks_that_it_is_full(self):
        found = os.statvfs(self.at())
        self.assertGreater(found.f_bavail * found.f_frsize, 1 << 40)
        self.assertGreaterEqual(found.f_namemax, 255)
        self.run_program("df", self.at())

    def test_links_and_special_files_are_not_supported(self):
        write(self.at("file"), b"x")
        for function, *arguments in [(os.link, self.at("file"), self.at("x")), (os.symlink, "file", self.at("x")),
                                     (os.mkfifo, self.at("x")), (os.mknod, self.at("x"), stat.S_IFSOCK | 0o600)]:
            with self.subTest(function=function):
                self.fails_with(errno.ENOTSUP, function, *arguments)
        self.assertEqual(os.listdir(self.at()), ["file"])

    def test_a_mount_that_is_read_only(self):
        write(self.at("file"), b"x")
        os.mkdir(self.at("folder"))
        self.assertEqual(self.mounted.unmount(), DONE)
        self.mount("-o", "ro")
        self.assertEqual((read(self.at("file")), sorted(os.listdir(self.at()))), (b"x", ["file", "folder"]))
        for function, *arguments in [(os.open, self.at("file"), os.O_RDWR), (os.truncate, self.at("file"), 0),
                                     (os.open, self.at("new"), os.O_WRONLY | os.O_CREAT), (os.mkdir, self.at("new")),
                                     (os.unlink, self.at("file")), (os.rmdir, self.at("folder")),
                                     (os.rename, self.at("file"), self.at("new"))]:
            with self.subTest(function=function):
                self.fails_with(errno.EROFS, function, *arguments)

    @unittest.skipIf(os.geteuid() != 0, "only root can become another user")
    def test_other_users_see_it_when_told_only(self):
        write(self.at("file"), b"x")
        os.chmod(self.folder, 0o755)
        for options, code in [([], 1), (["--allow-other", "--umask", "022"], 0)]:
            self.assertEqual(self.mounted.unmount(), DONE)
            self.mounted = self.mount(*options)
            looking = subprocess.run(["cat", self.at("file")], capture_output=True, user=65534, group=65534)
            self.assertEqual(looking.returncode, code, looking.stderr)

    @unittest.skipIf(os.geteuid() != 0, "done by all the other tests")
    def test_an_ordinary_user_mounts(self):
        if os.stat("/dev/fuse").st_mode & 0o006 != 0o006:
            self.skipTest("/dev/fuse is for root only")
        self.assertEqual(self.mounted.unmount(), DONE)
        for folder, _, names in os.walk(self.folder):
            for path in [folder] + [os.path.join(folder, name) for name in names]:
                os.chown(path, 65534, 65534)
        script = """
            "$0" mount "$1" 2>log &
            until grep -q "^mounted " log; do kill -0 $! && sleep 0.05 || exit; done
            printf abc >"$1/file" && fusermount3 -u "$1" && wait $!"""
        result = subprocess.run(["sh", "-c", script, end_to_end.CLOUDFS, self.at()], capture_output=True, cwd=self.work,
                                env=self.environment, user=65534, group=65534, timeout=DEADLINE_SECONDS)
        self.assertEqual(result.returncode, DONE, (result.stdout, result.stderr))
        self.assertEqual(self.stored("file"), b"abc")


@mount_only
class TwoMounts(Case):
    def setUp(self):
        super().setUp()
        self.other = self.mount(at="other")

    def seen_soon(self, condition):
        """Within the second that is promised, and what a busy machine takes."""
        deadline = time.monotonic() + 5
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)

    def test_names_and_attributes_are_at_most_a_second_old(self):
        self.assertEqual(os.listdir(self.other.at()), [])
        self.fails_with(errno.ENOENT, os.stat, self.other.at("file"))
        write(self.at("file"), b"abc")
        self.seen_soon(lambda: os.path.exists(self.other.at("file")) and os.listdir(self.other.at()) == ["file"])
        self.assertEqual(os.stat(self.other.at("file")).st_size, 3)
        write(self.at("file"), b"abcdef")
        self.seen_soon(lambda: os.stat(self.other.at("file")).st_size == 6)
        os.unlink(self.at("file"))
        self.seen_soon(lambda: not os.path.exists(self.other.at("file")) and os.listdir(self.other.at()) == [])

    def test_content_is_that_of_the_opening(self):
        for number in range(5):
            data = b"%d" % number * (2 * PART)
            write(self.at("file"), data)
            self.seen_soon(lambda: os.path.exists(self.other.at("file")))
            self.assertEqual(read(self.other.at("file")), data)

    @conditions_only
    def test_what_somebody_else_changed_is_not_overwritten(self):
        write(self.at("file"), b"old")
        file = self.open("file", os.O_RDWR)
        self.assertEqual(os.read(file, 3), b"old")
        self.seen_soon(lambda: os.path.exists(self.other.at("file")))
        write(self.other.at("file"), b"theirs")
        os.pwrite(file, b"our", 0)
        self.fails_with(errno.EBUSY, os.fsync, file)
        self.fails_with(errno.EBUSY, os.close, file)
        self.assertEqual(self.stored("file"), b"theirs")
        self.assertEqual(read(self.other.at("file")), b"theirs")


@mount_only
class Failures(Case):
    """The embedded store refuses what is stored; of S3 the server does."""

    OPTIONS = ["--unmount-timeout", "2s", "--unsaved", "unsaved"]

    def mount(self, *options, **named):
        if ON_S3:
            self.gate = Gate(self.environment["AWS_ENDPOINT_URL_S3"])
            self.addCleanup(self.gate.stop)
            named["environment"] = {"AWS_ENDPOINT_URL_S3": self.gate.endpoint()}
        return super().mount(*options, **named)

    def break_store(self):
        if ON_S3:
            self.gate.denies = True
        else:
            self.change_store(*(f"CREATE TRIGGER broken_{event} BEFORE {event} ON objects "
                                "BEGIN SELECT RAISE(ABORT, 'fault'); END" for event in ["INSERT", "UPDATE"]))

    def mend_store(self):
        if ON_S3:
            self.gate.denies = False
        else:
            self.change_store(*(f"DROP TRIGGER broken_{event}" for event in ["INSERT", "UPDATE"]))

    def unsaved(self):
        """All that lies in the folder for what could not be stored."""
        found = {}
        for folder, _, names in os.walk(self.work + "/unsaved"):
            found.update({os.path.join(folder, name): read(os.path.join(folder, name)) for name in names})
        return found

    def assert_unsaved(self, **told):
        """What was written of the one file is precious."""
        found = self.unsaved()
        self.assertEqual(sorted(os.path.basename(path) for path in found), ["1.bytes", "1.json"])
        for path, data in found.items():
            if path.endswith(".json"):
                self.assertEqual(json.loads(data), {"path": "/file", "keptOfStored": None, **told})
            else:
                self.assertEqual(data, b"precious")
            self.assertIn(os.path.basename(os.path.dirname(path)), self.mounted.log())

    def fails_to_store(self, function, *arguments):
        self.fails_with(errno.EACCES if ON_S3 else errno.EIO, function, *arguments)

    def test_a_failed_fsync_stays_until_one_succeeds(self):
        write(self.at("file"), b"old")
        file = self.open("file", os.O_RDWR)
        os.pwrite(file, b"new", 0)
        self.break_store()
        for _ in range(2):
            self.fails_to_store(os.fsync, file)
        self.fails_to_store(os.close, os.dup(file))
        self.assertEqual(os.pread(file, 3, 0), b"new")
        self.mend_store()
        os.fsync(file)
        self.assertEqual(self.stored("file"), b"new")
        os.close(file)
        self.assertEqual(self.mounted.unmount(), DONE)
        self.assertEqual(self.unsaved(), {})

    def test_what_a_failed_close_left_is_stored_by_the_unmount(self):
        file = self.open("file", os.O_RDWR | os.O_CREAT)
        os.write(file, b"abc")
        self.break_store()
        self.fails_to_store(os.close, file)
        self.mend_store()
        self.assertEqual(self.mounted.unmount(), DONE, self.mounted.log())
        self.assertEqual((self.stored("file"), self.unsaved()), (b"abc", {}))

    def test_what_cannot_be_stored_at_all_is_kept_for_the_user(self):
        write(self.at("file"), bytes(3 * PART))
        file = self.open("file", os.O_RDWR)
        os.pwrite(file, b"precious", PART + 5)
        self.break_store()
        self.fails_to_store(os.close, file)
        self.assertEqual(self.mounted.unmount(), FAILED)
        self.assert_unsaved(size=3 * PART, ranges=[{"offset": PART + 5, "size": 8}])

    @s3_only
    def test_a_server_that_is_gone(self):
        file = self.open("file", os.O_RDWR | os.O_CREAT)
        os.write(file, b"precious")
        self.gate.stop()
        self.mounted.process.send_signal(signal.SIGTERM)
        self.assertEqual(self.mounted.ended(), FAILED)
        self.assert_unsaved(size=8, ranges=[{"offset": 0, "size": 8}])

    @s3_only
    def test_a_signal_ends_a_read_that_waits_and_no_other(self):
        for name in ["one", "two"]:
            write(self.at(name), os.urandom(10 * PART))
        self.remount()
        code = """if True:
            import os, signal, sys
            class Late(Exception):
                pass
            def be_late(*_):
                raise Late
            signal.signal(signal.SIGALRM, be_late)
            file = os.open(sys.argv[1], os.O_RDONLY)
            print("open", flush=True)
            sys.stdin.readline()
            signal.setitimer(signal.ITIMER_REAL, float(sys.argv[2]))
            try:
                print(len(os.pread(file, 100, int(sys.argv[3]))), flush=True)
            except Late:
                signal.setitimer(signal.ITIMER_REAL, 0)
                print("interrupted", flush=True)
                sys.stdin.readline()
                print(len(os.pread(file, 100, int(sys.argv[3]))), flush=True)"""
        late = self.start_python(code, self.at("one"), "1", str(8 * PART))
        patient = self.start_python(code, self.at("two"), "0", str(8 * PART))
        for process in [late, patient]:
            self.assertEqual(process.stdout.readline(), "open\n")
        self.gate.passes.clear()
        for process in [late, patient]:
            process.stdin.write("\n")
            process.stdin.flush()
        start = time.monotonic()
        self.assertEqual(late.stdout.readline(), "interrupted\n")
        self.assertLess(time.monotonic() - start, 10)
        self.gate.passes.set()
        self.assertEqual(patient.communicate(timeout=DEADLINE_SECONDS)[0], "100\n")
        self.assertEqual(late.communicate("\n", timeout=DEADLINE_SECONDS)[0], "100\n")


@mount_only
class Ending(Case):
    def test_every_way_to_unmount_stores_what_is_written(self):
        for number, end in enumerate([signal.SIGTERM, signal.SIGINT, signal.SIGHUP]):
            with self.subTest(end=end):
                file = self.open(f"file{number}", os.O_RDWR | os.O_CREAT)
                os.write(file, b"abc")
                self.mounted.process.send_signal(end)
                self.assertEqual(self.mounted.ended(), DONE, self.mounted.log())
                close_if_open(file, -1)
                self.assertEqual(self.stored(f"file{number}"), b"abc")
                self.assertEqual(os.listdir(self.mounted.path), [])
                self.mounted = self.mount()

    def test_a_busy_mount_is_not_unmounted_and_goes_on(self):
        file = self.open("file", os.O_RDWR | os.O_CREAT)
        self.run_program("fusermount3", "-u", self.mounted.path, expected=1)
        os.write(file, b"abc")
        os.close(file)
        self.assertEqual(self.mounted.unmount(), DONE)
        self.assertEqual(self.stored("file"), b"abc")
        self.assert_no_temporary_files()

    def test_what_cannot_be_mounted_is_refused(self):
        self.assertEqual(self.mounted.unmount(), DONE)
        self.fails("NotFound", "missing", "mount", "missing")
        self.local("file")
        self.fails("InvalidLocation", "file", "mount", "file")
        self.misused("mount", mentions="MOUNTPOINT")
        self.misused("mount", "-o", "nonsense", ".", mentions="nonsense")

    def test_nothing_but_what_is_asked_for_is_printed(self):
        write(self.at("file"), b"x")
        self.assertEqual(self.mounted.unmount(), DONE)
        self.assertRegex(self.mounted.log(), r"\Amounted \S+ at .*\n\Z")


class RandomOperations(Case):
    """Seeds are printed with what failed; CLOUDFS_TEST_SEED takes one again."""

    def setUp(self):
        super().setUp()
        self.model = os.path.join(self.folder, "model")

    def mount(self, *options, **named):
        return super().mount(*options, deadline=DEADLINE_SECONDS + OPERATIONS, **named)

    def run_operations(self, seed, count, **named):
        print(f"{count} operations, seed {seed}", file=sys.stderr, flush=True)
        operations = Operations(self.at("file"), self.model, seed, PART, MOST_BYTES, **named)
        try:
            operations.run(count)
        except OSError as failure:
            log = "" if ON_FOLDER else self.mounted.log()
            raise AssertionError("\n".join(operations.log + [str(failure), log])) from failure

    def start_operations(self, seed, count, *options):
        print(f"{count} operations, seed {seed}", file=sys.stderr, flush=True)
        process = subprocess.Popen([sys.executable, os.path.join(HERE, "random_file_operations.py"), self.at("file"),
                                    self.model, seed, str(count), str(PART), str(MOST_BYTES), *options])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def assert_stored(self):
        self.assertEqual(self.stored("file"), read(self.model))
        self.remount()
        self.assertEqual(read(self.at("file")), read(self.model))

    def test_faults_are_found(self):
        """Of a system that is local and has a fault."""
        for fault in FAULTS:
            with self.subTest(fault=fault):
                for path in [self.work + "/file", self.model]:
                    write(path, b"")
                with self.assertRaises(Mismatch):
                    Operations(self.work + "/file", self.model, "seed", 65536, 600_000, system=Faulty(fault)).run(2000)

    def test_one_process(self):
        self.run_operations(SEED, OPERATIONS)
        self.assert_stored()

    def test_two_processes_that_take_turns(self):
        processes = [self.start_operations(SEED + name, OPERATIONS // 4, "--lock", self.folder + "/lock")
                     for name in ["a", "b"]]
        self.assertEqual([process.wait() for process in processes], [0, 0])
        self.assert_stored()

    def test_two_processes_at_the_same_time(self):
        for path in [self.at("file"), self.model]:
            with open(path, "wb") as file:
                file.truncate(MOST_BYTES)
        processes = [self.start_operations(SEED + str(number), OPERATIONS // 4, "--share", str(number), "2")
                     for number in range(2)]
        self.assertEqual([process.wait() for process in processes], [0, 0])
        self.assert_stored()

    @mount_only
    def test_a_killed_mount_has_what_was_acknowledged(self):
        write(self.model, b"")
        write(self.at("file"), b"")
        for number in range(max(3, OPERATIONS // 500)):
            seed = f"{SEED}-{number}"
            operations = Operations(self.at("file"), self.model, seed, PART, MOST_BYTES, killed=True)
            after = operations.random.uniform(0.05, 1.5)
            timer = threading.Timer(after, self.mounted.process.kill)
            timer.start()
            try:
                while True:
                    operations.run(100)
            except OSError as failure:
                self.assertIsNotNone(self.mounted.process.wait(DEADLINE_SECONDS))
                self.assertIn(failure.errno, [errno.ENOTCONN, errno.ECONNABORTED, errno.EIO], seed)
            operations.give_up()
            self.mounted.kill()
            self.mounted = self.mount()
            data = read(self.at("file"))
            self.assertIn(operations.hash_of(data), operations.may_be_stored, f"seed {seed}, killed after {after} s")
            write(self.model, data)


if __name__ == "__main__":
    end_to_end.CLOUDFS = os.path.abspath(sys.argv.pop(1))
    reason = None if ON_FOLDER else why_nothing_can_be_mounted()
    if reason:
        print(f"skipped: nothing can be mounted here: {reason}", file=sys.stderr)
        sys.exit(FAILED if os.environ.get("CLOUDFS_TEST_MOUNT") == "required" else SKIPPED)
    unittest.main()
