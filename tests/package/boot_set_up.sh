#!/bin/bash
# Makes a router of a fresh Debian before its first boot: the package in place and its two files
# stored, Debian's own nftables configuration, a card for the line, a host name that nobody knows.
#
# Call: scripts/lab --first "tests/package/boot_set_up.sh PACKAGE" (before the guest's systemd)
set -euo pipefail
package=${1:?Call: tests/package/boot_set_up.sh PACKAGE}
[ ! -d /run/systemd/system ] && [ -e /run/lab/settings ]

DEBIAN_FRONTEND=noninteractive dpkg -i "$package"
systemctl enable nftables.service

# Debian's journal switches the kernel's auditing off as soon as it runs.
mkdir -p /etc/systemd/journald.conf.d
printf '[Journal]\nAudit=yes\n' >/etc/systemd/journald.conf.d/audit.conf

# A change was under way when the router lost its power: the files before it, with numbers that
# counting again would change, and one of those after it.
kept=/config/tc/tc_kept
mkdir -m 700 "$kept"
cat >"$kept/tc_global.ini" <<'END'
[global]
download_speed=50000
upload_speed=20000
wan=wan0
enabled=true
[defaultqosipqueue]
download_speed=1000
upload_speed=1000
END
cat >"$kept/tc_tariff.ini" <<'END'
[amy]
id=9
ip=10.0.1.10
download_speed=3000
upload_speed=3000
queuing_discipline=fq_codel
[bob]
id=6
ip=10.0.2.10
ip=10.0.3.1
download_speed=2000
upload_speed=2000
queuing_discipline=pfifo
END

touch --date '2020-02-02 UTC' "$kept"/tc_*.ini
cat >"$kept/change" <<'END'
{"id": "1", "command": "update", "boot": "another", "waiting": true, "deadline": 0,
 "had_global": true, "had_tariffs": true, "was_wanted": true, "had_note": true,
 "former_wan": "wan0", "wan": "wan0"}
END
printf '[eve]\nid=4\nip=10.0.4.10\n' >/config/tc/tc_tariff.ini

for end in 1:wan0 2:far0; do
  printf '[Match]\nPermanentMACAddress=02:00:00:00:0c:0%s\n[Link]\nName=%s\n' \
    "${end%:*}" "${end#*:}" >"/etc/systemd/network/10-${end#*:}.link"
done
echo edge >/etc/hostname
sed -i '/router/d' /etc/hosts
# A name server that cannot be reached.
echo nameserver 192.0.2.53 >/etc/resolv.conf
