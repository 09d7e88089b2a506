#!/usr/bin/env bash
# Fails on an include that points against the one-way rule of the modules, or on a Qt header outside app/ui.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Module of a path below src (the longest prefix counts), and the modules that each may include.
modules=(base codecs dsp/kernels model formats synth devices dsp/wave dsp/instrument dsp/midi dsp/vst wizards app/ui app cli)
declare -A allowed=(
    [base]="base"
    [codecs]="base codecs"
    [dsp/kernels]="base dsp/kernels"
    [model]="base dsp/kernels model"
    [formats]="base codecs dsp/kernels model formats"
    [synth]="base dsp/kernels model formats synth"
    [devices]="base model formats devices"
    [dsp/wave]="base dsp/kernels model formats synth dsp/wave"
    [dsp/instrument]="base dsp/kernels model formats synth dsp/wave dsp/instrument"
    [dsp/midi]="base dsp/kernels model formats synth dsp/midi"
    [dsp/vst]="base dsp/kernels model formats synth dsp/vst"
    [wizards]="base dsp/kernels model formats synth devices dsp/wave dsp/instrument dsp/midi dsp/vst wizards"
    [app]="base dsp/kernels model formats synth devices dsp/wave dsp/instrument dsp/midi dsp/vst wizards app"
    [app/ui]="base dsp/kernels model formats synth devices dsp/wave dsp/instrument dsp/midi dsp/vst wizards app app/ui"
    [cli]="base codecs dsp/kernels model formats synth devices dsp/wave dsp/instrument dsp/midi dsp/vst wizards app cli"
)

module_of() {
    local best="" module
    for module in "${modules[@]}"; do
        [[ $1 == "$module"/* && ${#module} -gt ${#best} ]] && best=$module
    done
    echo "$best"
}

declare -A cache=()
status=0
while IFS=: read -r file line text; do
    from=$(module_of "${file#src/}")
    [ -n "$from" ] || { echo "$file: lies in no known module"; status=1; continue; }
    included=$(sed -E 's/.*#[[:space:]]*include[[:space:]]*[<"]([^>"]+)[>"].*/\1/' <<<"$text")
    if [[ $included == Q[A-Z]* || $included == Qt*/* ]]; then
        [ "$from" = app/ui ] || { echo "$file:$line: Qt header outside app/ui: $included"; status=1; }
        continue
    fi
    [[ $text == *'"'* ]] || continue
    if [ -z "${cache[$included]+x}" ]; then cache[$included]=$(module_of "$included"); fi
    to=${cache[$included]}
    if [ -z "$to" ]; then
        echo "$file:$line: include \"$included\" does not start with a module's folder"
        status=1
    elif [[ " ${allowed[$from]} " != *" $to "* ]]; then
        echo "$file:$line: $from must not include $to (\"$included\")"
        status=1
    fi
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include' src --include='*.h' --include='*.cpp')
[ $status -eq 0 ] && echo "layers: every include points the right way"
exit $status
