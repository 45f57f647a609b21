"""Rows 8 and 9: hashing by a child process."""

import os
import subprocess

from tool.data import write_password
from tool.measure import pairs_of, run, seconds
from tool.table import ratio

DOVEADM = "/usr/bin/doveadm"
PW = ["pw", "-s", "CRAM-MD5", "-u", "u@x.test"]
SNIPPETS = 1000


def row_8(bench):
    command = " ".join([DOVEADM, "-O", *PW])
    results = []
    for megabytes, goal in ((0, 1.10), (500, 1.50)):
        pairs = pairs_of(run([bench.driver("process"), str(bench.small_pairs), str(megabytes),
                              command]), 1e-9)
        work = "one hash through Execute" if megabytes == 0 else f"the same, {megabytes} MB held"
        results.append(ratio(8, work, pairs, "bare posix_spawn", goal))
    return results


def _configuration_with_snippets(folder):
    """A configuration of Dovecot with a certificate for each of many names."""
    key, cert = f"{folder}/key.pem", f"{folder}/cert.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                    "-subj", "/CN=x.test", "-keyout", key, "-out", cert],
                   check=True, capture_output=True)
    path = f"{folder}/dovecot.conf"
    with open(path, "w", encoding="ascii") as file:
        file.write(f"base_dir = {folder}/run\nssl = yes\nssl_cert = <{cert}\nssl_key = <{key}\n")
        for at in range(SNIPPETS):
            file.write(f"local_name c{at}.test {{\n ssl_cert = <{cert}\n ssl_key = <{key}\n}}\n")
    return path


def row_9(bench):
    password = write_password(os.path.join(bench.folder("hash"), "password"))
    wrapper = [os.path.join(bench.build, "bin/brisq-doveadm"), *PW]

    def against(peer, pairs):
        return bench.pair(lambda _: seconds(wrapper, password), lambda _: seconds(peer, password),
                          pairs)

    many = _configuration_with_snippets(bench.folder("hash"))
    return [ratio(9, "one hash with the installed wrapper",
                  against([DOVEADM, "-O", *PW], bench.small_pairs), "doveadm -O pw", 1.25),
            ratio(9, "the same", against([DOVEADM, *PW], bench.small_pairs), "doveadm pw", 0.55),
            ratio(9, f"the same, {SNIPPETS:,} snippets configured",
                  against([DOVEADM, "-c", many, *PW], bench.pairs), "doveadm pw", 0.1)]
