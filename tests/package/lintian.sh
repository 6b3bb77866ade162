#!/bin/bash
# lintian finds neither errors nor warnings in the built package, and every
# override is needed.
#
# Call: tests/package/lintian.sh PACKAGE-FOLDER
set -euo pipefail
package=$(ls "${1:?Call: tests/package/lintian.sh PACKAGE-FOLDER}"/quenby_*.deb)
look() { lintian --allow-root --tag-display-limit 0 --fail-on none "$@" "$package"; }

found=$(look --display-level '>=warning' && look --tags mismatched-override,unused-override)
printf '%s\n' "${found:-no findings}"
[ -z "$found" ]
