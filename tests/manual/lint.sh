#!/bin/bash
# Every manual page is as mandoc wants them, to the last matter of style.
set -euo pipefail
shopt -s nullglob
pages=(docs/man/*.[158])
# The package has just these.
diff <(printf '%s\n' "${pages[@]}" | sort) <(sort debian/quenby.manpages)
status=0
findings=$(mandoc -T lint -W style "${pages[@]}" 2>/dev/null) || status=$?
# Whether the other manual pages are installed says nothing about these.
findings=$(sed '/: STYLE: referenced manual not found: /d' <<<"$findings")
printf '%s' "${findings:+$findings$'\n'}"
# 1 and 2 stand for findings of style and warnings, more for errors or no mandoc.
[ "$status" -le 2 ] && [ -z "$findings" ]
