# Completion of qamreg in bash.

# _qamreg_subkeys PARENT SEPARATOR: the keys in a key, whose path is separated by "/".
_qamreg_subkeys() {
  local key
  # The lines of subkeys begin with the key's path in full, those of values with a blank.
  qamreg query "$1" 2>/dev/null | sed -n -e '1d' -e 's/^HKEY_.*\\//p' |
    while IFS= read -r key; do
      printf '%s\n' "${1//\//$2}$2$key"
    done
}

# _qamreg_keys WORD: the keys that the path may go on with, separated as in WORD. A separator stands
# after a key that has others in it; when it is the only key, those follow: bash would close a quote after
# a single offer.
_qamreg_keys() {
  local word=$1 separator='/' keys=() key subkeys
  # shellcheck disable=SC1003 # a backslash
  [[ $word != *\\* ]] || separator='\'
  word=${word//\\//}
  if [[ $word != */* ]]; then
    mapfile -t keys < <(printf '%s\n' {HKLM,HKCU,HKU,HKCR,HKCC} \
      HKEY_{LOCAL_MACHINE,CURRENT_USER,USERS,CLASSES_ROOT,CURRENT_CONFIG} | grep -i "^$word")
  else
    mapfile -t keys < <(_qamreg_subkeys "${word%/*}" "$separator" |
      while IFS= read -r key; do
        [[ ${key//\\//} != "$word"* ]] || printf '%s\n' "$key"
      done)
  fi
  if ((${#keys[@]} > 1)); then
    printf '%s\n' "${keys[@]/%/$separator}"
  elif ((${#keys[@]} == 1)); then
    subkeys=$(_qamreg_subkeys "${keys[0]//\\//}" "$separator")
    printf '%s\n' "${keys[0]}${subkeys:+$separator}"
    [[ ! $subkeys ]] || printf '%s\n' "${subkeys//$'\n'/$separator$'\n'}$separator"
  fi
}

# _qamreg_values KEY: the names of its values. Names and types are four blanks apart.
_qamreg_values() {
  qamreg query "$1" 2>/dev/null | sed -nE 's/^ {4}(.*) {4}REG_(SZ|EXPAND_SZ|BINARY|DWORD) {4}.*/\1/p'
}

_qamreg_pointers() {
  _qamreg_values 'HKLM/SYSTEM/CurrentControlSet/Control/UUID/5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13'
}

# _qamreg_offer WORD: offers the lines of the input that begin with WORD, in the form $format.
_qamreg_offer() {
  local line
  while IFS= read -r line; do
    # shellcheck disable=SC2059 # "%q" or "%s"
    [[ ${line,,} != "${1,,}"* ]] || COMPREPLY+=("$(printf "$format" "$line")")
  done
}

_qamreg() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]} key=${COMP_WORDS[2]-}
  # What the user has typed is quoted for the shell, and so is what it becomes, unless it stands in
  # quotes that are still open.
  local format='%q'
  [[ $word != [\'\"]* ]] || format='%s'
  COMPREPLY=()
  word=${word//[\'\"]/} word=${word//\\\\/\\}
  key=${key//[\'\"]/} key=${key//\\\\/\\}

  if ((COMP_CWORD == 1)); then
    _qamreg_offer "$word" < <(printf '%s\n' query add delete export import pointer --help --version)
    return
  fi
  case $previous in
    -v)
      _qamreg_offer "$word" < <(_qamreg_values "$key")
      return
      ;;
    -t)
      _qamreg_offer "$word" < <(printf '%s\n' REG_SZ REG_EXPAND_SZ REG_BINARY REG_DWORD)
      return
      ;;
    -d | --wait) return ;;
    --all)
      compopt -o default
      return
      ;;
  esac
  case $command:$COMP_CWORD:$word in
    query:*:-*) _qamreg_offer "$word" < <(printf '%s\n' -v -r) ;;
    export:*:-*) _qamreg_offer "$word" < <(printf '%s\n' --all) ;;
    add:*:-*) _qamreg_offer "$word" < <(printf '%s\n' -v -t -d --wait) ;;
    delete:*:-*) _qamreg_offer "$word" < <(printf '%s\n' -v --wait) ;;
    import:*:-* | pointer:*:-*) _qamreg_offer "$word" < <(printf '%s\n' --wait) ;;
    query:2:* | add:2:* | delete:2:* | export:2:* | pointer:3:*)
      _qamreg_offer "$word" < <(_qamreg_keys "$word")
      ;;
    export:3:* | import:2:*) compopt -o default ;;
    pointer:2:*) _qamreg_offer "$word" < <(_qamreg_pointers) ;;
  esac
}

complete -F _qamreg qamreg
