# A whole archive or none.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

# In every way that a file can be cut off.
knows_torn() {
  local size length
  (cd "$work" && echo one >one && head -c 3000 /dev/urandom >two && bsdtar -a -cf two.zip one two)
  # shellcheck source=guard/archive.bash
  source "$source_directory/archive.bash"
  size=$(stat -c %s "$work/two.zip")
  previous=
  for length in $(seq 1 250 "$size") $(seq $((size - 190)) 9 "$size") $((size - 1)) "$size"; do
    head -c "$length" "$work/two.zip" >"$work/torn"
    judge_archive "$work/torn" 0 bsdtar
    [[ $judgement == "$( ((length < size)) && echo broken || echo whole)" ]] || {
      echo "  $length of $size bytes: $judgement"
      return 1
    }
  done
}

# A program in the place of sync: what it is called with goes to a file.
flushes() {
  printf '#!/bin/sh\necho "$*" >>%s/flushed\n' "$work" >"$work/sync"
  chmod +x "$work/sync"
  gives 0 'done' unshare --mount bash -c 'mount --bind "$0" /usr/bin/sync && exec "$@"' "$work/sync" &&
    [[ $(grep -v /var/lib "$work/flushed" | xargs) == 'Talvor_Data.zip Talvor_Data.zip.sha256.new .' ]]
}

# An archive that cannot be removed, as something is mounted there.
keeps_none_of_before() {
  local kept=0
  touch "$archive"
  unshare --mount bash -c 'mount --bind "$work/whole.zip" "$archive" && exec "$@"' - \
    "$guard" >"$work/output" 2>&1
  [[ $? == 70 && $(last_run ended) == missing ]] || kept=1
  rm -f "$archive"
  return "$kept"
}

test_archive() {
  configure
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'a whole archive has its checksum beside it' gives 0 'done'
  keeps 'without namespaces' gives 0 'done' "${no_namespaces[@]}"
  keeps 'without bsdtar' gives 0 'done' without bsdtar
  keeps 'it is for root alone' [ "$(stat -c %a "$archive.sha256")" = 600 ]
  keeps 'both are flushed to the disk' flushes
  collector 'head -c 100 "$work/whole.zip" >"$archive"'
  keeps 'a torn archive is removed' gives 70 broken
  keeps 'without bsdtar, too' gives 70 broken without bsdtar
  keeps 'wherever it is cut off' knows_torn
  collector 'sed "s/whole/hole /" "$work/whole.zip" >"$archive"'
  keeps 'so is a damaged one' gives 70 broken
  collector '{ cat "$work/whole.zip" && echo text; } >"$archive"'
  keeps 'one with something after its end' gives 70 broken
  collector 'echo text >"$archive"'
  keeps 'one that is none' gives 70 broken
  collector 'mkfifo "$archive"; echo text >"$archive"'
  configure RUN_TIME=1
  keeps 'a pipe, which is not waited for' gives 124 time
  configure
  collector 'mkfifo "$archive"'
  keeps 'nor read' gives 70 broken
  collector 'mkdir "$archive" && echo text >"$archive/text"'
  keeps 'a directory' gives 70 broken
  collector ': >"$archive"'
  keeps 'an empty file' gives 70 empty
  collector 'printf "PK\005\006\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0" >"$archive"'
  keeps 'an archive without members' gives 70 empty
  collector 'exit 0'
  keeps 'there is none' gives 70 missing
  keeps 'the one of before, if it cannot be removed' keeps_none_of_before
  collector 'cp "$work/whole.zip" "$archive"; exit 3'
  keeps 'a failure of the collector is passed on' gives 3 exit
  collector 'cp "$work/whole.zip" "$archive"; kill -SEGV $$'
  keeps 'the end by a signal as well' gives 139 signal
  configure ARCHIVE_SIZE=10
  collector 'cp "$work/whole.zip" "$archive"'
  keeps 'an archive above the limit is removed' gives 70 large
}
