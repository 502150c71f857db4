# What happens to the archive after a run: it is whole, flushed to the disk and has its checksum beside it,
# or it is removed.

archive_name=Talvor_Data.zip

# Stores in `unfinished` the names that begin as the archive's and were not there before the run.
list_unfinished() {
  local file
  unfinished=()
  for file in "$1/$archive_name"*; do
    [[ (! -e $file && ! -L $file) || ${before[$file]+there} ]] || unfinished+=("$file")
  done
}

# prepare_directory DIRECTORY: removes the previous archive, and notes which names are left that begin as its.
prepare_directory() {
  local file
  rm -f "$1/$archive_name" "$1/$archive_name.sha256" 2>/dev/null
  previous=$(state_of "$1/$archive_name")
  declare -gA before=()
  for file in "$1/$archive_name"*; do
    before[$file]=there
  done
}

# state_of FILE: prints what tells the file from every other one and from itself after a change; nothing
# without a file.
state_of() {
  stat -Lc '%d %i %s %y %z' "$1" 2>/dev/null
}

# remove_archive DIRECTORY: with whatever the run has begun to write beside it.
remove_archive() {
  local unfinished
  list_unfinished "$1"
  rm -f "$1/$archive_name"
  rm -rf --one-file-system "${unfinished[@]}"
}

# ends_as_zip FILE SIZE: true if the file ends with an end-of-central-directory record, and the central
# directory ends where that record begins. bsdtar accepts an archive whose directory was cut off.
ends_as_zip() {
  local record position comment directory directory_size
  # The record is 22 bytes long, and a comment of up to 65535 may follow.
  position=$(tail -c 65557 "$1" | grep -obUaP 'PK\x05\x06' | tail -n 1) || return 1
  position=${position%%:*}
  (($2 <= 65557)) || position=$(($2 - 65557 + position))
  read -r -a record < <(tail -c +$((position + 1)) "$1" | od -An -v -w22 -tu1 -N22)
  ((${#record[@]} == 22)) || return 1
  comment=$((record[20] | record[21] << 8))
  directory_size=$((record[12] | record[13] << 8 | record[14] << 16 | record[15] << 24))
  directory=$((record[16] | record[17] << 8 | record[18] << 16 | record[19] << 24))
  ((position + 22 + comment == $2)) || return 1
  # An archive above 4 GiB (Zip64) has them elsewhere.
  ((directory == 0xffffffff || directory_size == 0xffffffff || directory + directory_size == position))
}

# judge_archive FILE LARGEST [READER...]: stores in `judgement` whole, missing, empty, broken or large, and
# its size in `archive_size`. READER is the command that runs bsdtar; without it no member is read.
judge_archive() {
  local file=$1 largest=$2 state members
  shift 2
  archive_size=null
  judgement=missing
  state=$(state_of "$file")
  [[ $state && $state != "$previous" ]] || return
  judgement=broken
  [[ -f $file && -r $file ]] || return
  archive_size=$(stat -Lc %s "$file")
  if ((archive_size == 0)); then
    judgement=empty
    return
  fi
  if ((largest > 0 && archive_size > largest)); then
    judgement=large
    return
  fi
  [[ $(head -c 2 "$file" | tr -d '\0') != PK ]] || ends_as_zip "$file" "$archive_size" || return
  if (($# > 0)); then
    "$@" -xOf "$file" >/dev/null 2>&1 </dev/null || return
    members=$("$@" -tf "$file" 2>/dev/null </dev/null | wc -l)
    if ((members == 0)); then
      judgement=empty
      return
    fi
  fi
  judgement=whole
}

# seal_archive DIRECTORY SUM...: flushes the archive to the disk and lays its checksum beside it. SUM is the
# command that computes it. False when the system refuses that.
seal_archive() (
  umask 077
  cd "$1" && sync "$archive_name" && "${@:2}" "$archive_name" >"$archive_name.sha256.new" &&
    sync "$archive_name.sha256.new" && mv "$archive_name.sha256.new" "$archive_name.sha256" && sync .
) 2>/dev/null
