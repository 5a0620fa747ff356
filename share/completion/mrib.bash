# Completion of mrib(1) for bash.

# The command among the words before the cursor, if any.
_mrib_command() {
  local i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --socket | --from | -c | --config | --trace | --table | --vrf) ((++i)) ;;
      -*) ;;
      *) echo "${COMP_WORDS[i]}" && return ;;
    esac
  done
}

_mrib() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command words
  COMPREPLY=()
  case $before in
    --socket | -c | --config | -o | --output) mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
    --from) mapfile -t COMPREPLY < <(compgen -d -- "$word") && return ;;
    --trace) words="0 1 2 3 4 5 6 7 8 9" ;;
    --type) words="connected static" ;;
    --format) words="tree dot svg mermaid json" ;;
    --in) words=$(ip -br link 2>/dev/null | cut -d ' ' -f 1 | cut -d @ -f 1) ;;
    --vrf) words=$(ip -br link show type vrf 2>/dev/null | cut -d ' ' -f 1) ;;
    --table | --set | --call | --depth | --at | --last | --since | --interval | --most) return ;;
  esac
  if [ -n "$words" ]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    return
  fi
  words="-h --help -j --json --socket --once --from -c --config --sample --fresh --notes --trace --table --vrf --version"
  command=$(_mrib_command)
  case $command in
    "") words+=" route rpf explain check metrics unicast unresolved status monitor watch graph report reload configure running-config check-config inspect what-if history show" ;;
    route) words+=" --longer --type --unresolved" ;;
    explain) words+=" --in --at" ;;
    check) words+=" --watch --interval" ;;
    metrics) words+=" --interval" ;;
    what-if) words+=" --each-link link address route ip no" ;;
    history) words+=" --last --since" ;;
    unicast) words+=" --longer" ;;
    unresolved) words+=" --waiting" ;;
    graph) words+=" --format -o --output --most" ;;
    report) words+=" -o --output" ;;
    reload) words+=" --dry-run" ;;
    configure) words+=" --dry-run --save" ;;
    inspect) words+=" --set --call --depth" ;;
    show) words="ip rpf mroute-static" ;;
    check-config) [[ $word == -* ]] || { mapfile -t COMPREPLY < <(compgen -f -- "$word") && return; } ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -o filenames -F _mrib mrib
