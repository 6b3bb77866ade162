# A small Debian of its own for the guest: what a freshly installed router has,
# and nothing of this machine. Made once, kept in the cache folder.
#
# Call: source lab/debian.sh (needs LAB_CACHE), then lab_debian_prepare PACKAGES,
# a list with commas. It sets LAB_DEBIAN_ROOT.
# shellcheck shell=bash

# An init system, a firewall, and what lab/network.sh needs to make and measure traffic.
LAB_DEBIAN_PACKAGES=(systemd-sysv udev nftables iproute2 iputils-ping ethtool iperf3 procps python3)

# Where this machine gets its packages from.
_debian_sources() {
  local file
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
    [ ! -s "$file" ] || printf '%s\n' "$file"
  done
}

# Makes FOLDER. It gets its name only when it is complete.
_debian_fetch() {
  local folder=$1 packages=$2 scratch sources
  mapfile -t sources < <(_debian_sources)
  echo "lab: making a small Debian in $LAB_CACHE" >&2
  scratch=$(mktemp -d "$LAB_CACHE/fetch.XXXXXX")
  if ! mmdebstrap --mode=root --variant=minbase --format=directory \
    --aptopt='APT::Install-Recommends "false"' --include="$packages" \
    "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$scratch/root" "${sources[@]}" \
    >"$scratch/log" 2>&1; then
    tail -n 20 "$scratch/log" >&2
    rm -rf "$scratch"
    echo "lab: cannot make a Debian with $packages" >&2
    return 1
  fi
  mv -T "$scratch/root" "$folder"
  rm -rf "$scratch"
}

# Of several callers one works and the others wait for it.
lab_debian_prepare() {
  local lock packages digest
  [ "$(id -u)" -eq 0 ] || { echo "lab: making a Debian needs root" >&2; return 1; }
  packages=$(IFS=,; echo "${LAB_DEBIAN_PACKAGES[*]}")${1:+,$1}
  digest=$(sha256sum <<<"$packages" | cut -c 1-12)
  LAB_DEBIAN_ROOT=$LAB_CACHE/debian-$digest
  mkdir -p "$LAB_CACHE"
  exec {lock}>"$LAB_CACHE/.lock"
  flock "$lock"
  [ -e "$LAB_DEBIAN_ROOT" ] || _debian_fetch "$LAB_DEBIAN_ROOT" "$packages" || return 1
  exec {lock}>&-
}
