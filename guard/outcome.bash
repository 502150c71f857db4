# The outcome of a run: what ended it, in words for the system log and as a line for the history.

# Once the collector has ended, stores in `ended` what ended the run, and keeps or removes the archive.
judge_run() {
  local elapsed=$((${EPOCHREALTIME/[.,]/} - began)) command reader=()
  if [[ ! $ended ]] && ((settings[RUN_TIME] > 0 && elapsed >= settings[RUN_TIME] * 1000000)) &&
    ((status == exit_time || status == 137)); then
    ended="time"
  elif [[ ! $ended ]] && hit_memory_limit; then
    ended=memory
  elif [[ ! $ended ]] && ((status != 0)); then
    ended=$( ((status > 128)) && echo signal || echo exit)
    ! lacks_space || ended=space
  fi
  if [[ ! $ended ]]; then
    try archive && reader=("${timed[@]}" "${gentle[@]}" "${command[0]}")
    judge_archive "$data/$archive_name" "$largest" "${reader[@]}"
    if [[ $judgement == whole ]] && seal_archive "$data" "${gentle[@]}" sha256sum; then
      ended="done"
      return
    fi
    ended=$judgement
    [[ $judgement != whole ]] || ended=unsaved
    [[ $judgement == large ]] || ! lacks_space || ended=space
  fi
  remove_archive "$data"
}

# Prints why the run failed, as a sentence.
explain() {
  local what="$data/$archive_name"
  case $ended in
    time) echo "The collector was ended: it had run for ${settings[RUN_TIME]} seconds, which is RUN_TIME" ;;
    space)
      echo "Only $((free >> 20)) MiB are free in $data, and FREE_SPACE is ${settings[FREE_SPACE]}:" \
        'the collector was ended, or not started'
      ;;
    memory) echo "The collector was ended: it needs more memory than MEMORY, ${settings[MEMORY]}" ;;
    stopped) echo 'The collector was ended: the guard got a signal' ;;
    hung) echo 'The collector hangs in the kernel and cannot be ended' ;;
    signal) echo "The collector was ended by signal $((status - 128))" ;;
    exit) echo "The collector failed with exit status $status" ;;
    missing) echo "The collector reported success and left no archive $what" ;;
    empty) echo "The archive $what was empty" ;;
    broken) echo "The archive $what was broken: it could not be read to its end" ;;
    large) echo "The archive $what had $archive_size bytes, and ARCHIVE_SIZE is ${settings[ARCHIVE_SIZE]}" ;;
    unsaved) echo "The archive $what could not be flushed to the disk or got no checksum" ;;
  esac
}

# Prints the line for the history.
describe_run() {
  local exit=null signal=null memory=null duration=$((${EPOCHREALTIME/[.,]/} - began))
  [[ ! ${running-} ]] || memory=$(peak_memory)
  if [[ ! $status ]]; then
    : # it was not started, or did not end
  elif ((status > 128)); then
    signal=$((status - 128))
  else
    exit=$status
  fi
  history_line "$start" "$((duration / 1000000)).$(printf %03d $((duration / 1000 % 1000)))" \
    "$archive_size" "$exit" "$signal" "$ended" "$memory"
}
