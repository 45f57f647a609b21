"""`brisq serve` beside a test."""

import contextlib
import os
import subprocess

from support.instance import brisq_program


@contextlib.contextmanager
def serving(instance):
    """While it lasts, `brisq serve` runs for the instance; it must end cleanly on TERM. Gives a
    function for what it has said so far."""
    messages = os.path.join(instance.layout.folder, "serve.err")
    with open(messages, "wb") as file:
        server = subprocess.Popen(
            [brisq_program(), "--config", instance.layout.config, "serve"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=file)
    try:
        _await_start(server, messages)
        yield lambda: _text(messages)
    finally:
        server.terminate()
        code = server.wait(60)
    if code != 0:
        raise AssertionError(f"brisq serve: exit code {code}\n{_text(messages)}")


def _await_start(server, messages):
    while "serving;" not in _text(messages):
        if server.poll() is not None:
            raise AssertionError(f"brisq serve: exit code {server.returncode}\n{_text(messages)}")


def _text(path):
    with open(path, encoding="utf-8") as file:
        return file.read()
