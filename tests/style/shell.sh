#!/bin/bash
# Every shell script passes shellcheck.
set -euo pipefail
mapfile -t files < <(find .ci completion debian lab platform scripts tests -type f -exec grep -lE '^#!/bin/(ba)?sh|^# shellcheck shell=' {} +)
[ "${#files[@]}" -gt 0 ]
shellcheck --external-sources "${files[@]}"
