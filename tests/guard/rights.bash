# Every collector that the guard is for, where the guard lacks a right or a program.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

# keeps_all WITHOUT LIMIT COMMAND...: each collector comes to what it comes to with all rights, when the
# command runs the guard without something. LIMIT is how one ends that takes 2 GiB.
keeps_all() {
  local what=$1 limit=$2
  shift 2
  configure RUN_TIME=1 STOP_TIME=1
  collector 'trap "" TERM; echo begun >"$archive"; while :; do sleep 1000; done'
  keeps "without $what, one that sleeps for ever and ignores SIGTERM is ended" gives 124 time "$@"
  collector 'mkfifo "$archive" && echo text >"$archive"'
  keeps 'one that writes to a pipe' gives 124 time "$@"
  configure STOP_TIME=1 MEMORY=64M
  collector 'setsid sleep 1000 & (trap "" TERM; setsid sh -c "sleep 1000 & sleep 1000" &)
cp "$work/whole.zip" "$archive"'
  keeps 'what one leaves running does not keep the run from its end' gives 0 'done' "$@"
  collector 'head -c 2G /dev/zero | tail -c 2G >/dev/null || exit 9; cp "$work/whole.zip" "$archive"'
  # shellcheck disable=SC2086 # Two words.
  keeps 'one that takes 2 GiB is ended' gives $limit "$@"
  collector 'head -c 100 "$work/whole.zip" >"$archive"'
  keeps 'a torn archive is removed' gives 70 broken "$@"
  collector 'exit 0'
  keeps 'there is none' gives 70 missing "$@"
  collector 'head -c 10M /dev/zero; cp "$work/whole.zip" "$archive"'
  keeps 'a flood of output does no harm' gives 0 'done' "$@"
  keeps 'on a file system of any size there is a whole archive or none' fits_or_fails "$@"
}

# What it comes to with the control groups of this machine, if there are any.
limit_here() {
  if "$guard" --check | grep '^memory.*a control group holds' >/dev/null; then
    echo '70 memory'
  else
    echo '9 exit'
  fi
}

test_rights() {
  keeps_all 'namespaces' "$(limit_here)" "${no_namespaces[@]}"
  keeps_all 'control groups' '9 exit' "${no_control_groups[@]}"
}
