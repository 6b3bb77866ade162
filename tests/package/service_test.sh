#!/bin/bash
# The scripts of the systemd units, without units and without a kernel: what they read from the
# stored files, what they take for missing, what they call. Copies with other paths see stand-ins of
# the programs that they ask.
#
# Call: tests/package/service_test.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh

scratch=$(mktemp -d)
holder=''
trap '[ -z "$holder" ] || kill "$holder" 2>/dev/null; rm -rf "$scratch"' EXIT
global=$scratch/config/tc_global.ini tariffs=$scratch/config/tc_tariff.ini
wanted=$scratch/quenby.on calls=$scratch/calls

install_scripts() {
  local name
  mkdir -p "$scratch"/{bin,config,net/eth1,say}
  for name in stored missing shape; do
    sed "s|/config/tc|$scratch/config|g; s|/run/quenby|$scratch/quenby|g
      s|/sys/class/net|$scratch/net|g; s|^PATH=|PATH=$scratch/bin:|" \
      "platform/service/$name" >"$scratch/bin/$name"
    chmod 755 "$scratch/bin/$name"
  done
  sed "s|/usr/bin/sudo|$scratch/bin/real-sudo|" platform/service/as-root/sudo >"$scratch/bin/sudo"
  chmod 755 "$scratch/bin/sudo"
}

# Each stand-in notes its call and says what the file of its name and of the words that tell its
# questions apart says, and returns what the file of that name and ".status" says, or 0; without
# that file it fails with the status in $scratch/status, or 1.
install_stand_ins() {
  local name
  for name in tc ipset systemctl quenby quenbyctl check-files; do
    cat >"$scratch/bin/$name" <<END
#!/bin/sh
echo "$name \$*" >>"$calls"
case "$name \$*" in
  "tc filter show dev "*) file=\$4-\${6%:} ;;
  "tc class show dev "*) file=\$4-class ;;
  *) file=$name ;;
esac
cat "$scratch/say/\$file" 2>/dev/null || exit "\$(cat "$scratch/status" 2>/dev/null || echo 1)"
[ ! -e "$scratch/say/\$file.status" ] || exit "\$(cat "$scratch/say/\$file.status")"
END
    chmod 755 "$scratch/bin/$name"
  done
}

# Runs a script; prints its exit status and what it says.
# Call: result SCRIPT [ARGUMENT...]
result() {
  local status=0 said
  : >"$calls"
  said=$(PATH=$scratch/bin:$PATH "$scratch/bin/$1" "${@:2}" 2>&1) || status=$?
  echo "$status${said:+ $said}"
}

# Call: files GLOBAL-LINES TARIFF-LINES, separated by spaces; "-" for a file that is not there
files() {
  rm -f "$global" "$tariffs"
  # shellcheck disable=SC2086  # one word a line
  {
    [ "$1" = - ] || printf '%s\n' $1 >"$global"
    [ "$2" = - ] || printf '%s\n' $2 >"$tariffs"
  }
}

# Call: calls_for NAME WANTED GLOBAL-LINES TARIFF-LINES
calls_for() {
  files "$3" "$4"
  expect "stored: $1" "0 $2" "$(result stored)"
}

test_stored() {
  local line='[global] wan=eth1 enabled=true' both='download_speed=50 upload_speed=20'
  local amy='[amy] id=4 ip=10.0.0.1 download_speed=3 upload_speed=2'
  calls_for "no files" "true none none 0 0 0 0 " - -
  calls_for "a line and a tariff" "true tree tree 0 0 1 1 eth1" "$line $both" "$amy"
  calls_for "without enabled" "false tree tree 0 0 0 0 eth1" "[global] wan=eth1 $both" -
  calls_for "switched off" "false none none 0 0 0 0 eth1" "$line enabled=false" -
  calls_for "no default section" "true none none 0 0 0 0 eth1" "$line" -
  calls_for "a default tariff alone" "true tree none 0 1 0 0 " "[defaultqosipqueue] upload_speed=9" -
  calls_for "capitals" "true tree none 0 0 0 0 eth1" "$line UPLOAD_Speed=7" -
  calls_for "no line, a tariff" "true tree tree 0 0 1 1 eth1" "$line" "$amy"
  calls_for "a tariff without an address" "true none none 0 0 1 0 eth1" "$line" \
    "[amy] id=4 upload_speed=3"
  calls_for "a tariff of speed 0" "true none tree 0 0 1 1 eth1" "$line" \
    "[amy] id=4 ip=10.0.0.1 upload_speed=0 download_speed=3"
  calls_for "a speed that is no number" "true tree none 0 0 1 1 eth1" "$line" \
    "[amy] id=4 ip=10.0.0.1 upload_speed=max"
  calls_for "a blocked line" "true blocked tree 1 0 1 1 eth1" \
    "$line download_speed=5 upload_speed=0" "$amy"
  calls_for "a blocked default" "true tree tree 1 1 1 1 eth1" \
    "$line [defaultqosipqueue] upload_speed=0" "$amy"
  calls_for "a blocked default of a shaped line" "true tree tree 0 1 0 0 eth1" \
    "$line $both [defaultqosipqueue] upload_speed=0" -
  calls_for "two global sections" "true none none 0 0 0 0 " \
    "[global] wan=eth1 $both [global] enabled=true" -
  calls_for "several addresses" "true tree tree 0 0 2 3 eth1" "$line $both" \
    "$amy ip=10.0.0.2 [bob] ip=10.0.0.3"
  local six='[amy] id=4 ip6=2001:db8::/48 upload_speed=3'
  calls_for "a tariff of prefixes" "true tree none 0 0 1 2 eth1" "$line ipv6=true" \
    "$six ip6=2001:db8:1::/48"
  calls_for "IPv6 is not shaped" "true none none 0 0 1 0 eth1" "$line ipv6=false" "$six"
  calls_for "IPv6 needs a name" "true none none 0 0 1 0 " "[global] enabled=true ipv6=true" "$six"
  calls_for "one that is switched off again" "true none none 0 0 1 0 eth1" \
    "$line ipv6=true ipv6=false" "$six"
  printf '\t[ global ] rest\r\n  wan = ppp0 \r\nenabled=true' >"$global"
  expect "stored: white space" "0 true none none 0 0 0 0 ppp0" "$(rm -f "$tariffs"; result stored)"
}

test_wan() {
  local name
  files '[global] wan=eth1 enabled=true' '[wan=eth2] ip=10.0.0.1'
  expect "eth1 is the line" 0 "$(result stored eth1)"
  for name in eth eth11 eth2 ETH1 '' global; do
    expect "'$name' is not" 1 "$(result stored "$name")"
  done
  files '[global] enabled=true' -
  expect "nothing is" 1 "$(result stored '')"
  files - -
  expect "nothing is without a file" 1 "$(result stored eth1)"
}

# A router on which all stands.
all_well() {
  rm -f "$scratch"/say/* "$scratch"/quenby.* "$scratch/status"
  mkdir -p "$scratch/net/eth1"
  files '[global] wan=eth1 enabled=true download_speed=50 upload_speed=20' \
    '[amy] id=4 ip=10.0.0.1 download_speed=3 upload_speed=2'
  echo --load >"$wanted"
  printf 'Name: kavo_opt_shaper\nNumber of entries: 1\n' >"$scratch/say/ipset"
  echo "filter bpf" >"$scratch/say/eth1-8000"
  echo "filter bpf" >"$scratch/say/ifb_ingr-8000"
  echo " action order 2: mirred (Egress Redirect to device ifb_ingr) stolen" >"$scratch/say/eth1-ffff"
  echo active >"$scratch/say/systemctl"
}

# Call: finds WHAT LINE...   (what verify says)
finds() {
  all_well
  printf '%s\n' "${@:2}" >"$scratch/say/quenbyctl"
  expect "found: $1" "0 <5>$1" "$(result missing)"
}

# Call: nothing_missing NAME COMMAND...
nothing_missing() {
  all_well
  (cd "$scratch/say" && "${@:2}")
  expect "nothing missing: $1" 1 "$(result missing)"
}

test_missing() {
  finds "missing: eth1 class 8000:4" "missing: eth1 class 8000:4"
  finds "a; b; c" a b c
  finds "a; b; c and 2 more" a b c d e
}

test_nothing_missing() {
  local difference="missing: set address 10.0.0.1"
  nothing_missing "all is well" true
  nothing_missing "shaping is switched off" \
    sh -c "sed -i s/true/false/ '$global'; echo '$difference' >quenbyctl"
  nothing_missing "the line is away" sh -c "rmdir ../net/eth1; echo '$difference' >quenbyctl"
  nothing_missing "verify cannot tell" sh -c "rm -f quenbyctl; echo 2 >../status"
}

# What costs nothing, and asks nobody.
test_not_asked() {
  all_well
  rm "$wanted" "$scratch"/say/*
  expect "what nobody wants is not missed" 1 "$(result missing)"
  expect "nor asked for" "" "$(cat "$calls")"
  expect "nor after a restoration" 1 "$(result missing --note)"
  all_well
  rm "$scratch"/say/*
  flock --no-fork "$scratch/quenby.lock" sleep 600 &
  holder=$!
  until ! flock --nonblock "$scratch/quenby.lock" true; do sleep 0.05; done
  expect "nobody looks while a run is under way" 1 "$(result missing)"
  expect "nor asks" "" "$(cat "$calls")"
  expect "but a line that appears is not forgotten" "0" "$(result missing eth1 | cut -c 1)"
  kill "$holder"
  wait "$holder" 2>/dev/null || true
  holder=''
  all_well
  expect "a look is one command" "quenbyctl verify" "$(result missing >/dev/null; cat "$calls")"
}

test_note() {
  all_well
  echo "missing: set kavo_opt_shaper" >"$scratch/say/quenbyctl"
  expect "what stays missing is noted" \
    "0 <4>not restored, and not tried again: missing: set kavo_opt_shaper" \
    "$(result missing --note)"
  expect "and not asked for again" 1 "$(result missing)"
  echo "missing: eth1 class 8000:4" >>"$scratch/say/quenbyctl"
  expect "something else is" "0 <5>missing: set kavo_opt_shaper; missing: eth1 class 8000:4" \
    "$(result missing)"
  all_well
  expect "nothing to note" 0 "$(result missing --note)"
  fails "no note" test -e "$scratch/quenby.lasting"
}

test_device() {
  all_well
  expect "a line that has its trees" 1 "$(result missing eth1)"
  rm "$scratch/say/eth1-8000"
  expect "a line without" "0 <5>missing: the tree of eth1" "$(result missing eth1)"
  expect "another interface" 1 "$(result missing eth2)"
  expect "asks for nothing" "" "$(cat "$calls")"
  echo failed >"$scratch/say/systemctl"
  expect "after a failed start" 1 "$(result missing eth1 | cut -c 1)"
  holds "the service is started" grep -qx 'systemctl --no-block restart quenby.service' "$calls"
}

# Times vary.
shaped() { result shape "$1" | sed 's/in [0-9]*\.[0-9] s/in N s/'; }

test_shape() {
  all_well
  rm "$wanted"
  touch "$scratch"/say/{quenby,quenbyctl,check-files}
  expect "the first start" "0" "$(result shape try)"
  holds "shaping is wanted" test -e "$wanted"
  expect "the files were tried" "check-files " "$(cat "$calls")"
  expect "it builds" "0 <5>loaded 1 tariffs with 1 addresses on eth1 in N s" "$(shaped start)"
  expect "and removes nothing" "quenby --load" "$(grep quenby "$calls")"
  echo --load >"$wanted"
  expect "another start" "0 <5>loaded 1 tariffs with 1 addresses on eth1 in N s" "$(shaped start)"
  expect "removes what stands" "quenby --stop --load" "$(grep quenby "$calls")"
  local done="1 tariffs with 1 addresses on eth1 in N s"
  expect "a restoration" "0 <5>restored $done, differences mended: 0" "$(shaped restore)"
  expect "repairs" "quenbyctl repair" "$(grep quenby "$calls")"
  expect "a reload" "0 <5>reloaded $done, differences mended: 0" "$(shaped reload)"
  expect "tries the files first" "check-files 
quenbyctl repair" "$(grep -v ipset "$calls")"
  printf '%s\n' 'mended missing: a' 'mended different: b: c' 'left missing: d' \
    >"$scratch/say/quenbyctl"
  echo 1 >"$scratch/say/quenbyctl.status"
  expect "a reload that leaves something fails" "1 <5>reloaded $done, differences mended: 2
<4>differences left: 1, the first: missing: d" "$(shaped reload)"
  expect "a restoration has it noted" "0 <5>restored $done, differences mended: 2
<4>differences left: 1, the first: missing: d" "$(shaped restore)"
  : >"$scratch/say/quenbyctl"
  expect "a repair that refuses the files" 1 "$(shaped restore)"
  rm "$scratch"/say/quenbyctl*
  echo 2 >"$scratch/status"
  expect "a repair that cannot run" 2 "$(shaped reload)"
  rm "$scratch/status"
  rmdir "$scratch/net/eth1"
  expect "no line yet" \
    "0 <5>loaded 1 tariffs with 1 addresses on eth1, which is not there yet, in N s" "$(shaped start)"
  sed -i s/true/false/ "$global"
  expect "switched off" "0 <5>shaping is switched off (enabled=false)" "$(shaped start)"
}

# A record of this boot is seen to by whoever watches it.
test_shape_takes_back() {
  local record kept=$scratch/config/tc_kept
  all_well
  mkdir -p "$kept"
  touch "$scratch"/say/check-files
  for record in change taking-back; do
    echo '"boot": "11111111-2222-3333-4444-555555555555"' >"$kept/$record"
    expect "a $record of another boot" "0" "$(result shape try)"
    expect "is taken back before the files are tried" "quenbyctl apply --take-back
check-files " "$(cat "$calls")"
    echo "\"boot\": \"$(cat /proc/sys/kernel/random/boot_id)\"" >"$kept/$record"
    expect "a $record of this boot" "0" "$(result shape try)"
    expect "is left alone" "check-files " "$(cat "$calls")"
    rm "$kept/$record"
  done
  rmdir "$kept"
}

test_shape_refuses() {
  local how
  all_well
  for how in try reload; do
    expect "$how with a broken file" 1 "$(result shape "$how")"
    expect "$how with a broken file runs nothing" "check-files " "$(cat "$calls")"
  done
  expect "a run that fails" 1 "$(result shape start)"
  for how in '' bogus; do
    expect "'$how'" "2 Usage: shape try|start|restore|reload|stop" "$(result shape "$how")"
  done
}

test_shape_stop() {
  all_well
  touch "$scratch/say/quenby"
  echo "1 quenby.service stop running" >"$scratch/say/systemctl"
  expect "a stop" 0 "$(result shape stop)"
  expect "removes" "quenby --stop" "$(grep quenby\  "$calls" | grep -v systemctl)"
  echo "1 quenby.service restart running" >"$scratch/say/systemctl"
  expect "a stop before a start" 0 "$(result shape stop)"
  expect "leaves it to the start" "" "$(grep quenby\  "$calls" | grep -v systemctl)"
}

# Call: as_root WANTED ARGUMENT...
as_root() {
  expect "as root: sudo ${*:2}" "$1" "$(result sudo "${@:2}")"
}

# Platforms call sudo in their own ways.
test_as_root() {
  printf '#!/bin/sh\necho "the real one: $*"\n' >"$scratch/bin/real-sudo"
  chmod 755 "$scratch/bin/real-sudo"
  as_root "0 -n" printf %s -n
  as_root "0 said" -n echo said
  as_root "0 said" --non-interactive echo said
  as_root 1 false
  as_root "0 the real one: -u nobody true" -n -u nobody true
  as_root "0 the real one: -- true" -- true
  as_root "0 the real one: VALUE=1 printenv VALUE" VALUE=1 printenv VALUE
  as_root "0 the real one: "
}

install_scripts
install_stand_ins
test_as_root
test_stored
test_wan
test_missing
test_nothing_missing
test_not_asked
test_note
test_device
test_shape
test_shape_takes_back
test_shape_refuses
test_shape_stop
finish
