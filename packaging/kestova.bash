# bash completion for kestova; _kestova_words, _kestova_value and _kestova_streams come from the options of the commands
_kestova()
{
    local current="${COMP_WORDS[COMP_CWORD]}" verb="" value="" names prefix=""
    ((COMP_CWORD > 1)) && verb="${COMP_WORDS[1]}"
    if [[ -n $verb && $current != -* ]]; then
        value="$(_kestova_value "$verb" "${COMP_WORDS[COMP_CWORD - 1]}")"
        [[ -z $value ]] && value="$(_kestova_value "$verb" "")"
    fi
    names="$(_kestova_words "$verb")"
    case "$value" in
    # Left to bash itself, which knows how names with blanks are quoted.
    FOLDER | ROOT...) compopt -o dirnames; return ;;
    *FILE* | *PATH*) compopt -o default; return ;;
    NAME,...)
        compopt -o nospace
        names=$_kestova_streams
        [[ $current == *,* ]] && prefix="${current%,*},"
        ;;
    ADDRESS) names="127.0.0.1 $(command ls /sys/class/net 2>/dev/null)" ;;
    COMMAND) names="$(_kestova_words "")" ;;
    '') ;;
    *) return ;;
    esac
    mapfile -t COMPREPLY < <(compgen -P "$prefix" -W "$names" -- "${current##*,}")
}

complete -F _kestova kestova
