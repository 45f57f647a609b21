# shellcheck shell=bash
# Read by the commands of this folder's parent: signs of life on standard output.

# Says something, with the seconds since the command's start.
say() { printf '[%4ds] %s\n' "$SECONDS" "$*"; }

# Copies standard input to file $1 and shows a line of it now and then: a sign of life.
follow() {
  local line shown=$SECONDS
  while IFS= read -r line; do
    printf '%s\n' "$line" >&4
    if ((SECONDS - shown >= 10)); then
      say "  $line"
      shown=$SECONDS
    fi
  done 4>"$1"
}
