# The commands of em_host that put the guard in its place and show what it has done.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

setup='HKLM\SOFTWARE\Talvor\Setup'

# The host: what it prints goes to $work/output.
em_host() {
  "$build/bin/em_host" "$@" >"$work/output" 2>&1
}

# says STATUS TEXT COMMAND...: em_host does.
says() {
  local status=0
  em_host "${@:3}" || status=$?
  { [[ $status == "$1" ]] && tells "$2"; } || {
    echo "  status $status"
    return 1
  }
}

set_value() {
  "$build/bin/qamreg" add "$setup" -v "$1" -d "$2" >/dev/null
}

# register NAME=DIRECTORY...: nothing else is in the registry.
register() {
  rm -rf /etc/qamrel && mkdir /etc/qamrel
  "$build/bin/qamreg" pointer Talvor 'HKLM\SOFTWARE\Talvor' >/dev/null
  local value
  for value; do
    set_value "${value%%=*}" "${value#*=}"
  done
}

# has_values NAME=DIRECTORY...: the Setup key has these and no others.
has_values() {
  local values
  values=$("$build/bin/qamreg" query "$setup" | sed -n 's/^    \([^ ]*\)    REG_SZ    /\1=/p' | xargs)
  [[ $values == "$*" ]] || { echo "  $values" && return 1; }
}

creates_under_guard() {
  says 0 'create: done (status 0)' run --module "$build/lib/qamrel/em_talvor" create && is_sealed
}

# With the guard's program, as an agent does that has read the registry before.
creates_unguarded() {
  rm "$archive"
  "$guard" && [[ $(ls "$data") == Talvor_Data.zip ]] && (($(wc -l <"$history") == runs))
}

test_place() {
  local off=("DataRoot=$data" "FileRoot=$work/collector")
  local on=("DataRoot=$data" "FileRoot=${guard%/*}" "GuardedFileRoot=$work/collector")
  register "${off[@]}"
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'the guard begins off' says 69 "is off: the module starts the collector in $work/collector" guard status
  keeps 'it is put before the collector' says 0 "The guard is on, before the collector in $work/collector." guard on
  keeps 'in the registry' has_values "${on[@]}"
  keeps 'a second time is no error' says 0 'The guard is on already' guard on
  keeps 'and changes nothing' has_values "${on[@]}"
  keeps 'its protections are shown' says 0 'children  nothing that the collector starts survives it' guard status
  keeps 'the module starts it' creates_under_guard
  keeps 'a run that fails is told as one of the guard' fails_under_guard
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'and the next one succeeds' creates_under_guard
  runs=$(wc -l <"$history")
  keeps 'it is taken away' says 0 'The guard is off; the module starts the collector' guard off
  keeps 'and what was there before is back' has_values "${off[@]}"
  keeps 'the checksum is gone, as the next archive would not be the one it tells of' test ! -e "$archive.sha256"
  keeps 'and that is told' tells "$archive.sha256 is removed: without the guard it would not be renewed."
  echo "COLLECTOR=$work/collector" >"$conf"
  keeps 'an agent that was not restarted starts the collector as well' creates_unguarded
  configure
  keeps 'a second time is no error either' says 0 'The guard is off already.' guard off
  keeps 'nor a change' has_values "${off[@]}"
}

fails_under_guard() {
  collector 'exit 3'
  says 6 'em_host: The guard reports the run as failed, with exit code 3, and says why above.' \
    run --module "$build/lib/qamrel/em_talvor" create && ! tells 'Run it by hand' >/dev/null
}

test_place_without_data_root() {
  local directory=$work/collector
  register "FileRoot=$directory"
  em_host guard on
  keeps 'where the archive lay beside the collector, it still does' has_values "DataRoot=$directory" \
    "FileRoot=${guard%/*}" "GuardedDataRoot=$directory" "GuardedFileRoot=$directory"
  em_host guard off
  keeps 'and nothing of that stays' has_values "FileRoot=$directory"
}

test_place_by_hand() {
  register "DataRoot=$data" "FileRoot=$work/collector"
  em_host guard on
  set_value FileRoot /opt/other
  keeps 'a directory that was set by hand meanwhile is told' says 0 \
    "FileRoot was changed by hand to /opt/other since the guard was put there, and stays so; it was $work/collector" guard off
  keeps 'and stays' has_values "DataRoot=$data" FileRoot=/opt/other
  register "FileRoot=$work/collector"
  em_host guard on
  set_value DataRoot /srv
  keeps 'one for the archive too' says 0 'DataRoot was changed by hand to /srv' guard off
  keeps 'and stays as well' has_values DataRoot=/srv "FileRoot=$work/collector"
  register "FileRoot=$work/collector"
  em_host guard on
  echo 'COLLECTOR=/opt/third ' >"$conf"
  keeps 'so is another collector in the settings' says 0 'guard.conf names /opt/third, which the guard has started' guard off
  configure
  register "FileRoot=${guard%/*}"
  keeps 'what was before the guard must have been kept' says 69 'where the collector is was not kept' guard off
  register FileRoot=/none
  keeps 'there must be a collector' says 69 'There is no collector /none/Talvor that could be guarded' guard on
  rm -rf /etc/qamrel
  keeps 'and a registry' says 69 'The registry names no collector' guard on
}

has_seven_fields() {
  em_host history --json && grep -qE '^\{"start":"[^"]+","duration":[0-9.]+,"size":[0-9]+,"exit":0,"signal":null,"ended":"done","memory":([0-9]+|null)\}$' "$work/output"
}

test_shown() {
  local sum
  install_registry "${guard%/*}"
  rm -rf /var/lib/em-talvor
  keeps 'without a run there is no history' says 0 'No run of the collector is known.' history
  collector 'cp "$work/whole.zip" "$archive"'
  "$guard"
  keeps 'a run is shown' says 0 '  done' history
  keeps 'and as JSON' has_seven_fields
  keeps 'so is its archive' says 0 '  member, 6 bytes' inspect
  keeps 'which fits' says 0 'fits into 20 MiB' inspect
  keeps 'and is as it was created' says 0 ', as when it was created' inspect
  keeps 'also as JSON' says 0 '"sealed":true' inspect --json
  (cd "$work" && truncate -s 2M big && bsdtar -a --options zip:compression=store -cf big.zip big)
  keeps 'one that does not fit is told' says 65 'does not fit into 1 MiB' inspect --limit 1 "$work/big.zip"
  keeps 'without a checksum there is none to compare with' says 0 'there is no big.zip.sha256 to compare with' inspect "$work/big.zip"
  mkdir "$work/big.zip.sha256"
  keeps 'nor when it cannot be read' says 0 'big.zip.sha256 cannot be read' inspect "$work/big.zip"
  cp "$work/big.zip" "$archive"
  keeps 'a change is told' says 65 'the file has changed since' inspect
  bsdtar -a --options zip:compression=store -cf "$work/two.zip" -C "$work" member big
  head -c -100 "$work/two.zip" >"$work/one.zip" # where its directory is
  keeps 'an archive whose directory was cut off as well' says 65 'cannot be read' inspect "$work/one.zip"
  echo text >"$archive"
  keeps 'damage too' says 65 'cannot be read' inspect
  rm "$archive"
  keeps 'and that there is none' says 66 'There is no archive' inspect
}

says_without_ionice() {
  without ionice "$build/bin/em_host" doctor --module "$build/lib/qamrel/em_talvor" >"$work/output" 2>&1
  tells 'warn   guard, io       Left out: there is no program ionice that can be executed.'
}

test_diagnosis() {
  local doctor=(doctor --module "$build/lib/qamrel/em_talvor")
  keeps 'doctor tells that the guard is on' says 0 'ok     guard           On, before the collector in' "${doctor[@]}"
  keeps 'and each protection' says 0 'guard, archive  its members are read' "${doctor[@]}"
  keeps 'that one is left out, and why' says_without_ionice
  echo '{"start":"2026-01-01T00:00:00.000Z","duration":400.5,"size":1099511627776,"exit":0,"signal":null,"ended":"done","memory":null}' >>"$history"
  keeps 'that runs take longer than a BMC waits' says 78 'took 400 seconds; BMCs commonly wait for 360' "${doctor[@]}"
  keeps 'that there is no room for another archive' says 78 'It had 1048576.0 MiB' "${doctor[@]}"
  echo NICE=fast >"$conf"
  keeps 'that the settings are wrong' says 69 'WRONG  guard, settings' "${doctor[@]}"
  configure
}

# sees_agent CLASS PRIORITY TEXT: doctor says so of an agent that runs a collector, and whose main thread, which does
# not start it, has left that class.
sees_agent() {
  local agent status=0
  rm -f "$work/runs"
  chrt "$1" "$2" "$build/bin/em_host" run --module "$build/lib/qamrel/em_talvor" create >/dev/null 2>&1 &
  agent=$!
  until [[ -e $work/runs ]]; do pause 0.01; done
  chrt --other -p 0 "$agent"
  em_host doctor --module "$build/lib/qamrel/em_talvor"
  tells "The agent, process $agent, has $3" || status=1
  kill -KILL "$agent"
  wait "$agent" 2>/dev/null
  return "$status"
}

test_scheduling() {
  if ! chrt --rr 50 true 2>/dev/null; then
    echo 'skip - scheduling: no real-time class is allowed here'
    return
  fi
  collector 'touch "$work/runs"; exec sleep 1000'
  keeps 'doctor tells that the guard takes the collector out of the class of its agent' \
    sees_agent --rr 50 'threads in a real-time class, up to priority 50; the guard takes'
  em_host guard off
  keeps 'and that it would stay there without' \
    sees_agent --fifo 50 'threads in a real-time class, up to priority 50, and a collector that these start'
  keeps 'but not if the agent is in none' sees_agent --other 0 'no thread in a real-time class, nor is its collector.'
}

test_commands() {
  test_place
  test_place_without_data_root
  test_place_by_hand
  test_shown
  test_diagnosis
  test_scheduling
}
