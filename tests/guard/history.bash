# The lines of the history, and what the collector prints.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

is_history() {
  ! grep -qvE '^\{"start":"[-0-9]+T[0-9:.]+Z",.*\}$' "$history" && (($(stat -c %s "$history") <= 1 << 20))
}

# fill LINES: a history of so many lines of 128 bytes.
fill() {
  local line
  printf -v line '{"start":"2000-01-01T00:00:00Z","ended":"%0*d"}' 80 0
  yes "$line" | head -n "$1" >"$history"
}

survives_kills() {
  local round
  # shellcheck source=guard/history.bash
  source "$source_directory/history.bash"
  for ((round = 0; round < 20; ++round)); do
    (append_to_history '{"start":"2026-01-01T00:00:00Z","ended":"new"}') &
    pause "0.00$((SRANDOM % 10))"
    kill -KILL $! 2>/dev/null
    wait $! 2>/dev/null
    is_history || return 1
  done
  append_to_history '{"start":"2026-01-01T00:00:00Z","ended":"last"}'
  is_history && [[ $(last_run ended) == last ]]
}

tells_of_killed_run() {
  "$guard" >"$work/output" 2>&1 &
  until [[ -e $work/runs ]]; do pause 0.01; done
  kill -KILL $!
  wait $! 2>/dev/null
  configure STOP_TIME=1
  collector 'exit 4'
  "$guard" >"$work/output" 2>&1
  [[ $(tail -n 2 "$history" | sed 's/.*"ended":"\([a-z]*\).*/\1/' | xargs) == 'killed exit' ]]
}

tells_once() {
  tail -n 1 "$history" >/var/lib/em-talvor/running
  gives 70 missing && (($(tail -n 3 "$history" | cut -d , -f 1 | uniq | wc -l) == 3))
}

floods_nothing() {
  gives 0 'done' && [[ $(stat -c '%s %a' /var/lib/em-talvor/output) == '65536 600' ]] && [[ ! -s $work/output ]]
}

test_history() {
  configure
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'a run gets a line' gives 0 'done'
  keeps 'of JSON' is_history
  fill 12000
  keeps 'the oldest lines make room' gives 0 'done'
  keeps 'below the limit' is_history
  keeps 'whole lines are left when the writer is killed' survives_kills
  collector 'touch "$work/runs"; sleep 1000'
  keeps 'the run after a killed one tells of it' tells_of_killed_run
  collector 'exit 0'
  keeps 'one that was killed after its line is told once' tells_once
  collector 'head -c 100M /dev/zero; cp "$work/whole.zip" "$archive"'
  keeps 'of a flood of output the end is kept' floods_nothing
  rm -r /var/lib/em-talvor && touch /var/lib/em-talvor
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'without a place for it, the archive is made' exits_with 0 "$guard"
}

exits_with() {
  local status=0
  "${@:2}" >"$work/output" 2>&1 || status=$?
  ((status == $1))
}
