# The same collectors as of rights.bash, where programs are missing.
#
# shellcheck shell=bash disable=SC2016,SC2154 # Parts of guard_test, and scripts for collectors.

# shellcheck source=tests/guard/rights.bash
source "$(dirname "$0")/rights.bash"

test_programs() {
  local program
  for program in unshare setpriv timeout; do
    keeps_all "$program" "$(limit_here)" without "$program"
  done
  configure
  collector 'cp "$work/whole.zip" "$archive"'
  for program in bsdtar logger findmnt flock; do
    rm -f "$history"
    keeps "without $program there is an archive, and a line in the history" gives 0 'done' without "$program"
  done
}
