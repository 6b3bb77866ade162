# The lab without a guest: namespaces of the running kernel.
#
# Call: source lab/here.sh, then here_run.
# shellcheck shell=bash

here_run() {
  echo "lab: --here is not supported yet" >&2
  return 2
}
