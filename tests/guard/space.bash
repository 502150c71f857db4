# The disk is not filled, and what fills it is no archive.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

# A directory for the archive with so many blocks of 4 KiB.
with_blocks() {
  unshare --mount bash -c 'mount -t tmpfs -o "size=$1" tmpfs "${archive%/*}" && exec "${@:2}"' - \
    "$(($1 * 4096))" "${@:2}"
}
export -f with_blocks

# gives_whole_or_none BLOCKS: prints "whole" or "none".
gives_whole_or_none() {
  local status=0
  "$guard" >/dev/null 2>&1 || status=$?
  if ((status == 0)) && is_sealed; then
    echo whole
  elif ((status != 0)) && leaves_nothing; then
    echo none
  else
    echo "status $status and $(echo "$data"/*)"
  fi
}

# The archive has 4 blocks and its checksum one.
fits_or_fails() {
  local blocks got
  export -f gives_whole_or_none is_sealed leaves_nothing
  export guard data
  for blocks in {1..6}; do
    got=$(with_blocks "$blocks" bash -c gives_whole_or_none)
    [[ $got == "$( ((blocks < 5)) && echo none || echo whole)" ]] || {
      echo "  in $blocks blocks: $got"
      return 1
    }
  done
}

test_space() {
  configure
  head -c 16000 /dev/urandom >"$work/random"
  (cd "$work" && rm whole.zip && bsdtar -a -cf whole.zip random)
  collector 'cat "$work/whole.zip" >"$archive"; exit 0'
  keeps 'on a file system of any size there is a whole archive or none' fits_or_fails
  configure FREE_SPACE=1M
  keeps 'with too little free nothing is started' gives 70 space with_blocks 200
  keeps 'which is told' tells 'MiB are free in'
  collector 'head -c 3500K /dev/zero >"$archive"; head -c 100 /dev/zero >"$archive.part"; exec sleep 1000'
  keeps 'a run that takes too much is ended, and what it wrote is gone' gives 70 space with_blocks 1024
  keeps 'without namespaces as well' gives 70 space with_blocks 1024 "${no_namespaces[@]}"
  collector 'head -c 3500K /dev/zero >"$archive"; exit 3'
  keeps 'one that fails as the disk is full is told as such' gives 70 space with_blocks 1024
  collector 'mkdir "${archive%/*}" && cp "$work/whole.zip" "$archive"'
  rm -r "$data"
  keeps 'the directory of the archive may be missing' gives 0 'done'
}
