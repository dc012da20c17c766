#!/usr/bin/env bash
# What the command says of itself is taken by those that read it. usage: manual_test.sh VELTO
set -euo pipefail
velto=$1
status=0

expect() { # WHAT GOT WANTED
    [[ $2 == "$3" ]] || { echo "$1: got \"$2\", wanted \"$3\""; status=1; }
}

# The words that bash would offer for the last of these.
complete_in_bash() {
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    _velto
    echo "${COMPREPLY[*]}"
}
source <("$velto" completion bash)
expect "a command" "$(complete_in_bash velto sch ba)" ""
expect "a command" "$(complete_in_bash velto ba)" "bake"
expect "an option" "$(complete_in_bash velto bake --sha)" "--shape --shard"
expect "an option's values" "$(complete_in_bash velto bake --files '')" "any below"
expect "a file" "$(complete_in_bash velto check "$0")" "$0"

if command -v zsh >/dev/null; then "$velto" completion zsh | zsh -n || status=1; else echo "skipped: zsh"; fi
if command -v fish >/dev/null; then
    "$velto" completion fish | fish -n || status=1
    offered=$(fish -c "source ($velto completion fish | psub); complete -C 'velto bake --shar'" | cut -f1)
    expect "an option in fish" "$offered" "--shard"
else
    echo "skipped: fish"
fi
if command -v groff >/dev/null; then
    expect "the manual page" "$("$velto" manual | groff -man -Tutf8 -ww 2>&1 >/dev/null)" ""
else
    echo "skipped: groff"
fi
# Every command and option of the help stands in the manual.
manual=$("$velto" manual --format markdown)
while read -r command; do
    [[ $manual == *"## $command"* ]] || { echo "the manual lacks $command"; status=1; }
    for option in $("$velto" "$command" --help | grep -oE '^ +(-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+'); do
        [[ $manual == *"$option"* ]] || { echo "the manual lacks $command $option"; status=1; }
    done
done < <("$velto" --help | sed -n '/Subcommands:/,$p' | awk 'NR > 1 && /^  [a-z]/ { print $1 }')
exit $status
