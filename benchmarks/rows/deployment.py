"""Deployment of a tree, beside a copy that is durable likewise. The first copy of each is
compared with the original."""

import contextlib
import os
import pathlib
import shutil
import subprocess
import tempfile

from desk import need, parsed, time_of
from table import LeftOut, Samples, row


def make_tree(place, files, size):
    """Makes so many files of random bytes in directories of 50, with links, modes, times and attributes."""
    data = os.urandom(size)
    for number in range(files):
        directory = place / f"part-{number // 50}"
        if number % 50 == 0:
            directory.mkdir(parents=True)
            (directory / "link").symlink_to("file-0")
        file = directory / f"file-{number % 50}"
        file.write_bytes(number.to_bytes(8, "big") + data[8:])
        file.chmod((0o644, 0o755, 0o600)[number % 3])
        if number % 50 == 1:
            os.setxattr(file, "user.bench", b"kept")
        os.utime(file, (1e9, 1e9 + number))
    return place


def facts(tree):
    """Returns what a copy must keep of each entry."""
    found = {}
    for path in sorted(tree.rglob("*")):
        status = path.lstat()
        regular = path.is_file() and not path.is_symlink()
        attributes = {name: os.getxattr(path, name) for name in os.listxattr(path, follow_symlinks=False)
                      if name.startswith("user.")} if regular else {}
        found[str(path.relative_to(tree))] = (status.st_mode, regular and status.st_size, status.st_mtime_ns, attributes,
                                              path.is_symlink() and os.readlink(path))
    return found


def settle(place):
    subprocess.run(["sync", "-f", place], check=True)


def copies(desk, tree, place, count=7):
    """Copies the tree to the place in turns; each turn begins with nothing to be written. All copies stay until the
    end: ext4 passes over the inodes of files that were removed in the last minutes, one by one for each new file, so
    a copy would take ten times as long after others were removed."""

    def ours(target):
        return parsed(desk.run("FileBench", "copy", tree, target))["ours"][0]

    def theirs(target):
        return time_of("cp", "-a", tree, target) + time_of("sync", "-f", target)

    found = Samples([])
    with tempfile.TemporaryDirectory(dir=place) as kept:
        for turn in range(count):
            for copy, side in ((ours, found.ours), (theirs, found.theirs))[::1 if turn % 2 else -1]:
                settle(place)
                target = pathlib.Path(kept, f"{copy.__name__}-{turn}")
                side.append(copy(target) / 1000)
                if copy is ours and turn == 0 and facts(tree) != facts(target):
                    raise RuntimeError("the copy is not the same as the original")
    return found


def big_tree(desk):
    return desk.once("tree", lambda: make_tree(desk.scratch / "tree", 2000, 60_000))


@row("deployment, 2,000 files of 120 MB, same file system", "cp -a, sync -f", unit="ms", at_most=1.0)
def same(desk):
    return copies(desk, big_tree(desk), desk.scratch)


@row("the same, to another one (tmpfs)", "cp -a, sync -f", unit="ms", at_most=1.0)
def another(desk):
    memory = pathlib.Path("/dev/shm")
    if not memory.is_dir() or shutil.disk_usage(memory).free < 2_500_000_000:
        raise LeftOut("no room in /dev/shm")
    with tempfile.TemporaryDirectory(dir=memory) as place:
        return copies(desk, big_tree(desk), pathlib.Path(place))


@contextlib.contextmanager
def btrfs(desk):
    """Mounts a btrfs of its own from a file; gives its directory."""
    need("mkfs.btrfs")
    if os.geteuid() != 0:
        raise LeftOut("only root mounts a file system")
    image, place = desk.scratch / "btrfs.img", desk.scratch / "btrfs"
    place.mkdir()
    with open(image, "wb") as file:
        os.posix_fallocate(file.fileno(), 0, 1 << 30)
    subprocess.run(["mkfs.btrfs", "--quiet", image], check=True, capture_output=True)
    mounted = subprocess.run(["mount", "-o", "loop", image, place], capture_output=True, text=True)
    if mounted.returncode:
        raise LeftOut("btrfs cannot be mounted: " + mounted.stderr.strip().splitlines()[0])
    try:
        yield place
    finally:
        subprocess.run(["umount", place], check=True)


@row("the same, with reflinks (btrfs)", "cp -a, sync -f", unit="ms", at_most=1.0)
def reflinks(desk):
    with btrfs(desk) as place:
        tree = make_tree(place / "tree", 2000, 60_000)
        return copies(desk, tree, place)
