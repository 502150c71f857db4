# A collector that does not end is ended.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

takes_at_most() {
  local began=$SECONDS
  "${@:2}" && ((SECONDS - began <= $1))
}

# A program in the place of another: what it is called with goes to a file.
logs_reason() {
  printf '#!/bin/sh\necho "$*" >>%s/log\n' "$work" >"$work/logger"
  chmod +x "$work/logger"
  unshare --mount bash -c 'mount --bind "$0" /usr/bin/logger && exec "$@"' "$work/logger" "$guard" \
    >/dev/null 2>&1
  grep -qF -- '-p local1.err -- The collector was ended: it had run for 1 seconds, which is RUN_TIME.' "$work/log"
}

test_time() {
  configure RUN_TIME=1 STOP_TIME=1
  collector 'sleep 1000'
  keeps 'a collector that sleeps for ever is ended' takes_at_most 20 gives 124 time
  keeps 'the reason is in the system log' logs_reason
  collector 'trap "" TERM; echo begun >"$archive"; while :; do sleep 1000; done'
  keeps 'one that ignores SIGTERM too' takes_at_most 20 gives 124 time
  collector 'trap "cp $work/whole.zip $archive; exit 0" TERM; sleep 1000 & wait'
  keeps 'an archive that comes after the end is not kept' gives 124 time
  configure RUN_TIME=1 STOP_TIME=1
  collector 'trap "" TERM; while :; do sleep 1000; done'
  keeps 'without namespaces, it is ended as well' gives 124 time "${no_namespaces[@]}"
  configure STOP_TIME=1
  collector 'touch "$work/runs"; echo begun >"$archive"; exec sleep 1000'
  keeps 'a signal to the guard ends the run in order' stops_in_order
}

stops_in_order() {
  local pid try
  "$guard" >"$work/output" 2>&1 &
  pid=$!
  for ((try = 0; try < 1000; ++try)); do
    [[ ! -e $work/runs ]] || break
    pause 0.01
  done
  kill -TERM "$pid"
  wait "$pid"
  [[ $? == 70 && $(last_run ended) == stopped ]] && leaves_nothing
}
