# Completion of vesk-calibrate for bash.
_vesk_calibrate() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb="" i
    local verbs="run info upload slots activate rename delete design gains mode sweep noise record
        watch"
    local all="--device --timeout --json --quiet --help"
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case " ${verbs//$'\n'/ } " in
            *" ${COMP_WORDS[i]} "*) verb=${COMP_WORDS[i]}; break ;;
        esac
    done
    case $previous in
        -o | --output) mapfile -t COMPREPLY < <(compgen -d -- "$word"); return ;;
        --microphone) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
        --target) mapfile -t COMPREPLY < <(compgen -W "flat house" -- "$word"; compgen -f -- "$word"); return ;;
        --stimulus) [ "$verb" = gains ] ||
            { mapfile -t COMPREPLY < <(compgen -W "sweep noise" -- "$word"); return; } ;;
        --correction | --gain-delay) mapfile -t COMPREPLY < <(compgen -W "on off" -- "$word"); return ;;
    esac
    local stimulus="--speaker --variant --start-in --gain" options=""
    case $verb in
        "") mapfile -t COMPREPLY < <(compgen -W "$verbs $all --version" -- "$word"); return ;;
        run) options="--output --positions --yes --pause --slot --force --name --description --mic
            --mic-channel --microphone --gain --target --range --max-boost --max-cut --headroom --crossover
            --no-align --play --no-verify" ;;
        upload) options="--slot --name --type --description --speaker --gain --rate --channels
            --activate" ;;
        rename) options="--name --type --description" ;;
        delete) options="--yes" ;;
        design) options="--output --positions --name --target --microphone --range --max-boost
            --max-cut --headroom --smoothing --rate --taps --sections --subwoofer --crossover
            --no-align" ;;
        gains) options="--speakers --microphone --stimulus --speaker" ;;
        mode) options="--correction --gain-delay" ;;
        sweep) options=$stimulus ;;
        noise) options="$stimulus --duration" ;;
        record) options="$stimulus --duration --mic --mic-channel --force --stimulus" ;;
        watch) options="--count" ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options $all" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -o filenames -F _vesk_calibrate vesk-calibrate
