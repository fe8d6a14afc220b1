# What the scripts share. Sourced, not run.
# shellcheck shell=bash

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '==> %s\n' "$*" >&2; }

cores() { nproc 2>/dev/null || sysctl -n hw.ncpu; }

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# Prints those of the Debian packages named that are not installed.
missing_packages() {
  local package
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed' ||
      echo "$package"
  done
}

install_debian_packages() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [ "${#missing[@]}" -gt 0 ] || return 0
  say "Installing: ${missing[*]}"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
}

# On Debian and its kin, installs what is missing of the packages named. Elsewhere checks that the
# tools to build with are there, and says what is needed if not.
need_packages() {
  if command -v apt-get >/dev/null; then
    install_debian_packages "$@"
    return
  fi
  if command -v cmake >/dev/null && command -v ninja >/dev/null; then return; fi
  say "Please install what these Debian packages hold, then start again: $*"
  say "(on macOS: xcode-select --install; brew install cmake ninja googletest)"
  exit 1
}

# shellcheck disable=SC2034
build_packages=(g++ cmake ninja-build pkg-config libsystemd-dev libxml2-dev nettle-dev
  libunistring-dev)
# shellcheck disable=SC2034  # for the scripts that source this
test_packages=(libgtest-dev libgmock-dev faketime dbus-daemon valgrind python3 libxml2-utils mandoc
  groff-base sqlite3 zsh fish)
