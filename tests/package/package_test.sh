#!/bin/bash
# The package's life on a router: set up as README.md says, traffic, an upgrade,
# edits while a unit reloads, an image that is made on the router, Debian's own test,
# loading by hand, purge, and set up by Ansible.
#
# Call: tests/package/in_lab.sh PACKAGE-FOLDER (which runs this in the lab with the
#       paths of the package and of a newer one)
set -euo pipefail
package=$(realpath "${1:?Call: tests/package/in_lab.sh PACKAGE-FOLDER}")
newer=$(realpath "${2:?Call: tests/package/in_lab.sh PACKAGE-FOLDER}")
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
# shellcheck source=lab/network.sh
source lab/network.sh
# shellcheck source=tests/kernel/rates.sh
source tests/kernel/rates.sh
# shellcheck source=tests/package/steps.sh
source tests/package/steps.sh
network_require_lab
export DEBIAN_FRONTEND=noninteractive

# Classes with their rates, one per line. A queue shows those that packets wait in as
# classes of its own.
classes() {
  local device
  for device in eth1 ifb_ingr; do
    echo "# $device"
    tc class show dev "$device" 2>/dev/null | grep '^class htb' | sort
  done
}
class_count() { tc class show dev "$1" 2>/dev/null | grep -c '^class htb' || true; }
class_bytes() { tc -s class show dev eth1 classid "$1" | awk '$1 == "Sent" { print $2 }'; }

# Waits until COMMAND succeeds, 60 s at most.
soon() {
  local tries=0
  until "$@"; do
    tries=$((tries + 1))
    [ "$tries" -lt 300 ] || return 1
    sleep 0.2
  done
}

# The commands of the router's set-up, as they stand in README.md.
setup_commands() {
  awk '/^## / { wanted = ($0 == "## Set up a router") } wanted && sub(/^    /, "")' README.md
}

# The operator's hand in the editor: the line of the provider has 20 Mbit/s up.
install_operator() {
  cat >/usr/local/bin/editor <<'END'
#!/bin/sh
exec sed -i 's/^upload_speed=20000$/upload_speed=18000/' "$@"
END
  chmod 755 /usr/local/bin/editor
}

# The real one takes longer than most of what it runs, and an edit calls it dozens of times.
# One load by hand tries that one.
QUICK_SUDO=/usr/local/sbin/sudo
install_quick_sudo() {
  # shellcheck disable=SC2016  # for the stand-in
  printf '#!/bin/sh\n[ "$1" != -n ] || shift\nexec "$@"\n' >"$QUICK_SUDO"
  chmod 755 "$QUICK_SUDO"
}

# Another firewall has one of the chains already, with a rule and a jump of its own.
make_foreign_chain() {
  iptables -w -N OSTREA_FW_IN_HOOK
  iptables -w -A OSTREA_FW_IN_HOOK -i other9 -j DROP
  iptables -w -A INPUT -j OSTREA_FW_IN_HOOK
}

test_set_up() {
  install_operator
  expect "README.md has the set-up's commands" 7 "$(setup_commands | wc -l)"
  mkdir /root/copied
  cp "$package" /root/copied
  holds "the set-up of README.md" bash -ec "cd /root/copied; $(setup_commands)"
  expect "quenby.service" active "$(systemctl is-active quenby.service)"
  expect "quenby.service at boot" enabled "$(systemctl is-enabled quenby.service)"
  expect "the operator's change" upload_speed=18000 \
    "$(grep -m 1 upload_speed /config/tc/tc_global.ini)"
  expect "the class numbers are the program's" "4 5 6 7" \
    "$(sed -n 's/^id=//p' /config/tc/tc_tariff.ini | paste -sd ' ')"
  expect "/config/tc is for root only" "750 root root" "$(stat -c '%a %U %G' /config/tc)"
  # The root class, two default ones and four tariffs.
  expect "classes on eth1" 7 "$(class_count eth1)"
  expect "classes on ifb_ingr" 7 "$(class_count ifb_ingr)"
  expect "addresses" 7 "$(ipset list kavo_opt_shaper | grep -c skbmark)"
}

test_traffic() {
  network_iperf_start 5201 5202 5203
  rates_hold "download 10.0.2.10 5" "upload 10.0.1.10 2" "download 10.0.9.9 2"
}

# The class has counted the traffic of the tests before; made again it would be at 0.
test_upgrade() {
  local before
  expect "the hardware tool answers" Linux "$(/usr/sbin/kavo-hal getBoardShortName)"
  echo "# the operator's" >>/opt/ostrea/sbin/firewall.init
  before=$(class_bytes 8000:4)
  holds "the tariff has traffic" test "$before" -gt 0
  holds "an upgrade" dpkg -i "$newer"
  expect "it leaves the classes alone" "$before" "$(class_bytes 8000:4)"
  expect "quenby.service" active "$(systemctl is-active quenby.service)"
  expect "systemd has read the new unit" "The newer one, no" \
    "$(state_of Description quenby.service), $(state_of NeedDaemonReload quenby.service)"
  expect "a changed script stays" "# the operator's" "$(tail -n 1 /opt/ostrea/sbin/firewall.init)"
  expect "ours is replaced" "# the newer one" "$(tail -n 1 /usr/sbin/kavo-hal)"
}

# What a command leaves alone that is none of this router's business.
undisturbed() {
  systemctl is-active quenby.service
  stat -c %i /run/quenby.lock
  classes
  firewall
}

# Runs the command with an image at /srv/image, which has this router's files and sees
# its processes, devices and /run. True when the package has gone from there.
# shellcheck disable=SC2016  # for the other shell
in_image() {
  unshare --mount bash -ec '
    mount -t tmpfs tmpfs /srv
    mkdir /srv/upper /srv/work /srv/image
    mount -t overlay -o lowerdir=/,upperdir=/srv/upper,workdir=/srv/work overlay /srv/image
    for folder in dev proc run sys; do mount --rbind "/$folder" "/srv/image/$folder"; done
    "$@"
    ! test -e /srv/image/usr/sbin/quenby -o -e /srv/image/config' in_image "$@"
}

# Its scripts find the router's systemd and its programs.
test_image() {
  local before
  before=$(undisturbed)
  holds "purge in a chroot" in_image chroot /srv/image dpkg -P quenby
  expect "the router is as it was" "$before" "$(undisturbed)"
}

# A section for a new tariff. Call: new_tariff NAME ADDRESS
new_tariff() { printf '[%s]\nip=%s\ndownload_speed=1000\nupload_speed=1000\n' "$1" "$2"; }
stored_number() { awk -v s="[$1]" '/^\[/ { inside = $0 == s } inside && sub(/^id=/, "")' /config/tc/tc_tariff.ini; }

# In the file, with a class of its own on both devices, and with its address.
# Call: is_there NAME ADDRESS
is_there() {
  local number device
  number=$(stored_number "$1")
  holds "$1 is stored" test -n "$number"
  expect "nobody else has its number" 1 "$(grep -cx "id=$number" /config/tc/tc_tariff.ini)"
  for device in eth1 ifb_ingr; do
    holds "$1 has a class on $device" grep -q htb \
      <(tc class show dev "$device" classid "8000:$(printf %x "${number:-0}")")
  done
  holds "the address set has $2" ipset -q test kavo_opt_shaper "$2"
}

lock_is_held() { ! flock --nonblock /run/quenby.lock true; }

# Two operators' edits, as README.md shows them, while the service restarts.
# Nobody's work is lost.
test_edits_while_the_service_restarts() {
  local folder tariff pids=() pid
  folder=$(mktemp -d)
  grep -q '^    quenby --tariff-add new.ini ' README.md
  systemctl restart --no-block quenby.service
  holds "the restart is under way" soon lock_is_held
  for tariff in 1 2; do
    mkdir "$folder/$tariff"
    new_tariff "new-$tariff" "10.0.7.$tariff" >"$folder/$tariff/new.ini"
    (cd "$folder/$tariff" && quenby --tariff-add new.ini) &
    pids+=("$!")
  done
  for pid in "${pids[@]}"; do holds "an edit" wait "$pid"; done
  holds "the restart has ended" soon systemctl --quiet is-active quenby.service
  expect "the restart" success "$(state_of Result quenby.service)"
  for tariff in 1 2; do is_there "new-$tariff" "10.0.7.$tariff"; done
}

# With the real sudo, and without the service.
test_by_hand() {
  rm "$QUICK_SUDO"
  holds "loading by hand" quenby --load
  install_quick_sudo
  holds "shaped again" ip link show ifb_ingr
}

# Plays contrib/ansible's role here; prints "STATUS CHANGED FAILED". Call: play [OPTION...]
play() {
  local status=0
  ANSIBLE_ROLES_PATH=$PWD/contrib/ansible/roles ANSIBLE_NOCOLOR=1 ANSIBLE_PIPELINING=1 HOME=/root \
    LC_ALL=C.UTF-8 ansible-playbook -i router, -c local "$@" /root/play.yml >/root/play.log 2>&1 || status=$?
  [ "$status" -eq 0 ] || cat /root/play.log >&2
  echo "$status $(sed -nE 's/^router .* changed=([0-9]+) .* failed=([0-9]+) .*/\1 \2/p' /root/play.log)"
}

# A router that has nothing of ours yet: the role installs the package, which a check before it
# only foresees, applies the files and has the service start. A second run changes nothing.
test_role() {
  local before
  # Debian's test has put another network in the place of ours.
  ip link add eth1 type dummy
  ip link set eth1 up
  python3 - "$package" >/root/play.yml <<'END'
import json, sys
print(json.dumps([{"hosts": "all", "gather_facts": False, "roles": [{
    "role": "quenby", "quenby_package": sys.argv[1], "quenby_export": True,
    "quenby_line": "/root/line.ini", "quenby_subscribers": "/root/subscribers.ini"}]}]))
END
  printf '[global]\nwan=eth1\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n' >/root/line.ini
  { new_tariff Hill 10.0.1.10; new_tariff Mill 10.0.2.10; } >/root/subscribers.ini
  expect "role: a check foresees the copy" "0 1 0" "$(play --check)"
  fails "role: and installs nothing" test -e /usr/sbin/quenby
  # The copy, the installation, the line, the subscribers, the export's timer; the service may run
  # already.
  holds "role: a run" grep -qE '^0 [56] 0$' <(play)
  expect "role: the service" "active enabled" \
    "$(systemctl is-active quenby.service) $(systemctl is-enabled quenby.service)"
  expect "role: the timer of the export" active "$(systemctl is-active quenby-export.timer)"
  is_there Hill 10.0.1.10
  is_there Mill 10.0.2.10
  before=$(undisturbed)
  expect "role: a second run changes nothing" "0 0 0" "$(play)"
  expect "role: nor does it touch the router" "$before" "$(undisturbed)"
}

network_up
network_add_subscribers 10.0.1.10 10.0.2.10 10.0.9.9
make_foreign_chain
install_quick_sudo
firewall_before=$(firewall)
test_set_up
test_traffic
test_numbers 14
test_upgrade
test_edits_while_the_service_restarts
test_image
test_debian
test_by_hand
test_purge "$firewall_before"
test_role
finish
