# The settings of the guard, parsed from a file that is never executed.

settings_file=/etc/em-talvor/guard.conf

# The defaults.
declare -A settings=(
  [COLLECTOR]='' [RUN_TIME]=3600 [STOP_TIME]=10 [NICE]=10 [IO]=idle [OOM_SCORE_ADJ]=500
  [MEMORY]=1G [PIDS]=512 [FREE_SPACE]=64M [ARCHIVE_SIZE]=0 [PROC]=machine
  [ENVIRONMENT]='PATH LANG TZ HOME')

# is_number TEXT LEAST MOST
is_number() {
  [[ $1 =~ ^-?[0-9]{1,9}$ ]] || return 1
  local number=${1#-}
  number=$((10#$number))
  [[ $1 != -* ]] || number=$((-number))
  (($2 <= number && number <= $3))
}

# bytes_of SIZE: stores in `bytes` the number of bytes, with K, M or G multiplied out.
bytes_of() {
  local number=${1%[KMG]}
  case $1 in
    *K) bytes=$((10#$number << 10)) ;;
    *M) bytes=$((10#$number << 20)) ;;
    *G) bytes=$((10#$number << 30)) ;;
    *) bytes=$((10#$number)) ;;
  esac
}

# check_value KEY VALUE: stores in `problem` what is wrong with the value, or nothing.
check_value() {
  problem=
  case $1 in
    COLLECTOR)
      [[ ! $2 || $2 == /* ]] || problem='is no absolute path of a directory'
      ;;
    RUN_TIME)
      is_number "$2" 0 1000000 || problem='is no number of seconds from 0 to 1000000'
      ;;
    STOP_TIME)
      is_number "$2" 1 3600 || problem='is no number of seconds from 1 to 3600'
      ;;
    NICE)
      is_number "$2" 0 19 || problem='is no niceness from 0 to 19'
      ;;
    IO)
      [[ $2 == idle || $2 == best-effort ]] || problem='is neither "idle" nor "best-effort"'
      ;;
    OOM_SCORE_ADJ)
      is_number "$2" 0 1000 || problem='is no number from 0 to 1000'
      ;;
    MEMORY | FREE_SPACE | ARCHIVE_SIZE)
      [[ $2 =~ ^[0-9]{1,9}[KMG]?$ || $2 =~ ^[0-9]{1,15}$ ]] ||
        problem='is no size: a number of bytes, or one with K, M or G'
      ;;
    PIDS)
      is_number "$2" 0 4194304 || problem='is no number of processes from 0 to 4194304'
      ;;
    PROC)
      [[ $2 == machine || $2 == own ]] || problem='is neither "machine" nor "own"'
      ;;
    ENVIRONMENT)
      [[ $2 =~ ^( *[A-Za-z_][A-Za-z_0-9]*)*\ *$ ]] || problem='is no list of names of variables'
      ;;
  esac
}

# read_settings: stores them in `settings`. False, and what is wrong in `problem`, for an invalid file.
read_settings() {
  local line key value number=0
  problem=
  [[ -e $settings_file || -L $settings_file ]] || return 0
  if [[ ! -f $settings_file || ! -r $settings_file ]]; then
    problem="$settings_file cannot be read"
    return 1
  fi
  while IFS= read -r line || [[ $line ]]; do
    number=$((number + 1))
    [[ $line =~ ^[[:space:]]*(#.*)?$ ]] && continue
    if [[ ! $line =~ ^([A-Z_]+)=(.*[^[:space:]]|)[[:space:]]*$ ]]; then
      problem="$settings_file, line $number: \"$line\" is not KEY=VALUE"
      return 1
    fi
    key=${BASH_REMATCH[1]}
    value=${BASH_REMATCH[2]}
    if [[ ! ${settings[$key]+known} ]]; then
      problem="$settings_file, line $number: there is no setting $key"
      return 1
    fi
    check_value "$key" "$value"
    if [[ $problem ]]; then
      problem="$settings_file, line $number: \"$value\" $problem, which $key needs"
      return 1
    fi
    while [[ $value == 0[0-9]* ]]; do # which the shell would take for an octal number
      value=${value#0}
    done
    settings[$key]=$value
  done <"$settings_file"
}
