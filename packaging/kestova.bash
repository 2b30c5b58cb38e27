# bash completion for kestova

_kestova_streams()
{
    local kinds="imageStream imageCtrl imageState arpaStream arpaCtrl arpaState originalImage aisDev gpsDev depthDev
        headingDev secondArpaStream cameraCtrl cameraState arpaSeverCtrl arpaServerState radarClientCtrl
        radarClientState radarCheck otherType"
    local prefix=""
    [[ $1 == *,* ]] && prefix="${1%,*},"
    COMPREPLY=($(compgen -P "$prefix" -W "$kinds" -- "${1##*,}"))
}

_kestova()
{
    local current="${COMP_WORDS[COMP_CWORD]}"
    local previous="${COMP_WORDS[COMP_CWORD - 1]}"
    local common="--help --json --utc"
    local radar="--radars --radar --id --local-ip --duration"
    local options

    case "$previous" in
    --radars | --pcap) compopt -o filenames; COMPREPLY=($(compgen -f -- "$current")); return ;;
    --root | --to) compopt -o filenames; COMPREPLY=($(compgen -d -- "$current")); return ;;
    --streams) compopt -o nospace; _kestova_streams "$current"; return ;;
    --radar | --id | --group | --duration | --rate | --spokes | --seed | --start-time | --suffix | --speed | --start | --skip-silence | \
        --gap | --from | --to | --limit | --bytes | --map | --select | --source) return ;;
    --local-ip) COMPREPLY=($(compgen -W "127.0.0.1 $(command ls /sys/class/net 2>/dev/null)" -- "$current")); return ;;
    esac

    if ((COMP_CWORD == 1)); then
        COMPREPLY=($(compgen -W "simulate record replay info dump compress expand pcap export --help --version" -- "$current"))
        return
    fi
    case "${COMP_WORDS[1]}" in
    simulate) options="$common $radar --rate --spokes --seed --start-time" ;;
    record) options="$common $radar --group --streams --root --compress" ;;
    replay) options="$common --suffix --speed --start --skip-silence --streams --loop --net --local-ip --map" ;;
    info) options="$common --suffix --gap --digest" ;;
    compress | expand) options="$common --suffix" ;;
    pcap) options="$common --select --to" ;;
    export) options="$common --suffix --streams --pcap --source" ;;
    dump) options="$common --suffix --streams --from --to --limit --bytes --all --text" ;;
    *) return ;;
    esac
    if [[ $current == -* || ${COMP_WORDS[1]} == simulate || ${COMP_WORDS[1]} == record ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$current"))
    else
        compopt -o filenames
        COMPREPLY=($(compgen -f -- "$current"))
    fi
}

complete -F _kestova kestova
