# The collector is in nobody's way.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

# The class that the collector tells of itself in the archive's place.
runs_gently() {
  local told
  "$@" "$guard" >"$work/output" 2>&1
  told=$(xargs <"$work/told")
  [[ $told == "$expected" ]] || { echo "  $told" && return 1; }
}

# least NICENESS: prints that, or this shell's own when it is greater.
least() {
  local own
  own=$(nice)
  echo $((own > $1 ? own : $1))
}

# reports NAME STATE TEXT [PREFIX...]: the guard does of what it can protect.
reports() {
  local line
  line=$("${@:4}" "$guard" --check | grep "^$1"$'\t')
  [[ $line == "$1"$'\t'"$2"$'\t'*"$3"* ]] || { echo "  $line" && return 1; }
}

proc_read_only=(unshare --mount bash -c 'mount -o remount,bind,ro /proc && exec "$@"' -)

test_gentle() {
  collector '{ chrt -p $$ | sed "s/.*: //"; nice; ionice; cat /proc/self/oom_score_adj; } >"$work/told"'
  expected="SCHED_OTHER 0 $(least 10) idle 500"
  keeps 'the collector is gentle' runs_gently
  if chrt --rr 50 true 2>/dev/null; then
    keeps 'also under an agent in a real-time class' runs_gently chrt --rr 50
  fi
  configure NICE=3 IO=best-effort OOM_SCORE_ADJ=7
  expected="SCHED_OTHER 0 $(least 3) best-effort: prio 4 7"
  keeps 'as far as the settings say' runs_gently
  expected='SCHED_OTHER 0 best-effort: prio 4 7' # the collector has no nice either
  keeps 'without nice, the rest is kept' runs_gently without nice
  configure
  expected="SCHED_OTHER 0 $(least 10) 500"
  keeps 'without ionice, too' runs_gently without ionice
  keeps 'which is reported' reports io off 'no program ionice' without ionice
  keeps 'the score for the out-of-memory killer is reported' reports oom on '500 is added'
  keeps 'where the kernel takes none' reports oom off 'Read-only' "${proc_read_only[@]}"
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'and the archive is made there' gives 0 'done' "${proc_read_only[@]}"
  keeps 'without timeout, that the collector is killed at once is reported' \
    reports 'run time' off 'after 3600 seconds, without SIGTERM' without timeout
}
