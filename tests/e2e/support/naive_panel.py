"""What somebody would write who thinks of no failure: mailboxes are added to a panel of its own step
by step, and nothing is taken back. The control of tests in which the system refuses calls."""

import os
import sqlite3
import sys

MAILBOXES = ("one", "two", "three")
FOLDERS = ("", "/new", "/cur", "/tmp")


def prepare(folder):
    """A panel without mailboxes."""
    with sqlite3.connect(os.path.join(folder, "panel.db")) as database:
        database.execute("CREATE TABLE mailboxes (name TEXT)")
    database.close()


def add(folder):
    """A row, a line, a Maildir and a link for each mailbox."""
    database = sqlite3.connect(os.path.join(folder, "panel.db"))
    for name in MAILBOXES:
        database.execute("INSERT INTO mailboxes VALUES (?)", (name,))
        database.commit()
        with open(os.path.join(folder, "users"), "a", encoding="utf-8") as file:
            file.write(f"{name}:::\n")
        for part in FOLDERS:
            os.mkdir(os.path.join(folder, name + part), 0o700)
        os.symlink("/etc/ssl/certs", os.path.join(folder, name + ".crt"))
    database.close()


def state(folder):
    """Rows and names; the lines by their number."""
    with sqlite3.connect(os.path.join(folder, "panel.db")) as database:
        rows = database.execute("SELECT name FROM mailboxes ORDER BY name").fetchall()
    database.close()
    names = sorted(os.path.join(path, name) for path, folders, files in os.walk(folder)
                   for name in folders + files)
    lines = 0
    if os.path.exists(os.path.join(folder, "users")):
        with open(os.path.join(folder, "users"), encoding="utf-8") as file:
            lines = file.read().count("\n")
    return rows, names, lines


if __name__ == "__main__":
    add(sys.argv[1])
