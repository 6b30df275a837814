# Bash completion of quorinctl(8): commands, options, objects, and the names of VRFs from the store.

_quorinctl_vrfs() {
  # With the --store of the line. One object in a line; names with special characters are left out.
  quorinctl "$@" vrfs --json 2>/dev/null | sed -n 's/^{"vrf":"\([^"\\]*\)".*/\1/p'
}

_quorinctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  local commands='status vrfs interfaces addresses neighbours routes fib counters watch store contexts trace turns dump load'
  local tables='varnix arp neighbor route route6 fec'
  local objects='vrfs interfaces addresses neighbours routes counters nexthops'
  local traced='request vrfs contexts addresses neighbours routes fib store ipForwarding ipv6IpForwarding ifTable
    ifXTable ipAddrTable ipAddressTable ipAddressPrefixTable ipNetToMediaTable ipNetToPhysicalTable ipCidrRouteNumber
    ipCidrRouteTable inetCidrRouteTable mplsL3VpnVrfTable quorinVrfTable quorinVrfIfTable quorinSwFwdIpStatsTable
    quorinIpIfStatsTable quorinFIBStatsSummaryTable
    quorinFIBStatsByRouteTypeTable quorinFIBStatsByPrefixLenTable'
  local options='--store --agent --json --help'
  local command='' sub='' store=() i
  local position=0 # of the current word behind the command, options not counted
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --store) store=(--store "${COMP_WORDS[i + 1]}") && ((++i)) ;;
      --agent | -V | --vrf) ((++i)) ;;
      -*) ;;
      *)
        if [[ -z $command ]]; then
          command=${COMP_WORDS[i]}
        else
          [[ -n $sub ]] || sub=${COMP_WORDS[i]}
          ((++position))
        fi
        ;;
    esac
  done
  compopt +o default 2>/dev/null
  case $prev in
    --store)
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      return
      ;;
    --agent)
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      return
      ;;
    -V | --vrf)
      mapfile -t COMPREPLY < <(compgen -W "$(_quorinctl_vrfs "${store[@]}")" -- "$cur")
      return
      ;;
  esac
  local words=''
  case $command in
    '') words="$commands --version" ;;
    status) options+=' --perfdata' ;;
    vrfs | interfaces | addresses | neighbours | fib | counters | dump) options+=' --vrf' ;;
    routes)
      options+=' --vrf --longer'
      ((position > 0)) || words=$(_quorinctl_vrfs "${store[@]}")
      ;;
    watch) options+=' --vrf' words=$objects ;;
    store)
      if [[ -z $sub ]]; then words='check size dump'; elif [[ $sub == dump ]]; then words=$tables; fi
      ;;
    trace) ((position > 0)) || words=$traced ;;
    load)
      options+=' --once'
      [[ $cur == -* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      ;;
  esac
  if [[ $cur == -* ]]; then words+=" $options"; fi
  [[ -z $words ]] || mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}

complete -F _quorinctl quorinctl
