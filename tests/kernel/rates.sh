# Checks of shaped rates, for tests in the lab.
#
# Call: source tests/kernel/checks.sh, lab/network.sh and this; start iperf3 servers on port 5201 and
# the ports after it, one per flow; then rates_hold "DIRECTION ADDRESS SPEED"... (Mbit/s)
# shellcheck shell=bash

# A class starts with 240 ms of traffic at hand, so what comes first is left out.
_RATES_SKIPPED=2
_RATES_SECONDS=4

# A processor that others keep busy makes traffic slower, never faster.
_RATES_TRIES=4

# Measures the flows at once. Leaves nothing for one that failed. Call: _rates_measure FOLDER FLOW...
_rates_measure() {
  local folder=$1 port=5201 flow direction address pids=() pid
  for flow in "${@:2}"; do
    read -r direction address _ <<<"$flow"
    network_rate "$direction" "$address" "$_RATES_SECONDS" "$_RATES_SKIPPED" "$port" \
      >"$folder/$direction-$address" &
    pids+=("$!")
    port=$((port + 1))
  done
  for pid in "${pids[@]}"; do wait "$pid" || true; done
}

# Headers make 94 to 97 % of a speed.
_rate_is_low() { awk -v got="$1" -v speed="$2" 'BEGIN { exit !(got < 0.85 * speed) }'; }
_rate_is_high() { awk -v got="$1" -v speed="$2" 'BEGIN { exit !(got > 1.03 * speed) }'; }
_rate_is_right() { ! _rate_is_low "$@" && ! _rate_is_high "$@"; }

# Each flow stays below 103 % of its speed at every try, and reaches 85 % of it at one.
rates_hold() {
  local folder try flow direction address speed got left=("$@") low
  folder=$(mktemp -d)
  for ((try = 1; try <= _RATES_TRIES; try++)); do
    _rates_measure "$folder" "${left[@]}"
    low=()
    for flow in "${left[@]}"; do
      read -r direction address speed <<<"$flow"
      got=$(cat "$folder/$direction-$address")
      if [ "$try" -lt "$_RATES_TRIES" ] && _rate_is_low "$got" "$speed"; then
        echo "slow: $direction $address: ${got:-nothing} of $speed Mbit/s"
        low+=("$flow")
      else
        holds "$direction $address: $got of $speed Mbit/s" _rate_is_right "$got" "$speed"
      fi
    done
    left=("${low[@]}")
    [ "${#left[@]}" -gt 0 ] || break
  done
  rm -r "$folder"
}
