# Completion of Ombrix(8) for bash.
#
# Ombrix takes the capitals and all dashes out of every word before it looks at it, and out of the
# path after the option too. So any spelling of a word is completed, and no path is offered that
# would not be the same afterwards.

# Sets REPLY to the word as Ombrix compares it.
_Ombrix_bare() {
  REPLY=${1,,}
  REPLY=${REPLY//-/}
}

# Sets REPLY to what the word under the cursor can be: a path, another word, or nothing.
_Ombrix_awaited() {
  local awaited=word word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    _Ombrix_bare "$word"
    case $awaited:$REPLY in
      path:*) awaited=word ;;
      *:c | *:configfile) awaited=path ;;
      *:list | *:prepforupgrade | *:stop | *:v | *:version | *:vnum) awaited=nothing && break ;;
    esac
  done
  REPLY=$awaited
}

_Ombrix_words() {
  local typed=$1 dashes word bare
  dashes=${typed%%[!-]*}
  _Ombrix_bare "$typed"
  bare=$REPLY
  for word in list stop -c -ConfigFile -PrepForUpgrade -v -version -vnum; do
    _Ombrix_bare "$word"
    [[ $REPLY == "$bare"* ]] || continue
    [[ -z $typed ]] || word=$dashes${word#-}
    COMPREPLY+=("$word")
  done
}

_Ombrix_paths() {
  local path full
  compopt -o filenames 2>/dev/null
  while IFS= read -r path; do
    full=${path/#\~\//$HOME/}
    _Ombrix_bare "$full"
    # On a disk that ignores case both may name the same file.
    if [[ $full == "$REPLY" || $full -ef $REPLY ]]; then COMPREPLY+=("$path"); fi
  done < <(compgen -f -- "$1")
}

_Ombrix() {
  local typed=${COMP_WORDS[COMP_CWORD]} REPLY
  COMPREPLY=()
  _Ombrix_awaited
  case $REPLY in
    path) _Ombrix_paths "$typed" ;;
    word) _Ombrix_words "$typed" ;;
  esac
}

complete -F _Ombrix Ombrix
