"""Checks that each source of a Mac includes, itself or through headers of this tree, the header of the
C library for each call that it makes: the C++ library of Linux brings some of them along.

includes.py ROOT
"""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])

# Calls of POSIX and C. Those that are words of our own classes as well count only after "::".
calls = {
    "unistd.h": "_exit access chdir ::close dup dup2 execv execve fsync ftruncate getegid geteuid "
                "getgid getpid getppid getuid isatty lchown link lseek ::pipe pread pwrite ::read "
                "readlink rmdir symlink sysconf unlink usleep ::write",
    "fcntl.h": "::fcntl ::open openat",
    "sys/stat.h": "chmod fchmod fstat fstatat futimens lstat mkdir mkfifo ::stat umask utimensat",
    "sys/wait.h": "::waitpid waitid",
    "sys/file.h": "flock",
    "sys/resource.h": "getpriority getrlimit getrusage setpriority setrlimit",
    "sys/time.h": "gettimeofday",
    "sys/mman.h": "mmap mprotect munmap",
    "dirent.h": "closedir fdopendir opendir readdir",
    "dlfcn.h": "dladdr dlopen dlsym",
    "poll.h": "::poll",
    "pwd.h": "getpwnam_r getpwuid getpwuid_r",
    "spawn.h": "posix_spawn posix_spawnp",
    "pthread.h": "pthread_atfork pthread_attr_init pthread_create pthread_self",
    "signal.h": "::kill pthread_sigmask ::raise sigaction sigaddset sigemptyset sigfillset "
                "std::raise std::signal",
    "errno.h": "errno",
    "stdio.h": "fclose fflush fopen fprintf fputs fwrite perror printf ::rename snprintf vsnprintf",
    "stdlib.h": "abort getenv mkdtemp mkstemp realpath setenv strtol unsetenv",
    "string.h": "memcmp memcpy memset strchr strcmp strerror strlen strsignal",
    "time.h": "clock_gettime gmtime_r localtime_r nanosleep strftime timespec",
}
not_of_a_mac = re.compile(r"Linux|DBus|SHA256OpenSSL")


def code(path):
    """Returns the text without comments, literals and includes."""
    return re.sub(r'^#include[^\n]*|//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'', "",
                  path.read_text(), flags=re.DOTALL | re.MULTILINE)


def included(path, seen):
    """Returns the headers outside this tree."""
    if path in seen:
        return set()
    seen.add(path)
    headers = set()
    for name in re.findall(r'^#include ["<]([^">]+)', path.read_text(), re.MULTILINE):
        ours = [folder / name for folder in (root, path.parent, root / "examples", root / "include")]
        found = next(filter(pathlib.Path.exists, ours), None)
        headers |= included(found, seen) if found else {name}
    return headers


def used(text):
    """Returns the names that are called or named without a class before them, as they are written."""
    return set(re.findall(r"(?<![\w>:.])(?:::|std::)?\w+(?=\()|\berrno\b|\btimespec\b", text))


sources = [path for folder in ("include", "Platform", "ClientComm", "ProductClient", "examples", "tools")
           for path in sorted((root / folder).rglob("*"))
           if path.suffix in (".h", ".cpp") and not not_of_a_mac.search(str(path.relative_to(root)))]
wrong = []
for source in sources:
    names, headers = used(code(source)), included(source, set())
    for header, known in calls.items():
        if not {header, f"c{header.removesuffix('.h')}"} & headers:
            wrong += [f"{source.relative_to(root)} uses {name} without <{header}>"
                      for name in known.split()
                      if names & ({name} if ":" in name else {name, f"::{name}", f"std::{name}"})]
if len(sources) < 200:
    wrong.append(f"only {len(sources)} sources were found")
print("\n".join(wrong) or f"{len(sources)} sources")
sys.exit(bool(wrong))
