# Package lists and a way to install what is missing of them, for the other
# scripts of this tree.
#
# Call: source scripts/packages.sh; ensure_packages "${QUENBY_BUILD_PACKAGES[@]}"
# shellcheck shell=bash

# What compiles and links the program.
# shellcheck disable=SC2034  # the arrays are for the scripts that source this
QUENBY_BUILD_PACKAGES=(
  g++ cmake ninja-build pkg-config
  libnl-3-dev libnl-route-3-dev libnl-nf-3-dev libnl-cli-3-dev
  libboost-filesystem-dev libcli11-dev nlohmann-json3-dev libncurses-dev
)

# What makes the Debian package. systemd tells where its units go.
# shellcheck disable=SC2034
QUENBY_PACKAGING_PACKAGES=(debhelper dpkg-dev systemd)

# What draws the documents' pictures. The width of letters decides where dot puts
# things, so the font is one of them.
# shellcheck disable=SC2034
QUENBY_PICTURE_PACKAGES=(graphviz gnuplot-nox fonts-dejavu-core)

# What builds and runs the tests and the style checks.
# shellcheck disable=SC2034
QUENBY_TEST_PACKAGES=(
  libgtest-dev libgmock-dev clang-14 clang-format-14 clang-tidy-14
  python3 shellcheck lintian mmdebstrap mandoc zsh prometheus ansible-core
)

# What every kernel test uses, whichever kernel it runs on.
# shellcheck disable=SC2034
QUENBY_LAB_PACKAGES=(
  iproute2 iptables ipset nftables ethtool iperf3 iputils-ping
  sudo procps strace util-linux python3 tmux
)

# What boots the disposable guest. The guest runs this machine's programs, so
# kmod is also what loads kernel modules in there.
# shellcheck disable=SC2034
QUENBY_GUEST_PACKAGES=(qemu-system-x86 busybox-static cpio kmod)

# Prints the names among PKG... that are installed, one per line.
_installed_packages() {
  # shellcheck disable=SC2016  # the field names are dpkg-query's, not ours
  dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null |
    sed -n 's/^installed //p'
}

# Prints the names among PKG... that are not installed, one per line. One query for
# all of them: under emulation each takes a second.
missing_packages() {
  [ $# -gt 0 ] || return 0
  printf '%s\n' "$@" | grep -vxFf <(_installed_packages "$@") || [ $? -eq 1 ]
}

# Runs apt-get without questions and as root. Waits for another apt-get or dpkg
# run to end instead of failing on its lock.
_apt_get() {
  local command=(env DEBIAN_FRONTEND=noninteractive
    apt-get -y -q -o DPkg::Lock::Timeout=600 -o Dpkg::Use-Pty=0 "$@")
  if [ "$(id -u)" -eq 0 ]; then
    "${command[@]}"
  elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    sudo -n "${command[@]}"
  else
    echo "apt-get needs root, and sudo does not give it without a password" >&2
    return 1
  fi
}

# True when the package lists of this machine know every one of PKG...
_packages_known() {
  local package
  for package in "$@"; do
    apt-cache show --no-all-versions "$package" >/dev/null 2>&1 || return 1
  done
}

_install_packages() {
  if ! _packages_known "$@"; then
    _apt_get update && _apt_get install --no-install-recommends "$@"
    return
  fi
  # Lists that know a package can still name a version the mirror has dropped.
  _apt_get install --no-install-recommends "$@" ||
    { _apt_get update && _apt_get install --no-install-recommends "$@"; }
}

# Installs those of PKG... that are missing; silent when there are none.
ensure_packages() {
  local missing log
  mapfile -t missing < <(missing_packages "$@")
  [ "${#missing[@]}" -gt 0 ] || return 0
  echo "Installing Debian packages: ${missing[*]}" >&2
  log=$(mktemp)
  if ! _install_packages "${missing[@]}" >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    rm -f "$log"
    echo "Error: cannot install: ${missing[*]}" >&2
    echo "As root: apt-get install --no-install-recommends ${missing[*]}" >&2
    return 1
  fi
  rm -f "$log"
}
