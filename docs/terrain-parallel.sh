#!/usr/bin/env bash
# A streaming terrain, written by several processes of one machine:
#   terrain-parallel.sh PARTS RASTER... OUT
# Needs zmt and GNU parallel. JOBS processes run at once, without it one for each core; OPTIONS are those of
# zmt build terrain. What is done already is not done again when it is called once more.
set -euo pipefail

parts=$1
rasters=("${@:2:$#-2}")
out=${!#}
work=$out.parts
plan=$work/plan

mkdir -p "$work"
[[ -e $plan ]] || zmt build terrain "${rasters[@]}" ${OPTIONS-} --plan "$plan"

# A part that has its name is complete.
part() {
    [[ -e $3 ]] || zmt build terrain "$3" --part "$1" --plan "$2" --threads 1
}
export -f part
SHELL=$BASH parallel --jobs "${JOBS-100%}" --halt now,fail=1 \
    part "{}/$parts" "$plan" "$work/{}.part" ::: $(seq "$parts")

zmt build terrain --join "$work"/*.part "$out" --plan "$plan"
rm -r "$work"
