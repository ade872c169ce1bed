# bash completion for customscan(1)                          -*- shell-script -*-
#
# Subcommands and options are read from the tool's own --help (once per
# subcommand and shell), so that they are always those of the customscan being
# completed. Needs nothing of the bash-completion package, so that zsh can run
# it through bashcompinit.

# The help of one subcommand path, cached: "customscan mif table --help".
_customscan_help() {
    local tool=$1
    shift
    local key="$tool $*"
    if [[ -z ${_customscan_help_cache[$key]+set} ]]; then
        _customscan_help_cache[$key]=$(CUSTOMSCAN_PLUGIN= "$tool" "$@" --help 2>/dev/null)
    fi
    printf '%s\n' "${_customscan_help_cache[$key]}"
}

# The subcommand names a help lists, one a line.
_customscan_subcommands() {
    awk '/^Subcommands:/ {on = 1; next} on && /^[^ ]/ {on = 0} on && /^  [^ ]/ {print $1}'
}

# "FLAG TYPE" for every option name a help lists, one a line: "--plugin PATH",
# "-h" and "--help" (no type), "--trace[=LEVEL]" as "--trace =LEVEL",
# "--format text|json|csv".
_customscan_options() {
    awk '/^Options:/ {on = 1; next}
         on && /^[^ ]/ {on = 0}
         on && /^  -/ {
             type = ($2 ~ /^[A-Za-z|=-]/ && $2 != "REQUIRED") ? $2 : ""
             sub(/:\{.*$/, "", type)
             n = split($1, flags, ",")
             for (i = 1; i <= n; i++) {
                 f = flags[i]
                 if (f ~ /\[=/) { t = f; sub(/\[=.*/, "", f); sub(/^[^[]*\[/, "", t); sub(/\]$/, "", t); print f " " t }
                 else print f " " type
             }
         }'
}

_customscan_scanner_dir() {
    local i
    for ((i = 1; i < ${#_cs_words[@]}; i++)); do
        case ${_cs_words[i]} in
            --scanner-dir=*) printf '%s\n' "${_cs_words[i]#--scanner-dir=}"; return ;;
            --scanner-dir) printf '%s\n' "${_cs_words[i + 1]}"; return ;;
        esac
    done
    printf '%s\n' "${CUSTOMSCAN_SCANNER_DIR-}"
}

# Adds to COMPREPLY the words of $1 (newline separated) that start with $2.
_customscan_offer() {
    local word
    while IFS= read -r word; do
        [[ -n $word && $word == "$2"* ]] && COMPREPLY+=("$word")
    done <<<"$1"
}

# Adds files (-f) or directories (-d) starting with $2, shown as file names.
_customscan_files() {
    local entry
    if [[ -n ${ZSH_VERSION-} ]]; then
        # zsh's compgen ignores the word to match: glob instead.
        for entry in "$2"*; do
            [[ -e $entry ]] || continue
            [[ $1 == -d && ! -d $entry ]] && continue
            COMPREPLY+=("$entry")
        done
        return
    fi
    while IFS= read -r entry; do
        COMPREPLY+=("$entry")
    done < <(compgen "$1" -- "$2")
    compopt -o filenames 2>/dev/null
}

# Completes the value of an option of type $1 (PATH, DIR, FILE|-, a|b|c, ...).
_customscan_value() {
    local type=$1 cur=$2
    case $type in
        PATH | FILE) _customscan_files -f "$cur" ;;
        FILE\|-) _customscan_files -f "$cur"; [[ -z $cur ]] && COMPREPLY+=(-) ;;
        DIR) _customscan_files -d "$cur" ;;
        "=LEVEL" | LEVEL) _customscan_offer $'1\n2\n3\n4' "$cur" ;;
        NAME=VALUE) _customscan_offer $'onDuplicatedKeys=error\nonDuplicatedKeys=warn' "$cur" ;;
        *\|*) local nl=$'\n'; _customscan_offer "${type//|/$nl}" "$cur" ;;
    esac
}

# Completes an expression property of `eval`: a name, or after path= and
# command= a program of the scanner directory.
_customscan_property() {
    local operand=$1 cur=$2 names
    case $operand in
        RunCommand | RunCommandEx) names=$'path=\ntrim=' ;;
        CustomScanInfo) names=$'command=\nclass=\ncode=\nfield=\noutput=' ;;
        CustomScanExists) names=$'command=\nclass=\ncode=\noutput=' ;;
        CustomScanList) names=$'command=\nclass=\noutput=' ;;
        *) return ;;
    esac
    if [[ $cur != *=* ]]; then
        _customscan_offer "$names" "$cur"
        compopt -o nospace 2>/dev/null
        return
    fi
    local name=${cur%%=*} value=${cur#*=} prefix=
    # When "=" breaks words (bash's default), only the value is replaced.
    [[ ${COMP_WORDBREAKS-} == *=* ]] || prefix="$name="
    local dir entry
    case $name in
        path | command)
            dir=$(_customscan_scanner_dir)
            [[ -d $dir ]] || return
            local -a found=()
            COMPREPLY=()
            _customscan_files -f "$dir/$value"
            found=("${COMPREPLY[@]}")
            COMPREPLY=()
            for entry in "${found[@]}"; do
                COMPREPLY+=("$prefix${entry#"$dir"/}")
            done
            ;;
        trim) _customscan_offer $'true\nfalse' "$value"; [[ -n $prefix ]] && COMPREPLY=("${COMPREPLY[@]/#/$prefix}") ;;
        output) _customscan_files -f "$value"; [[ -n $prefix ]] && COMPREPLY=("${COMPREPLY[@]/#/$prefix}") ;;
    esac
}

_customscan() {
    # zsh (bashcompinit) runs this too: arrays from 0, as in bash.
    [[ -n ${ZSH_VERSION-} ]] && setopt localoptions ksharrays nonomatch
    COMPREPLY=()
    local tool=${COMP_WORDS[0]}
    # Words as the user typed them: "--trace" "=" "4" joined back into "--trace=4".
    local -a _cs_words=()
    local i cword=0 word
    for ((i = 0; i < ${#COMP_WORDS[@]} && i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if ((${#_cs_words[@]} > 0)) && { [[ $word == "=" ]] || [[ ${_cs_words[-1]} == *= && ${COMP_WORDS[i - 1]} == "=" ]]; }; then
            _cs_words[-1]+=$word
        else
            _cs_words+=("$word")
        fi
        ((i == COMP_CWORD)) && cword=$((${#_cs_words[@]} - 1))
    done
    local cur=${_cs_words[cword]}

    # Walk the words before the cursor: subcommands, options and their values.
    local -a subpath=()
    local help opts subcommands positional=0 operand= pending=
    help=$(_customscan_help "$tool")
    subcommands=$(_customscan_subcommands <<<"$help")
    opts=$(_customscan_options <<<"$help")
    for ((i = 1; i < cword; i++)); do
        word=${_cs_words[i]}
        if [[ -n $pending ]]; then
            pending=
            continue
        fi
        if [[ $word == -* ]]; then
            local type
            type=$(awk -v f="${word%%=*}" '$1 == f {print $2}' <<<"$opts")
            [[ $word != *=* && -n $type && $type != "="* ]] && pending=$type
            continue
        fi
        if [[ $positional -eq 0 ]] && grep -qxF -- "$word" <<<"$subcommands"; then
            subpath+=("$word")
            help=$(_customscan_help "$tool" "${subpath[@]}")
            subcommands=$(_customscan_subcommands <<<"$help")
            opts=$(_customscan_options <<<"$help")
            continue
        fi
        ((positional == 0)) && operand=$word
        positional=$((positional + 1))
    done

    # The value of an option given as the previous word.
    if [[ -n $pending ]]; then
        _customscan_value "$pending" "$cur"
        return
    fi
    # --option=VALUE
    if [[ $cur == -*=* ]]; then
        local type value=${cur#*=}
        type=$(awk -v f="${cur%%=*}" '$1 == f {print $2}' <<<"$opts")
        _customscan_value "$type" "$value"
        [[ ${COMP_WORDBREAKS-} == *=* ]] || COMPREPLY=("${COMPREPLY[@]/#/${cur%%=*}=}")
        return
    fi
    if [[ $cur == -* ]]; then
        local line flag type
        while read -r flag type; do
            [[ $flag == "$cur"* ]] || continue
            if [[ $type == "="* ]]; then
                COMPREPLY+=("$flag" "$flag=")
            else
                COMPREPLY+=("$flag")
            fi
        done <<<"$opts"
        return
    fi
    if [[ -n $subcommands ]]; then
        _customscan_offer "$subcommands" "$cur"
        return
    fi
    case ${subpath[*]} in
        eval)
            if ((positional == 0)); then
                _customscan_offer $'RunCommand\nRunCommandEx\nCustomScanInfo\nCustomScanExists\nCustomScanList' "$cur"
            else
                _customscan_property "$operand" "$cur"
            fi
            ;;
        *)
            # FILE arguments (batch, mif ...): files, and - for standard input.
            if ((positional == 0)); then
                _customscan_value 'FILE|-' "$cur"
            else
                _customscan_files -f "$cur"
            fi
            ;;
    esac
}

declare -gA _customscan_help_cache=()
complete -F _customscan customscan
