# The .deb on a system that has booted. Sourced by scripts/test-package, which sets $deb and $root.
# shellcheck shell=bash

unit=ombrix.service
records=/var/lib/ombrix
configuration=/etc/ombrix/velkagent.config

property() { inside systemctl show --property "$1" --value "$unit"; }
active() { inside systemctl --quiet is-active "$unit"; }
is() { [ "$(property "$1")" = "$2" ]; }
is_not() { [ "$(property "$1")" != "$2" ]; }
journal() { inside journalctl --no-pager --output=cat --unit "$unit"; }
as_alice() { inside runuser --user alice -- "$@"; }

polls() { journal | grep --count 'registered processes'; }
has_polled_more_than() { [ "$(polls)" -gt "$1" ]; }
# Makes the agent look at once, which it does when it is asked for its list.
poll() {
  local before
  before=$(polls)
  inside Ombrix list
  eventually 20 has_polled_more_than "$before"
}

# As whoever collects the records does; what is there afterwards was written afterwards.
collect() { rm -f "$root$records"/*.met; }
# What runs on this system for as long as it is up has a record, once each; the agent itself too.
every_open_run_is_written() {
  local lasting="Ombrix ombrix
dbus-daemon messagebus
polkitd polkitd
systemd root
systemd-journal root
systemd-logind root"
  equal "$(awk -F ';' -v OFS=' ' '{ print $1, $6 }' "$root$records"/*.met |
    grep --line-regexp --fixed-strings "$lasting" | LC_ALL=C sort)" "$lasting"
}
record_of() { grep --quiet "^$1;;;;$2;$3;" "$root$records"/*.met; }

# A program of another user's in a folder that is closed to the service.
run_in_home() {
  local program=/home/alice/bin/marker
  inside useradd --create-home alice && as_alice mkdir /home/alice/bin &&
    as_alice cp /usr/bin/sleep "$program" || return
  inside systemd-run --quiet --unit marker --uid alice "$program" 1000 && poll &&
    inside systemctl stop marker && poll
}

start_as_agent_of() {
  inside runuser --user "$1" -- bash -c "
    mkdir -p /tmp/$1 && sed 's#/var/[a-z]*/ombrix#/tmp/$1#' $configuration >/tmp/$1/config &&
      exec timeout 30 Ombrix -c /tmp/$1/config"
}
yields() {
  local status=0
  start_as_agent_of "$1" || status=$?
  [ "$status" -eq 1 ] && inside grep 'Ombrix is already running' "/tmp/$1/metering.log"
}

only_capability() {
  equal "$(inside grep CapEff "/proc/$(property MainPID)/status")" $'CapEff:\t0000000000080000'
}
holds_delay_lock() { inside systemd-inhibit --list --no-pager | grep 'ombrix.*sleep.*delay'; }

check_start() {
  cp "$deb" "$root/ombrix.deb"
  check "installing starts the service" inside dpkg --install /ombrix.deb
  check "it is active" active
  check "it was ready when its first look was done" eventually 10 has_polled_more_than 0
  check "it runs as its own user" \
    equal "$(inside stat --format %U "/proc/$(property MainPID)")" ombrix
  check "with one capability" only_capability
  check "the runtime directory is root's, and in it the agent's" \
    equal "$(inside stat --format '%U %a' /run/ombrix /run/ombrix/agent)" $'root 755\nombrix 755'
  check "records and log are closed to others" \
    equal "$(inside stat --format '%U %a' $records /var/log/ombrix)" $'ombrix 750\nombrix 750'
  check "logind asks it before the machine sleeps" eventually 10 holds_delay_lock
  check "systemd finds no fault with the running service" \
    inside systemd-analyze verify --man=no $unit
}

check_metering() {
  check "a program in another's home is metered" run_in_home
  check "with the folder of its executable" record_of marker /home/alice/bin alice
  check "root's list command is obeyed" grep '\[systemd\]' "$root$records/processes.list"
  as_alice Ombrix stop 2>/dev/null
  as_alice Ombrix list
  check "another user's commands are not" active
  check "an agent of another user's yields to it" yields alice
  check "an agent of root's yields to it" yields root
  check "and it goes on" is SubState running
}

check_end() {
  poll && collect
  inside Ombrix stop 2>/dev/null
  check "root's stop command ends it" eventually 30 is ActiveState inactive
  check "which is no failure" is Result success
  check "every open run is written" every_open_run_is_written

  inside systemctl start "$unit" && poll && collect
  check "systemctl stops it" inside systemctl stop "$unit"
  check "and every open run is written" every_open_run_is_written
  check "the runtime directory goes with it" not inside test -e /run/ombrix/agent

  inside systemctl start "$unit"
  inside bash -c "kill -9 $(property MainPID)"
  check "killed, it is started again" eventually 30 is NRestarts 1
  check "and runs" eventually 10 active
}

check_reboot() {
  local status=0
  poll && collect
  inside systemctl reboot 2>/dev/null || true  # the bus may be gone before its answer
  wait_for_end || status=$?
  check "the system reboots" equal "$status" 133
  check "before it has, every open run is written" every_open_run_is_written
  check "it is up again" boot
  check "the agent runs again" active
}

# A package of the next revision, with another configuration in it.
make_upgrade() {
  dpkg-deb --raw-extract "$deb" "$work/next"
  sed -i 's/^\(Version: .*-\).*/\12/' "$work/next/DEBIAN/control"
  sed -i 's/>512</>1024</' "$work/next$configuration"
  dpkg-deb --root-owner-group --build "$work/next" "$root/next.deb" >/dev/null
}

writes_debug_lines() { poll && grep '\[Debug\]' "$root/var/log/ombrix/metering.log"; }

check_upgrade() {
  local before
  make_upgrade
  sed -i 's/>info</>trace</' "$root$configuration"
  before=$(property MainPID)
  poll && collect
  check "it is upgraded" inside dpkg --force-confdef --force-confold --install /next.deb
  check "the old agent has written its open runs" record_of systemd /usr/lib/systemd root
  check "the new one runs in its place" active
  check "as another process" is_not MainPID "$before"
  check "the administrator's configuration is kept" \
    grep '>trace<' "$root$configuration"
  check "and is in force" eventually 20 writes_debug_lines
  check "the package's own lies beside it" grep '>1024<' "$root$configuration.dpkg-dist"
}

check_removal() {
  poll && collect
  check "it is removed" inside dpkg --remove ombrix
  check "nothing of it runs" not agents_process
  check "its open runs are written and kept" record_of systemd /usr/lib/systemd root
  check "the configuration is kept" test -s "$root$configuration"
  check "installing it again starts it again" inside dpkg --install /next.deb
  check "as before" active
  check "it is purged" inside dpkg --purge ombrix
  check "purging leaves nothing" equal "$(left)" ""
  check "but its user" grep '^ombrix:' "$root/etc/passwd"
  check "the system has no failed unit" \
    equal "$(inside systemctl list-units --failed --plain --no-legend)" ""
}
agents_process() { inside bash -c 'cat /proc/[0-9]*/comm' | grep --line-regexp Ombrix; }
# What bears its name, but for the packages of the tests' own.
left() {
  inside find / /run -xdev \( -iname '*ombrix*' -o -iname '*velkagent*' \) -not -path '/proc/*' \
    -not -path '/tmp/*' -not -path '/ombrix.deb'
}

check_service() {
  check_start
  check_metering
  check_end
  check_reboot
  check_upgrade
  check_removal
  inside systemctl poweroff 2>/dev/null || true
  check "the system goes down" wait_for_end
}
