# bash completion for mibctl: verbs, options, files, and full names of the model and configuration that
# the command line or the environment ($MIBCTL_MODEL, $MIBCTL_CONFIG) names.

_mibctl_files() {
  compopt -o filenames
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_mibctl_names() {
  compopt -o nospace
  # The options as typed so far: they name the model and the configuration.
  local options=() i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
    --model | --overlay | --config | --flash | --image | --profile | --keep | --select)
      options+=("${COMP_WORDS[i]}" "${COMP_WORDS[i + 1]}")
      ;;
    esac
  done
  mapfile -t COMPREPLY < <(mibctl "${options[@]}" names "$1" 2>/dev/null)
}

_mibctl() {
  local verbs='show get set add del list attr diff export import reset batch check shell image schema'
  local image='info pack unpack verify diff upgrade-file size'
  local schema='compile report tree diff'
  local options='--model --select --overlay --profile --keep --config --flash --image --factory --json
    --help --version'
  local -A parts=([image]=$image [schema]=$schema [upgrade-file]='make check')
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} verb= part= i

  case $before in
  --model | --overlay | --config | --flash | --image | --factory | --lock | --depfile | -o | --output)
    _mibctl_files "$word"
    return
    ;;
  esac
  for ((i = 1; i < COMP_CWORD; ++i)); do
    [[ ${COMP_WORDS[i - 1]} == --image || ! " $verbs " == *" ${COMP_WORDS[i]} "* ]] && continue
    verb=${COMP_WORDS[i]}
    [[ -v parts[$verb] && $((i + 1)) -lt $COMP_CWORD ]] && part=${COMP_WORDS[i + 1]}
    break
  done

  if [[ $word == -* ]]; then
    [[ -n $verb ]] && options+=" $(mibctl $verb $part --help 2>/dev/null | grep -o -- '--[a-z-]*')"
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word" | sort -u)
  elif [[ -z $verb ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$word")
  elif [[ $before == "$verb" || $before == upgrade-file ]] && [[ -v parts[$before] ]]; then
    mapfile -t COMPREPLY < <(compgen -W "${parts[$before]}" -- "$word")
  elif [[ " show get set add del list attr " == *" $verb "* ]]; then
    _mibctl_names "$word"
  else
    _mibctl_files "$word"
  fi
}

complete -F _mibctl mibctl
