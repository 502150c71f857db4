# The guard leaves no process behind, whatever ends and whenever.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

families='trap "" TERM INT HUP
setsid sleep 1000 & (trap "" TERM; setsid sh -c "sleep 1000 & sleep 1000" &) ; sleep 1000 &'

# end_at_any_instant LONGEST SIGNAL PROCESS COMMAND...: the command is begun and, up to LONGEST
# milliseconds later, gets the signal. Nothing is left.
end_at_any_instant() {
  "${@:3}" >/dev/null 2>&1 &
  pause "$(printf '%d.%03d' $((delay / 1000)) $((delay % 1000)))"
  kill -s "$2" $! 2>/dev/null
  wait $! 2>/dev/null
  is_quiet
}

# ended ROUNDS SIGNAL COMMAND...: as often. The instants are spread over a run and a little more.
ended() {
  local round longest
  longest=$(date +%s%N)
  "${@:3}" >/dev/null 2>&1
  longest=$((($(date +%s%N) - longest) / 1000000 + 20))
  is_quiet || return 1
  for ((round = 0; round < $1; ++round)); do
    delay=$((SRANDOM % longest))
    end_at_any_instant "$longest" "$2" "${@:3}" || return 1
  done
}

test_survivors() {
  local rounds=${EM_TALVOR_GUARD_ROUNDS:-6} host
  host=("$build/bin/em_host" run --module "$build/lib/qamrel/em_talvor" create)
  collector "$families"'
cp "$work/whole.zip" "$archive"'
  keeps 'what the collector leaves running is ended before the archive counts' gives 0 'done'
  keeps 'nothing of it is left then' is_quiet
  configure RUN_TIME=1 STOP_TIME=1
  collector "$families"'
while :; do sleep 1000; done'
  keeps 'nor after a collector that ignores SIGTERM' gives 124 time
  keeps 'nothing of it is left either' is_quiet
  configure
  collector "$families"'
sleep 0.1; cp "$work/whole.zip" "$archive"'
  keeps 'SIGKILL to the guard at any instant leaves no process' ended $((rounds * 2 / 5)) KILL "$guard"
  keeps 'SIGKILL to the agent at any instant leaves no process' ended $((rounds * 2 / 5)) KILL "${host[@]}"
  keeps 'a stop of the module at any instant leaves no process' ended $(((rounds + 4) / 5)) TERM "${host[@]}"
  collector 'sleep 1000 & cp "$work/whole.zip" "$archive"'
  keeps 'without namespaces, what stays in the process group is ended' \
    gives 0 'done' "${no_namespaces[@]}"
  keeps 'nothing of it is left' is_quiet
  collector 'touch "$work/runs"; exec sleep 1000'
  keeps 'without namespaces, SIGKILL to the guard leaves no collector' \
    end_without_namespaces
}

# What runs before the collector does may miss the end of the process before it.
end_without_namespaces() {
  "${no_namespaces[@]}" "$guard" >/dev/null 2>&1 &
  while [[ ! -e $work/runs ]]; do
    pause 0.01
  done
  kill -KILL $!
  wait $! 2>/dev/null
  is_quiet
}
