#!/bin/bash
# Every C++ file is as clang-format would write it.
set -euo pipefail
mapfile -t files < <(find cli ctl model config tc shaper tests -name '*.h' -o -name '*.cpp')
[ "${#files[@]}" -gt 0 ]
clang-format-14 --dry-run --Werror "${files[@]}"
