# The control groups that limit the memory and the number of the collector's processes, in version 1 or
# version 2 of the kernel's control groups, which a machine may have side by side.
#
# They stand below or beside the agent's own group; nothing in the groups of the system is changed. One
# that a killed run has left empty is removed by the next run.

group_prefix=em-talvor-guard
memory_group= # The directories; empty: there is none. Both may be the same.
pids_group=

# own_group CONTROLLER: stores the path of this process's group in `own`. Version 2 is the controller "".
own_group() {
  local controllers
  while IFS=: read -r _ controllers own; do
    [[ ,$controllers, != *",$1,"* ]] || return 0
  done </proc/self/cgroup
  return 1
}

# make_group PLACE: makes a group and stores its directory in `made`. Whether it can limit anything shows
# when a limit is set.
make_group() {
  [[ -d $1 ]] || return 1
  # Only groups older than a minute: a new one is empty until its collector joins.
  find "$1" -mindepth 1 -maxdepth 1 -name "$group_prefix.*" -mmin +1 -exec rmdir {} + 2>/dev/null
  made=$1/$group_prefix.$SRANDOM
  mkdir "$made" 2>/dev/null
}

# limit FILE VALUE: false when the group in `made` refuses the value.
limit() {
  { echo "$2" >"$made/$1"; } 2>/dev/null
}

# limit_where_there_is FILE VALUE
limit_where_there_is() {
  [[ ! -e $made/$1 ]] || limit "$@"
}

# make_version_1 CONTROLLER FILE VALUE: below the own group.
make_version_1() {
  local mount own
  mount=$(findmnt -nfo TARGET -t cgroup -O "$1" 2>/dev/null) && own_group "$1" || return 1
  make_group "$mount${own%/}" || make_group "$mount" || return 1
  limit "$2" "$3" || { rmdir "$made" && return 1; }
}

# make_version_2 MEMORY PIDS: a group that has processes cannot limit groups below it, so the place beside
# the own group is tried next.
make_version_2() {
  local mount own place
  mount=$(findmnt -nfo TARGET -t cgroup2 2>/dev/null) && own_group '' || return 1
  for place in "$mount${own%/}" "$mount${own%/*}" "$mount"; do
    make_group "$place" || continue
    if (($1 > 0)) && limit memory.max "$1"; then
      limit_where_there_is memory.swap.max 0
      limit_where_there_is memory.oom.group 1
      memory_group=$made
    fi
    if (($2 > 0)) && limit pids.max "$2"; then
      pids_group=$made
    fi
    [[ ! $memory_group && ! $pids_group ]] || return 0
    rmdir "$made"
  done
}

# make_groups MEMORY PIDS: bytes and a number; 0: no limit. Stores what could be made in `memory_group` and
# `pids_group`.
make_groups() {
  local made
  if (($1 > 0)) && make_version_1 memory memory.limit_in_bytes "$1"; then
    limit_where_there_is memory.memsw.limit_in_bytes "$1"
    memory_group=$made
  fi
  if (($2 > 0)) && make_version_1 pids pids.max "$2"; then
    pids_group=$made
  fi
  # A process is in one group of version 2.
  (($1 == 0 || $2 == 0)) || [[ ! $memory_group || ! $pids_group ]] || return
  make_version_2 "$(($1 > 0 && ! ${#memory_group} ? $1 : 0))" "$(($2 > 0 && ! ${#pids_group} ? $2 : 0))"
}

# Moves this process, and so whatever it starts, into the groups.
join_groups() {
  local group
  for group in "$memory_group" "$pids_group"; do
    [[ ! $group ]] || { echo 0 >"$group/cgroup.procs"; } 2>/dev/null
  done
}

# Prints the most memory that the processes had together, their part of the file cache included.
peak_memory() {
  cat "$memory_group/memory.peak" 2>/dev/null ||
    cat "$memory_group/memory.max_usage_in_bytes" 2>/dev/null || echo null
}

# True when the memory limit has killed a process.
hit_memory_limit() {
  local key count
  while read -r key count; do
    [[ $key != oom_kill ]] || ((count == 0)) || return 0
  done < <(cat "$memory_group"/memory.{events,oom_control} 2>/dev/null)
  return 1
}

remove_groups() {
  local group
  for group in "$memory_group" "$pids_group"; do
    [[ ! -d $group ]] || rmdir "$group" 2>/dev/null
  done
}
