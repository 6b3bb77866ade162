#!/bin/bash
# The tests that become another user or look at the machine's /tmp pass from a
# clone that only its owner may enter and that lies below /tmp.
#
# Call: tests/kernel/private_clone_test.sh BUILD_FOLDER   (on the machine, not inside the lab)
set -euo pipefail
cd "$(dirname "$0")/../.."

# Shows the machine's cache in the clone, in a mount namespace that ends with this.
build=$(realpath "${1:?build folder}")
if [ "$(id -u)" -eq 0 ] && [ "${2-}" != --apart ]; then
  exec unshare --mount "$0" "$build" --apart
fi
folder=$(mktemp -d /tmp/quenby-clone.XXXXXX)
trap 'umount "$folder/clone/.cache" 2>/dev/null || true; rm -rf --one-file-system "$folder"' EXIT
clone=$folder/clone
cache=$(realpath "${QUENBY_CACHE:-.cache}")
mkdir "$clone"
tar -c --exclude=./build --exclude=./.cache --exclude=./.git . | tar -x -C "$clone"
if [ "$(id -u)" -eq 0 ]; then
  mkdir "$clone/.cache"
  mount --bind "$cache" "$clone/.cache"
else
  ln -s "$cache" "$clone/.cache"
fi
[ "$(stat -c %a "$folder")" = 700 ]

unset QUENBY_CACHE
cd "$clone"
status=0
tests/kernel/lab_test.sh test_user || status=1
python3 -B tests/completion/bash_test.py || status=1
scripts/lab --timeout 900 --user-mode tests/kernel/preflight_test.sh legacy "$build/quenby" || status=1
exit "$status"
