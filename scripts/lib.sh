# shellcheck shell=bash
# SPDX-License-Identifier: BSD-3-Clause
# shellcheck disable=SC2034 # the variables are for the scripts that source this
#
# Sourced by the other scripts: messages, options, and the choice of the build directory. Changes to the
# root of the checkout. The scripts do not need git: they also run in an unpacked archive, and in a
# checkout that belongs to another user.

program=$(basename "$0")
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
root=$PWD

# The directories with the project's own C++.
source_directories=(include src platform text simulator emporiumctl testing examples tests bench)

say() { printf '%s: %s\n' "$program" "$*"; }
complain() { printf '%s: %s\n' "$program" "$*" >&2; }
die() { complain "$*"; exit 1; }
bad_usage() { complain "$* (see scripts/$program --help)"; exit 2; }

step() { printf '\n== %s\n' "$*"; }

# as_root COMMAND...: without a terminal, sudo must not ask for a password.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif [ -t 0 ]; then
    sudo "$@"
  else
    sudo -n "$@"
  fi
}

# log COMMAND...: writes the output of the command to $work/log, and shows it only if the command fails.
log() {
  # shellcheck disable=SC2154 # the script sets it
  "$@" >"$work/log" 2>&1 || { tail -n 60 "$work/log" >&2; die "failed: $*"; }
}

# help_if_asked "$@": prints the comment at the top of the script if the first argument is --help.
help_if_asked() {
  case "${1:-}" in
    -h | --help)
      awk 'NR > 2 && !/^#/ {exit} NR > 3 {sub(/^# ?/, ""); print}' "$0"
      exit 0
      ;;
  esac
}

no_arguments() {
  help_if_asked "$@"
  [ $# -eq 0 ] || bad_usage "unknown argument: $1"
}

cached() { sed -n "s/^$2:[A-Z]*=//p" "$1/CMakeCache.txt"; }

# staleness DIRECTORY: prints why the build directory cannot be used as it is, or nothing.
staleness() {
  local directory=$1 wanted actual
  [ -e "$directory/CMakeCache.txt" ] || return 0
  actual=$(cached "$directory" CMAKE_HOME_DIRECTORY)
  if [ "$actual" != "$PWD" ] && [ "$actual" != "$(pwd -P)" ]; then
    echo "it was configured for a checkout in $actual"
    return 0
  fi
  wanted=$(command -v "${CXX:-c++}") || die "the compiler ${CXX:-c++} is not installed"
  actual=$(cached "$directory" CMAKE_CXX_COMPILER)
  if [ "$(readlink -f "$actual")" != "$(readlink -f "$wanted")" ]; then
    echo "it was configured for the compiler $actual, not $wanted"
  fi
}

# configure PRESET [CMAKE_OPTION...]: configures build/PRESET, from scratch if it was configured for
# another checkout or compiler.
configure() {
  local preset=$1 reason options=()
  shift
  reason=$(staleness "build/$preset")
  if [ -n "$reason" ]; then
    say "configuring build/$preset again: $reason"
    options+=(--fresh)
  fi
  cmake --preset "$preset" "${options[@]}" "$@" >/dev/null
}

# build PRESET [OPTION...]: shows the compiler's output only if it fails.
build() {
  local log status=0
  log=$(mktemp)
  cmake --build --preset "$@" >"$log" 2>&1 || status=$?
  if [ "$status" -eq 0 ]; then
    tail -n 1 "$log"
  else
    grep -v '^\[[0-9]*/[0-9]*\] ' "$log" >&2 || true
  fi
  rm -f "$log"
  return "$status"
}

# count LOG: sets $passed, $failed and $skipped to the numbers of tests in the output of ctest.
count() {
  local total=0
  failed=0
  read -r failed total < <(sed -n \
    's/^[0-9]*% tests passed, \([0-9]*\) tests failed out of \([0-9]*\)$/\1 \2/p' "$1") || true
  skipped=$(grep -c '^[[:space:]]*[0-9]* - .* (Skipped)$' "$1") || true
  passed=$((total - failed - skipped))
}

# print_reasons LOG: prints why each skipped test in a log of ctest was skipped. GoogleTest prints the reason
# on the line after "Skipped", scripts print "skipped: REASON".
print_reasons() {
  awk '/^[0-9]+\/[0-9]+ Testing: / { test = $3 }
    sub(/^skipped: /, "") { print "skipped: " test ": " $0 }
    /: Skipped$/ { getline; print "skipped: " test ": " $0 }' "$1"
}
