# Bash completion for em_host.

# _em_host_offer WORDS: what begins as the current word does.
_em_host_offer() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current")
}

# _em_host_files [-d]: files, or directories.
_em_host_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen "${1:--f}" -- "$current")
}

_em_host_argument() {
  local options=$1 words=$2
  if [[ $current == -* ]]; then
    _em_host_offer "--help $options"
  else
    _em_host_offer "$words"
  fi
}

_em_host() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    _em_host_argument '--version' 'run info setup trace doctor demo'
    return
  fi

  # Bash takes "@" for a word of its own.
  if [[ $current == @ ]]; then
    current=
    _em_host_files
    return
  fi
  case $previous in
    @ | --module | --collector)
      _em_host_files
      return
      ;;
    --bmc)
      _em_host_files -d
      return
      ;;
    --trace)
      _em_host_offer '0 1 2 3 4 5'
      return
      ;;
    --cabinet | --agent-type | --timeout)
      return
      ;;
  esac

  case ${COMP_WORDS[1]} in
    run)
      _em_host_argument '--module --trace --cabinet --agent-type --bmc --timeout --json' \
        'query create transfer'
      ;;
    info)
      _em_host_argument '--module --trace --json' ''
      ;;
    setup)
      _em_host_argument '--module --trace --json' 'backup restore convert cleanup'
      ;;
    trace)
      case $previous in
        trace) _em_host_argument '' 'show set off dynamic' ;;
        set) _em_host_argument '' '0 1 2 3 4 5' ;;
        *) _em_host_argument '' '' ;;
      esac
      ;;
    doctor)
      _em_host_argument '--module --json' ''
      ;;
    demo)
      _em_host_argument '--module --trace --collector' ''
      ;;
  esac
}

complete -F _em_host em_host
