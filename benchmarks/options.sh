# shellcheck shell=bash
# The options of the measurements that alternate runs, to be sourced: $runs, by -n, and $build, by -b, the folder
# of the build. OPTIND says what is left of the arguments.

runs=5 build=build/release-bench
while getopts n:b: option; do
    case $option in
    n) runs=$OPTARG ;;
    b) build=$OPTARG ;;
    *) exit 2 ;;
    esac
done
