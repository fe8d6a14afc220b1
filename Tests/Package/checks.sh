# Checks with a name each. Sourced, not run.
# shellcheck shell=bash

passed=0
failed=0

# check NAME COMMAND...: the command must end well. What it says is shown when it does not; it goes
# to a file in $work, since a function could set nothing in a command substitution.
check() {
  if "${@:2}" >"$work/output" 2>&1; then
    echo "ok - $1"
    passed=$((passed + 1))
  else
    echo "not ok - $1 ($2)"
    head -n 40 "$work/output" | sed 's/^/    /'
    failed=$((failed + 1))
  fi
}

# As a command of check: the other command must fail.
not() { ! "$@"; }

# equal ACTUAL EXPECTED
equal() { diff <(printf '%s\n' "$2") <(printf '%s\n' "$1"); }

# eventually SECONDS COMMAND...: the command ends well before that time is over.
eventually() {
  local deadline=$((SECONDS + $1))
  until "${@:2}"; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    sleep 0.2
  done
}

# Says how it went; fails when anything has.
sum_up() {
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}
