# The protections that this machine and the agent's rights allow. Each is a command in front of another
# one; it is tried before it is used, and left out when it is refused.

# The commands, and what is missing without them. Those that depend on the settings: name_commands.
declare -A commands=(
  [death]='setpriv --pdeathsig KILL'
  [class]='chrt --other 0'
  [namespace]='unshare --pid --fork --kill-child'
  [time]='timeout 1000'
  [archive]='bsdtar --version --'
)

name_commands() {
  local own memory=$1 pids=$2
  read -r -a own </proc/self/stat # its 19th field is the niceness
  commands[nice]="nice -n $((settings[NICE] > own[18] ? settings[NICE] - own[18] : 0))"
  commands[io]="ionice -c ${settings[IO]}"
  # Used without a control group: they limit each process, and the one on their number does not bind root.
  commands[memory]="prlimit --data=$memory --"
  commands[pids]="prlimit --nproc=$pids --"
  [[ ${settings[PROC]} == machine ]] || commands[view]="${commands[namespace]} --mount-proc --propagation slave"
}

# join NAME...: stores the commands in `command`, one in front of the other, each with the full path of its
# program. False when there is no such program.
join() {
  local name words
  command=()
  for name; do
    read -r -a words <<<"${commands[$name]}"
    hash "${words[0]}" 2>/dev/null || return 1
    command+=("${BASH_CMDS[${words[0]}]}" "${words[@]:1}")
  done
}

is_allowed() {
  "${command[@]}" true </dev/null >/dev/null 2>&1
}

# try NAME...: stores in `command` those of the commands that are not refused here, one in front of the
# other. False when there is none.
try() {
  local name allowed=()
  join "$@" && is_allowed && return # mostly
  for name; do
    join "$name" && is_allowed && allowed+=("${command[@]}")
  done
  command=("${allowed[@]}")
  ((${#command[@]} > 0))
}

# why_not NAME: prints why it is refused.
why_not() {
  if join "$1"; then
    "${command[@]}" true 2>&1 </dev/null | head -n 1
  else
    echo "there is no program ${commands[$1]%% *} that can be executed"
  fi
}

# Makes this process one that the out-of-memory killer prefers. Not choom: in the machine's /proc its own
# process id names another process.
become_first_victim() {
  echo "${settings[OOM_SCORE_ADJ]}" >/proc/self/oom_score_adj
}

# tell_state NAME STATE TEXT: a line of the report. The states are on, off (it is refused here), unset (by the
# settings), and wrong (no run could be started).
tell_state() {
  printf '%s\t%s\t%s\n' "$@"
}

# check_command NAME SUBJECT TEXT: the report of a protection that is a command.
check_command() {
  if try "$1"; then
    tell_state "$2" on "$3"
  else
    tell_state "$2" off "$(why_not "$1")"
  fi
}

# check_limit SUBJECT SETTING COMMAND GROUP: the report of a limit that a control group sets, or COMMAND.
check_limit() {
  if [[ ${settings[$2]} == 0 ]]; then
    tell_state "$1" unset "$2 is 0"
  elif [[ $4 ]]; then
    tell_state "$1" on "a control group holds all processes together below ${settings[$2]}"
  elif [[ $3 == pids ]] && ((EUID == 0)); then
    tell_state "$1" off 'no control group can be made here, and nothing else limits root'
  elif try "$3"; then
    tell_state "$1" on "no control group can be made here: ${settings[$2]} is the limit of each process"
  else
    tell_state "$1" off "no control group can be made here, and $(why_not "$3")"
  fi
}

# Prints the report: for each protection its name, whether it is on, and how or why not.
check_protections() {
  local command memory
  if ! read_settings; then
    tell_state settings wrong "$problem"
    return
  fi
  if [[ -e $settings_file ]]; then
    tell_state settings on "those of $settings_file"
  else
    tell_state settings on "there is no $settings_file: the defaults hold"
  fi
  if find_directories; then
    tell_state program on "$collector/Talvor"
  else
    tell_state program wrong "$problem"
  fi
  bytes_of "${settings[MEMORY]}" && memory=$bytes
  name_commands "$memory" "${settings[PIDS]}"
  check_command death 'agent' 'the collector is killed when the agent dies'
  check_command namespace 'children' 'nothing that the collector starts survives it'
  if ((settings[RUN_TIME] == 0)); then
    tell_state 'run time' unset 'RUN_TIME is 0'
  elif try time; then
    tell_state 'run time' on "the collector is ended after ${settings[RUN_TIME]} seconds"
  else
    tell_state 'run time' off \
      "$(why_not time): the collector is killed after ${settings[RUN_TIME]} seconds, without SIGTERM before"
  fi
  check_command class 'class' 'the collector is in no real-time class, whatever the agent is in'
  check_command nice 'nice' "niceness ${settings[NICE]}"
  check_command io 'io' "input and output: ${settings[IO]}"
  if problem=$(become_first_victim 2>&1); then
    tell_state 'oom' on "${settings[OOM_SCORE_ADJ]} is added to its score for the out-of-memory killer"
  else
    tell_state 'oom' off "${problem##*: }: /proc/self/oom_score_adj cannot be written"
  fi
  make_groups "$memory" "${settings[PIDS]}"
  check_limit 'memory' MEMORY memory "$memory_group"
  check_limit 'pids' PIDS pids "$pids_group"
  remove_groups
  check_command archive 'archive' 'its members are read before it counts'
  if [[ -w $state_directory || (! -e $state_directory && -w ${state_directory%/*}) ]]; then
    tell_state 'history' on "$history_file"
  else
    tell_state 'history' off "$state_directory cannot be written to"
  fi
}
