#!/usr/bin/env bash
# A streaming terrain, written by the nodes of a Slurm cluster:
#   terrain-slurm.sh PARTS RASTER... OUT
# Needs zmt, and rasters and OUT in folders that all nodes see. Submits three jobs, of which each waits for the
# one before: the plan, an array of parts, and their join, whose number is printed. OPTIONS are those of zmt
# build terrain; what sbatch is to know beyond that stands in SBATCH_ variables, such as SBATCH_PARTITION.
set -euo pipefail

case ${1-} in
plan)
    out=$2
    mkdir -p "$out.parts"
    zmt build terrain "${@:3}" ${OPTIONS-} --plan "$out.parts/plan" --threads "$SLURM_CPUS_PER_TASK"
    ;;
part)
    out=$2
    zmt build terrain "$out.parts/$SLURM_ARRAY_TASK_ID.part" --part "$SLURM_ARRAY_TASK_ID/$3" \
        --plan "$out.parts/plan" --threads "$SLURM_CPUS_PER_TASK"
    ;;
join)
    out=$2
    zmt build terrain --join "$out.parts"/*.part "$out" --plan "$out.parts/plan" \
        --threads "$SLURM_CPUS_PER_TASK"
    rm -r "$out.parts"
    ;;
*)
    parts=$1
    rasters=("${@:2:$#-2}")
    out=$(realpath "${!#}")
    mkdir -p "$out.parts"
    submit=(sbatch --parsable --kill-on-invalid-dep=yes --output "$out.parts/%x-%A-%a.log")
    plan=$("${submit[@]}" --job-name plan --cpus-per-task 2 --mem 2G "$0" plan "$out" "${rasters[@]}")
    array=$("${submit[@]}" --job-name part --cpus-per-task 1 --mem 1G --array "1-$parts" \
        --dependency "afterok:$plan" "$0" part "$out" "$parts")
    "${submit[@]}" --job-name join --cpus-per-task 2 --mem 2G --dependency "afterok:$array" "$0" join "$out"
    ;;
esac
