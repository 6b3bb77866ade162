#!/bin/bash
# Every shell script passes shellcheck.
set -euo pipefail
mapfile -t files < <(find .ci scripts lab platform tests debian completion -type f -exec grep -lE '^#!/bin/(ba)?sh|^# shellcheck shell=' {} +)
[ "${#files[@]}" -gt 0 ]
shellcheck --external-sources "${files[@]}"
