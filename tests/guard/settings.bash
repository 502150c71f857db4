# What guard.conf may say and what the collector gets to see.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

# refuses TEXT MESSAGE: a file with that text.
refuses() {
  printf '%b' "$1" >"$conf"
  exits_with 70 "$guard" && tells "$2" && [[ ! -e $work/ran ]]
}

sees_environment() {
  env -i PATH=/usr/bin:/bin LANG=C.UTF-8 HOME=/root SECRET=x BASH_ENV=/none "$guard" >"$work/output" 2>&1
  [[ $(sort "$work/environment" | xargs) == "$1" ]] || { sort "$work/environment" && return 1; }
}

# sees_guard YES|NO
sees_guard() {
  "$guard" >"$work/output" 2>&1
  [[ $(grep -c . "$work/seen") == "$1" ]]
}

# Of an agent that has another file open and ignores a signal. The file 3 is the directory that ls reads.
starts_afresh() {
  env --ignore-signal=PIPE bash -c 'exec 9</dev/null "$0"' "$guard" >"$work/output" 2>&1
  [[ $(xargs <"$work/seen") == '0 1 2 3 SigIgn: 0000000000000000' ]] || { cat "$work/seen" && return 1; }
}

without_files() {
  "$@" <&- >&- 2>&-
}

# Started by a process whose own parent has ended.
refuses_orphan() {
  local try
  rm -f "$work/output"
  bash -c '{ until read -r _ _ _ parent _ </proc/self/stat && ((parent == 1)); do sleep 0.01; done
    exec "$0" >"$work/output" 2>&1; } &' "$guard"
  for ((try = 0; try < 500; ++try)); do
    ! grep -qF 'Nothing was started.' "$work/output" 2>/dev/null || break
    pause 0.01
  done
  tells 'The agent that has started this run has gone. Nothing was started.' && [[ ! -e $work/ran ]]
}

# This shell is no "outside" of it.
refuses_without_outside() {
  exits_with 70 "$guard" inside 1 0 1 "$data" "$work/collector" && [[ ! -e $work/ran ]]
}

test_settings() {
  collector 'touch "$work/ran"'
  keeps 'an unknown setting is refused' refuses 'NICE=1\nNICER=2\n' 'guard.conf, line 2: there is no setting NICER'
  keeps 'a bad number too' refuses '\n# x\nRUN_TIME=1h' 'guard.conf, line 3: "1h" is no number of seconds'
  keeps 'a size' refuses 'MEMORY=1T' 'line 1: "1T" is no size'
  keeps 'a line that is none' refuses 'NICE 1' 'line 1: "NICE 1" is not KEY=VALUE'
  keeps 'what looks like a command' refuses 'NICE=$(touch /tmp/x)' 'is no niceness from 0 to 19'
  keeps 'a directory without a collector' refuses 'COLLECTOR=/none' 'There is no collector "/none/Talvor"'
  keeps 'the guard as the collector' refuses "COLLECTOR=${guard%/*}" 'is this guard itself'
  rm "$conf" && ln -s /none "$conf"
  keeps 'a link to nothing is no file of settings' exits_with 70 "$guard"
  rm "$conf"
  configure NICE=08 MEMORY=0800M
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'numbers may begin with 0' gives 0 'done'
  configure
  keeps 'an agent may have closed its standard files' gives 0 'done' without_files
  collector 'touch "$work/ran"; cp "$work/whole.zip" "$archive"'
  rm -f "$work/ran"
  keeps 'an agent that has gone starts nothing' refuses_orphan
  keeps 'nor does one whose guard has gone' refuses_without_outside
  collector 'env | grep -v "^PWD=" >"$work/environment" # the shell sets PWD itself'
  keeps 'the collector gets the variables that are to pass' \
    sees_environment 'HOME=/root LANG=C.UTF-8 PATH=/usr/bin:/bin'
  collector 'ls /proc/self/fd >"$work/seen"; grep SigIgn /proc/self/status >>"$work/seen"'
  keeps 'no file but the standard ones, and no signal that is ignored' starts_afresh
  configure ENVIRONMENT=SECRET
  collector 'env | grep -v "^PWD=" >"$work/environment"'
  keeps 'others if they are named' sees_environment 'SECRET=x'
  collector 'ps -o comm= -p 1 >/dev/null; grep -lx Talvor /proc/[0-9]*/comm >"$work/seen"'
  configure PROC=machine
  keeps 'it sees the processes of the machine' sees_guard 3
  configure PROC=own
  keeps 'or its own' sees_guard 1
  rm "$conf"
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'without a file the defaults hold' exits_with 0 "$guard"
  rm -r /etc/qamrel
  keeps 'without a registry nothing is started' exits_with 70 "$guard"
}
