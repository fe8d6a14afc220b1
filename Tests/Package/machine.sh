# A system of the tests' own, in a folder: made once, copied for each use, entered, booted. Sourced,
# not run.
# shellcheck shell=bash

# Makes a Debian as this machine's in the folder $1, with the packages named.
make_base() {
  local base=$1 suite
  shift
  [ ! -e "$base/made" ] || return 0
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  say "Making a root of $suite (once)"
  rm -rf "$base"
  mkdir -p "$base"
  debootstrap --variant=minbase --include="$(IFS=, && echo "$*")" "$suite" "$base/root" \
    http://deb.debian.org/debian >"$base/log" 2>&1 || { tail -n 20 "$base/log" && return 1; }
  # The journal is to outlast a reboot.
  mkdir -p "$base/root/var/log/journal"
  touch "$base/made"
}

# Sets $root to a system of its own on top of the base $1, which stays as it is. $work, for what it
# changes, is a file system in memory: not every other can lie under this one.
fresh_root() {
  root=$work/$2/root
  mkdir -p "$work/$2/"{root,changes,scratch}
  mount -t overlay overlay "$root" \
    -o "lowerdir=$1/root,upperdir=$work/$2/changes,workdir=$work/$2/scratch"
}

# enter COMMAND...: in the folder $root, where no systemd runs, in namespaces of its own.
enter() {
  unshare --mount --pid --fork --net --uts --ipc bash -c '
    mount -t proc proc "$0/proc" && mount -t tmpfs -o mode=755 tmpfs "$0/run" &&
      mount -t tmpfs tmpfs "$0/tmp" && exec chroot "$0" "$@"' "$root" "$@"
}

container=
leader=

# Boots the folder $root; fails when its system does not come up.
boot() {
  systemd-nspawn --quiet --register=no --keep-unit --private-network --console=pipe \
    --machine=ombrix-test --directory="$root" --boot </dev/null >>"$work/console" 2>&1 &
  container=$!
  eventually 60 is_up
}
# The container's first child is not yet its system.
is_up() {
  leader=$(pgrep -P "$container" --exact systemd) &&
    [[ $(inside systemctl is-system-running 2>&1) =~ ^(running|degraded)$ ]]
}

# inside COMMAND...: in the system that has booted.
inside() { nsenter --target "$leader" --all -- "$@"; }

# Waits for the end of the system and returns its exit status; 133 when it wants to boot again.
wait_for_end() {
  local status=0
  wait "$container" || status=$?
  container=
  return "$status"
}

end_container() {
  [ -z "$container" ] || { kill -9 "$leader" "$container" && wait "$container"; } 2>/dev/null
  return 0
}
