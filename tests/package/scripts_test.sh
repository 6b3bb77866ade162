#!/bin/bash
# What the package's scripts do to the firewall script and the hardware tool at the
# paths where the program calls them: ours are treated as conffiles, anybody else's
# stay. dpkg works on a root folder of its own as when an image is made, with the
# scripts outside of it, so this also shows that nothing is started or stopped then.
# It also shows where else a removal takes nothing down. It runs in a private mount
# namespace.
#
# Call: tests/package/scripts_test.sh PACKAGE-FOLDER
set -euo pipefail
folder=$(realpath "${1:?Call: tests/package/scripts_test.sh PACKAGE-FOLDER}")
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh

if [ "${2-}" != --apart ]; then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(--map-root-user)
  exec unshare --mount "${as_root[@]}" "$0" "$folder" --apart
fi
package=$(ls "$folder"/quenby_*.deb)
mount -t tmpfs -o mode=755 tmpfs /run
mkdir -p /run/systemd/system

FIREWALL=/opt/ostrea/sbin/firewall.init
HARDWARE=/usr/sbin/kavo-hal
OURS=/usr/libexec/quenby
root=/run/root
said=/run/said
calls=/run/calls

# Whatever would reach the machine's own shaping, firewall or units notes that it was
# called.
make_stand_ins() {
  local name
  mkdir /run/stand-ins
  for name in quenby iptables ipset tc systemctl deb-systemd-invoke invoke-rc.d; do
    make_stand_in "/run/stand-ins/$name" 0
  done
  PATH=/run/stand-ins:$PATH
}

# Call: make_stand_in PATH STATUS
make_stand_in() {
  mkdir -p "${1%/*}"
  printf '#!/bin/sh\necho "%s $*" >>%s\nexit %s\n' "${1##*/}" "$calls" "$2" >"$1"
  chmod 755 "$1"
}

# Makes /run/VERSION.deb of the package's files. In a new version both scripts differ.
# Call: make_package VERSION [COMMAND...], the command runs in its folder
make_package() {
  local version=$1 files=/run/files name
  shift
  dpkg-deb -R "$package" "$files"
  sed -i "s/^Version: .*/Version: $version/" "$files/DEBIAN/control"
  for name in firewall.init kavo-hal; do echo "# $version" >>"$files$OURS/$name"; done
  (cd "$files" && "${@:-true}")
  dpkg-deb --root-owner-group -Znone -b "$files" "/run/$version.deb" >/dev/null
  rm -r "$files"
}

# As the package was when dpkg itself had the firewall script.
without_scripts() {
  rm DEBIAN/preinst DEBIAN/postinst DEBIAN/prerm DEBIAN/postrm
  mkdir -p opt/ostrea/sbin
  mv usr/libexec/quenby/firewall.init opt/ostrea/sbin
  md5sum opt/ostrea/sbin/firewall.init >DEBIAN/md5sums
}

# Another package that has a hardware tool.
make_other_package() {
  mkdir -p /run/other/DEBIAN /run/other/usr/sbin
  printf '%s\n' "Package: other-hal" "Version: 1" "Architecture: all" \
    "Maintainer: Nobody <nobody@quenby.example>" "Description: a tool" >/run/other/DEBIAN/control
  echo "another package's" >/run/other/usr/sbin/kavo-hal
  dpkg-deb --root-owner-group -Znone -b /run/other /run/other.deb >/dev/null
}

new_root() {
  rm -rf "$root" "$calls"
  mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers} "$root"/{etc,run,usr/sbin,opt}
  : >"$root/var/lib/dpkg/status"
}

# What the scripts say goes to $said.
run_dpkg() {
  dpkg --root="$root" --force-script-chrootless --force-depends --log=/dev/null "$@" \
    >"$said" 2>&1 || { cat "$said"; return 1; }
}

# Name, kind, mode, time and content of what stands at both paths.
state() {
  local path
  for path in "$FIREWALL" "$HARDWARE"; do
    stat -c '%n %F %a %Y %N' "$root$path" 2>&1
    cat "$root$path" 2>/dev/null || true
  done
}
version_of() { tail -n 1 "$root$1" 2>/dev/null || echo none; }
versions() { echo "$(version_of "$FIREWALL"), $(version_of "$HARDWARE")"; }

# debhelper's own snippet has the machine's systemd read its units again.
called() { grep -vx 'systemctl --system daemon-reload' "$calls" 2>/dev/null || true; }

test_ours() {
  new_root
  holds "installation" run_dpkg -i /run/1.deb
  expect "ours are put there" "# 1, # 1" "$(versions)"
  expect "programs" "755 755" "$(stat -c %a "$root$FIREWALL" "$root$HARDWARE" | paste -sd ' ')"
  holds "upgrade" run_dpkg -i /run/2.deb
  expect "ours are replaced" "# 2, # 2" "$(versions)"
  chmod 700 "$root$HARDWARE"
  holds "upgrade" run_dpkg -i /run/3.deb
  expect "a mode is kept" "700 # 3" "$(stat -c %a "$root$HARDWARE") $(version_of "$HARDWARE")"
  holds "removal" run_dpkg -r quenby
  expect "conffiles outlast a removal" "# 3, # 3" "$(versions)"
  holds "purge" run_dpkg -P quenby
  expect "and no purge" "none, none" "$(versions)"
  expect "nothing is left" "" "$(find "$root"/{config,opt,usr} "$root/var/lib/quenby" ! -type d 2>/dev/null)"
  fails "no folder of ours is left" test -e "$root/opt/ostrea" -o -e "$root/config"
  expect "nothing was started or stopped" "" "$(called)"
}

test_changed() {
  new_root
  run_dpkg -i /run/1.deb
  echo "# the operator's" >>"$root$FIREWALL"
  rm "$root$HARDWARE"
  local before
  before=$(state)
  holds "upgrade" run_dpkg -i /run/2.deb
  expect "a changed one stays, a deleted one stays away" "$before" "$(state)"
  holds "the operator is told" grep -qF "$FIREWALL was changed and stays" "$said"
  holds "the same version again" run_dpkg -i /run/2.deb
  expect "nothing has changed" "$before" "$(state)"
  cp "$root$OURS/firewall.init" "$root$FIREWALL"
  holds "upgrade" run_dpkg -i /run/3.deb
  expect "the operator had taken ours" "# 3, none" "$(versions)"
  echo "# the operator's" >>"$root$FIREWALL"
  before=$(state)
  holds "removal" run_dpkg -r quenby
  holds "installation" run_dpkg -i /run/4.deb
  expect "both are kept so across a removal" "$before" "$(state)"
  holds "purge" run_dpkg -P quenby
  expect "a purge takes ours, changed or not" "none, none" "$(versions)"
}

# The operator's own, which nothing but a purge takes, with what an interrupted save or change has left.
test_stored_files() {
  local stored="$root/config/tc" before step
  new_root
  run_dpkg -i /run/1.deb
  echo "the line" >"$stored/tc_global.ini"
  echo "the tariffs" >"$stored/tc_tariff.ini"
  before=$(cd "$stored" && stat -c '%n %i %Y' -- *)
  for step in "-i /run/2.deb" "-r quenby" "-i /run/3.deb"; do
    # shellcheck disable=SC2086  # words
    holds "dpkg $step" run_dpkg $step
    expect "the stored files are kept" "$before" "$(cd "$stored" && stat -c '%n %i %Y' -- *)"
  done
  holds "removal" run_dpkg -r quenby
  expect "the program is gone" "" "$(find "$root/usr" -path '*quenby*' ! -type d)"
  touch "$stored/tc_global.ini.tmp" "$stored/tc_tariff.ini-aBcD"
  mkdir "$stored/tc_kept"
  touch "$stored/tc_kept/change"
  holds "purge" run_dpkg -P quenby
  fails "they go with the purge" test -e "$root/config"
}

# Call: test_foreign NAME COMMAND...; the command puts something at both paths.
test_foreign() {
  local name=$1 before step
  new_root
  mkdir -p "$root/opt/ostrea/sbin"
  "${@:2}"
  before=$(state)
  for step in "-i /run/1.deb" "-i /run/2.deb" "-r quenby" "-i /run/3.deb" "-P quenby"; do
    # shellcheck disable=SC2086  # words
    holds "$name: dpkg $step" run_dpkg $step
    expect "$name: both stay as they are" "$before" "$(state)"
  done
}
foreign_files() {
  echo "the platform's" >"$root$FIREWALL"
  echo "the platform's" >"$root$HARDWARE"
  chmod 750 "$root$FIREWALL"
}
foreign_links() {
  ln -s /nowhere "$root$FIREWALL"
  ln -s /usr/libexec/quenby/kavo-hal "$root$HARDWARE"
}
# Somebody had copied them there before the package came.
foreign_copies() {
  cp platform/firewall.init "$root$FIREWALL"
  cp platform/kavo-hal "$root$HARDWARE"
  echo "# 1" | tee -a "$root$FIREWALL" >>"$root$HARDWARE"
}

test_foreign_that_goes() {
  new_root
  mkdir -p "$root/opt/ostrea/sbin"
  foreign_files
  run_dpkg -i /run/1.deb
  holds "the operator is told of both" test "$(grep -c 'is there already and stays' "$said")" = 2
  rm "$root$FIREWALL" "$root$HARDWARE"
  run_dpkg -i /run/2.deb
  expect "ours come when the others have gone" "# 2, # 2" "$(versions)"
}

test_other_package() {
  new_root
  run_dpkg -i /run/1.deb
  run_dpkg -i /run/other.deb
  run_dpkg -i /run/2.deb
  expect "another package's file stays in an upgrade" "# 2, another package's" "$(versions)"
  holds "purge" run_dpkg -P quenby
  expect "and in a purge" "none, another package's" "$(versions)"
}

# The firewall script was a plain file of the package.
test_old_package() {
  new_root
  run_dpkg -i /run/0.6.deb
  expect "the old package" "# 0.6, none" "$(versions)"
  holds "upgrade" run_dpkg -i /run/1.deb
  expect "ours come" "# 1, # 1" "$(versions)"
  new_root
  run_dpkg -i /run/0.6.deb
  echo "# the operator's" >>"$root$FIREWALL"
  holds "upgrade" run_dpkg -i /run/1.deb
  expect "a changed script stays" "# the operator's, # 1" "$(versions)"
  expect "no copy is left" "" "$(find "$root" -name '*.dpkg-*')"
  holds "purge" run_dpkg -P quenby
  expect "it goes with the purge" "none, none" "$(versions)"
}

# A file that another package has stops dpkg in the middle of the upgrade.
with_tool() { cp usr/libexec/quenby/kavo-hal usr/sbin; }
test_aborted_upgrade() {
  new_root
  run_dpkg -i /run/0.6.deb /run/other.deb
  echo "# the operator's" >>"$root$FIREWALL"
  fails "an upgrade that cannot be unpacked" run_dpkg -i /run/0.7.deb >/dev/null
  expect "the script is as it was" "# the operator's" "$(version_of "$FIREWALL")"
  expect "no copy is left" "" "$(find "$root" -name '*.dpkg-*' -o -name placed)"
}

# What a removal outside of images calls. Call: removal CHROOT POLICY, the statuses of
# ischroot and policy-rc.d, the latter "none" where that does not exist
removal() {
  rm -f "$calls" /run/stand-ins/policy-rc.d
  make_stand_in /run/stand-ins/ischroot "$1"
  [ "$2" = none ] || make_stand_in /run/stand-ins/policy-rc.d "$2"
  # Without /usr/sbin, where this machine may have a policy.
  env -u DPKG_ROOT PATH=/run/stand-ins:/usr/bin:/bin sh /run/control/prerm remove >"$said" 2>&1 || echo "status $?"
  grep -v '^ischroot' "$calls" | paste -sd ';' || true
  rm -f /run/stand-ins/{ischroot,policy-rc.d}
}

# Ours alone is asked to stop, not what stands at the platform's path.
test_removal() {
  local taken_down status
  dpkg-deb -e "$package" /run/control
  mount -t tmpfs tmpfs /usr/libexec
  make_stand_in "$OURS/firewall.init" 0
  taken_down="deb-systemd-invoke stop quenby-export.timer quenby.service;quenby --stop;firewall.init stop opt-qos"
  expect "a router: taken down" "$taken_down" "$(removal 1 none)"
  for status in 0 1 104 105; do
    expect "policy $status: taken down" "policy-rc.d quenby stop;$taken_down" \
      "$(removal 1 "$status")"
  done
  for status in 101 100 102 103 106; do
    expect "policy $status: left alone" "policy-rc.d quenby stop" "$(removal 1 "$status")"
  done
  for status in 0 2; do
    expect "ischroot $status: left alone" "" "$(removal "$status" 0)"
  done
  make_stand_in "$OURS/firewall.init" 1
  expect "a failure is no reason to stay" "$taken_down" "$(removal 1 none)"
  holds "but told" grep -q 'could not be removed' "$said"
}

make_stand_ins
for version in 1 2 3 4; do make_package "$version"; done
make_package 0.6 without_scripts
make_package 0.7 with_tool
make_other_package
test_ours
test_changed
test_stored_files
test_foreign "files" foreign_files
test_foreign "links" foreign_links
test_foreign "copies of ours" foreign_copies
test_foreign_that_goes
test_other_package
test_old_package
test_aborted_upgrade
test_removal
finish
