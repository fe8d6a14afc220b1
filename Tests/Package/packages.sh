# What the packages consist of. Sourced by scripts/test-package, which sets $deb and $rpm.
# shellcheck shell=bash

# The files beside a package's documents, in order, one a line.
files_of_deb() {
  dpkg-deb --fsys-tarfile "$deb" | tar --list | sed -n 's#^\.\(/.*[^/]\)$#\1#p' |
    grep -v -e /share/doc/ -e /share/lintian/ | sed 's#/vendor-completions/#/site-functions/#' |
    LC_ALL=C sort
}
files_of_rpm() { rpm --query --package --queryformat '[%{FILEMODES:perms} %{FILENAMES}\n]' "$rpm" |
  sed -n 's/^-[^ ]* //p' | LC_ALL=C sort; }

documents_of_deb() {
  dpkg-deb --fsys-tarfile "$deb" | tar --list | sed -n 's#^\./usr/share/doc/ombrix/##p' |
    grep . | LC_ALL=C sort | paste -sd ' '
}

owners_of_deb() { dpkg-deb --contents "$deb" | awk '{ print $2 }' | sort -u; }
conffiles_of_deb() { dpkg-deb --ctrl-tarfile "$deb" | tar --extract --to-stdout ./conffiles; }
conffiles_of_rpm() { rpm --query --package --configfiles "$rpm"; }
keeps_changed_configuration() {
  rpm --query --package --queryformat '[%{FILEFLAGS:fflags} %{FILENAMES}\n]' "$rpm" |
    grep -x 'cn /etc/ombrix/velkagent.config'
}

# Each of the three scripts of the .rpm is one that a shell can read.
rpm_scripts_are_sound() {
  local tag
  for tag in POSTIN PREUN POSTUN; do
    rpm --query --package --queryformat "%{$tag}" "$rpm" | grep systemctl >/dev/null || return 1
    rpm --query --package --queryformat "%{$tag}" "$rpm" | sh -n || return 1
  done
}

readable_by_a_shell() {
  local script
  for script in Packaging/macOS/build-installer Packaging/macOS/scripts/*; do
    bash -n "$script" || return
  done
}

check_packages() {
  check "lintian has nothing to say of the .deb" lintian --fail-on warning,error "$deb"
  check "the .deb holds the files that it should" \
    equal "$(files_of_deb)" "$(cat Tests/Package/files)"
  check "the .rpm holds the same" equal "$(files_of_rpm)" "$(cat Tests/Package/files)"
  check "the .deb has the documents of a package" \
    equal "$(documents_of_deb)" "changelog.Debian.gz changelog.gz copyright"
  check "everything in the .deb is root's" equal "$(owners_of_deb)" root/root
  check "the configuration is a conffile of the .deb" \
    equal "$(conffiles_of_deb)" /etc/ombrix/velkagent.config
  check "the configuration is the only one of the .rpm" \
    equal "$(conffiles_of_rpm)" /etc/ombrix/velkagent.config
  check "the .rpm does not replace a changed configuration" keeps_changed_configuration
  check "the scripts of the .rpm are sound" rpm_scripts_are_sound
  check "the property lists for a Mac are well-formed" xmllint --noout --nonet \
    Packaging/macOS/org.ombrix.agent.plist.in Packaging/macOS/distribution.xml
  check "the scripts for a Mac can be read by a shell" readable_by_a_shell
}
