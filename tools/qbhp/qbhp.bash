# Completion of qbhp for bash: commands, options, and values of options.

# The identifiers of running applications. Any program chooses its own, and compgen expands words as
# the shell does: others than plain ones are left out.
_qbhp_identifiers() {
  "${COMP_WORDS[0]}" ps --json 2>/dev/null |
    sed -n 's/^ *"identifier": "\([A-Za-z0-9_][A-Za-z0-9._-]*\)",\{0,1\}$/\1/p'
}

_qbhp() {
  local word=${COMP_WORDS[COMP_CWORD]} previous="" command="" options="" group i
  [ "$COMP_CWORD" -gt 0 ] && previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()

  # The words that name the command come first.
  for ((i = 1; i < COMP_CWORD; i++)); do
    case "$command:${COMP_WORDS[i]}" in
      :-*) ;;
      :plist | :strings | :defaults) command=${COMP_WORDS[i]} ;;
      :* | plist:* | strings:* | defaults:*) command="${command:+$command }${COMP_WORDS[i]}"; break ;;
    esac
  done

  case "$previous" in
    --type) mapfile -t COMPREPLY < <(compgen -W "string flag integer real date data" -- "$word"); return ;;
    --to) mapfile -t COMPREPLY < <(compgen -W "xml text" -- "$word"); return ;;
    --is) mapfile -t COMPREPLY < <(compgen -W "older same newer" -- "$word"); return ;;
    --as | --directory) mapfile -t COMPREPLY < <(compgen -d -- "$word"); return ;;
    -o | --output) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
    --live) mapfile -t COMPREPLY < <(compgen -W "$(_qbhp_identifiers)" -- "$word"); return ;;
    --identifier | --timeout | --class | --method | --count | --for) return ;;
    --junit) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
    --only)
      mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" check-helper --list 2>/dev/null | sed -n 's/^\([a-z-]*\)  .*/\1/p')" -- "$word")
      return ;;
  esac

  case "$command" in
    "") options="--help --version" group="doctor ps check-helper send ask watch plist strings defaults versions new-product" ;;
    plist | strings) options="--help" group="read write convert" ;;
    defaults) options="--help" group="read write" ;;
    doctor) options="--help --live --json" ;;
    check-helper) options="--help --only --list --timeout --tap --junit --json" ;;
    ps) options="--help --wide --json" ;;
    send | ask) options="--help --timeout --as --json" ;;
    watch) options="--help --class --method --count --for --wide --redact --json" ;;
    versions) options="--help --is --json" ;;
    new-product) options="--help --identifier --directory --python" ;;
    "plist write") options="--help --type --drop-comments" ;;
    "strings write") options="--help --drop-comments" ;;
    "defaults write") options="--help --type" ;;
    *" read") options="--help --json" ;;
    *" convert") options="--help --to --output" ;;
  esac
  case "$word" in
    -*) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word"); return ;;
  esac
  if [ -n "$group" ]; then
    mapfile -t COMPREPLY < <(compgen -W "$group" -- "$word")
    return
  fi
  case "$command:$previous" in
    send:send | ask:ask | watch:watch)
      mapfile -t COMPREPLY < <(compgen -W "$(_qbhp_identifiers)" -- "$word")
      return ;;
  esac
  case "$command" in
    plist* | strings*) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    doctor | check-helper) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
  esac
}

complete -o filenames -F _qbhp qbhp
