#!/usr/bin/python3 -IS
"""A doveadm that looks around, copied beside the file "canary", which holds a password.

It keeps beside itself, a line each time:
  hashed  1 when it was given the password to hash, else 0
  pipes   what its standard input and error are, when it hashes
  seen    argument lists and environments, its own and those of all above it up to the program
  cores   the largest core file that it may leave, in bytes
  files   names of files below the folder that "instance" names that hold the password
  memory  how often the end of the password is in the program's writable memory, when it is called after the
          request ("reload")
Files that tell it what to do: "talks": print what is to be hashed on standard error and fail;
"aborts": end the program and itself by SIGABRT instead of hashing.
Called with "memory PID" it prints how often the end of the password is in that process's writable memory.
"""
import os
import resource
import signal
import sys

BESIDE = os.path.dirname(os.path.abspath(sys.argv[0]))
words = sys.argv[1:]
hashing = words[:1] == ["pw"] and "-l" not in words
given = sys.stdin.buffer.read() if hashing else b""


def read(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError:
        return b""


def note(name, what):
    with open(BESIDE + "/" + name, "ab") as file:
        file.write(what + b"\n")


def told(name):
    return os.path.exists(BESIDE + "/" + name)


def parent(pid):
    return int(read("/proc/%d/stat" % pid).rsplit(b")", 1)[1].split()[1])


def look_upwards():
    """Notes arguments and environments; the process number of the program under test."""
    pid = os.getpid()
    while pid > 1:
        note("seen", read("/proc/%d/cmdline" % pid) + read("/proc/%d/environ" % pid))
        if os.path.basename(os.readlink("/proc/%d/exe" % pid)).startswith("brisq"):
            return pid
        pid = parent(pid)
    return 0


def look_into_files(canary):
    for folder, _, names in os.walk(read(BESIDE + "/instance")):
        for name in names:
            if canary in read(folder + b"/" + name):
                note("files", folder + b"/" + name)


def count_in_memory(pid, canary):
    # Freeing a block overwrites its beginning alone, up to 32 bytes.
    end_of_canary = canary[-16:]
    found = 0
    with open("/proc/%d/mem" % pid, "rb", 0) as memory:
        for line in read("/proc/%d/maps" % pid).splitlines():
            bounds, rights = line.split()[:2]
            first, end = (int(x, 16) for x in bounds.split(b"-"))
            if rights.startswith(b"rw"):
                try:
                    memory.seek(first)
                    found += memory.read(end - first).count(end_of_canary)
                except OSError:
                    pass
    return found


def hash_given(program, canary):
    note("hashed", b"1" if canary in given else b"0")
    for descriptor in (0, 2):
        note("pipes", os.readlink("/proc/self/fd/%d" % descriptor).encode())
    if told("aborts"):
        os.kill(program, signal.SIGABRT)
        os.abort()
    if told("talks"):
        sys.stderr.write(given.decode())
        sys.exit(1)
    print("{CRAM-MD5}%032x" % os.getpid())


def main():
    canary = read(BESIDE + "/canary")
    if words[:1] == ["memory"]:
        print(count_in_memory(int(words[1]), canary))
        return
    program = look_upwards()
    note("cores", b"%d" % resource.getrlimit(resource.RLIMIT_CORE)[0])
    look_into_files(canary)
    if hashing:
        hash_given(program, canary)
    elif words == ["pw", "-l"]:
        print("CRAM-MD5 CLEARTEXT ")
    elif words[:2] == ["quota", "get"]:
        print("one@example.org User quota STORAGE 3 - 0")
    elif words == ["reload"] and program:
        note("memory", b"%d" % count_in_memory(program, canary))


main()
