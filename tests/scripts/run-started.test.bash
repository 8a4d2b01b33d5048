#!/usr/bin/env bash
# The check scripts start a program once more when wine exits at once
# without a word, and only then: a fake wine in a folder of its own stands
# in for the real one.
set -uo pipefail
scripts="$(cd "$(dirname "$0")/../../scripts" && pwd)"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
expect() {
  if [ "$1" != "$2" ]; then
    printf '%s\n  expected: %s\n  actual:   %s\n' "$3" "$2" "$1"
    failures=$((failures + 1))
  fi
}

# wine-flaky fails silently on its first start, then runs its arguments.
cat >"$scratch/wine-flaky" <<'FAKE'
#!/usr/bin/env bash
count_file="$(dirname "$0")/starts"
count=$(($(cat "$count_file" 2>/dev/null || echo 0) + 1))
echo "$count" >"$count_file"
[ "$count" -eq 1 ] && exit 1
exec "$@"
FAKE
chmod +x "$scratch/wine-flaky"
printf 'hello\n' >"$scratch/hello.expected"

output=$(bash "$scripts/check-command-output" "$scratch/hello.expected" "$scratch/wine-flaky" echo hello 2>"$scratch/err")
expect "$?" 0 "check-command-output passes the second start"
expect "$output" "output matches hello.expected" "check-command-output says"
expect "$(cat "$scratch/err")" "wine did not start echo (exit 1, nothing printed); starting it once more" \
  "check-command-output tells of the second start"
expect "$(cat "$scratch/starts")" 2 "wine was started"

# A failure that says something is the program's own: no second start.
rm -f "$scratch/starts"
echo 1 >"$scratch/starts"
printf 'no such file\n' >"$scratch/fails.expected"
output=$(bash "$scripts/check-command-fails" --status 3 "$scratch/fails.expected" "$scratch/wine-flaky" \
  bash -c 'echo "no such file" >&2; exit 3' 2>"$scratch/err")
expect "$?" 0 "check-command-fails passes a program's own failure"
expect "$(cat "$scratch/starts")" 2 "a failure with a message is not started again"
expect "$(cat "$scratch/err")" "" "nothing said of starting again"

# A program that fails silently every time still fails the check.
output=$(bash "$scripts/check-command-output" "$scratch/hello.expected" "$scratch/wine-flaky" false 2>"$scratch/err")
expect "$?" 1 "a silent failure, twice, fails the check"
expect "$output" "the command exited with 1; its output:" "check-command-output says"

# Only wine gets a second start.
cp "$scratch/wine-flaky" "$scratch/other-flaky"
rm -f "$scratch/starts"
output=$(bash "$scripts/check-command-output" "$scratch/hello.expected" "$scratch/other-flaky" echo hello 2>"$scratch/err")
expect "$?" 1 "a program not run by wine is started once"
expect "$(cat "$scratch/starts")" 1 "started"

if [ "$failures" -ne 0 ]; then
  echo "$failures checks failed"
  exit 1
fi
echo "the check scripts start a silent wine once more, and only then"
