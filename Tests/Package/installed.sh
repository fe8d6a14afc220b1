# The .deb on a system where no systemd runs, as in an image that is being built. Sourced by
# scripts/test-package, which sets $deb and $root.
# shellcheck shell=bash

install_deb() { cp "$1" "$root/ombrix.deb" && enter dpkg --install /ombrix.deb; }

# Every path of the system but those that any installation leaves behind.
manifest() {
  find "$root" -xdev -printf '/%P\n' | LC_ALL=C sort |
    grep -v -E '^/(ombrix.deb$|var/lib/dpkg/|var/log/dpkg.log|etc/(\.pwd\.lock|g?shadow-|group-|passwd-)$)'
}

# Runs the agent as root from where it is installed, until it has made its list, and stops it.
run_agent() {
  # shellcheck disable=SC2016  # expanded in there
  enter bash -c '
    cd / && Ombrix -c /etc/ombrix/velkagent.config 2>/tmp/errors &
    sleep 1000 & sleep 1000 &
    for (( look = 0; look < 100; look++ )); do
      grep --quiet "registered processes" /tmp/errors && break
      sleep 0.1
    done
    Ombrix list
    for (( look = 0; look < 100; look++ )); do
      [ -s /var/lib/ombrix/processes.list ] && break
      sleep 0.1
    done
    Ombrix stop
    wait %1 || { cat /tmp/errors; exit 1; }'
}

record_of() { grep --quiet "^$1;;;;$2;$3;" "$root"/var/lib/ombrix/*.met; }
logged() { grep --quiet "$1" "$root/var/log/ombrix/metering.log"; }
has_user() { grep --quiet '^ombrix:.*:/usr/sbin/nologin$' "$root/etc/passwd"; }
enabled() { [ -L "$root/etc/systemd/system/multi-user.target.wants/ombrix.service" ]; }

exposure() {
  enter env SYSTEMD_COLORS=0 SYSTEMD_URLIFY=0 systemd-analyze security --no-pager --offline=yes \
    --threshold=20 /usr/lib/systemd/system/ombrix.service >"$work/exposure"
}

check_installation() {
  local before
  before=$(manifest)
  check "it is installed" install_deb "$deb"
  check "its service is to start when the system boots" enabled
  check "its user exists and cannot log in" has_user
  check "systemd finds no fault with the service" \
    enter systemd-analyze verify --man=no ombrix.service
  check "its exposure is 2.0 at most" exposure
  tail -n 1 "$work/exposure"
  check "the agent runs from where it is installed" run_agent
  check "its records are in /var/lib/ombrix" record_of Ombrix /usr/sbin root
  check "its list is in /var/lib/ombrix" test -s "$root/var/lib/ombrix/processes.list"
  check "its log is in /var/log/ombrix" logged 'Shutting down Ombrix$'
  check "it is removed" enter dpkg --remove ombrix
  check "removing keeps the records" record_of Ombrix /usr/sbin root
  check "it is purged" enter dpkg --purge ombrix
  check "purging leaves nothing" equal "$(manifest)" "$before"
  check "but its user" has_user
}
