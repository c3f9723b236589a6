#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Random operations on a file, done on a local file as well: both must answer the same.

The local file is the model: what it answers is right by definition, also for gaps, appending and cutting off.
"""

import argparse
import errno
import fcntl
import hashlib
import mmap
import os
import random

PIECE = 10_000  # what processes own in turns, when they do not wait for each other; across parts and pages
MOST_OPEN = 3


class Mismatch(Exception):
    pass


class Operations:
    """The same random operations on a file and on its model, as many as are asked for.

    part     the size of the parts that the file is divided into
    most     its largest size
    share    the number of this process and how many there are, when several work at the same time: each reads and
             writes its own pieces only, and none changes the size
    lock     a file that is locked while an operation is done on both, when several take turns
    system   what does the operations on the file; another one than os finds out whether a fault is seen
    killed   whether the file system may go away meanwhile: then may_be_stored tells what the file may hold, and nothing
             is mapped, since a mapping would not survive that
    """

    def __init__(self, path, model_path, seed, part, most, share=None, lock=None, system=os, killed=False):
        self.path = path
        self.model_path = model_path
        self.random = random.Random(seed)
        self.part = part
        self.most = most
        self.share = share
        self.lock = lock
        self.system = system
        self.open_files = []
        self.log = []
        # Hashes: of what was stored last, and of what the file was changed to since.
        self.killed = killed
        self.may_be_stored = [self.model_hash()]
        choices = [(self.write, 30), (self.read, 30), (self.open, 8), (self.close, 8), (self.store, 4), (self.compare, 2)]
        if not share:
            choices += [(self.append, 6), (self.cut, 8), (self.look_at_size, 8), (self.cut_by_name, 3)]
        if not killed:
            choices += [(self.read_mapped, 6), (self.write_mapped, 4)]
        self.choices, self.weights = zip(*choices)

    def run(self, count):
        """Raise Mismatch with the last operations, or the OSError of an operation that fails."""
        for _ in range(count):
            operation = self.random.choices(self.choices, self.weights)[0]
            if not self.open_files:
                operation = self.open
            self.do_once(operation)
        while self.open_files:
            self.do_once(self.close)
        self.do_once(self.compare)

    def give_up(self):
        """Close what is open of a file system that has gone."""
        for file, model in self.open_files:
            os.close(model)
            try:
                os.close(file)
            except OSError:
                pass
        self.open_files = []

    def do_once(self, operation):
        if not self.lock:
            operation()
            return
        with open(self.lock, "wb") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            operation()

    # What the operations need.

    def note(self, *words):
        self.log = self.log[-30:] + [" ".join(map(str, words))]

    def same(self, found, expected):
        if found == expected:
            return
        if self.killed and is_beginning(found, expected):
            raise OSError(errno.ENOTCONN, "cut short")  # by the kill: the kernel divides what is large
        text = f"found {shorten(found)}, expected {shorten(expected)}"
        if isinstance(found, bytes) and isinstance(expected, bytes) and len(found) == len(expected):
            place = next(at for at, pair in enumerate(zip(found, expected)) if pair[0] != pair[1])
            text += f", other bytes from {place} on"
        raise Mismatch("\n".join(self.log + [text]))

    def place(self, most_bytes):
        """Where to read or write and how much; sometimes at the beginning or the end of a part."""
        if self.share:
            number, count = self.share
            pieces = self.most // PIECE // count
            start = (self.random.randrange(pieces) * count + number) * PIECE
            offset = self.random.randrange(PIECE)
            return start + offset, self.random.randint(1, min(most_bytes, PIECE - offset))
        if self.random.random() < 0.3:
            offset = max(0, self.random.randrange(0, self.most, self.part) + self.random.randint(-2, 2))
        else:
            offset = self.random.randrange(self.most)
        if self.random.random() < 0.5:
            offset = min(offset, os.path.getsize(self.model_path))
        return offset, self.random.randint(1, min(most_bytes, self.most - offset + 1))

    def length(self):
        return self.random.choice([1, 10, 100, 4096, 70_000, 150_000])

    def pick(self):
        return self.random.choice(self.open_files)

    def stored(self):
        self.may_be_stored = [self.model_hash()]

    def changed(self):
        if self.killed:
            self.may_be_stored.append(self.model_hash())

    def model_hash(self):
        if not self.killed:
            return None
        with open(self.model_path, "rb") as model:
            return self.hash_of(model.read())

    @staticmethod
    def hash_of(data):
        return hashlib.sha256(data).digest()

    # The operations.

    def open(self):
        if len(self.open_files) == MOST_OPEN:
            self.close()
        flags = os.O_RDWR
        if not self.share:
            flags |= self.random.choice([os.O_CREAT] * 10 + [os.O_CREAT | os.O_APPEND] * 3 + [os.O_CREAT | os.O_TRUNC])
        self.note("open", oct(flags))
        model = os.open(self.model_path, flags, 0o644)
        try:
            if flags & os.O_TRUNC:
                self.changed()
            self.open_files.append((self.system.open(self.path, flags, 0o644), model))
        except OSError:
            os.close(model)
            raise

    def close(self):
        if not self.open_files:
            return
        file, model = self.open_files.pop(self.random.randrange(len(self.open_files)))
        self.note("close")
        os.close(model)
        self.system.close(file)
        self.stored()

    def write(self):
        file, model = self.pick()
        if fcntl.fcntl(model, fcntl.F_GETFL) & os.O_APPEND:
            return  # pwrite would append
        offset, size = self.place(self.length())
        data = self.random.randbytes(size)
        self.note("write", size, "at", offset)
        expected = os.pwrite(model, data, offset)
        self.changed()
        self.same(self.system.pwrite(file, data, offset), expected)

    def append(self):
        file, model = self.pick()
        data = self.random.randbytes(self.length())
        end = os.lseek(model, 0, os.SEEK_END)
        if end + len(data) > self.most:
            return
        self.note("append", len(data), "at", end)
        self.same(os.lseek(file, 0, os.SEEK_END), end)
        expected = os.write(model, data)
        self.changed()
        self.same(self.system.write(file, data), expected)
        self.same(os.lseek(file, 0, os.SEEK_CUR), end + len(data))

    def read(self):
        file, model = self.pick()
        offset, size = self.place(self.length())
        self.note("read", size, "at", offset)
        self.same(self.system.pread(file, size, offset), os.pread(model, size, offset))

    def cut(self):
        file, model = self.pick()
        size = self.place(1)[0]
        self.note("cut to", size, "from", os.fstat(model).st_size)
        os.ftruncate(model, size)
        self.changed()
        self.system.ftruncate(file, size)

    def cut_by_name(self):
        size = self.place(1)[0]
        self.note("cut by name to", size)
        os.truncate(self.model_path, size)
        self.changed()
        self.system.truncate(self.path, size)

    def look_at_size(self):
        file, model = self.pick()
        self.note("look at the size")
        expected = os.fstat(model).st_size
        self.same(os.fstat(file).st_size, expected)
        self.same(os.stat(self.path).st_size, expected)

    def store(self):
        file = self.pick()[0]
        self.note("store")
        self.random.choice([self.system.fsync, self.system.fdatasync])(file)
        self.stored()

    def read_mapped(self):
        file, model = self.pick()
        size = os.fstat(model).st_size
        offset, count = self.place(self.length())
        if size == 0:
            return
        self.note("read mapped", count, "at", offset)
        self.same(os.fstat(file).st_size, size)
        with mmap.mmap(file, size, mmap.MAP_SHARED, mmap.PROT_READ) as mapped:
            self.same(mapped[offset:offset + count], os.pread(model, count, offset))

    def write_mapped(self):
        file, model = self.pick()
        size = os.fstat(model).st_size
        offset, count = self.place(self.length())
        if offset >= size:
            return
        data = self.random.randbytes(min(count, size - offset))
        self.note("write mapped", len(data), "at", offset)
        with mmap.mmap(model, size) as mapped:
            mapped[offset:offset + len(data)] = data
        self.changed()
        self.same(os.fstat(file).st_size, size)
        with mmap.mmap(file, size) as mapped:
            mapped[offset:offset + len(data)] = data
            if self.random.random() < 0.5:
                self.note("store the mapped")
                mapped.flush()

    def compare(self):
        """All of it, by a reader of its own."""
        self.note("compare")
        if self.share:
            number, count = self.share
            places = range(number * PIECE, self.most // PIECE // count * count * PIECE, count * PIECE)
        else:
            places = [0]
        size = PIECE if self.share else self.most * 2
        file = self.system.open(self.path, os.O_RDONLY)
        model = os.open(self.model_path, os.O_RDONLY)
        try:
            for offset in places:
                self.same(self.system.pread(file, size, offset), os.pread(model, size, offset))
        finally:
            os.close(model)
            self.system.close(file)


def is_beginning(found, expected):
    return expected.startswith(found) if isinstance(expected, bytes) else found < expected


def shorten(value):
    if isinstance(value, bytes):
        return f"{len(value)} bytes {value[:8].hex()}..."
    return value


class Faulty:
    """os with one fault in the operations that change a file, after some that were right."""

    def __init__(self, fault, right=5):
        self.fault = fault
        self.right = right

    def __getattr__(self, name):
        if name != self.fault.split(":")[0]:
            return getattr(os, name)
        return lambda *arguments: self.do(name, *arguments)

    def do(self, name, *arguments):
        self.right -= 1
        if self.right >= 0:
            return getattr(os, name)(*arguments)
        return {"pwrite:lost": lambda file, data, offset: len(data),
                "pwrite:elsewhere": lambda file, data, offset: os.pwrite(file, data, offset + 1),
                "write:short": lambda file, data: os.write(file, data[:-1]) + 1,
                "ftruncate:lost": lambda file, size: None,
                "ftruncate:garbage": self.leave_garbage,
                "truncate:short": lambda path, size: os.truncate(path, max(0, size - 1)),
                "pread:short": lambda file, size, offset: os.pread(file, size - 1, offset)}[self.fault](*arguments)

    @staticmethod
    def leave_garbage(file, size):
        """What lay behind a cut comes back when the file grows."""
        old = os.fstat(file).st_size
        os.ftruncate(file, size)
        if size > old:
            os.pwrite(file, b"x", size - 1)


FAULTS = ["pwrite:lost", "pwrite:elsewhere", "write:short", "ftruncate:lost", "ftruncate:garbage", "truncate:short",
          "pread:short"]


def main():
    parser = argparse.ArgumentParser(description="Do random operations on FILE and on MODEL, a local file.")
    parser.add_argument("file", metavar="FILE")
    parser.add_argument("model", metavar="MODEL")
    parser.add_argument("seed", metavar="SEED")
    parser.add_argument("count", metavar="COUNT", type=int)
    parser.add_argument("part", metavar="PART", type=int)
    parser.add_argument("most", metavar="MOST", type=int)
    parser.add_argument("--share", metavar="N", type=int, nargs=2, help="the number of this process, how many there are")
    parser.add_argument("--lock", metavar="FILE")
    options = parser.parse_args()
    operations = Operations(options.file, options.model, options.seed, options.part, options.most, options.share,
                            options.lock)
    operations.run(options.count)


if __name__ == "__main__":
    main()
