"""A checkout of its own for ./quickstart: copies of its scripts, a link to the built tree."""

import json
import os
import shutil
import subprocess
import sys
import tempfile

from support.instance import SOURCE, layout


class Checkout:
    """Holds a temporary folder from construction to `close`, which also stops its server."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="brisq-checkout-")
        os.chmod(self.folder, 0o755)
        shutil.copytree(os.path.join(SOURCE, "packaging"), self.path("packaging"))
        os.mkdir(self.path("tools"))
        for name in ("quickstart", "tools/progress.sh"):
            shutil.copy(os.path.join(SOURCE, name), self.path(name))
        os.mkdir(self.path("build"))
        os.symlink(os.environ["BRISQ_BUILD"], self.path("build/release"))

    def path(self, name):
        return os.path.join(self.folder, name)

    def close(self):
        layout.Layout(self.path("instance")).stop()
        shutil.rmtree(self.folder)

    def quickstart(self, *words):
        """Runs what ./quickstart runs once the tree is built."""
        return subprocess.run([sys.executable, "-B", "packaging/instance/quickstart.py", *words],
                              cwd=self.folder, capture_output=True, text=True, timeout=120)

    def ports(self):
        """The ports of the instance that quickstart has laid out."""
        with open(self.path("instance/instance.json"), encoding="utf-8") as file:
            return json.load(file)["ports"]

    def shell(self, commands):
        """Runs the commands in bash; standard error goes where standard output goes."""
        return subprocess.run(["bash", "-e", "-c", commands], cwd=self.folder, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
