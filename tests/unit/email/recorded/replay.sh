#!/bin/sh
# sh replay.sh RECORD ...: prints what doveadm 2.3.19 printed for "quota get -A" and ends as it did.
#
# The records are of four mailboxes: 1023 KiB of 10 MiB, 5 MiB without a limit, one whose Maildir
# did not exist, and one whose home can't be made.
cat "$1.out"
cat "$1.err" >&2
exit 75
