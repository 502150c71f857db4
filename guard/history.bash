# The history of the runs: a line of JSON for each, the newest last. Every change replaces the whole
# file, so that a writer that is killed leaves whole lines.

state_directory=/var/lib/em-talvor
history_file=$state_directory/history.jsonl
# The line for the run in progress, in case it is killed.
running_file=$state_directory/running
history_limit=$((1 << 20))

# make_state_directory: false when nothing can be kept.
make_state_directory() {
  mkdir -p "$state_directory" 2>/dev/null && [[ -w $state_directory ]]
}

# history_line START DURATION SIZE EXIT SIGNAL ENDED MEMORY: all but START and ENDED are numbers or null.
history_line() {
  printf '{"start":"%s","duration":%s,"size":%s,"exit":%s,"signal":%s,"ended":"%s","memory":%s}\n' "$@"
}

# newest_lines LENGTH: prints the newest lines of the history that leave room for a line of that length.
newest_lines() {
  local room=$((history_limit - $1)) size
  size=$(stat -c %s "$history_file" 2>/dev/null) || return 0
  if ((size <= room)); then
    cat "$history_file"
  else
    # The first line of the rest is not whole, or only by chance.
    tail -c "$room" "$history_file" | tail -n +2
  fi
}

# append_to_history LINE
append_to_history() {
  local lock new=$history_file.new status=0
  exec {lock}>"$state_directory/lock" || return
  ! hash flock 2>/dev/null || flock -w 10 "$lock" || return
  { newest_lines $((${#1} + 1)) && printf '%s\n' "$1"; } >"$new" && sync "$new" &&
    mv "$new" "$history_file" || status=1
  exec {lock}>&-
  return "$status"
}

# begin_history LINE: keeps the line until end_history; first records the run that left one behind.
begin_history() {
  local left
  if read -r left 2>/dev/null <"$running_file" && [[ $left == \{*\} ]]; then
    # A run that was killed after it had written its own line is not recorded twice.
    grep -qF "${left%%,*}," "$history_file" 2>/dev/null || append_to_history "$left"
  fi
  printf '%s\n' "$1" >"$running_file.new" && mv "$running_file.new" "$running_file"
}

# end_history LINE
end_history() {
  append_to_history "$1" && rm -f "$running_file"
}
