"""Commands that are killed, or refused by the system, at each of their calls that change a file:
the next command must find all of the change or nothing of it."""

import concurrent.futures
import errno
import os
import re
import shutil
import subprocess
import sys
import unittest

from support import naive_panel
from support.crash_bench import (NEW_PASSWORD, OLD_PASSWORD, CrashBench, differences,
                                 new_folder, run_at_calls)

SOAK = os.environ.get("BRISQ_SOAK") == "1"
WORKERS = 2
FINDINGS = 5
OWED = 12
# What a journal would be read by: a command that changes nothing itself.
NEXT_COMMAND = ("mailbox", "list")
# An error names a path, or what else could not be done as it should.
NAMED = re.compile(
    r"^(brisq: (?!warning: plug-in)[a-z-]+:|[A-Z]+-[A-Z-]+ (error|warning|note)) "
    r".*(/|example\.org|doveadm|mail back-end)", re.MULTILINE)
LINE_NUMBER = re.compile(r", line [0-9]+")


class Operation:
    """One command, and how the panel is made ready for it."""

    def __init__(self, name, words, prepare=(), stdin="", owes_restart=False, drift=""):
        self.name = name
        self.words = words
        self.prepare = prepare
        self.stdin = stdin
        self.owes_restart = owes_restart
        self.drift = drift  # for the shell, in the panel's folder, behind what `prepare` does


def mailbox(local):
    return (("mailbox", "add", f"{local}@example.org", "--password-stdin"), OLD_PASSWORD + "\n")


def certificate(name):
    return (("tls", "set", "example.org", "--cert", "{live}/" + name + ".pem",
             "--key", "{live}/" + name + ".key"), "")


OPERATIONS = (
    Operation("mailbox add", mailbox("new")[0], stdin=OLD_PASSWORD + "\n"),
    Operation("mailbox set", ("mailbox", "set", "one@example.org", "two@example.org",
                              "--quota", "7"), (mailbox("one"), mailbox("two"))),
    Operation("mailbox set off", ("mailbox", "set", "one@example.org", "two@example.org",
                                  "--active", "off"), (mailbox("one"), mailbox("two"))),
    Operation("mailbox passwd", ("mailbox", "passwd", "one@example.org", "--password-stdin"),
              (mailbox("one"),), NEW_PASSWORD + "\n"),
    Operation("mailbox delete", ("mailbox", "delete", "one@example.org", "two@example.org",
                                 "--yes"), (mailbox("one"), mailbox("two"))),
    Operation("tls set", certificate("first")[0], (), owes_restart=True),
    Operation("tls set again", certificate("second")[0], (certificate("first"),),
              owes_restart=True),
    Operation("tls unset", ("tls", "unset", "example.org"), (certificate("first"),),
              owes_restart=True),
    Operation("domain delete", ("domain", "delete", "example.org", "--yes"),
              (mailbox("one"), certificate("first"), mailbox("two")), owes_restart=True),
    Operation("sync", ("sync",), (mailbox("one"), mailbox("two"), mailbox("off"),
                                  (("mailbox", "set", "off@example.org", "--active", "off"), "")),
              drift="sed -i -e /^one@/d -e 's/^two\\(.*\\)=0M/off\\1=0M\\ntwo\\1=9M/' dovecot/users"
                    " && rm -r home/mail/example.org/two/.maildir/new"),
    Operation("job undo of a sync", ("job", "undo", "5"),
              (mailbox("one"), mailbox("two")),
              drift="sed -i -e /^one@/d -e /^two@/s/=0M/=9M/ dovecot/users"),
    Operation("check --fix of a mode", ("check", "--fix", "--only", "tls"), (certificate("first"),),
              drift="chmod 666 dovecot/snippets/example.org.conf && "
                    "chown 5 dovecot/snippets/example.org.conf"),
    Operation("check --fix of a Maildir's mode", ("check", "--fix", "--only", "homes"),
              (mailbox("one"),), drift="chmod 755 home/mail/example.org/one/.maildir"),
)


class Prepared:
    """A bench on which one operation is ready to be run, with the states before and after it."""

    def __init__(self, operation, auth="dovecot", exact=True, reads=0):
        self.operation = operation
        self.exact = exact
        self.reads = reads
        self.bench = CrashBench(auth)
        try:
            self.words = self._filled(operation.words)
            for words, stdin in operation.prepare:
                self.bench.must(*self._filled(words), stdin=stdin)
            subprocess.run(operation.drift or "true", shell=True, check=True, cwd=self.bench.live)
            if operation.words[:2] == ("job", "undo"):
                self.bench.must("sync")
            reloads = os.path.join(self.bench.live, "reloads")
            if os.path.exists(reloads):
                os.unlink(reloads)
            self.bench.save()
            self.before = self.bench.state(exact)
            # What an operation is to mend, or can't.
            self.known = set(self.bench.findings())
            self.calls = self.bench.count(*self.words, stdin=operation.stdin, count_reads=reads)
            self.after = self.bench.state(exact)
            self.known |= set(self.bench.findings())
        except BaseException:
            self.close()
            raise

    def _filled(self, words):
        return tuple(word.format(live=self.bench.live) for word in words)

    def close(self):
        self.bench.close()

    def killed_at(self, call):
        """The operation is killed before this call; False when it needs fewer."""
        self.bench.reset()
        return self.bench.killed(*self.words, stdin=self.operation.stdin, stop_at=call,
                                 count_reads=self.reads)

    def damage(self):
        """What is wrong with the state, in a few words; None when it is all or nothing."""
        state = self.bench.state(self.exact)
        if state == self.before:
            return None
        if state != self.after:
            return (f"neither: before {differences(self.before, state)} "
                    f"| after {differences(self.after, state)}")
        restarted = "restart" in self.bench.reloads() or self.bench.restart_waits()
        if self.operation.owes_restart and not restarted:
            return "the mail server was never restarted"
        return None

    def damage_after_recovery(self, check=True):
        """The same once another command has run, which must succeed and leave no open entry.
        `check`: and nothing that a check finds."""
        self.bench.must(*NEXT_COMMAND)
        left = self.bench.journal()
        if left:
            return f"left in the journal: {left}"
        return self.damage() or (check and self.new_findings()) or None

    def new_findings(self):
        known = {self._place(line) for line in self.known}
        return "; ".join(line for line in self.bench.findings() if self._place(line) not in known)

    def _place(self, finding):
        """A finding, without the number of its line where lines may have moved."""
        return finding if self.exact else LINE_NUMBER.sub("", finding)


def for_each_operation(work, auth="dovecot", exact=True, reads=0):
    """Calls `work` with each operation prepared, some at the same time; the sums of the tuples
    that it returns, and the texts. `reads`: 1 when calls that change nothing count too."""
    def run(operation):
        prepared = Prepared(operation, auth, exact, reads)
        try:
            return work(prepared)
        finally:
            prepared.close()

    points, damaged = 0, []
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        for count, texts in pool.map(run, OPERATIONS):
            points += count
            damaged += texts
    return points, damaged


def checked(call):
    """A check takes as long as the command itself: at each call in the long form only."""
    return SOAK or call % 5 == 0


def tally(prepared, calls, trial):
    """Tries each call; how many took place, and what was damaged."""
    count, damaged = 0, []
    for call in calls:
        happened, damage = trial(prepared, call)
        count += happened
        if damage:
            damaged.append(f"{prepared.operation.name} at call {call}: {damage}")
    return count, damaged


def kill_and_recover(prepared, call):
    return prepared.killed_at(call), prepared.damage_after_recovery()


def kill_and_forget(prepared, call):
    happened = prepared.killed_at(call)
    prepared.bench.forget_journal()
    return happened, prepared.damage_after_recovery(check=False)


class Kill(unittest.TestCase):
    """SIGKILL before each call of each command."""

    def check(self, auth, reads=0):
        points, damaged = for_each_operation(
            lambda prepared: tally(prepared, range(1, prepared.calls + 1), kill_and_recover), auth,
            reads=reads)
        print(f"killed ({auth or 'panel'} keeps passwords): {points} points, "
              f"{len(damaged)} damaged")
        self.assertEqual([], damaged[:5])
        self.assertGreater(points, 900)

    def test_at_every_call_all_or_nothing(self):
        self.check("dovecot", int(SOAK))

    @unittest.skipUnless(SOAK, "BRISQ_SOAK=1 runs it")
    def test_at_every_call_all_or_nothing_when_the_panel_keeps_passwords(self):
        self.check("")

    def test_without_the_journal_halves_are_left(self):
        points, damaged = for_each_operation(
            lambda prepared: tally(prepared, range(1, prepared.calls + 1, 3), kill_and_forget))
        print(f"killed without a journal: {points} points, {len(damaged)} damaged")
        self.assertGreater(len(damaged), 100)


def crashes(prepared):
    """Calls before which the operation is killed, so that there is something to recover."""
    if SOAK:
        return range(1, prepared.calls + 1, 8)
    return (prepared.calls // 2, prepared.calls * 3 // 4, prepared.calls - 3)


def kill_recoveries(after_kill, step=1):
    """Work for for_each_operation: kills the recovery from some crashes at each of its calls, or
    at each of some; `after_kill` gets the bench."""
    def work(prepared):
        points, damaged = 0, []
        for crash in crashes(prepared):
            prepared.killed_at(crash)
            for call in range(1, prepared.bench.count(*NEXT_COMMAND) + 1, step):
                prepared.killed_at(crash)
                points += prepared.bench.killed(*NEXT_COMMAND, stop_at=call)
                after_kill(prepared.bench)
                damage = prepared.damage_after_recovery(checked(call))
                if damage:
                    damaged.append(f"{prepared.operation.name} killed at {crash}, its recovery at "
                                   f"{call}: {damage}")
        return points, damaged
    return work


class KillRecovery(unittest.TestCase):
    """SIGKILL before each call of the command that recovers a killed one."""

    def test_at_every_call_the_next_recovery_succeeds(self):
        points, damaged = for_each_operation(kill_recoveries(lambda bench: None))
        print(f"recovery killed: {points} points, {len(damaged)} damaged")
        self.assertEqual([], damaged[:5])
        self.assertGreater(points, 900)

    def test_without_the_journal_halves_are_left(self):
        points, damaged = for_each_operation(kill_recoveries(CrashBench.forget_journal, 3))
        print(f"recovery killed without a journal: {points} points, {len(damaged)} damaged")
        self.assertGreater(len(damaged), 100)


class Refusal(unittest.TestCase):
    """The system refuses each call of each command, once."""

    @staticmethod
    def trial(prepared, call, error, reads):
        """The command with this call refused; whether it was, and what is wrong."""
        prepared.bench.reset()
        code, said = prepared.bench.run(*prepared.words, stdin=prepared.operation.stdin,
                                        fail_at=call, fail_with=error, count_reads=reads,
                                        calls_file=prepared.bench.calls_file)
        with open(prepared.bench.calls_file, encoding="utf-8") as file:
            refused = file.read().split()[1:]
        prepared.bench.sweep()
        if code == FINDINGS and "not all is done" in said:
            # It says that it has left something: the next one must find that and nothing else.
            prepared.bench.must(*prepared.words)
            code = 0
        if code == OWED and "still to be done" in said:
            prepared.bench.must(*NEXT_COMMAND)
            code = 0
        if code == 0:
            # What was told to be undone yet is cleared away by the check of snippets that a server
            # makes from time to time.
            if prepared.operation.owes_restart and "brisq: warning: " in said:
                prepared.bench.must("tls", "prune")
            damage = prepared.damage_after_recovery(checked(call))
            state = prepared.bench.state(prepared.exact)
            if state != prepared.after:
                damage = f"success, but {differences(prepared.after, state)}"
            return refused, damage
        if not NAMED.search(said):
            return refused, f"the message names nothing: {said!r}"
        done = prepared.bench.state(prepared.exact) == prepared.after
        if done and "changed" not in said and "lost" not in said:
            return refused, f"done, but the message says otherwise: {said!r}"
        return refused, prepared.damage() or prepared.damage_after_recovery(checked(call))

    def refuse(self, error, reads=0):
        def work(prepared):
            points, damaged = 0, []
            prepared.bench.reset()
            calls = prepared.bench.count(*prepared.words, stdin=prepared.operation.stdin,
                                         count_reads=reads)
            for call in range(1, calls + 1):
                refused, damage = self.trial(prepared, call, error, reads)
                points += len(refused)
                if damage:
                    damaged.append(f"{prepared.operation.name}, call {call} {refused}: {damage}")
            return points, damaged

        # A line that is brought back while its process goes on may stand behind the others.
        points, damaged = for_each_operation(work, exact=False)
        print(f"refused with {errno.errorcode[error]}: {points} points, {len(damaged)} damaged")
        self.assertEqual([], damaged[:5])
        return points

    def test_a_full_disk_at_every_call_leaves_all_or_nothing(self):
        self.assertGreater(self.refuse(errno.ENOSPC), 900)

    @unittest.skipUnless(SOAK, "BRISQ_SOAK=1 runs it")
    def test_a_broken_disk_at_every_call_leaves_all_or_nothing(self):
        self.assertGreater(self.refuse(errno.EIO, reads=1), 3500)


class RefusalOfNaiveCode(unittest.TestCase):
    """The system refuses each call of a program that takes nothing back."""

    def setUp(self):
        self.folder = new_folder("brisq-naive-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.prepare()
        self.before = naive_panel.state(self.folder)

    def prepare(self):
        shutil.rmtree(self.folder)
        os.mkdir(self.folder)
        naive_panel.prepare(self.folder)

    def run_refused(self, call):
        """How many calls took place."""
        self.prepare()
        calls = self.folder + ".calls"
        run_at_calls([sys.executable, "-B", naive_panel.__file__, self.folder], "",
                     {"count_from": naive_panel.__file__, "fail_at": call,
                      "fail_with": errno.ENOSPC, "calls_file": calls})
        with open(calls, encoding="utf-8") as file:
            count = int(file.read().split()[0])
        os.unlink(calls)
        return count

    def test_a_full_disk_leaves_halves(self):
        calls = self.run_refused(0)
        after = naive_panel.state(self.folder)
        halves = 0
        for call in range(1, calls + 1):
            self.run_refused(call)
            halves += naive_panel.state(self.folder) not in (self.before, after)
        print(f"naive code refused with ENOSPC: {calls} points, {halves} damaged")
        self.assertGreater(halves, 30)


if __name__ == "__main__":
    unittest.main()
