#!/bin/bash
# Every source file of the program passes clang-tidy.
# Call: tests/style/tidy.sh BUILD_FOLDER
set -euo pipefail
mapfile -t files < <(find cli ctl model config tc shaper -name '*.cpp')
[ "${#files[@]}" -gt 0 ]
printf '%s\n' "${files[@]}" | xargs -P 2 -n 4 clang-tidy-14 --quiet -p "$1"
