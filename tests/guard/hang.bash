# The collector or the guard itself hangs, as in the kernel when a disk does not answer, and the run is given up.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

# A copy of the guard that has a second of patience, not a minute.
make_impatient() {
  mkdir -p "$work/lib/em-talvor"
  cp -rL "${guard%/*}" "$work/lib/em-talvor/guard"
  ln -s "$build/bin" "$work/bin"
  guard=$work/lib/em-talvor/guard/Talvor
  [[ $(grep -c '^patience=60$' "$guard") == 1 ]] && sed -i 's/^patience=60$/patience=1/' "$guard"
}

# gives_up [PREFIX...]: the process of the guard that watches the collector is stopped while that runs.
gives_up() {
  local run status=0 inside
  rm -f "$work/runs"
  timeout -s KILL 60 "$@" "$guard" >"$work/output" 2>&1 &
  run=$!
  until [[ -e $work/runs ]]; do pause 0.01; done
  inside=$(pgrep -o -f '^/bin/bash -p .*/Talvor inside ')
  kill -STOP "$inside"
  wait "$run" || status=$?
  [[ $status == 70 ]] && tells 'The run hangs in the kernel, and is given up.' && is_quiet && return
  echo "  status $status"
  return 1
}

# A program in the place of timeout ends nothing, as the kernel ends no process that waits for a disk.
without_end() {
  printf '%s\n' '#!/bin/bash' 'case $1 in --kill-after=*) trap "" TERM; "${@:3}" ;; *) exec "${@:2}" ;; esac' >"$work/timeout"
  chmod +x "$work/timeout"
  unshare --mount bash -c 'mount --bind "$work/timeout" "$(type -P timeout)" && exec "$@"' - "$@"
}

test_hang() {
  configure RUN_TIME=1 STOP_TIME=1
  collector 'trap "" TERM; echo begun >"$archive"; while :; do sleep 1000; done'
  keeps 'a collector that cannot be ended is given up' gives 70 hung without_end
  keeps 'and that is told' tells 'The collector hangs in the kernel and cannot be ended.'
  keeps 'nothing of it that can be ended is left running' is_quiet
  collector 'trap "" TERM; echo begun >"$archive"; touch "$work/runs"; while :; do sleep 1000; done'
  keeps 'there is one minute of patience' make_impatient
  keeps 'a guard that hangs is given up, and nothing is left running' gives_up
  keeps 'without namespaces as well' gives_up "${no_namespaces[@]}"
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'the next run is not held up' gives 0 'done'
  keeps 'and tells of the one before' grep -q '"ended":"killed"' "$history"
}
