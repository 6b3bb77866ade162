# The guest's kernel and initramfs: fetched once, kept in the cache folder.
#
# Call: source lab/kernel.sh (needs LAB_ROOT, the top of the tree, and
# LAB_CACHE, the cache folder), then lab_kernel_prepare. It sets
# LAB_KERNEL_VERSION, LAB_VMLINUX, LAB_MODULES and LAB_INITRAMFS.
# shellcheck shell=bash

# Enough to reach the machine's files from the initramfs; the kernel loads
# everything else by itself once it sees its module folder.
LAB_INITRAMFS_MODULES=(virtio_pci 9p 9pnet_virtio overlay)

# The newest unpacked kernel of the cache, or nothing.
_kernel_cached() {
  local found=("$LAB_CACHE"/kernel-*/)
  [ -d "${found[0]}" ] || return 0
  printf '%s\n' "${found[@]%/}" | sort -V | tail -n 1
}

# Sets the LAB_* results for the unpacked kernel FOLDER. The initramfs carries
# a digest of its init script in its name, so a changed script gets a new one.
_kernel_use() {
  local folder=$1 digest
  LAB_KERNEL_VERSION=${folder##*/kernel-}
  LAB_VMLINUX=$LAB_CACHE/vmlinux-$LAB_KERNEL_VERSION
  # shellcheck disable=SC2034  # read by the script that sources this
  LAB_MODULES=$folder/lib/modules/$LAB_KERNEL_VERSION
  digest=$({ cat "$LAB_ROOT/lab/guest-init"; echo "${LAB_INITRAMFS_MODULES[@]}"; } |
    sha256sum | cut -c 1-12)
  LAB_INITRAMFS=$LAB_CACHE/initramfs-$LAB_KERNEL_VERSION-$digest.cpio
}

# The package that Debian's linux-image-amd64 stands for at the moment.
_kernel_package() {
  apt-cache depends linux-image-amd64 2>/dev/null |
    awk '$1 == "Depends:" && $2 ~ /^linux-image-[0-9]/ { print $2; exit }'
}

_kernel_arrange() {
  depmod -b "$1" "$(ls "$1/lib/modules")"
}

# Puts the kernel package into the cache folder.
_kernel_fetch() {
  local package version
  package=$(_kernel_package)
  if [ -z "$package" ]; then
    _apt_get update >/dev/null
    package=$(_kernel_package)
  fi
  [ -n "$package" ] || { echo "lab: no linux-image-amd64 in the package lists" >&2; return 1; }
  version=${package#linux-image-}
  lab_unpack "$package" "$LAB_CACHE/kernel-$version" _kernel_arrange
}

# Downloads and unpacks a package. The folder gets its final name only when it is
# complete, which ARRANGE, called with the folder's first name, makes it.
# Call: lab_unpack PACKAGE FOLDER ARRANGE
lab_unpack() {
  local package=$1 folder=$2 arrange=$3 scratch
  echo "lab: fetching $package into $LAB_CACHE" >&2
  scratch=$(mktemp -d "$LAB_CACHE/fetch.XXXXXX")
  if ! _lab_download "$package" "$scratch" ||
    ! dpkg -x "$scratch"/*.deb "$scratch/root" ||
    ! "$arrange" "$scratch/root"; then
    rm -rf "$scratch"
    echo "lab: cannot fetch and unpack $package" >&2
    return 1
  fi
  chmod 755 "$scratch/root"
  mv -T "$scratch/root" "$folder"
  rm -rf "$scratch"
}

_lab_download() {
  local package=$1 folder=$2
  # apt's own download user may not write into our folder.
  (cd "$folder" && apt-get -q -o APT::Sandbox::User="$(id -un)" download "$package" >&2) ||
    { _apt_get update >/dev/null &&
      (cd "$folder" && apt-get -q -o APT::Sandbox::User="$(id -un)" download "$package" >&2); }
}

# Copies busybox, the init script and the modules into FOLDER. The modules are
# numbered in the order in which they must be loaded.
_initramfs_fill() {
  local folder=$1 path number=10
  mkdir -p "$folder"/{bin,modules,proc,sys,dev,lower,lab,base,rw,new}
  cp "$(command -v busybox)" "$folder/bin/busybox"
  install -m 755 "$LAB_ROOT/lab/guest-init" "$folder/init"
  while read -r path; do
    cp "$path" "$folder/modules/$number-${path##*/}"
    number=$((number + 1))
  done < <(modprobe -d "$LAB_CACHE/kernel-$LAB_KERNEL_VERSION" -S "$LAB_KERNEL_VERSION" \
    --show-depends -a "${LAB_INITRAMFS_MODULES[@]}" |
    awk '$1 == "insmod" && !seen[$2]++ { print $2 }')
  [ "$number" -gt 10 ] || { echo "lab: no modules for the initramfs" >&2; return 1; }
}

_initramfs_build() {
  local scratch
  scratch=$(mktemp -d "$LAB_CACHE/initramfs.XXXXXX")
  if ! _initramfs_fill "$scratch/root" ||
    ! (cd "$scratch/root" && find . | cpio --quiet -o -H newc -R 0:0) >"$scratch/image"; then
    rm -rf "$scratch"
    echo "lab: cannot build the initramfs" >&2
    return 1
  fi
  chmod 644 "$scratch/image"
  mv "$scratch/image" "$LAB_INITRAMFS"
  rm -rf "$scratch"
}

# Copies N bytes and reads the rest too: the program before it in a pipe would die of
# one that nobody reads.
_first_bytes() {
  head -c "$1"
  cat >/dev/null
}

# Prints the kernel that the boot image FILE carries, see the kernel's
# Documentation/arch/x86/boot.rst: payload_offset and payload_length count from the
# end of the set-up sectors. The kernel's length follows its compressed form.
_vmlinux_of() {
  local file=$1 sectors place
  sectors=$(od -An -tu1 -j 497 -N 1 "$file")
  read -r -a place < <(od -An -tu4 -j 584 -N 8 "$file")
  tail -c "+$(((sectors + 1) * 512 + place[0] + 1))" "$file" | _first_bytes "${place[1]}" |
    xz -dc --single-stream
}

# A kernel that unpacks itself takes longer for it under emulation than for the
# rest of its start. QEMU starts an unpacked one at the entry for PVH guests; a
# kernel without that entry, or packed otherwise, stays as it is.
_vmlinux_make() {
  local boot=$LAB_CACHE/kernel-$LAB_KERNEL_VERSION/boot scratch
  scratch=$(mktemp "$LAB_CACHE/vmlinux.XXXXXX")
  if ! grep -qx CONFIG_PVH=y "$boot/config-$LAB_KERNEL_VERSION" ||
    ! _vmlinux_of "$boot/vmlinuz-$LAB_KERNEL_VERSION" >"$scratch" 2>/dev/null; then
    cp "$boot/vmlinuz-$LAB_KERNEL_VERSION" "$scratch" || { rm -f "$scratch"; return 1; }
  fi
  chmod 644 "$scratch"
  mv "$scratch" "$LAB_VMLINUX"
}

# True when kernel and initramfs are there; sets the LAB_* results.
_kernel_ready() {
  local folder
  folder=$(_kernel_cached)
  [ -n "$folder" ] || return 1
  _kernel_use "$folder"
  [ -e "$LAB_INITRAMFS" ] && [ -e "$LAB_VMLINUX" ]
}

# Makes kernel and initramfs unless they are there. Of several callers one works
# and the others wait for it.
lab_kernel_prepare() {
  local lock
  _kernel_ready && return
  [ "$(uname -m)" = x86_64 ] || { echo "lab: the guest needs an x86_64 machine" >&2; return 1; }
  mkdir -p "$LAB_CACHE"
  exec {lock}>"$LAB_CACHE/.lock"
  flock "$lock"
  if ! _kernel_ready; then
    [ -n "$(_kernel_cached)" ] || _kernel_fetch || return 1
    _kernel_use "$(_kernel_cached)"
    _initramfs_build && _vmlinux_make || return 1
  fi
  exec {lock}>&-
}
