#!/bin/bash
# lintian finds neither errors nor warnings in the built package, and every
# override is needed.
#
# Call: tests/package/lintian.sh PACKAGE-FOLDER
set -euo pipefail
package=$(ls "${1:?Call: tests/package/lintian.sh PACKAGE-FOLDER}"/quenby_*.deb)
found=$(lintian --allow-root --tag-display-limit 0 --fail-on none \
  --display-level '>=warning' --display-level +info/unused-override "$package")
printf '%s\n' "${found:-no findings}"
[ -z "$found" ]
