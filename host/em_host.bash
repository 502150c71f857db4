# Bash completion for em_host.
#
# Bash may take "@", ":" and "=" for ends of words: the word that the user sees is put together again,
# and of each offer only what bash replaces is returned, which begins after the last ":" or "=".

# Sets $word, the word up to the cursor, $previous, the one before it, and $head, what bash does not
# replace.
_em_host_read_line() {
  local index=$COMP_CWORD breaks=${COMP_WORDBREAKS//[^:=]/}
  word=${COMP_WORDS[index]}
  while ((index > 1)) && [[ $word != @* ]] &&
    [[ $word == [@:=]* || ${COMP_WORDS[index - 1]} == *[@:=] ]]; do
    index=$((index - 1))
    word=${COMP_WORDS[index]}$word
  done
  previous=${COMP_WORDS[index - 1]}
  head=
  [[ ! $breaks ]] || head=${word%"${word##*["$breaks"]}"}
  # --OPTION=VALUE
  if [[ $word == --*=* ]]; then
    previous=${word%%=*}
  fi
}

# _em_host_offer WORDS: those that begin as the value of the word does.
_em_host_offer() {
  local offer prefix=
  [[ $word != --*=* ]] || prefix=${word%%=*}=
  while IFS= read -r offer; do
    offer=$prefix$offer
    COMPREPLY+=("${offer#"$head"}")
  done < <(compgen -W "$1" -- "${word#"$prefix"}")
}

# _em_host_files PREFIX [-d]: files, or directories, that begin as the word does after PREFIX.
_em_host_files() {
  local offer
  while IFS= read -r offer; do
    if [[ -d $offer ]]; then
      offer+=/
      compopt -o nospace 2>/dev/null
    fi
    printf -v offer '%s%q' "$1" "$offer"
    COMPREPLY+=("${offer#"$head"}")
  done < <(compgen "${2:--f}" -- "${word#"$1"}")
}

_em_host_argument() {
  local options=$1 words=$2
  if [[ $word == -* ]]; then
    _em_host_offer "--help $options"
  else
    _em_host_offer "$words"
  fi
}

_em_host() {
  local word previous head prefix=
  COMPREPLY=()
  _em_host_read_line
  if ((COMP_CWORD == 1)); then
    _em_host_argument '--version' 'run info setup trace doctor guard history inspect demo'
    return
  fi

  if [[ $word == @* ]]; then
    _em_host_files @
    return
  fi
  [[ $word != --*=* ]] || prefix=$previous=
  case $previous in
    --module | --collector)
      _em_host_files "$prefix"
      return
      ;;
    --bmc)
      _em_host_files "$prefix" -d
      return
      ;;
    --trace)
      _em_host_offer '0 1 2 3 4 5'
      return
      ;;
    --cabinet | --agent-type | --timeout | --limit)
      return
      ;;
  esac

  case ${COMP_WORDS[1]} in
    run)
      _em_host_argument '--module --trace --cabinet --agent-type --bmc --timeout --json --list' \
        "$("${COMP_WORDS[0]/#\~/$HOME}" run --list 2>/dev/null)"
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
    guard)
      _em_host_argument '' 'on off status'
      ;;
    history)
      _em_host_argument '--json' ''
      ;;
    inspect)
      if [[ $word == -* ]]; then
        _em_host_argument '--limit --json' ''
      else
        _em_host_files ''
      fi
      ;;
    demo)
      _em_host_argument '--module --trace --collector' ''
      ;;
  esac
}

complete -F _em_host em_host
