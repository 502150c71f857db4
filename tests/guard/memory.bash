# The memory and the number of processes are limited.
#
# shellcheck shell=bash disable=SC2016,SC2034,SC2154,SC2317 # Parts of guard_test, and scripts for collectors.

test_memory() {
  local limited
  limited=$("$guard" --check | grep -c 'a control group holds')
  configure MEMORY=64M PIDS=20
  collector 'head -c 2G /dev/zero | tail -c 2G >/dev/null; exit 9'
  if ((limited == 2)); then
    keeps 'a collector that takes 2 GiB is ended' gives 70 memory
    collector '(sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 &
      sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 &
      sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 & sleep 1000 &) || exit 9'
    keeps 'one that starts too many processes cannot' gives 9 exit
    collector 'sed "s|^[0-9]*:|/sys/fs/cgroup/|; s|:||" /proc/self/cgroup | grep guard >"$work/groups"'
    keeps 'no control group is left' leaves_no_groups
    keeps 'nor one that a killed run has left' removes_stale_group
  else
    echo 'skip - control groups: none can be made here'
  fi
  collector 'head -c 2G /dev/zero | tail -c 2G >/dev/null || exit 9'
  keeps 'without control groups each process is limited' gives 9 exit "${no_control_groups[@]}"
  keeps 'control groups of version 2 are used where they are' uses_version_2
}

leaves_no_groups() {
  gives 70 missing && [[ -s $work/groups ]] && ! xargs ls -d <"$work/groups" 2>/dev/null
}

removes_stale_group() {
  local stale
  stale=$(head -n 1 "$work/groups")
  stale=${stale%/*}/em-talvor-guard.stale
  mkdir "$stale" && touch -d '-2 minutes' "$stale" && gives 70 missing && [[ ! -e $stale ]]
}

# In directories that look so. What the guard has written there stays, as they cannot be removed like those
# of the kernel.
uses_version_2() {
  collector 'cp "$work/whole.zip" "$archive"; cat /sys/fs/cgroup/em-talvor-guard.*/* | xargs >"$work/limits"'
  unshare --mount bash -c 'mount -t tmpfs cgroup2 /sys/fs/cgroup && mkdir "$work/bin" &&
    printf "#!/bin/sh\ncase \"\$*\" in *cgroup2*) echo /sys/fs/cgroup ;; *) exit 1 ;; esac\n" >"$work/bin/findmnt" &&
    chmod +x "$work/bin/findmnt" && mount --bind "$work/bin/findmnt" "$(type -P findmnt)" && exec "$@"' - \
    "$guard" && [[ $(<"$work/limits") == '0 67108864 20' ]]
}
