# The disk is not filled, and what fills it is no archive.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

test_space() {
  configure
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
